// Model: the printers. display() writes the model to its log in an LP-like form, printStats()
// its size and coefficient ranges, printQuality() the violations of the current solution;
// printAttr() prints tables of attribute values to sys.stdout.
#include "model/model_print.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "attrs/attrutil.h"
#include "model/model.h"
#include "model/model_util.h"
#include "core/py_convert.h"
#include "core/py_error.h"

namespace {

// ---- small helpers ---------------------------------------------------------------------------

std::string format(const char* fmt, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, fmt);
  int n = std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  if (n < 0) return std::string();
  if (static_cast<std::size_t>(n) < sizeof buf) return std::string(buf, static_cast<std::size_t>(n));
  std::string out(static_cast<std::size_t>(n) + 1, '\0');
  va_start(ap, fmt);
  std::vsnprintf(out.data(), out.size(), fmt, ap);
  va_end(ap);
  out.resize(static_cast<std::size_t>(n));
  return out;
}

// Python's str() of a float, so printed expressions read like LinExpr texts.
std::string float_repr(double v) {
  char* s = PyOS_double_to_string(v, 'r', 0, Py_DTSF_ADD_DOT_0, nullptr);
  if (s == nullptr) return "nan";
  std::string out(s);
  PyMem_Free(s);
  return out;
}

// Library doubles at or beyond VLM_INFINITY print as inf.
double shown(double v) {
  if (v >= VLM_INFINITY) return HUGE_VAL;
  if (v <= -VLM_INFINITY) return -HUGE_VAL;
  return v;
}

bool get_dbl(PyObject* self, const char* attr, double* out) {
  int rc = VLMgetdblattr(model_handle(self), attr, out);
  if (rc != 0) raise_velmor(rc, self);
  return rc == 0;
}

// Reads all values of a string element attribute (copied: the library's strings live only
// until the next call).
bool get_str_array(PyObject* self, const char* attr, int n, std::vector<std::string>* out) {
  std::vector<char*> v(static_cast<std::size_t>(n));
  int rc = n > 0 ? VLMgetstrattrarray(model_handle(self), attr, 0, n, v.data()) : 0;
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  out->assign(v.begin(), v.end());
  return true;
}

template <class T, class Get>
bool get_array(PyObject* self, int n, std::vector<T>* out, Get get) {
  out->resize(static_cast<std::size_t>(n));
  int rc = n > 0 ? get(out->data()) : 0;
  if (rc != 0) raise_velmor(rc, self);
  return rc == 0;
}

bool write_stdout(const std::string& text) {
  PyObject* out = PySys_GetObject("stdout");  // borrowed
  if (out == nullptr || out == Py_None) return true;
  py::Ref r = py::Ref::steal(PyObject_CallMethod(out, "write", "s", text.c_str()));
  return static_cast<bool>(r);
}

// ---- printers --------------------------------------------------------------------------------

// Writes `text` in pieces of at most `length` characters, cut at the last separator before the
// limit (or at the limit when there is none), each stripped of surrounding blanks.
bool split_long_message(PyObject* self, const std::string& text, const std::string& sep, std::size_t length) {
  std::string rest = text;
  auto strip = [](const std::string& s) {
    std::size_t b = s.find_first_not_of(" \t\n");
    if (b == std::string::npos) return std::string();
    std::size_t e = s.find_last_not_of(" \t\n");
    return s.substr(b, e - b + 1);
  };
  while (rest.size() > length) {
    std::size_t cut = sep.empty() ? std::string::npos : rest.rfind(sep, length);
    std::size_t skip = sep.size();
    if (cut == std::string::npos || cut == 0) {
      cut = length;
      skip = 0;
    }
    std::string piece = strip(rest.substr(0, cut));
    if (!piece.empty() && !model_message(self, piece)) return false;
    rest = rest.substr(cut + skip);
  }
  std::string piece = strip(rest);
  if (!piece.empty() && !model_message(self, piece)) return false;
  return true;
}

