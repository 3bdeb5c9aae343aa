#include "io/file_format.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <vector>

#include "core/platform.h"
#include "core/text.h"
#include "io/lp_reader.h"
#include "io/lp_writer.h"
#include "io/mps_reader.h"
#include "io/mps_writer.h"

namespace vlm::io {

namespace {

bool ends_with_gz(std::string_view name) {
  return name.size() >= 3 && iequals(name.substr(name.size() - 3), ".gz");
}

std::string reason(int err) { return err != 0 ? std::strerror(err) : "unknown error"; }

// RAII for a zlib file handle.
struct GzFile {
  gzFile f = nullptr;
  ~GzFile() {
    if (f != nullptr) gzclose(f);
  }
};

}  // namespace

bool gzip_compress(std::string_view content, std::string* out, int level) {
  z_stream z{};
  if (deflateInit2(&z, level, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    return false;
  }
  out->clear();
  std::vector<unsigned char> buf(1 << 16);
  std::size_t done = 0;
  int rc = Z_OK;
  do {
    const std::size_t chunk = std::min<std::size_t>(content.size() - done, 1u << 30);
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data() + done));
    z.avail_in = static_cast<uInt>(chunk);
    done += chunk;
    const int flush = done == content.size() ? Z_FINISH : Z_NO_FLUSH;
    do {
      z.next_out = buf.data();
      z.avail_out = static_cast<uInt>(buf.size());
      rc = deflate(&z, flush);
      if (rc == Z_STREAM_ERROR) {
        deflateEnd(&z);
        return false;
      }
      out->append(reinterpret_cast<const char*>(buf.data()), buf.size() - z.avail_out);
    } while (z.avail_out == 0);
  } while (rc != Z_STREAM_END);
  deflateEnd(&z);
  return true;
}

Status write_whole_file(const std::string& filename, std::string_view bytes, const char* what) {
  auto failed = [&](const std::string& head, const std::string& tail, int err) {
    return Status(VLM_ERROR_FILE_WRITE,
                  head + " " + what + " '" + filename + "'" + tail + ": " + reason(err));
  };
  errno = 0;
  std::string temp;
  const int fd = create_temp_beside(filename, &temp);
  if (fd < 0) return failed("Unable to open", " for writing", errno);
  if (!write_all(fd, bytes.data(), bytes.size())) {
    const int err = errno;
    sync_and_close(fd);
    remove_file(temp);
    return failed("Error while writing", "", err);
  }
  if (!sync_and_close(fd)) {
    const int err = errno;
    remove_file(temp);
    return failed("Error while writing", "", err);
  }
  if (!replace_file(temp, write_target(filename))) {
    const int err = errno;
    remove_file(temp);
    return failed("Unable to replace", "", err);
  }
  return Status::Ok();
}

std::string file_suffix(std::string_view filename) {
  std::string_view name = filename;
  std::size_t slash = name.find_last_of("/\\");
  if (slash != std::string_view::npos) name = name.substr(slash + 1);
  if (ends_with_gz(name)) name = name.substr(0, name.size() - 3);
  std::size_t dot = name.find_last_of('.');
  if (dot == std::string_view::npos || dot == 0) return "";
  return to_lower(name.substr(dot + 1));
}

std::optional<ModelFileType> model_file_type(std::string_view filename) {
  const std::string s = file_suffix(filename);
  ModelFileType t;
  t.gzip = ends_with_gz(filename);
  if (s == "lp" || s == "rlp") {
    t.format = ModelFormat::kLp;
    t.generic_names = s == "rlp";
    return t;
  }
  if (s == "mps" || s == "rew") {
    t.format = ModelFormat::kMps;
    t.generic_names = s == "rew";
    return t;
  }
  return std::nullopt;
}

bool is_model_file(std::string_view filename) { return model_file_type(filename).has_value(); }

bool is_attr_file(std::string_view filename) {
  static const char* const kSuffixes[] = {"attr", "sol", "mst", "hnt", "bas", "ord", "json"};
  const std::string s = file_suffix(filename);
  for (const char* k : kSuffixes) {
    if (s == k) return true;
  }
  return false;
}

