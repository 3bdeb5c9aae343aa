* Problem:    tr
* Class:      LP
* Rows:       6
* Columns:    6
* Non-zeros:  18
* Format:     Free MPS
*
NAME tr
ROWS
 N cost
 L supply[sea]
 L supply[sf]
 G demand[ny]
 G demand[chi]
 G demand[top]
COLUMNS
 x[sea,ny] cost 2.5 supply[sea] 1
 x[sea,ny] demand[ny] 1
 x[sea,chi] cost 1.7 supply[sea] 1
 x[sea,chi] demand[chi] 1
 x[sea,top] cost 1.8 supply[sea] 1
 x[sea,top] demand[top] 1
 x[sf,ny] cost 2.5 supply[sf] 1
 x[sf,ny] demand[ny] 1
 x[sf,chi] cost 1.8 supply[sf] 1
 x[sf,chi] demand[chi] 1
 x[sf,top] cost 1.4 supply[sf] 1
 x[sf,top] demand[top] 1
RHS
 RHS1 supply[sea] 350 supply[sf] 600
 RHS1 demand[ny] 325 demand[chi] 300
 RHS1 demand[top] 275
ENDATA
