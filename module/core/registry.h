// Registration of the class families into the module object, called in this order by
// PyInit__velmorpy. Each returns 0, or -1 with a Python exception set.
#pragma once

#include "core/py_ref.h"

int register_exception(PyObject* m);  // exception.cpp: VelmorError
int register_env(PyObject* m);        // env.cpp: Env
int register_param(PyObject* m);      // param.cpp: ParamClass and the parameter functions
int register_constants(PyObject* m);  // vlm.cpp (with statusconst, callback, attrconst,
                                      // paramconst, errorconst): VLM and its groups
int register_linexpr(PyObject* m);     // linexpr.cpp: LinExpr, quicksum
int register_quadexpr(PyObject* m);    // quadexpr.cpp: QuadExpr
int register_tempconstr(PyObject* m);  // tempconstr.cpp: TempConstr
int register_genexpr(PyObject* m);     // genexpr.cpp: GenExpr and its kinds, abs_ ... norm
int register_var_ops(PyObject* m);     // var_ops.cpp: the Var operators (before register_var)
int register_tuplelist(PyObject* m);  // tuplelist.cpp: tuplelist
int register_tupledict(PyObject* m);  // tupledict.cpp: tupledict
int register_multidict(PyObject* m);  // multidict.cpp: multidict
int register_mvar(PyObject* m);       // mvar.cpp: MVar
int register_mlinexpr(PyObject* m);   // mlinexpr.cpp: MLinExpr
int register_mquadexpr(PyObject* m);  // mquadexpr.cpp: MQuadExpr
int register_mconstr(PyObject* m);    // mconstr.cpp: MConstr
int register_mqconstr(PyObject* m);   // mqconstr.cpp: MQConstr
int register_mgenconstr(PyObject* m); // mgenconstr.cpp: MGenConstr
int register_var(PyObject* m);        // var.cpp: Var
int register_constr(PyObject* m);     // constr.cpp: Constr
int register_qconstr(PyObject* m);    // qconstr.cpp: QConstr
int register_sos(PyObject* m);        // sos.cpp: SOS
int register_genconstr(PyObject* m);  // genconstr.cpp: GenConstr
int register_column(PyObject* m);     // column.cpp: Column
int register_model(PyObject* m);      // model.cpp: Model (after Env and ParamClass)
int register_batch(PyObject* m);      // batch.cpp: Batch
int register_velmor(PyObject* m);     // velmor.cpp: the module-level class and functions

// The VelmorError class (borrowed; valid after register_exception).
PyObject* velmor_error_type();
