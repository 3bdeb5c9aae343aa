// libFuzzer target for the LP and MPS readers. The first input byte picks the format (even: LP,
// odd: MPS), the rest is the file text. Every input must either be refused with
// VLM_ERROR_FILE_READ or give a model; a model is then written in the same format and the text
// written must read back (a writer that produces a file its own reader refuses is a bug).
// Crashes, hangs, leaks and sanitizer reports are what the fuzzer looks for; the two checks
// above trap explicitly.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "env/env.h"
#include "io/file_format.h"
#include "io/lp_reader.h"
#include "io/lp_writer.h"
#include "io/mps_reader.h"
#include "io/mps_writer.h"
#include "model/model.h"

namespace {

// Reads `text` in the chosen format into an updated model; nullptr when refused.
std::unique_ptr<vlm::Model> read(const vlm::Env& env, std::string_view text, bool mps, vlm::Status* status) {
  vlm::io::ReadModel rm;
  const std::string name = mps ? "fuzz.mps" : "fuzz.lp";
  *status = mps ? vlm::io::read_mps(text, name, rm) : vlm::io::read_lp(text, name, rm);
  if (!status->ok()) return nullptr;
  auto m = std::make_unique<vlm::Model>(env, rm.data.name);
  *status = vlm::io::build_model(rm, name, *m);
  return status->ok() ? std::move(m) : nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static const vlm::Env env;
  const bool mps = (data[0] & 1) != 0;
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  vlm::Status s;
  auto m = read(env, text, mps, &s);
  if (m == nullptr) {
    if (s.code() != VLM_ERROR_FILE_READ) std::abort();  // every refusal of a file is a file error
    return 0;
  }
  std::ostringstream out;
  vlm::Status w = mps ? vlm::io::write_mps(m->data(), out, vlm::io::MpsLayout::kAuto, false)
                      : vlm::io::write_lp(m->data(), out, false);
  if (!w.ok()) return 0;  // names a format cannot hold are refused by the writer, clearly
  vlm::Status back;
  if (read(env, out.str(), mps, &back) == nullptr) {
    std::fprintf(stderr, "written text does not read back: %s\n---\n%s\n---\n", back.message().c_str(),
                 out.str().c_str());
    std::abort();
  }
  return 0;
}
