* Hand-written fixed MPS: row and column names with blanks, which only the column
* positions can tell apart. Numbers are right-aligned in their fields.
NAME          fixed names
ROWS
 N  cost
 L  cap one
 G  dem 2
COLUMNS
    x one     cost                 1   cap one              1
    x one     dem 2                1
    MARKER                 'MARKER'                 'INTORG'
    y-2 b     cost               2.5   cap one              1
    y-2 b     dem 2                3
    MARKER                 'MARKER'                 'INTEND'
RHS
    RHS       cap one              4   dem 2              1.5
              cost               -10
BOUNDS
 UP BND       y-2 b                3
 MI BND       x one
ENDATA
