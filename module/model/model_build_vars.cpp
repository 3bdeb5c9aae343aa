// Model: adding variables. addVar adds one; addVars adds one per key of an index set in one
// library call, with bounds, objective coefficients, types and names given per key.
#include "model/model_build.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "elements/handle.h"
#include "model/model.h"
#include "model/model_build_util.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "containers/tupledict.h"

namespace {

// One character of a one-character str or bytes (variable types, senses).
bool single_char(PyObject* o, char* out) {
  if (PyUnicode_Check(o) && PyUnicode_GET_LENGTH(o) == 1) {
    Py_UCS4 c = PyUnicode_READ_CHAR(o, 0);
    if (c < 128) {
      *out = static_cast<char>(c);
      return true;
    }
  } else if (PyBytes_Check(o) && PyBytes_GET_SIZE(o) == 1) {
    *out = PyBytes_AS_STRING(o)[0];
    return true;
  }
  return false;
}

bool vtype_arg(PyObject* o, char* out) {
  if (single_char(o, out)) return true;
  py::Ref r = py::Ref::steal(PyObject_Repr(o));
  const char* s = r ? PyUnicode_AsUTF8(r.get()) : nullptr;
  if (s == nullptr) return false;
  invalid(std::string("Invalid variable type ") + s + " (expected 'C', 'B', 'I', 'S' or 'N')");
  return false;
}

// ---- addVars: the index set -----------------------------------------------------------------

// Whether `o` can never be part of a reference cycle, so that a tuple holding it need not be
// tracked by the collector: the rule the interpreter applies to tuples at its first collection.
bool atomic(PyObject* o) { return !PyObject_IS_GC(o) || (PyTuple_CheckExact(o) && !PyObject_GC_IsTracked(o)); }

// The keys of one addVars call. One argument n gives the keys 0 .. n-1, one iterable its
// members; several arguments list their members once each (an int n as its n ints, shared by
// every key tuple holding them) and key k is the k-th member of their product. All keys are
// made up front into a C++ array, which the collector never walks (a Python list of a million
// keys it would); made while the result is filled instead, their allocations interleave with
// the dict's and the fill measured a third slower.
class IndexSet {
 public:
  // False with an exception set, also for an unhashable key: refusing it here, before the
  // library adds anything, keeps the model as it was.
  bool init(PyObject* const* args, Py_ssize_t nargs);

  Py_ssize_t size() const { return size_; }
  size_t dims() const { return sets_.size(); }

  // Moves `at` on to the next key.
  void advance(Py_ssize_t* at) const {
    if (count_ >= 0) {
      ++at[0];
      return;
    }
    for (size_t d = sets_.size(); d-- > 0;) {
      if (++at[d] < sets_[d].size) return;
      at[d] = 0;
    }
  }

  // Key i (borrowed).
  PyObject* operator[](Py_ssize_t i) const {
    return single_ ? PyList_GET_ITEM(sets_[0].list.get(), i) : made_[static_cast<size_t>(i)].get();
  }

  // The index part of the key at `at` in a name: str of a scalar key, tuple parts joined by
  // ",". Part texts of a product are made once per argument member.
  bool append_text(std::string& out, const Py_ssize_t* at);

 private:
  struct Set {
    py::Ref list;
    Py_ssize_t size = 0;
    bool has_tuples = false;  // some member is a tuple, spliced into the key
    bool atomic = true;       // no member (or spliced part) can be in a cycle
    std::string text;         // the members' name texts, end to end, once asked for
    std::vector<size_t> ends;
  };
  static py::Ref members(PyObject* arg);
  // The key at `at` as a new reference.
  py::Ref key(const Py_ssize_t* at) const;
  bool make_all();

