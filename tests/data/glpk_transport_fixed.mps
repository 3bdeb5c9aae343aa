* Problem:    tr
* Class:      LP
* Rows:       6
* Columns:    6
* Non-zeros:  18
* Format:     Fixed MPS
*
NAME          tr
ROWS
 N  cost
 L  R0000002
 L  R0000003
 G  R0000004
 G  R0000005
 G  R0000006
COLUMNS
    C0000001  cost               2.5   R0000002             1
    C0000001  R0000004             1
    C0000002  cost               1.7   R0000002             1
    C0000002  R0000005             1
    C0000003  cost               1.8   R0000002             1
    C0000003  R0000006             1
    x[sf,ny]  cost               2.5   R0000003             1
    x[sf,ny]  R0000004             1
    C0000005  cost               1.8   R0000003             1
    C0000005  R0000005             1
    C0000006  cost               1.4   R0000003             1
    C0000006  R0000006             1
RHS
    RHS1      R0000002           350   R0000003           600
    RHS1      R0000004           325   R0000005           300
    RHS1      R0000006           275
ENDATA
