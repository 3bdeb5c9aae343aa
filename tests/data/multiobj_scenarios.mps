NAME show
ROWS
 N  OBJ
 N  OBJ0
 N  OBJ1
 L  c0
OBJECTIVES
    OBJ0 Priority=2 Weight=1 AbsTol=0 RelTol=0 Name=first
    OBJ1 Priority=2 Weight=0.25 AbsTol=0 RelTol=0 Name=blend
COLUMNS
    x OBJ0 -1
    x c0 1
    y OBJ1 -1
    y c0 1
RHS
    RHS OBJ1 -3
    RHS c0 5
BOUNDS
 UP BND x 4
 UP BND y 4
SCENARIOS
 SC high cap
 RH c0 7
 SC
 LO x -1e+30
 OB y -1
ENDATA