StatusOr<std::string> read_file(const std::string& filename) {
  // gzread passes data that is not gzip through unchanged, so every file takes this path.
  errno = 0;
  GzFile in;
  in.f = gzopen(filename.c_str(), "rb");
  if (in.f == nullptr) {
    return Status(VLM_ERROR_FILE_READ,
                  "Unable to open file '" + filename + "' for reading: " + reason(errno));
  }
  std::string content;
  std::vector<char> buf(1 << 16);
  for (;;) {
    int n = gzread(in.f, buf.data(), static_cast<unsigned>(buf.size()));
    if (n < 0) {
      int zerr = 0;
      const char* msg = gzerror(in.f, &zerr);
      return Status(VLM_ERROR_FILE_READ, "Error while reading file '" + filename + "': " +
                                             (zerr == Z_ERRNO ? reason(errno) : std::string(msg)));
    }
    if (n == 0) break;
    content.append(buf.data(), static_cast<std::size_t>(n));
  }
  // gzread reports a stream cut short or corrupted only through gzerror, after handing over
  // what it could decompress: without this check half a model would read as a whole one.
  int zerr = Z_OK;
  const char* msg = gzerror(in.f, &zerr);
  if (zerr != Z_OK && zerr != Z_STREAM_END) {
    const long line = 1 + std::count(content.begin(), content.end(), '\n');
    std::string why = msg != nullptr ? msg : "";
    // zlib prefixes its message with the file name; the caller's text already has it.
    if (why.rfind(filename + ": ", 0) == 0) why = why.substr(filename.size() + 2);
    if (zerr == Z_ERRNO) why = reason(errno);
    return Status(VLM_ERROR_FILE_READ, "File '" + filename + "', line " + std::to_string(line) +
                                           ": compressed data is cut short or damaged (" + why + ")");
  }
  return content;
}

Status write_file(const std::string& filename, std::string_view content) {
  if (ends_with_gz(filename)) {
    std::string packed;
    if (!gzip_compress(content, &packed)) {
      return Status(VLM_ERROR_OUT_OF_MEMORY, "Out of memory while compressing file '" + filename + "'");
    }
    return write_whole_file(filename, packed);
  }
  return write_whole_file(filename, content);
}

StatusOr<std::unique_ptr<Model>> read_model_file(const Env& env, const std::string& filename) {
  std::optional<ModelFileType> type = model_file_type(filename);
  if (!type) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, "Unknown file type for file '" + filename +
                                                  "' (expected .mps, .lp, .rew or .rlp, "
                                                  "optionally .gz)");
  }
  VLM_ASSIGN_OR_RETURN(std::string text, read_file(filename));
  ReadModel rm;
  if (type->format == ModelFormat::kLp) {
    VLM_RETURN_IF_ERROR(read_lp(text, filename, rm));
  } else {
    VLM_RETURN_IF_ERROR(read_mps(text, filename, rm));
  }
  auto model = std::make_unique<Model>(env, rm.data.name);
  VLM_RETURN_IF_ERROR(build_model(rm, filename, *model));
  return model;
}

Status write_model_file(const ModelData& data, const std::string& filename) {
  std::optional<ModelFileType> type = model_file_type(filename);
  if (!type) {
    return Status(VLM_ERROR_INVALID_ARGUMENT, "Unknown file type for file '" + filename + "'");
  }
  std::ostringstream out;
  if (type->format == ModelFormat::kLp) {
    VLM_RETURN_IF_ERROR(write_lp(data, out, type->generic_names));
  } else {
    VLM_RETURN_IF_ERROR(write_mps(data, out, MpsLayout::kAuto, type->generic_names));
  }
  return write_file(filename, out.str());
}

