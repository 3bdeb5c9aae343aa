// Attribute calls: names and descriptions from the attribute table, values through the
// attribute engine. Every typed family (char, int, double, string) and every shape (model
// scalar, one element, an array range, an index list) goes through one element loop.
#include <cmath>
#include <string>

#include "attrs/attr_engine.h"
#include "attrs/attr_table.h"
#include "capi/capi_guard.h"
#include "velmor_c.h"

using vlm::AttrType;
using vlm::AttrValue;
using vlm::Model;
using vlm::Status;
using vlm::capi::model_call;
using vlm::capi::require;

namespace {

// Conversions between AttrValue and the C types of each family.
template <class T>
struct Conv;
template <>
struct Conv<int> {
  static constexpr AttrType type = AttrType::kInt;
  static int out(const AttrValue& v, VLMmodel*) { return static_cast<int>(v.num); }
  static Status in(int x, AttrValue& v) {
    v.num = x;
    return Status::Ok();
  }
};
template <>
struct Conv<double> {
  static constexpr AttrType type = AttrType::kDbl;
  static double out(const AttrValue& v, VLMmodel*) { return v.num; }
  static Status in(double x, AttrValue& v) {
    v.num = x;
    return Status::Ok();
  }
};
template <>
struct Conv<char> {
  static constexpr AttrType type = AttrType::kChar;
  static char out(const AttrValue& v, VLMmodel*) { return v.ch; }
  static Status in(char x, AttrValue& v) {
    v.ch = x;
    return Status::Ok();
  }
};
template <>
struct Conv<char*> {
  static constexpr AttrType type = AttrType::kStr;
  // The text lives in the handle until the next string read.
  static char* out(const AttrValue& v, VLMmodel* h) {
    h->scratch.push_back(v.str);
    return h->scratch.back().data();
  }
};
struct ConstStr {
  static constexpr AttrType type = AttrType::kStr;
  static Status in(const char* x, AttrValue& v) {
    if (x == nullptr) return Status(VLM_ERROR_NULL_ARGUMENT, "String value is NULL");
    v.str = x;
    return Status::Ok();
  }
};

// Reads attribute `name` of kind `kind` for n elements given by elem(i) into values[i].
template <class T, class Elem>
int get_many(VLMmodel* h, const char* name, int kind, int n, Elem&& elem, T* values) {
  return model_call(h, [&](Model& m) {
    VLM_RETURN_IF_ERROR(require(name, "attrname"));
    VLM_ASSIGN_OR_RETURN(int attr, vlm::resolve_attr(name, kind, Conv<T>::type));
    if (n < 0) return Status(VLM_ERROR_INVALID_ARGUMENT, "Negative length");
    if (n > 0) VLM_RETURN_IF_ERROR(require(values, "values"));
    if constexpr (std::is_same_v<T, char*>) {
      h->scratch.clear();
      h->scratch.reserve(static_cast<std::size_t>(n));
    }
    AttrValue v;
    for (int i = 0; i < n; ++i) {
      VLM_RETURN_IF_ERROR(vlm::get_attr(m, attr, elem(i), v));
      values[i] = Conv<T>::out(v, h);
    }
    return Status::Ok();
  });
}

// Writes n values; all are checked (and queued) or, on the first bad one, none is kept.
template <class C, class T, class Elem>
int set_many(VLMmodel* h, const char* name, int kind, int n, Elem&& elem, const T* values) {
  return model_call(h, [&](Model& m) {
    VLM_RETURN_IF_ERROR(require(name, "attrname"));
    VLM_ASSIGN_OR_RETURN(int attr, vlm::resolve_attr(name, kind, C::type));
    if (n < 0) return Status(VLM_ERROR_INVALID_ARGUMENT, "Negative length");
    if (n > 0) VLM_RETURN_IF_ERROR(require(values, "values"));
    AttrValue v;
    const std::size_t mark = m.change_mark();
    for (int i = 0; i < n; ++i) {
      Status s = C::in(values[i], v);
      if (s.ok()) s = vlm::set_attr(m, attr, elem(i), v);
      if (!s.ok()) {
        m.rollback_changes(mark);
        return s;
      }
    }
    return Status::Ok();
  });
}

// The kind of an element attribute, for the element/array/list calls, which take any kind.
int kind_of(const char* name) {
  int i = name ? vlm::find_attr(name) : -1;
  if (i < 0) return -1;
  int k = static_cast<int>(vlm::attr_table()[i].kind);
  // A model attribute through an element call is refused by resolve_attr's kind check.
  return k == VLM_KIND_MODEL ? VLM_KIND_VAR : k;
}

auto one(int e) {
  return [e](int) { return e; };
}
auto range_from(int first) {
  return [first](int i) { return first + i; };
}
auto list_of(const int* ind) {
  return [ind](int i) { return ind[i]; };
}

}  // namespace

#define VLM_ATTR_FAMILY(SUFFIX, T, CIN)                                                            \
  VLM_API int VLMget##SUFFIX##attrelement(VLMmodel* model, const char* attrname, int element,      \
                                          T* valueP) {                                             \
    return get_many<T>(model, attrname, kind_of(attrname), 1, one(element), valueP);               \
  }                                                                                                \
  VLM_API int VLMget##SUFFIX##attrarray(VLMmodel* model, const char* attrname, int first, int len, \
                                        T* values) {                                               \
    return get_many<T>(model, attrname, kind_of(attrname), len, range_from(first), values);        \
  }                                                                                                \
  VLM_API int VLMget##SUFFIX##attrlist(VLMmodel* model, const char* attrname, int len,             \
                                       const int* ind, T* values) {                                \
    if (len > 0 && ind == nullptr) return VLM_ERROR_NULL_ARGUMENT;                                 \
    return get_many<T>(model, attrname, kind_of(attrname), len, list_of(ind), values);             \
  }

