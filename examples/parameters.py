"""Create a Velmor environment, adjust a few solver parameters and show them.

Run:  python examples/parameters.py
"""
import velmorpy as vp

print("Velmor", ".".join(map(str, vp.velmor.version())), "on", vp.velmor.platform())

with vp.Env(empty=True, params={"OutputFlag": 0}) as env:
    env.setParam("timelimit", 60)      # names ignore case
    env.setParam("MIPGap", 1e-3)
    env.setParam("Presolve", 2)
    env.start()
    print(env)
    for name in ("TimeLimit", "MIPGap", "Presolve", "Threads"):
        pname, ptype, value, lo, hi, default = env._getParamInfo(name)
        print(f"  {pname:10s} {ptype.__name__:5s} value={value!r:8} range=[{lo}, {hi}] default={default!r}")

vp.paramHelp("MIPGap")