// The readable text of a linear part, as LinExpr prints it: "0.0" when empty, the constant
// first when non-zero, then the terms joined by " + ", coefficient 1 left out.
std::string linear_text(double constant, const std::vector<std::pair<double, std::string>>& terms) {
  std::string out;
  if (constant != 0.0) out = float_repr(constant);
  for (const auto& [coef, name] : terms) {
    if (!out.empty()) out += " + ";
    if (coef != 1.0) out += float_repr(coef) + " ";
    out += name;
  }
  return out.empty() ? "0.0" : out;
}

// Element i of a library-sized array (library counts and indices are int).
template <class V>
auto& at(V& v, int i) {
  return v[static_cast<std::size_t>(i)];
}

template <class T>
std::vector<T> sized(int n) {
  return std::vector<T>(static_cast<std::size_t>(n > 0 ? n : 0));
}

// Terms of a sparse row over the variables' names.
std::vector<std::pair<double, std::string>> named_terms(const int* ind, const double* val, int n,
                                                        const std::vector<std::string>& names) {
  std::vector<std::pair<double, std::string>> terms;
  for (int k = 0; k < n; ++k) terms.emplace_back(val[k], at(names, ind[k]));
  return terms;
}

// The quadratic part " + [ ... ]" as QuadExpr prints it ("" without terms).
std::string quad_text(const int* row, const int* col, const double* val, int n,
                      const std::vector<std::string>& names) {
  if (n == 0) return std::string();
  std::string out = " + [ ";
  for (int k = 0; k < n; ++k) {
    if (k > 0) out += " + ";
    if (val[k] != 1.0) out += float_repr(val[k]) + " ";
    out += at(names, row[k]);
    out += row[k] == col[k] ? " ^ 2" : " * " + at(names, col[k]);
  }
  return out + " ]";
}

const char* sense_text(char c) { return c == '<' ? "<=" : c == '>' ? ">=" : "="; }

// The objective as an expression text: ObjCon, the linear terms, the quadratic terms.
bool objective_text(PyObject* self, const std::vector<std::string>& names, std::string* out) {
  VLMmodel* h = model_handle(self);
  const int n = static_cast<int>(names.size());
  double objcon = 0;
  std::vector<double> obj;
  if (!get_dbl(self, "ObjCon", &objcon) ||
      !get_array(self, n, &obj, [&](double* v) { return VLMgetdblattrarray(h, "Obj", 0, n, v); })) {
    return false;
  }
  std::vector<std::pair<double, std::string>> terms;
  for (int j = 0; j < n; ++j) {
    if (at(obj, j) != 0.0) terms.emplace_back(at(obj, j), at(names, j));
  }
  int nq = 0;
  int rc = VLMgetq(h, &nq, nullptr, nullptr, nullptr);
  auto qrow = sized<int>(nq), qcol = sized<int>(nq);
  auto qval = sized<double>(nq);
  if (rc == 0 && nq > 0) rc = VLMgetq(h, &nq, qrow.data(), qcol.data(), qval.data());
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  *out = linear_text(objcon, terms) + quad_text(qrow.data(), qcol.data(), qval.data(), nq, names);
  return true;
}

// "  name: expression sense rhs" for every linear constraint.
bool linear_rows(PyObject* self, const std::vector<std::string>& names, std::vector<std::string>* lines) {
  VLMmodel* h = model_handle(self);
  int m = 0;
  if (!get_int(self, "NumConstrs", &m)) return false;
  std::vector<std::string> rownames;
  std::vector<char> sense;
  std::vector<double> rhs;
  if (!get_str_array(self, "ConstrName", m, &rownames) ||
      !get_array(self, m, &sense, [&](char* v) { return VLMgetcharattrarray(h, "Sense", 0, m, v); }) ||
      !get_array(self, m, &rhs, [&](double* v) { return VLMgetdblattrarray(h, "RHS", 0, m, v); })) {
    return false;
  }
  int nnz = 0;
  int rc = m > 0 ? VLMgetconstrs(h, &nnz, nullptr, nullptr, nullptr, 0, m) : 0;
  auto beg = sized<int>(m), ind = sized<int>(nnz);
  auto val = sized<double>(nnz);
  if (rc == 0 && m > 0) rc = VLMgetconstrs(h, &nnz, beg.data(), ind.data(), val.data(), 0, m);
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  for (int i = 0; i < m; ++i) {
    int first = at(beg, i);
    int end = i + 1 < m ? at(beg, i + 1) : nnz;
    auto terms = named_terms(ind.data() + first, val.data() + first, end - first, names);
    lines->push_back("  " + at(rownames, i) + ": " + linear_text(0.0, terms) + " " + sense_text(at(sense, i)) +
                     " " + format("%g", shown(at(rhs, i))));
  }
  return true;
}

