// Model files: which format a file name means, transparent gzip, and the steps the LP and MPS
// readers and writers share.
//
// Suffixes (case-insensitive, each optionally followed by ".gz"):
//   .lp   LP format                    .mps  MPS format (free or fixed, see mps_reader.h)
//   .rlp  LP with generic names        .rew  MPS with generic names
// Generic names replace the user's: variables C0, C1, ...; linear constraints R0, ...;
// quadratic constraints QC0, ...; general constraints GC0, ...; objectives OBJ0, ...; the
// model name is left out. Reading an .rlp or .rew file is reading an LP or MPS file.
//
// Readers never build a model piecemeal: they collect the file into a ReadModel and hand it
// to build_model, which goes through Model's public building calls (so a file is validated
// like API input) and updates once. A failed read leaves no model behind.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "core/status.h"
#include "env/env.h"
#include "model/model.h"
#include "model/model_data.h"

namespace vlm::io {

enum class ModelFormat { kLp, kMps };

struct ModelFileType {
  ModelFormat format = ModelFormat::kLp;
  bool generic_names = false;  // .rlp / .rew
  bool gzip = false;
};

// The lower-case suffix of `filename` without a trailing ".gz" ("lp", "mps", "attr", ...);
// "" when the name has none.
std::string file_suffix(std::string_view filename);

// The model format a file name means, or nullopt when its suffix is not a model format.
std::optional<ModelFileType> model_file_type(std::string_view filename);

bool is_model_file(std::string_view filename);
// .attr, .sol, .mst, .hnt, .bas, .ord, .json (optionally .gz).
bool is_attr_file(std::string_view filename);

// The whole content of a file, gunzipped when it is gzip data (whatever its name). Fails with
// VLM_ERROR_FILE_READ "Unable to open file 'x' for reading: <reason>".
StatusOr<std::string> read_file(const std::string& filename);

// Writes `content` to a file, gzip-compressed when the name ends in ".gz", through
// write_whole_file. Fails with VLM_ERROR_FILE_WRITE naming the file and the reason.
Status write_file(const std::string& filename, std::string_view content);

// The one way the library writes a file: `bytes` go to a temporary file beside `filename`,
// which is flushed to storage, closed and checked, then renamed over `filename`. On any failure
// (missing folder, no permission, full disk, a write error part-way) the temporary file is
// removed and an existing `filename` is left exactly as it was. Fails with
// VLM_ERROR_FILE_WRITE: "Unable to open <what> 'name' for writing: <reason>", "Error while
// writing <what> 'name': <reason>" or "Unable to replace <what> 'name': <reason>". O(size).
Status write_whole_file(const std::string& filename, std::string_view bytes,
                        const char* what = "file");

// Reads an LP or MPS file (by suffix) into a new, updated model on a copy of `env`, named as
// the file says (MPS NAME line, LP "\ Model:" comment) or "". Fails with
// VLM_ERROR_INVALID_ARGUMENT for a suffix that is not a model format and with
// VLM_ERROR_FILE_READ for anything wrong in the file (file name, line, what was expected).
// Linear in the size of the file.
StatusOr<std::unique_ptr<Model>> read_model_file(const Env& env, const std::string& filename);

// Writes the model's updated state (the caller runs update() first) as LP or MPS by suffix.
// Fails with VLM_ERROR_INVALID_ARGUMENT for a suffix that is not a model format, with
// VLM_ERROR_FILE_WRITE when the file cannot be written or the names cannot be represented.
Status write_model_file(const ModelData& data, const std::string& filename);

// What a reader collects: the model in ModelData form. A linear constraint i listed in
// `range_upper` reads rhs[i] <= row i <= range_upper[i] and is added with
// Model::add_range_constr, which appends its slack variable "Rg" + name after the variables.
// Names left empty take the store's default names.
struct ReadModel {
  ModelData data;
  std::unordered_map<int, double> range_upper;
};

// Adds everything in `rm` to the empty `model` through its public building calls, then
// updates. A refusal by the model becomes VLM_ERROR_FILE_READ naming the file.
Status build_model(ReadModel& rm, const std::string& filename, Model& model);

// gzip-wraps `content` in memory (zlib's deflate with the gzip header), so that compressed
// files take the same atomic path as plain ones and batch submissions travel compressed.
// `level` is zlib's: 1 fastest .. 9 smallest, -1 its default (6). False only when zlib runs out
// of memory. O(size).
bool gzip_compress(std::string_view content, std::string* out, int level = -1);

// The shortest text that reads back as exactly `v` ("3", "0.1", "1e+30", "-2.5e-07").
std::string format_number(double v);

// prefix + index: "C7", "R0", ... (generic names and names made up by the writers).
std::string indexed_name(const char* prefix, int index);

// VLM_ERROR_FILE_READ "File 'name', line N: what".
Status parse_error(const std::string& filename, int line, const std::string& what);

// Refuses text holding a NUL byte (names would be cut short at it on their way into the
// model): "File 'name', line N: the file holds a NUL character (byte 0) ...". O(size).
Status refuse_nul(std::string_view text, const std::string& filename);

}  // namespace vlm::io
