// Read-only constant classes: VLM and its groups (VLM.attr, VLM.error, VLM.param, VLM.status,
// VLM.callback).
//
// Every such class is made by calling one metaclass whose __setattr__/__delattr__ raise
// VelmorError, with one base class whose instances refuse assignment the same way. The
// constants are plain entries of the class dict, filled once at import, so reading one is an
// ordinary class-attribute lookup and dir() lists them. A group is used through its single
// instance (VLM.status), whose help() is the class docstring: the group's table.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "core/py_ref.h"

// A named integer constant and its one-line description for the help table (nullptr: the
// constant exists but the table does not list it).
struct IntConst {
  const char* name;
  long value;
  const char* help;
};

// Creates the metaclass and the base class. Called by register_constants before anything else
// here; 0, or -1 with an exception set.
int constclass_ready();

// Sets `dict[name] = value`. Setting a name twice is allowed only with an equal value (the error
// table lists two codes twice on purpose); a different value is a table bug and raises
// SystemError. 0, or -1 with an exception set.
int constclass_add(PyObject* dict, const char* name, PyObject* value);

// constclass_add for each entry, as an int, under `prefix` + name.
int constclass_add_ints(PyObject* dict, std::span<const IntConst> consts, const char* prefix = "");

// Creates class velmorpy.<name> with the constants of `dict` (borrowed, left unchanged) as
// class attributes and `doc` as its docstring.
py::Ref constclass_new(const char* name, const std::string& doc, PyObject* dict);

// constclass_new for a class whose constants are exactly `consts`.
py::Ref constclass_from_ints(const char* name, const std::string& doc,
                             std::span<const IntConst> consts);

// A new instance of a class made by constclass_new (the group object stored in VLM).
py::Ref constclass_instance(PyObject* cls);

// Help text laid out as aligned columns: headings flush left, rows "    name  value  text".
class HelpTable {
 public:
  void heading(std::string text);
  void row(std::string name, std::string value, std::string text);
  // One row per entry with a description, the value printed as an integer.
  void rows(std::span<const IntConst> consts);
  // The table, every line ending in '\n'.
  std::string str() const;

 private:
  struct Line {
    bool is_heading;
    std::string name, value, text;
  };
  std::vector<Line> lines_;
};

// The groups. Each returns its new class (a new reference), or an empty Ref with an exception
// set. The integer tables are also copied onto VLM itself by vlm.cpp.
py::Ref statusconst_class();                  // statusconst.cpp: StatusConstClass
std::span<const IntConst> statusconst_codes();
py::Ref errorconst_class();                   // errorconst.cpp: ErrorConstClass
std::span<const IntConst> errorconst_codes();
py::Ref callback_class();                     // callback.cpp: CallbackClass
std::span<const IntConst> callback_codes();
py::Ref attrconst_class();                    // attrconst.cpp: AttrConstClass
py::Ref paramconst_class();                   // paramconst.cpp: ParamConstClass
