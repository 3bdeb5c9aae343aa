// The operators of Var: arithmetic builds LinExpr/QuadExpr objects (the variable itself never
// changes), comparisons build TempConstr objects. Variables live on the floor below the
// expressions, so the expression floor installs these slots into the Var type
// (register_var_ops, called before register_var readies that type).
#pragma once

#include "core/py_ref.h"
