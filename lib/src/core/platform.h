// Platform facts and the few calls that differ between operating systems. Everything
// OS-specific in the library lives in platform.cpp.
#pragma once

#include <cstdio>
#include <string>

namespace vlm {

// "linux64", "mac64", "armlinux64", "win64", ... as the library was built.
const char* platform_name();

// True when this process runs in a container (checked once per process).
bool running_in_container();

// Resident memory of this process in gigabytes, or 0 where the platform does not tell.
double resident_memory_gb();

// Processor time used by this process, in seconds.
double process_cpu_seconds();

// Opens `path` for appending, creating it if needed; nullptr on failure (errno set).
std::FILE* open_for_append(const std::string& path);

}  // namespace vlm