extern "C" {

VLM_ATTR_FAMILY(int, int, int)
VLM_ATTR_FAMILY(dbl, double, double)
VLM_ATTR_FAMILY(char, char, char)
VLM_ATTR_FAMILY(str, char*, const char*)

#undef VLM_ATTR_FAMILY

#define VLM_ATTR_SETTERS(SUFFIX, T, C)                                                             \
  VLM_API int VLMset##SUFFIX##attrelement(VLMmodel* model, const char* attrname, int element,      \
                                          T newvalue) {                                            \
    return set_many<C>(model, attrname, kind_of(attrname), 1, one(element), &newvalue);            \
  }                                                                                                \
  VLM_API int VLMset##SUFFIX##attrarray(VLMmodel* model, const char* attrname, int first, int len, \
                                        const T* newvalues) {                                      \
    return set_many<C>(model, attrname, kind_of(attrname), len, range_from(first), newvalues);     \
  }                                                                                                \
  VLM_API int VLMset##SUFFIX##attrlist(VLMmodel* model, const char* attrname, int len,             \
                                       const int* ind, const T* newvalues) {                       \
    if (len > 0 && ind == nullptr) return VLM_ERROR_NULL_ARGUMENT;                                 \
    return set_many<C>(model, attrname, kind_of(attrname), len, list_of(ind), newvalues);          \
  }

VLM_ATTR_SETTERS(int, int, Conv<int>)
VLM_ATTR_SETTERS(dbl, double, Conv<double>)
VLM_ATTR_SETTERS(char, char, Conv<char>)

#undef VLM_ATTR_SETTERS

VLM_API int VLMsetstrattrelement(VLMmodel* model, const char* attrname, int element,
                                 const char* newvalue) {
  return set_many<ConstStr>(model, attrname, kind_of(attrname), 1, one(element), &newvalue);
}
VLM_API int VLMsetstrattrarray(VLMmodel* model, const char* attrname, int first, int len,
                               const char* const* newvalues) {
  return set_many<ConstStr>(model, attrname, kind_of(attrname), len, range_from(first), newvalues);
}
VLM_API int VLMsetstrattrlist(VLMmodel* model, const char* attrname, int len, const int* ind,
                              const char* const* newvalues) {
  if (len > 0 && ind == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  return set_many<ConstStr>(model, attrname, kind_of(attrname), len, list_of(ind), newvalues);
}

VLM_API int VLMgetintattr(VLMmodel* model, const char* attrname, int* valueP) {
  return get_many<int>(model, attrname, VLM_KIND_MODEL, 1, one(0), valueP);
}
VLM_API int VLMsetintattr(VLMmodel* model, const char* attrname, int newvalue) {
  return set_many<Conv<int>>(model, attrname, VLM_KIND_MODEL, 1, one(0), &newvalue);
}
VLM_API int VLMgetdblattr(VLMmodel* model, const char* attrname, double* valueP) {
  return get_many<double>(model, attrname, VLM_KIND_MODEL, 1, one(0), valueP);
}
VLM_API int VLMsetdblattr(VLMmodel* model, const char* attrname, double newvalue) {
  return set_many<Conv<double>>(model, attrname, VLM_KIND_MODEL, 1, one(0), &newvalue);
}
VLM_API int VLMgetstrattr(VLMmodel* model, const char* attrname, char** valueP) {
  return get_many<char*>(model, attrname, VLM_KIND_MODEL, 1, one(0), valueP);
}
VLM_API int VLMsetstrattr(VLMmodel* model, const char* attrname, const char* newvalue) {
  return set_many<ConstStr>(model, attrname, VLM_KIND_MODEL, 1, one(0), &newvalue);
}

VLM_API int VLMprefetchattr(VLMmodel* model, const char* attrname) {
  return model_call(model, [&](Model&) {
    VLM_RETURN_IF_ERROR(require(attrname, "attrname"));
    if (vlm::find_attr(attrname) < 0) {
      return Status(VLM_ERROR_UNKNOWN_ATTRIBUTE, std::string("Unknown attribute '") + attrname + "'");
    }
    return Status::Ok();
  });
}

}  // extern "C"

extern "C" {

VLM_API int VLMgetnumattributes(VLMmodel* model) {
  (void)model;  // every model has the same attribute set
  return static_cast<int>(vlm::attr_table().size());
}

VLM_API int VLMgetattrname(VLMmodel* model, int i, char** nameP) {
  (void)model;
  if (nameP == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  const auto& t = vlm::attr_table();
  if (i < 0 || i >= static_cast<int>(t.size())) return VLM_ERROR_INDEX_OUT_OF_RANGE;
  *nameP = const_cast<char*>(t[i].name);
  return VLM_OK;
}

VLM_API int VLMgetattrinfo(VLMmodel* model, const char* attrname, int* datatypeP,
                           int* attrtypeP, int* settableP) {
  (void)model;
  if (attrname == nullptr) return VLM_ERROR_NULL_ARGUMENT;
  int i = -1;
  try {
    i = vlm::find_attr(attrname);
  } catch (...) {
    return VLM_ERROR_OUT_OF_MEMORY;
  }
  if (i < 0) return VLM_ERROR_UNKNOWN_ATTRIBUTE;
  const vlm::AttrDef& a = vlm::attr_table()[i];
  if (datatypeP) *datatypeP = static_cast<int>(a.type);
  if (attrtypeP) *attrtypeP = static_cast<int>(a.kind);
  if (settableP) *settableP = a.settable ? 1 : 0;
  return VLM_OK;
}

}  // extern "C"
