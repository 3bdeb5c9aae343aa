* Problem:    t1
* Class:      MIP
* Rows:       7
* Columns:    6 (2 integer, 1 binary)
* Non-zeros:  17
* Format:     Fixed MPS
*
NAME          t1
ROWS
 N  profit
 L  c1
 G  c2
 E  c3
 E  rng
 L  c5
 L  c6
COLUMNS
    x         profit               3   c1                   1
    x         c2                   1   c3                   1
    x         rng                  1
    y         profit               2   c1                   1
    y         c3                   2   c5                  -1
    M0000001  'MARKER'                 'INTORG'
    z         profit              -1   c2                  -1
    b         profit               5   c3                   1
    M0000002  'MARKER'                 'INTEND'
    f         profit               1   rng                  1
    f         c6                   1
    w         c5                  -1
RHS
    RHS1      c1                   8   c2                  -1
    RHS1      c3                   3   rng                 -5
    RHS1      c5                  -2   c6                  10
RANGES
    RNG1      rng                 11
BOUNDS
 UP BND1      x                    4
 LO BND1      y                   -2
 UP BND1      z                   10
 UP BND1      b                    1
 FR BND1      f       
 LO BND1      w                   -3
 UP BND1      w                   -1
ENDATA