// The same for quadratic constraints.
bool quadratic_rows(PyObject* self, const std::vector<std::string>& names, std::vector<std::string>* lines) {
  VLMmodel* h = model_handle(self);
  int m = 0;
  if (!get_int(self, "NumQConstrs", &m)) return false;
  std::vector<std::string> rownames;
  std::vector<char> sense;
  std::vector<double> rhs;
  if (!get_str_array(self, "QCName", m, &rownames) ||
      !get_array(self, m, &sense, [&](char* v) { return VLMgetcharattrarray(h, "QCSense", 0, m, v); }) ||
      !get_array(self, m, &rhs, [&](double* v) { return VLMgetdblattrarray(h, "QCRHS", 0, m, v); })) {
    return false;
  }
  for (int i = 0; i < m; ++i) {
    int nl = 0, nq = 0;
    int rc = VLMgetqconstr(h, i, &nl, nullptr, nullptr, &nq, nullptr, nullptr, nullptr);
    auto lind = sized<int>(nl), qrow = sized<int>(nq), qcol = sized<int>(nq);
    auto lval = sized<double>(nl), qval = sized<double>(nq);
    if (rc == 0) {
      rc = VLMgetqconstr(h, i, &nl, lind.data(), lval.data(), &nq, qrow.data(), qcol.data(), qval.data());
    }
    if (rc != 0) {
      raise_velmor(rc, self);
      return false;
    }
    auto terms = named_terms(lind.data(), lval.data(), nl, names);
    lines->push_back("  " + at(rownames, i) + ": " + linear_text(0.0, terms) +
                     quad_text(qrow.data(), qcol.data(), qval.data(), nq, names) + " " + sense_text(at(sense, i)) +
                     " " + format("%g", shown(at(rhs, i))));
  }
  return true;
}

// "Bounds" lines, then the names of binary and general integer variables.
bool bound_lines(PyObject* self, const std::vector<std::string>& names, std::vector<std::string>* lines) {
  VLMmodel* h = model_handle(self);
  const int n = static_cast<int>(names.size());
  std::vector<double> lb, ub;
  std::vector<char> vtype;
  if (!get_array(self, n, &lb, [&](double* v) { return VLMgetdblattrarray(h, "LB", 0, n, v); }) ||
      !get_array(self, n, &ub, [&](double* v) { return VLMgetdblattrarray(h, "UB", 0, n, v); }) ||
      !get_array(self, n, &vtype, [&](char* v) { return VLMgetcharattrarray(h, "VType", 0, n, v); })) {
    return false;
  }
  lines->push_back("Bounds");
  std::vector<std::string> binaries, integers;
  for (int j = 0; j < n; ++j) {
    const char* name = at(names, j).c_str();
    double lo = at(lb, j), hi = at(ub, j);
    if (lo == hi) {
      lines->push_back(format("  %s = %g", name, shown(lo)));
    } else if (lo <= -VLM_INFINITY && hi >= VLM_INFINITY) {
      lines->push_back(format("  %s free", name));
    } else {
      lines->push_back(format("  %g <= %s <= %g", shown(lo), name, shown(hi)));
    }
    if (at(vtype, j) == 'B') binaries.push_back("  " + at(names, j));
    if (at(vtype, j) == 'I') integers.push_back("  " + at(names, j));
  }
  if (!binaries.empty()) {
    lines->push_back("Binaries");
    lines->insert(lines->end(), binaries.begin(), binaries.end());
  }
  if (!integers.empty()) {
    lines->push_back("General Integers");
    lines->insert(lines->end(), integers.begin(), integers.end());
  }
  return true;
}

