#include "io/basis_file.h"

#include <sstream>
#include <vector>

#include "attrs/attr_engine.h"
#include "core/text.h"
#include "io/file_format.h"
#include "io/words.h"

namespace vlm::io {

Status write_basis_file(const std::string& filename, Model& m) {
  const Solution* s = m.solution();
  if (s == nullptr || !s->has_basis) {
    return Status(VLM_ERROR_DATA_NOT_AVAILABLE, "No basis available to write to '" + filename + "'");
  }
  const ModelData& d = m.data();
  std::vector<int> basic_cols, nonbasic_rows;
  for (int j = 0; j < d.num_vars(); ++j) {
    if (s->vbasis[j] == 0) basic_cols.push_back(j);
  }
  for (int i = 0; i < d.num_constrs(); ++i) {
    if (s->cbasis[i] != 0) nonbasic_rows.push_back(i);
  }
  std::ostringstream out;
  out << "NAME " << d.name << "\n";
  // A basis has as many basic columns as nonbasic rows: they are written in pairs.
  const std::size_t pairs = std::min(basic_cols.size(), nonbasic_rows.size());
  for (std::size_t k = 0; k < pairs; ++k) {
    const int j = basic_cols[k], i = nonbasic_rows[k];
    out << (d.csense[i] == '<' ? " XU " : " XL ") << quote_word(d.varname[j]) << ' ' << quote_word(d.constrname[i])
        << '\n';
  }
  for (int j = 0; j < d.num_vars(); ++j) {
    if (s->vbasis[j] == -2) out << " UL " << quote_word(d.varname[j]) << '\n';
    if (s->vbasis[j] == -1) out << " LL " << quote_word(d.varname[j]) << '\n';
  }
  out << "ENDATA\n";
  return write_file(filename, out.str());
}

Status read_basis_file(const std::string& filename, Model& m) {
  VLM_ASSIGN_OR_RETURN(std::string content, read_file(filename));
  const ModelData& d = m.data();
  std::vector<int> vb(d.num_vars(), -1), cb(d.num_constrs(), 0);
  std::istringstream in(content);
  std::string line;
  std::vector<std::string> w;
  int lineno = 0;
  bool ended = false;
  auto fail = [&](const std::string& what) {
    return Status(VLM_ERROR_FILE_READ, "Basis file '" + filename + "', line " + std::to_string(lineno) + ": " + what);
  };
  while (!ended && std::getline(in, line)) {
    ++lineno;
    std::string_view t = trim(line);
    if (t.empty() || t.front() == '*') continue;
    if (!split_words(line, w)) return fail("unterminated quoted name");
    const std::string key = to_lower(w[0]);
    if (key == "name") continue;
    if (key == "endata") {
      ended = true;
      continue;
    }
    const bool pair = key == "xu" || key == "xl";
    if (!pair && key != "ul" && key != "ll") return fail("expected XU, XL, UL, LL or ENDATA, found '" + w[0] + "'");
    if (w.size() != (pair ? 3u : 2u)) return fail(pair ? "expected 'XU column row'" : "expected 'UL column'");
    int j = m.find_by_name(VLM_KIND_VAR, w[1]);
    if (j < 0) return fail("no variable named '" + w[1] + "'");
    if (pair) {
      int i = m.find_by_name(VLM_KIND_CONSTR, w[2]);
      if (i < 0) return fail("no constraint named '" + w[2] + "'");
      vb[j] = 0;
      cb[i] = -1;
    } else {
      vb[j] = key == "ul" ? -2 : -1;
    }
  }
  if (!ended) return fail("missing ENDATA");
  const int vattr = find_attr("VBasis"), cattr = find_attr("CBasis");
  const std::size_t mark = m.change_mark();
  AttrValue v;
  for (int j = 0; j < d.num_vars(); ++j) {
    v.num = vb[j];
    Status s = set_attr(m, vattr, j, v);
    if (!s.ok()) {
      m.rollback_changes(mark);
      return s;
    }
  }
  for (int i = 0; i < d.num_constrs(); ++i) {
    v.num = cb[i];
    Status s = set_attr(m, cattr, i, v);
    if (!s.ok()) {
      m.rollback_changes(mark);
      return s;
    }
  }
  return Status::Ok();
}

}  // namespace vlm::io