Status build_model(ReadModel& rm, const std::string& filename, Model& model) {
  ModelData& d = rm.data;
  auto refused = [&](const Status& s, const std::string& what) {
    return Status(VLM_ERROR_FILE_READ,
                  "File '" + filename + "': " + (what.empty() ? "" : what + ": ") + s.message());
  };
  auto name_or_null = [](const std::string& s) { return s.empty() ? nullptr : s.c_str(); };

  const int n = d.num_vars();
  if (n > 0) {
    std::vector<const char*> names(n);
    for (int j = 0; j < n; ++j) names[j] = name_or_null(d.varname.given(j));
    Status s = model.add_vars(n, 0, nullptr, nullptr, nullptr, d.obj.data(), d.lb.data(),
                              d.ub.data(), d.vtype.data(), names.data());
    if (!s.ok()) return refused(s, "variables");
    // Later calls name the variables by index, which needs them in place whatever UpdateMode.
    s = model.update();
    if (!s.ok()) return refused(s, "");
  }

  // Linear constraints in file order: runs of plain rows go in one call, ranges one by one.
  const int m = d.num_constrs();
  int i = 0;
  while (i < m) {
    auto range = rm.range_upper.find(i);
    if (range != rm.range_upper.end()) {
      const Row& r = d.rows[i];
      Status s = model.add_range_constr(static_cast<int>(r.ind.size()), r.ind.data(),
                                        r.val.data(), d.rhs[i], range->second,
                                        name_or_null(d.constrname.given(i)));
      if (!s.ok()) return refused(s, "constraint '" + d.constrname[i] + "'");
      ++i;
      continue;
    }
    int end = i;
    while (end < m && rm.range_upper.count(end) == 0) ++end;
    std::vector<int> beg, ind;
    std::vector<double> val;
    std::vector<const char*> names;
    for (int k = i; k < end; ++k) {
      beg.push_back(static_cast<int>(ind.size()));
      ind.insert(ind.end(), d.rows[k].ind.begin(), d.rows[k].ind.end());
      val.insert(val.end(), d.rows[k].val.begin(), d.rows[k].val.end());
      names.push_back(name_or_null(d.constrname.given(k)));
    }
    Status s = model.add_constrs(end - i, static_cast<int>(ind.size()), beg.data(), ind.data(),
                                 val.data(), d.csense.data() + i, d.rhs.data() + i, names.data());
    if (!s.ok()) return refused(s, "constraints");
    i = end;
  }

  for (QConstrData& q : d.qconstrs) {
    std::string name = q.name;
    Status s = model.add_qconstr(std::move(q));
    if (!s.ok()) return refused(s, "quadratic constraint '" + name + "'");
  }

  if (!d.sos.empty()) {
    std::vector<int> types, beg, ind;
    std::vector<double> weight;
    for (const SosData& s : d.sos) {
      types.push_back(s.type);
      beg.push_back(static_cast<int>(ind.size()));
      ind.insert(ind.end(), s.ind.begin(), s.ind.end());
      weight.insert(weight.end(), s.weight.begin(), s.weight.end());
    }
    Status s = model.add_sos(d.num_sos(), static_cast<int>(ind.size()), types.data(), beg.data(),
                             ind.data(), weight.data());
    if (!s.ok()) return refused(s, "SOS constraints");
  }

  for (GenConstrData& g : d.genconstrs) {
    std::string name = g.name;
    Status s = model.add_genconstr(std::move(g));
    if (!s.ok()) return refused(s, "general constraint '" + name + "'");
  }

  if (!d.qval.empty()) {
    Status s = model.add_qpterms(static_cast<int>(d.qval.size()), d.qrow.data(), d.qcol.data(),
                                 d.qval.data());
    if (!s.ok()) return refused(s, "quadratic objective");
  }

  for (const auto& [var, p] : d.pwlobj) {
    Status s = model.set_pwlobj(var, static_cast<int>(p.x.size()), p.x.data(), p.y.data());
    if (!s.ok()) return refused(s, "piecewise-linear objective of '" + d.varname[var] + "'");
  }

  for (int k = 0; k < static_cast<int>(d.objn.size()); ++k) {
    const ObjectiveN& o = d.objn[k];
    std::vector<int> ind;
    std::vector<double> val;
    for (int j = 0; j < static_cast<int>(o.coef.size()); ++j) {
      if (o.coef[j] != 0.0) {
        ind.push_back(j);
        val.push_back(o.coef[j]);
      }
    }
    Status s = model.set_objectiven(k, o.priority, o.weight, o.abstol, o.reltol, o.name.c_str(),
                                    o.con, static_cast<int>(ind.size()), ind.data(), val.data());
    if (!s.ok()) return refused(s, "objective " + std::to_string(k));
  }

  const int sense = d.sense;
  const double objcon = d.objcon;
  // Scenarios refer to the user's variables and linear constraints by index, which the calls
  // above kept (range slacks come after the variables).
  model.queue_change([sense, objcon, scenarios = std::move(d.scenarios)](ModelData& md) mutable {
    md.sense = sense;
    md.objcon = objcon;
    md.scenarios = std::move(scenarios);
  });
  Status s = model.update();
  if (!s.ok()) return refused(s, "");
  return Status::Ok();
}

std::string format_number(double v) {
  char buf[64];
  auto res = std::to_chars(buf, buf + sizeof(buf), v);
  return std::string(buf, res.ptr);
}

std::string indexed_name(const char* prefix, int index) {
  std::string s(prefix);
  s += std::to_string(index);
  return s;
}

Status parse_error(const std::string& filename, int line, const std::string& what) {
  return Status(VLM_ERROR_FILE_READ,
                "File '" + filename + "', line " + std::to_string(line) + ": " + what);
}

Status refuse_nul(std::string_view text, const std::string& filename) {
  const std::size_t at = text.find('\0');
  if (at == std::string_view::npos) return Status::Ok();
  const int line = 1 + static_cast<int>(std::count(text.begin(), text.begin() + at, '\n'));
  return parse_error(filename, line,
                     "the file holds a NUL character (byte 0), which no name or number may contain");
}

}  // namespace vlm::io