// Name of a row index counted across linear, quadratic, SOS and general constraints.
bool constr_name(PyObject* self, int index, std::string* out) {
  VLMmodel* h = model_handle(self);
  for (int kind : {VLM_KIND_CONSTR, VLM_KIND_QCONSTR, VLM_KIND_SOS, VLM_KIND_GENCONSTR}) {
    int count = 0;
    if (!get_int(self, kKinds[kind].count_attr, &count)) return false;
    if (index < count || kind == VLM_KIND_GENCONSTR) {
      char* name = nullptr;
      if (kKinds[kind].name_attr != nullptr && index >= 0 && index < count &&
          VLMgetstrattrelement(h, kKinds[kind].name_attr, index, &name) == 0 && name != nullptr && name[0] != '\0') {
        *out = name;
      } else {
        *out = kKinds[kind].prefix + std::to_string(index);
      }
      return true;
    }
    index -= count;
  }
  return true;
}

bool var_name(PyObject* self, int index, std::string* out) {
  char* name = nullptr;
  int rc = VLMgetstrattrelement(model_handle(self), "VarName", index, &name);
  if (rc != 0) {
    raise_velmor(rc, self);
    return false;
  }
  *out = name ? name : "";
  return true;
}

std::string value_text(PyObject* v) {
  if (PyFloat_Check(v)) return format("%g", PyFloat_AS_DOUBLE(v));
  py::Ref s = py::Ref::steal(PyObject_Str(v));
  const char* c = s ? PyUnicode_AsUTF8(s.get()) : nullptr;
  if (c == nullptr) {
    PyErr_Clear();
    return "?";
  }
  return c;
}

bool nonzero_value(PyObject* v) {
  if (PyFloat_Check(v)) return PyFloat_AS_DOUBLE(v) != 0.0;
  if (PyLong_Check(v)) return PyLong_AsLong(v) != 0;
  if (PyUnicode_Check(v)) return PyUnicode_GET_LENGTH(v) > 0;
  return true;
}

}  // namespace

// ---- the methods -----------------------------------------------------------------------------

PyObject* model_splitlongmessage(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"longstring", "sep", "length", nullptr};
  const char* text = nullptr;
  const char* sep = " ";
  Py_ssize_t length = 80;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "s|sn:_splitlongmessage", const_cast<char**>(kwlist), &text, &sep, &length)) {
    return nullptr;
  }
  if (length < 1) return py::raise(PyExc_ValueError, "length must be positive");
  if (!split_long_message(self, text, sep, static_cast<std::size_t>(length))) return nullptr;
  return py::none();
}

PyObject* model_display(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"obj", nullptr};
  PyObject* obj = Py_None;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "|O:display", const_cast<char**>(kwlist), &obj)) return nullptr;
  if (obj != Py_None) {
    py::Ref text = py::Ref::steal(PyObject_Str(obj));
    const char* s = text ? PyUnicode_AsUTF8(text.get()) : nullptr;
    if (s == nullptr || !model_message(self, s)) return nullptr;
    return py::none();
  }
  int nvars = 0, sense = 1;
  std::vector<std::string> names;
  std::string objective;
  if (!get_int(self, "NumVars", &nvars) || !get_int(self, "ModelSense", &sense) ||
      !get_str_array(self, "VarName", nvars, &names) || !objective_text(self, names, &objective)) {
    return nullptr;
  }
  std::vector<std::string> rows{"Subject To"};
  std::vector<std::string> bounds;
  if (!linear_rows(self, names, &rows) || !quadratic_rows(self, names, &rows) || !bound_lines(self, names, &bounds)) {
    return nullptr;
  }
  if (!model_message(self, sense == -1 ? "Maximize" : "Minimize")) return nullptr;
  if (!split_long_message(self, objective, " ", 80)) return nullptr;
  for (const auto* part : {&rows, &bounds}) {
    for (const std::string& line : *part) {
      if (!model_message(self, line)) return nullptr;
    }
  }
  return py::none();
}