  Py_ssize_t count_ = -1;  // one int argument: its count, keys made as ints
  bool single_ = false;    // one argument: its members are the keys as they are
  Py_ssize_t size_ = 0;
  std::vector<Set> sets_;
  std::vector<py::Ref> made_;  // the keys, unless single_
};

// The members of one index argument: an int n gives 0 .. n-1, anything else is iterated.
py::Ref IndexSet::members(PyObject* arg) {
  if (PyLong_Check(arg) || (PyIndex_Check(arg) && !PySequence_Check(arg))) {
    Py_ssize_t n = PyNumber_AsSsize_t(arg, PyExc_OverflowError);
    if (n == -1 && PyErr_Occurred()) return py::Ref();
    if (n < 0) n = 0;
    py::Ref list = py::Ref::steal(PyList_New(n));
    if (!list) return list;
    for (Py_ssize_t i = 0; i < n; ++i) {
      PyObject* k = PyLong_FromSsize_t(i);
      if (k == nullptr) return py::Ref();
      PyList_SET_ITEM(list.get(), i, k);
    }
    return list;
  }
  return py::Ref::steal(PySequence_List(arg));
}

bool IndexSet::init(PyObject* const* args, Py_ssize_t nargs) {
  if (nargs == 1 && (PyLong_Check(args[0]) || (PyIndex_Check(args[0]) && !PySequence_Check(args[0])))) {
    Py_ssize_t n = PyNumber_AsSsize_t(args[0], PyExc_OverflowError);
    if (n == -1 && PyErr_Occurred()) return false;
    count_ = size_ = n < 0 ? 0 : n;
    sets_.resize(1);
    sets_[0].size = size_;
    return fits_int(static_cast<size_t>(size_), "variables") && make_all();
  }
  single_ = nargs == 1;
  size_t total = 1;
  sets_.resize(static_cast<size_t>(nargs));
  for (Py_ssize_t a = 0; a < nargs; ++a) {
    Set& set = sets_[static_cast<size_t>(a)];
    set.list = members(args[a]);
    if (!set.list) return false;
    set.size = PyList_GET_SIZE(set.list.get());
    for (Py_ssize_t i = 0; i < set.size; ++i) {
      PyObject* m = PyList_GET_ITEM(set.list.get(), i);
      if (PyObject_Hash(m) == -1) return false;
      if (PyTuple_Check(m) && !single_) {
        set.has_tuples = true;
        for (Py_ssize_t j = 0; j < PyTuple_GET_SIZE(m); ++j) set.atomic = set.atomic && atomic(PyTuple_GET_ITEM(m, j));
      } else {
        set.atomic = set.atomic && atomic(m);
      }
    }
    const size_t n = static_cast<size_t>(set.size);
    total = (n == 0 || total == 0) ? 0 : total * n;
    if (total > static_cast<size_t>(INT32_MAX)) {
      invalid("Too many variables for one library call");
      return false;
    }
  }
  size_ = static_cast<Py_ssize_t>(total);
  return single_ || make_all();
}

bool IndexSet::make_all() {
  try {
    made_.reserve(static_cast<size_t>(size_));
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
    return false;
  }
  std::vector<Py_ssize_t> at(dims(), 0);
  for (Py_ssize_t i = 0; i < size_; ++i, advance(at.data())) {
    made_.push_back(key(at.data()));
    if (!made_.back()) return false;
  }
  return true;
}

py::Ref IndexSet::key(const Py_ssize_t* at) const {
  if (count_ >= 0) return py::Ref::steal(PyLong_FromSsize_t(at[0]));
  if (single_) return py::Ref::borrow(PyList_GET_ITEM(sets_[0].list.get(), at[0]));
  Py_ssize_t width = 0;
  bool atomic_parts = true;
  for (size_t d = 0; d < sets_.size(); ++d) {
    const Set& set = sets_[d];
    PyObject* part = PyList_GET_ITEM(set.list.get(), at[d]);
    width += set.has_tuples && PyTuple_Check(part) ? PyTuple_GET_SIZE(part) : 1;
    atomic_parts = atomic_parts && set.atomic;
  }
  py::Ref key = py::Ref::steal(PyTuple_New(width));
  if (!key) return key;
  Py_ssize_t w = 0;
  for (size_t d = 0; d < sets_.size(); ++d) {
    const Set& set = sets_[d];
    PyObject* part = PyList_GET_ITEM(set.list.get(), at[d]);
    if (set.has_tuples && PyTuple_Check(part)) {
      for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(part); ++i)
        PyTuple_SET_ITEM(key.get(), w++, py::new_ref(PyTuple_GET_ITEM(part, i)));
    } else {
      PyTuple_SET_ITEM(key.get(), w++, py::new_ref(part));
    }
  }
  // Untracked from the start, a million key tuples cost the collector nothing.
  if (atomic_parts) PyObject_GC_UnTrack(key.get());
  return key;
}

