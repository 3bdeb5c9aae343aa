"""The diet problem: the cheapest daily menu that meets every nutritional need.

Each food has a price per serving and a nutrient content; each nutrient has a least and a most
amount per day. Servings may be fractional, so this is a linear programme. The data live in
dictionaries made by multidict, and the model is written with tupledict sums.

Run:  python examples/diet.py
"""
import velmorpy as vp
from velmorpy import VLM

# nutrient: [least, most] per day
nutrients, least, most = vp.multidict({
    "calories": [1800, 2200], "protein": [91, VLM.INFINITY], "fat": [0, 65], "sodium": [0, 1779]})
# food: price per serving
foods, price = vp.multidict({
    "hamburger": 2.49, "chicken": 2.89, "hot dog": 1.50, "fries": 1.89, "macaroni": 2.09,
    "pizza": 1.99, "salad": 2.49, "milk": 0.89, "ice cream": 1.59})
content = {  # (food, nutrient): amount per serving
    ("hamburger", "calories"): 410, ("hamburger", "protein"): 24, ("hamburger", "fat"): 26,
    ("hamburger", "sodium"): 730,
    ("chicken", "calories"): 420, ("chicken", "protein"): 32, ("chicken", "fat"): 10,
    ("chicken", "sodium"): 1190,
    ("hot dog", "calories"): 560, ("hot dog", "protein"): 20, ("hot dog", "fat"): 32,
    ("hot dog", "sodium"): 1800,
    ("fries", "calories"): 380, ("fries", "protein"): 4, ("fries", "fat"): 19,
    ("fries", "sodium"): 270,
    ("macaroni", "calories"): 320, ("macaroni", "protein"): 12, ("macaroni", "fat"): 10,
    ("macaroni", "sodium"): 930,
    ("pizza", "calories"): 320, ("pizza", "protein"): 15, ("pizza", "fat"): 12,
    ("pizza", "sodium"): 820,
    ("salad", "calories"): 320, ("salad", "protein"): 31, ("salad", "fat"): 12,
    ("salad", "sodium"): 1230,
    ("milk", "calories"): 100, ("milk", "protein"): 8, ("milk", "fat"): 2.5,
    ("milk", "sodium"): 125,
    ("ice cream", "calories"): 330, ("ice cream", "protein"): 8, ("ice cream", "fat"): 10,
    ("ice cream", "sodium"): 180,
}

with vp.Env(params={"OutputFlag": 0}) as env, vp.Model("diet", env=env) as m:
    buy = m.addVars(foods, name="buy")
    amount = m.addVars(nutrients, lb=least, ub=most, name="amount")
    m.addConstrs((vp.quicksum(content[f, n] * buy[f] for f in foods) == amount[n]
                  for n in nutrients), name="intake")
    m.setObjective(buy.prod(price), VLM.MINIMIZE)
    m.optimize()

    if m.Status == VLM.OPTIMAL:
        print(f"Cheapest menu: {m.ObjVal:.4f}")
        for f in foods:
            if buy[f].X > 1e-6:
                print(f"  {buy[f].X:7.3f} x {f}")
        for n in nutrients:
            print(f"  {n:9s} {amount[n].X:8.1f}")
    else:
        print(f"No menu meets the needs (status {m.Status})")
