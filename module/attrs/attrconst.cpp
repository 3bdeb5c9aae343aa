// AttrConstClass: the attribute names (VLM.attr.ObjVal == "ObjVal"), read from the library's
// attribute table at import so that the two cannot disagree.
#include <string>
#include <vector>

#include "core/constclass.h"
#include "core/py_convert.h"
#include "core/py_error.h"
#include "velmor_c.h"

namespace {

const char* type_name(int type) {
  switch (type) {
    case VLM_CHAR:
      return "char";
    case VLM_INT:
      return "int";
    case VLM_DBL:
      return "double";
    case VLM_STR:
      return "string";
  }
  return "?";
}

struct KindHeading {
  int kind;
  const char* heading;
};

// Help groups attributes by the element they belong to, in this order.
const KindHeading kKinds[] = {
    {VLM_KIND_MODEL, "Model attributes:"},
    {VLM_KIND_VAR, "Variable attributes:"},
    {VLM_KIND_CONSTR, "Linear constraint attributes:"},
    {VLM_KIND_QCONSTR, "Quadratic constraint attributes:"},
    {VLM_KIND_SOS, "SOS constraint attributes:"},
    {VLM_KIND_GENCONSTR, "General constraint attributes:"},
    {VLM_KIND_BATCH, "Batch attributes:"},
};

struct AttrRow {
  const char* name;
  int type, kind, settable;
};

}  // namespace

py::Ref attrconst_class() {
  int count = VLMgetnumattributes(nullptr);
  if (count < 0) {
    return py::Ref::steal(raise_velmor_msg(VLM_ERROR_INTERNAL, "Cannot read the attribute table"));
  }
  py::Ref dict = py::Ref::steal(PyDict_New());
  if (!dict) return {};
  std::vector<AttrRow> attrs;
  attrs.reserve(count);
  for (int i = 0; i < count; ++i) {
    char* name = nullptr;
    AttrRow row{};
    int rc = VLMgetattrname(nullptr, i, &name);
    if (rc == 0) rc = VLMgetattrinfo(nullptr, name, &row.type, &row.kind, &row.settable);
    if (rc != 0) return py::Ref::steal(raise_velmor_msg(rc, "Cannot read the attribute table"));
    row.name = name;
    attrs.push_back(row);
    py::Ref value = py::str(name);
    if (!value || constclass_add(dict.get(), name, value.get()) < 0) return {};
  }

  HelpTable table;
  table.heading(
      "Velmor attribute names: each constant is the name itself (VLM.attr.ObjVal == \"ObjVal\").");
  table.heading("Listed by element, with the value type and whether the attribute can be set.");
  std::vector<bool> listed(attrs.size(), false);
  auto add_group = [&](const char* heading, auto belongs) {
    bool any = false;
    for (size_t i = 0; i < attrs.size(); ++i) {
      if (listed[i] || !belongs(attrs[i])) continue;
      if (!any) {
        table.heading("");
        table.heading(heading);
        any = true;
      }
      listed[i] = true;
      table.row(attrs[i].name, type_name(attrs[i].type),
                attrs[i].settable ? "settable" : "read-only");
    }
  };
  for (const KindHeading& k : kKinds) {
    add_group(k.heading, [&](const AttrRow& a) { return a.kind == k.kind; });
  }
  add_group("Other attributes:", [](const AttrRow&) { return true; });
  return constclass_new("AttrConstClass", table.str(), dict.get());
}