bool IndexSet::append_text(std::string& out, const Py_ssize_t* at) {
  if (count_ >= 0) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, at[0]);
    out.append(buf, r.ptr);
    return true;
  }
  if (single_) return append_key_text(out, PyList_GET_ITEM(sets_[0].list.get(), at[0]));
  for (size_t d = 0; d < sets_.size(); ++d) {
    Set& set = sets_[d];
    if (set.ends.empty() && set.size > 0) {
      set.ends.reserve(static_cast<size_t>(set.size));
      for (Py_ssize_t i = 0; i < set.size; ++i) {
        if (!append_key_text(set.text, PyList_GET_ITEM(set.list.get(), i))) return false;
        set.ends.push_back(set.text.size());
      }
    }
    if (d > 0) out.push_back(',');
    const size_t i = static_cast<size_t>(at[d]);
    const size_t begin = i == 0 ? 0 : set.ends[i - 1];
    out.append(set.text, begin, set.ends[i] - begin);
  }
  return true;
}

// ---- addVars: per-key values -----------------------------------------------------------------

// How a keyword's value gives one value per key (listify): a dict by key, any other iterable
// in key order, anything else repeated. Calls get(value, i) for each key, or
// get_all(value) once for a repeated value; false with an exception set.
template <class Get, class GetAll>
bool listify(PyObject* arg, const char* what, const IndexSet& keys, Get&& get, GetAll&& get_all) {
  const Py_ssize_t n = keys.size();
  if (PyDict_Check(arg)) {
    for (Py_ssize_t i = 0; i < n; ++i) {
      py::Ref v = py::Ref::steal(PyObject_GetItem(arg, keys[i]));
      if (!v || !get(v.get(), i)) return false;
    }
    return true;
  }
  if (!is_iterable(arg)) return get_all(arg);
  py::Ref seq = py::Ref::steal(PySequence_Fast(arg, "addVars() values must be iterable"));
  if (!seq) return false;
  if (PySequence_Fast_GET_SIZE(seq.get()) != n) {
    invalid(std::string("addVars() argument '") + what + "' has " +
            std::to_string(PySequence_Fast_GET_SIZE(seq.get())) + " values for " + std::to_string(n) + " variables");
    return false;
  }
  PyObject** items = PySequence_Fast_ITEMS(seq.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (!get(items[i], i)) return false;
  }
  return true;
}

// A contiguous float64 buffer (a NumPy array, say) with one value per key, copied at once.
// 1 copied, 0 not such a buffer, -1 with an exception set.
int copy_double_buffer(PyObject* arg, Py_ssize_t n, const char* what, std::vector<double>& out) {
  if (!PyObject_CheckBuffer(arg) || PyBytes_Check(arg)) return 0;
  Py_buffer view;
  if (PyObject_GetBuffer(arg, &view, PyBUF_C_CONTIGUOUS | PyBUF_FORMAT) < 0) {
    PyErr_Clear();
    return 0;
  }
  const char* f = view.format ? view.format : "B";
  if (*f == '@' || *f == '=' || *f == '<') ++f;
  int result = 0;
  if (std::strcmp(f, "d") == 0 && view.itemsize == 8 && view.ndim > 0) {
    const Py_ssize_t count = view.len / 8;
    if (count != n) {
      invalid(std::string("addVars() argument '") + what + "' has " + std::to_string(count) + " values for " +
              std::to_string(n) + " variables");
      result = -1;
    } else {
      out.resize(static_cast<size_t>(n));
      if (n > 0) std::memcpy(out.data(), view.buf, static_cast<size_t>(n) * 8);
      result = 1;
    }
  }
  PyBuffer_Release(&view);
  return result;
}

// One double per key for lb, ub or obj.
bool listify_doubles(PyObject* arg, const char* what, const IndexSet& keys, std::vector<double>& out) {
  const size_t n = static_cast<size_t>(keys.size());
  auto as_double = [](PyObject* v, double* d) {
    *d = PyFloat_AsDouble(v);
    return !(*d == -1.0 && PyErr_Occurred());
  };
  if (PyFloat_Check(arg) || PyLong_Check(arg)) {
    double v = 0;
    if (!as_double(arg, &v)) return false;
    out.assign(n, v);
    return true;
  }
  int copied = copy_double_buffer(arg, keys.size(), what, out);
  if (copied != 0) return copied > 0;
  out.resize(n);
  return listify(
      arg, what, keys, [&](PyObject* v, Py_ssize_t i) { return as_double(v, &out[static_cast<size_t>(i)]); },
      [&](PyObject* v) {
        double d = 0;
        if (!as_double(v, &d)) return false;
        out.assign(n, d);
        return true;
      });
}