PyObject* model_printstats(PyObject* self, PyObject*) {
  std::string name;
  int nconstrs, nvars, nnz, nint, nbin, npwl, nsos, nqc, nqcnz, ngen;
  double mincoef, maxcoef, minobj, maxobj, minbound, maxbound, minrhs, maxrhs;
  if (!get_str(self, "ModelName", &name) || !get_int(self, "NumConstrs", &nconstrs) ||
      !get_int(self, "NumVars", &nvars) || !get_int(self, "NumNZs", &nnz) || !get_int(self, "NumIntVars", &nint) ||
      !get_int(self, "NumBinVars", &nbin) || !get_int(self, "NumPWLObjVars", &npwl) ||
      !get_int(self, "NumSOS", &nsos) || !get_int(self, "NumQConstrs", &nqc) || !get_int(self, "NumQCNZs", &nqcnz) ||
      !get_int(self, "NumGenConstrs", &ngen) || !get_dbl(self, "MinCoeff", &mincoef) ||
      !get_dbl(self, "MaxCoeff", &maxcoef) || !get_dbl(self, "MinObjCoeff", &minobj) ||
      !get_dbl(self, "MaxObjCoeff", &maxobj) || !get_dbl(self, "MinBound", &minbound) ||
      !get_dbl(self, "MaxBound", &maxbound) || !get_dbl(self, "MinRHS", &minrhs) || !get_dbl(self, "MaxRHS", &maxrhs)) {
    return nullptr;
  }
  std::vector<std::string> lines;
  lines.push_back("Statistics for model " + (name.empty() ? std::string("Unnamed") : name) + ":");
  lines.push_back(format("  Linear constraint matrix    : %d Constrs, %d Vars, %d NZs", nconstrs, nvars, nnz));
  std::string types = format("  Variable types              : %d Continuous,", nvars - nint);
  types += nbin > 0 ? format(" %d Integer (%d Binary)", nint, nbin) : format(" %d Integer", nint);
  lines.push_back(types);
  if (npwl != 0) lines.push_back(format("  PWL Objective variables     : %d", npwl));
  if (nsos != 0) lines.push_back(format("  SOS constraints             : %d", nsos));
  if (nqc != 0) lines.push_back(format("  Quadratic constraints       : %d Constrs, %d NZs", nqc, nqcnz));
  if (ngen != 0) lines.push_back(format("  General constraints         : %d Constrs", ngen));
  lines.push_back(format("  Matrix coefficient range    : [ %g, %g ]", shown(mincoef), shown(maxcoef)));
  lines.push_back(format("  Objective coefficient range : [ %g, %g ]", shown(minobj), shown(maxobj)));
  lines.push_back(format("  Variable bound range        : [ %g, %g ]", shown(minbound), shown(maxbound)));
  lines.push_back(format("  RHS coefficient range       : [ %g, %g ]", shown(minrhs), shown(maxrhs)));
  for (const std::string& line : lines) {
    if (!model_message(self, line)) return nullptr;
  }
  return py::none();
}

PyObject* model_getconstrname(PyObject* self, PyObject* arg) {
  long index = PyLong_AsLong(arg);
  if (index == -1 && PyErr_Occurred()) return nullptr;
  std::string name;
  if (!constr_name(self, static_cast<int>(index), &name)) return nullptr;
  return py::str(name).release();
}

