"""Sudoku as an integer programme: one binary variable per cell and digit.

x[r, c, d] = 1 when the cell in row r and column c holds digit d. Every cell holds one digit,
and every row, column and 3x3 box holds each digit once; the given digits fix their variables.
Any feasible point is the answer, so there is no objective.

Run:  python examples/sudoku.py
"""
import velmorpy as vp
from velmorpy import VLM

puzzle = """
53..7....
6..195...
.98....6.
8...6...3
4..8.3..1
7...2...6
.6....28.
...419..5
....8..79
"""
grid = puzzle.split()
cells = range(9)
digits = range(1, 10)

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("sudoku", env=env) as m:
    x = m.addVars(cells, cells, digits, vtype=VLM.BINARY, name="x")
    m.addConstrs(x.sum(r, c, "*") == 1 for r in cells for c in cells)
    m.addConstrs(x.sum(r, "*", d) == 1 for r in cells for d in digits)
    m.addConstrs(x.sum("*", c, d) == 1 for c in cells for d in digits)
    m.addConstrs(vp.quicksum(x[r, c, d] for r in range(br, br + 3) for c in range(bc, bc + 3)) == 1
                 for br in (0, 3, 6) for bc in (0, 3, 6) for d in digits)
    for r in cells:
        for c in cells:
            if grid[r][c] != ".":
                x[r, c, int(grid[r][c])].LB = 1
    m.optimize()

    if m.Status == VLM.OPTIMAL:
        print("Solved:")
        for r in cells:
            print("".join(str(d) for c in cells for d in digits if x[r, c, d].X > 0.5))
    else:
        print(f"No solution (status {m.Status})")