// One type per key; a single type is checked once.
bool listify_vtypes(PyObject* arg, const IndexSet& keys, std::vector<char>& out) {
  const size_t n = static_cast<size_t>(keys.size());
  out.resize(n);
  return listify(
      arg, "vtype", keys, [&](PyObject* v, Py_ssize_t i) { return vtype_arg(v, &out[static_cast<size_t>(i)]); },
      [&](PyObject* v) {
        char c = 'C';
        if (!vtype_arg(v, &c)) return false;
        out.assign(n, c);
        return true;
      });
}

// Variable names of one addVars call, packed into one buffer: names[i] is nullptr for the
// library's default name.
struct NameTable {
  std::string buffer;
  std::vector<size_t> offsets;  // SIZE_MAX: no name
  std::vector<const char*> pointers;
};

bool ascii_only(const char* s, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (static_cast<unsigned char>(s[i]) >= 0x80) return false;
  }
  return true;
}

// Raises the error for a name that is not ASCII or holds a NUL; returns false.
bool name_error(const char* s, size_t n) {
  if (!ascii_only(s, n)) {
    invalid("Cannot convert " + std::string(s, n) + " to ASCII characters");
    return false;
  }
  if (std::memchr(s, '\0', n) != nullptr) {
    std::string shown;
    for (size_t i = 0; i < n; ++i) shown += s[i] == '\0' ? std::string("\\x00") : std::string(1, s[i]);
    invalid("Invalid text '" + shown + "': it holds a NUL character");
  }
  return false;
}

// Ends the name that begins at `start`. Its first `checked` bytes are known to be ASCII without
// NUL (the common base of subscripted names, checked once).
bool add_name(NameTable& names, size_t start, size_t checked = 0) {
  const char* s = names.buffer.data() + start;
  const size_t n = names.buffer.size() - start;
  const char* rest = s + checked;
  const size_t m = n - checked;
  if (!ascii_only(rest, m) || (m > 0 && std::memchr(rest, '\0', m) != nullptr)) return name_error(s, n);
  names.offsets.push_back(n == 0 ? SIZE_MAX : start);
  names.buffer.push_back('\0');
  return true;
}


// Builds the names from `name`: a str is subscripted by each key, a dict or iterable gives one
// name per key. False with an exception set; names.pointers stays empty when nothing is named.
bool build_names(PyObject* name, IndexSet& keys, NameTable& names) {
  if (is_none(name)) return true;
  const Py_ssize_t n = keys.size();
  try {
    if (PyUnicode_Check(name) || !is_iterable(name)) {
      py::Ref s = PyUnicode_Check(name) ? py::Ref::borrow(name) : py::Ref::steal(PyObject_Str(name));
      if (!s) return false;
      if (PyUnicode_GET_LENGTH(s.get()) == 0) return true;
      const char* u = py::utf8(s.get());
      if (u == nullptr) return false;
      const std::string base = std::string(u) + "[";
      const size_t checked = ascii_only(base.data(), base.size()) ? base.size() : 0;
      names.buffer.reserve(static_cast<size_t>(n) * (base.size() + 10));
      names.offsets.reserve(static_cast<size_t>(n));
      std::vector<Py_ssize_t> at(keys.dims(), 0);
      for (Py_ssize_t i = 0; i < n; ++i, keys.advance(at.data())) {
        const size_t start = names.buffer.size();
        names.buffer += base;
        if (!keys.append_text(names.buffer, at.data())) return false;
        names.buffer.push_back(']');
        if (!add_name(names, start, checked)) return false;
      }
    } else {
      names.offsets.reserve(static_cast<size_t>(n));
      auto one = [&](PyObject* v) {
        const size_t start = names.buffer.size();
        if (v != Py_None && !append_text(names.buffer, v)) return false;
        return add_name(names, start);
      };
      bool ok = listify(
          name, "name", keys, [&](PyObject* v, Py_ssize_t) { return one(v); },
          [&](PyObject* v) {
            for (Py_ssize_t i = 0; i < n; ++i) {
              if (!one(v)) return false;
            }
            return true;
          });
      if (!ok) return false;
    }
    names.pointers.resize(names.offsets.size());
    for (size_t i = 0; i < names.offsets.size(); ++i) {
      names.pointers[i] = names.offsets[i] == SIZE_MAX ? nullptr : names.buffer.data() + names.offsets[i];
    }
  } catch (const std::bad_alloc&) {
    raise_velmor_msg(VLM_ERROR_OUT_OF_MEMORY, "Out of memory for variable namespace");
    return false;
  }
  return true;
}

}  // namespace

