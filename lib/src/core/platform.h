// Platform facts and the few calls that differ between operating systems. Everything
// OS-specific in the library lives in platform.cpp.
#pragma once

#include <cstddef>
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

// Seconds on a monotonic clock (differences are elapsed wall time; the origin means nothing).
double wall_seconds();

// Opens `path` for appending, creating it if needed; nullptr on failure (errno set).
std::FILE* open_for_append(const std::string& path);

// The steps of replacing a file without ever exposing a half-written one: create a temporary
// file in the target's folder, write it whole, flush it to storage, rename it over the target.
// A rename within one folder replaces the target in one step on every platform we build for.
// Each call returns false (or -1) with errno set on failure and never throws.

// Creates a new, empty, uniquely named file "<target>.tmpXXXXXX" beside `target` (beside the
// file a symbolic link points to, so that the link survives) and opens it for writing. Returns
// its descriptor and stores its path in *temp_path; -1 on failure. The file gets the
// permissions of an existing target, or those a newly created file would get.
int create_temp_beside(const std::string& target, std::string* temp_path);

// Writes all `size` bytes to `fd`, resuming after short writes. O(size).
bool write_all(int fd, const char* data, std::size_t size);

// Flushes `fd` to storage and closes it; the descriptor is closed even when this fails.
bool sync_and_close(int fd);

// Moves `from` onto `to`, replacing `to` if it exists.
bool replace_file(const std::string& from, const std::string& to);

// Deletes `path`, ignoring failure (used to clean up temporary files).
void remove_file(const std::string& path);

// The final path a write to `target` replaces: `target` itself, or the file it links to.
std::string write_target(const std::string& target);

// Loads a shared library by file name ("libcurl.so.4") at run time; nullptr when it cannot be
// loaded, with the system's reason in *error. Libraries stay loaded for the process's life.
void* open_shared_library(const std::string& name, std::string* error);

// The address of `symbol` in a library from open_shared_library, or nullptr.
void* shared_library_symbol(void* library, const char* symbol);

// Test hook: after `bytes` more bytes, write_all fails with ENOSPC as a full disk would; a
// negative value (the default) turns the hook off. Process-wide; tests only.
void set_write_limit_for_testing(long long bytes);

}  // namespace vlm