PyObject* model_printquality(PyObject* self, PyObject*) {
  std::string name;
  int ismip = 0, solcount = 0;
  if (!get_str(self, "ModelName", &name) || !get_int(self, "IsMIP", &ismip) || !get_int(self, "SolCount", &solcount)) {
    return nullptr;
  }
  if (!model_message(self, "Solution quality statistics for model " + (name.empty() ? std::string("Unnamed") : name) + " :")) {
    return nullptr;
  }
  if (solcount <= 0) return py::none();
  std::vector<std::string> lines;
  auto pad = [](const char* label, std::size_t width) {
    std::string s(label);
    if (s.size() < width) s.append(width - s.size(), ' ');
    return s;
  };
  // " (name)" of the element with the largest violation, when there is a violation.
  auto where = [&](const char* index_attr, bool is_var, double vio, std::string* out) {
    out->clear();
    if (vio <= 0) return true;
    int index = 0;
    if (!get_int(self, index_attr, &index)) return false;
    std::string n;
    if (!(is_var ? var_name(self, index, &n) : constr_name(self, index, &n))) return false;
    *out = " (" + n + ")";
    return true;
  };
  std::string at;
  if (ismip) {
    lines.push_back("  Maximum violation:");
    struct Row {
      const char* label;
      const char* vio;
      const char* index;
      bool is_var;
    };
    for (const Row& r : {Row{"Bound", "BoundVio", "BoundVioIndex", true},
                         Row{"Constraint", "ConstrVio", "ConstrVioIndex", false},
                         Row{"Integrality", "IntVio", "IntVioIndex", true}}) {
      double v = 0;
      if (!get_dbl(self, r.vio, &v) || !where(r.index, r.is_var, v, &at)) return nullptr;
      lines.push_back(format("    %s : %.8e", pad(r.label, 11).c_str(), v) + at);
    }
  } else {
    lines.push_back("  Maximum violation (unscaled/scaled):");
    struct Row {
      const char* label;
      const char* vio;
      const char* svio;
      const char* index;
      bool is_var;
    };
    for (const Row& r : {Row{"Bound", "BoundVio", "BoundSVio", "BoundVioIndex", true},
                         Row{"Constraint", "ConstrVio", "ConstrSVio", "ConstrVioIndex", false},
                         Row{"Dual", "DualVio", "DualSVio", nullptr, false}}) {
      double v = 0, sv = 0;
      if (!get_dbl(self, r.vio, &v) || !get_dbl(self, r.svio, &sv)) return nullptr;
      if (r.index != nullptr && !where(r.index, r.is_var, v, &at)) return nullptr;
      lines.push_back(format("    %s : %.8e / %.8e", pad(r.label, 15).c_str(), v, sv) + (r.index ? at : ""));
    }
    double compl_vio = 0;
    if (!get_dbl(self, "ComplVio", &compl_vio)) return nullptr;
    lines.push_back(format("    %s : %.8e", pad("Complementarity", 15).c_str(), compl_vio));
  }
  for (const std::string& line : lines) {
    if (!model_message(self, line)) return nullptr;
  }
  return py::none();
}