// ---- the methods -----------------------------------------------------------------------------

PyObject* model_addvar(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"lb", "ub", "obj", "vtype", "name", "column"};
  PyObject* a[6];
  if (!parse_args("addVar", names, 6, 0, args, nargs, kwnames, a)) return nullptr;
  if (!model_alive(self)) return nullptr;
  char vtype = 'C';
  if (a[3] != nullptr && !vtype_arg(a[3], &vtype)) return nullptr;
  double lb = 0, ub = 0, obj = 0;
  // A binary variable added without an upper bound gets 1, as addVars gives it.
  if (!double_arg(a[0], 0.0, &lb) || !double_arg(a[1], vtype == 'B' ? 1.0 : VLM_INFINITY, &ub) ||
      !double_arg(a[2], 0.0, &obj)) {
    return nullptr;
  }
  py::Ref keep;
  const char* cname = nullptr;
  if (!name_arg(a[4], &keep, &cname)) return nullptr;
  if (model_setup(self, false) < 0) return nullptr;
  std::vector<int> ind;
  std::vector<double> val;
  if (!is_none(a[5])) {
    PyObject* column = a[5];
    if (!PyObject_HasAttrString(column, "_normalize")) return unsupported(column, "column argument");
    py::Ref r = py::Ref::steal(PyObject_CallMethod(column, "_normalize", nullptr));
    py::Ref coeffs = r ? py::Ref::steal(PyObject_GetAttrString(column, "_coeffs")) : py::Ref();
    py::Ref constrs = coeffs ? py::Ref::steal(PyObject_GetAttrString(column, "_constrs")) : py::Ref();
    if (!constrs) return nullptr;
    py::Ref cs = py::Ref::steal(PySequence_Fast(constrs.get(), "Column._constrs must be a list"));
    py::Ref vs = cs ? py::Ref::steal(PySequence_Fast(coeffs.get(), "Column._coeffs must be a list")) : py::Ref();
    if (!vs) return nullptr;
    const Py_ssize_t n = PySequence_Fast_GET_SIZE(cs.get());
    if (PySequence_Fast_GET_SIZE(vs.get()) != n) return invalid("Column has lists of different lengths");
    if (!fits_int(static_cast<size_t>(n), "column terms")) return nullptr;
    for (Py_ssize_t k = 0; k < n; ++k) {
      int row = 0;
      if (!position_of(self, PySequence_Fast_GET_ITEM(cs.get(), k), VLM_KIND_CONSTR, &row)) return nullptr;
      double v = PyFloat_AsDouble(PySequence_Fast_GET_ITEM(vs.get(), k));
      if ((v == -1.0 && PyErr_Occurred()) || !finite_coeff(v)) return nullptr;
      ind.push_back(row);
      val.push_back(v);
    }
  }
  int rc =
      VLMaddvar(model_handle(self), static_cast<int>(ind.size()), ind.data(), val.data(), obj, lb, ub, vtype, cname);
  if (rc != 0) return raise_velmor(rc, self);
  return model_append_handle(self, VLM_KIND_VAR).release();
}

PyObject* model_addvars(PyObject* self, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  static const char* const names[] = {"lb", "ub", "obj", "vtype", "name"};
  PyObject* kw[5] = {nullptr, nullptr, nullptr, nullptr, nullptr};
  std::string unknown;
  const Py_ssize_t nkw = kwnames ? PyTuple_GET_SIZE(kwnames) : 0;
  for (Py_ssize_t k = 0; k < nkw; ++k) {
    PyObject* key = PyTuple_GET_ITEM(kwnames, k);
    int i = 0;
    while (i < 5 && PyUnicode_CompareWithASCIIString(key, names[i]) != 0) ++i;
    if (i < 5) {
      kw[i] = args[nargs + k];
      continue;
    }
    const char* s = PyUnicode_AsUTF8(key);
    if (s == nullptr) return nullptr;
    if (!unknown.empty()) unknown += ", ";
    unknown += s;
  }
  if (!unknown.empty()) return invalid("addVars() got unexpected keyword argument(s) " + unknown);
  if (nargs == 0) return invalid("addVars() needs at least one index argument (a count or a list of keys)");
  if (!model_alive(self)) return nullptr;
  IndexSet keys;
  if (!keys.init(args, nargs)) return nullptr;
  const Py_ssize_t n = keys.size();

  std::vector<double> lb, ub, obj;
  std::vector<char> vtype;
  if ((!is_none(kw[0]) && !listify_doubles(kw[0], "lb", keys, lb)) ||
      (!is_none(kw[1]) && !listify_doubles(kw[1], "ub", keys, ub)) ||
      (!is_none(kw[2]) && !listify_doubles(kw[2], "obj", keys, obj)) ||
      (!is_none(kw[3]) && !listify_vtypes(kw[3], keys, vtype))) {
    return nullptr;
  }
  NameTable table;
  if (!build_names(kw[4], keys, table)) return nullptr;
  if (model_setup(self, false) < 0) return nullptr;
  PyObject* vars = model_list(self, VLM_KIND_VAR);
  py::Ref result = vars ? tupledict_new_empty() : py::Ref();
  if (!result) return nullptr;
  if (n == 0) return result.release();
  const Py_ssize_t first = PyList_GET_SIZE(vars);

  auto data = [](const auto& v) { return v.empty() ? nullptr : v.data(); };
  int rc = VLMaddvars(model_handle(self), static_cast<int>(n), 0, nullptr, nullptr, nullptr, data(obj), data(lb),
                      data(ub), data(vtype), table.pointers.empty() ? nullptr : table.pointers.data());
  if (rc != 0) return raise_velmor(rc, self);
  // The new handles are the tail of the model's list.
  if (model_append_handles(self, VLM_KIND_VAR, n) < 0) return nullptr;
  vars = model_list(self, VLM_KIND_VAR);
  if (vars == nullptr) return nullptr;
  for (Py_ssize_t i = 0; i < n; ++i) {
    if (PyDict_SetItem(result.get(), keys[i], PyList_GET_ITEM(vars, first + i)) < 0) return nullptr;
  }
  return result.release();
}

// ---- docstrings ------------------------------------------------------------------------------

const char model_addvar_doc[] =
    "addVar($self, lb=0.0, ub=1e309, obj=0.0, vtype='C', name=\"\", column=None)\n--\n\n"
    "Adds one variable and returns its Var.\n\n"
    "lb, ub: bounds (float('inf') or VLM.INFINITY for none); a binary variable without ub gets 1.\n"
    "obj: objective coefficient.\n"
    "vtype: VLM.CONTINUOUS 'C', VLM.BINARY 'B', VLM.INTEGER 'I', VLM.SEMICONT 'S' or\n"
    "    VLM.SEMIINT 'N'.\n"
    "name: the variable's name; empty for the default name C<index>.\n"
    "column: a Column of (coefficient, Constr) pairs placing the variable in existing\n"
    "    constraints.\n\n"
    "With UpdateMode 1 (the default) the variable can be used in constraints at once; it shows\n"
    "in getVars() after update().\n\n"
    "Example:\n"
    "    x = m.addVar(ub=4.0, vtype=VLM.INTEGER, name=\"x\")";

const char model_addvars_doc[] =
    "addVars($self, *indexes, lb=0.0, ub=1e309, obj=0.0, vtype='C', name=\"\")\n--\n\n"
    "Adds one variable per key of an index set, in one library call, and returns a tupledict\n"
    "from key to Var.\n\n"
    "indexes: each an int n (keys 0 .. n-1) or an iterable of keys; several give their\n"
    "    Cartesian product (tuple keys, the last index varying fastest, tuple members spliced\n"
    "    in).\n"
    "lb, ub, obj, vtype: one value for all, a list (or array) in key order, or a dict by key.\n"
    "name: a str gives name[key] per variable (tuple keys joined by ','), a list or dict one\n"
    "    name each; names must be ASCII.\n\n"
    "Examples:\n"
    "    x = m.addVars(2, 3, name=\"x\")          # x[0,0] .. x[1,2]\n"
    "    y = m.addVars([\"a\", \"b\"], ub=[1, 2])   # keys 'a' and 'b'";