// One table of printAttr: the element names matching `filter` in the first column, one
// column per attribute; for numeric attributes only rows with a non-zero value are shown.
PyObject* model_printattr(PyObject* self, PyObject* args, PyObject* kwds) {
  static const char* kwlist[] = {"attrname", "filter", nullptr};
  PyObject* attrs = nullptr;
  PyObject* filter = nullptr;
  if (!PyArg_ParseTupleAndKeywords(args, kwds, "O|U:printAttr", const_cast<char**>(kwlist), &attrs, &filter)) return nullptr;
  py::Ref pattern = filter ? py::Ref::borrow(filter) : py::str("*");
  py::Ref names = PyUnicode_Check(attrs) ? py::Ref::steal(PyList_New(0)) : py::Ref::steal(PySequence_List(attrs));
  if (!names || !pattern) return nullptr;
  if (PyUnicode_Check(attrs) && PyList_Append(names.get(), attrs) < 0) return nullptr;
  VLMmodel* h = model_handle(self);
  // Attribute names grouped by element kind, in the order the tables are printed.
  const int order[] = {VLM_KIND_MODEL, VLM_KIND_VAR, VLM_KIND_CONSTR, VLM_KIND_QCONSTR, VLM_KIND_SOS, VLM_KIND_GENCONSTR};
  std::vector<std::pair<std::string, AttrInfo>> by_kind[VLM_KIND_GENCONSTR + 1];
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(names.get()); ++i) {
    const char* s = py::utf8(PyList_GET_ITEM(names.get(), i));
    if (s == nullptr) return nullptr;
    AttrInfo info;
    int rc = VLMgetattrinfo(h, s, &info.datatype, &info.kind, &info.settable);
    // The lookup records no text on the model, so the model's last message would be stale.
    if (rc == VLM_ERROR_UNKNOWN_ATTRIBUTE) {
      return raise_velmor_msg(rc, (std::string("Unknown attribute '") + s + "'").c_str());
    }
    if (rc != 0) return raise_velmor(rc, self);
    if (info.kind < VLM_KIND_MODEL || info.kind > VLM_KIND_GENCONSTR) {
      std::string msg = std::string("Attribute '") + s + "' does not belong to a model or its elements";
      return raise_velmor_msg(VLM_ERROR_INVALID_ARGUMENT, msg.c_str());
    }
    by_kind[info.kind].emplace_back(s, info);
  }
  py::Ref fnmatch = py::Ref::steal(PyImport_ImportModule("fnmatch"));
  if (!fnmatch) return nullptr;
  const char* labels[] = {"Model", "Variable", "Constraint", "SOS", "QConstraint", "GenConstr"};
  std::string out;
  for (int kind : order) {
    auto& list = by_kind[kind];
    if (list.empty()) continue;
    int count = 1;
    if (kind != VLM_KIND_MODEL && !get_int(self, kKinds[kind].count_attr, &count)) return nullptr;
    std::vector<std::string> rownames;
    std::vector<py::Ref> columns;
    for (auto& [name, info] : list) {
      py::Ref values;
      if (kind == VLM_KIND_MODEL) {
        py::Ref pyname = py::str(name);
        py::Ref v = pyname ? attr_get(model_target(self), pyname.get()) : py::Ref();
        if (!v) return nullptr;
        values = py::Ref::steal(PyList_New(1));
        if (!values) return nullptr;
        PyList_SET_ITEM(values.get(), 0, v.release());
      } else {
        values = attr_get_array(self, h, name.c_str(), info, 0, count);
        if (!values) return nullptr;
      }
      columns.push_back(std::move(values));
    }
    if (kind == VLM_KIND_MODEL) {
      rownames.emplace_back("");
    } else if (kKinds[kind].name_attr != nullptr) {
      if (!get_str_array(self, kKinds[kind].name_attr, count, &rownames)) return nullptr;
    } else {
      for (int i = 0; i < count; ++i) rownames.push_back(kKinds[kind].prefix + std::to_string(i));
    }
    std::size_t w0 = std::strlen(labels[kind]);
    std::vector<std::size_t> widths;
    for (auto& [name, info] : list) widths.push_back(name.size() + 2 > 12 ? name.size() + 2 : 12);
    std::vector<std::string> rows;
    std::vector<std::size_t> shown_rows;
    for (int i = 0; i < count; ++i) {
      const auto ui = static_cast<std::size_t>(i);
      if (kind != VLM_KIND_MODEL) {
        py::Ref hit = py::Ref::steal(PyObject_CallMethod(fnmatch.get(), "fnmatch", "sO", rownames[ui].c_str(), pattern.get()));
        if (!hit) return nullptr;
        if (!PyObject_IsTrue(hit.get())) continue;
      }
      bool any = kind == VLM_KIND_MODEL;
      for (std::size_t c = 0; c < columns.size(); ++c) {
        PyObject* v = PyList_GET_ITEM(columns[c].get(), i);
        if (nonzero_value(v) || list[c].second.datatype == VLM_STR || list[c].second.datatype == VLM_CHAR) any = true;
      }
      if (!any) continue;
      shown_rows.push_back(ui);
      if (rownames[ui].size() > w0) w0 = rownames[ui].size();
    }
    std::string header = std::string(labels[kind]);
    header.resize(w0, ' ');
    for (std::size_t c = 0; c < list.size(); ++c) {
      std::string col(widths[c] > list[c].first.size() ? widths[c] - list[c].first.size() : 0, ' ');
      header += " " + col + list[c].first;
    }
    out += "\n" + header + "\n" + std::string(header.size(), '-') + "\n";
    for (std::size_t ui : shown_rows) {
      std::string row = rownames[ui];
      row.resize(w0, ' ');
      for (std::size_t c = 0; c < columns.size(); ++c) {
        std::string v = value_text(PyList_GET_ITEM(columns[c].get(), static_cast<Py_ssize_t>(ui)));
        row += " " + std::string(widths[c] > v.size() ? widths[c] - v.size() : 0, ' ') + v;
      }
      out += row + "\n";
    }
  }
  if (!write_stdout(out)) return nullptr;
  return py::none();
}
