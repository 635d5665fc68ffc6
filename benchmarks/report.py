#!/usr/bin/env python3
"""Prints the fan-out table (ns per delivered record and ratio to the floor) and the growth of
request merging from Google Benchmark JSON files."""
import json
import sys

results = {}
for path in sys.argv[1:]:
    with open(path) as f:
        for b in json.load(f)["benchmarks"]:
            results[b["name"]] = b

def split(name):
    family, _, args = name.partition("/")
    return family, args

print("| case | records | client calls per batch | ns/record | floor ns/record | ratio |")
print("|---|---|---|---|---|---|")
def order(item):
    family, _ = split(item[0])
    return (family, item[1].get("clients", 0), item[1].get("records", 0))

for name, b in sorted(results.items(), key=order):
    family, args = split(name)
    if family.endswith("Floor") or "ns_per_record" not in b:
        continue
    floor = results.get(f"{family}Floor/{args}")
    ns = b["ns_per_record"] * 1e9
    line = f"| {family[3:]} | {int(b['records'])} | {int(b['clients'])} | {ns:.1f} |"
    if floor:
        fns = floor["ns_per_record"] * 1e9
        line += f" {fns:.1f} | {ns / fns:.2f} |"
    else:
        line += " - | - |"
    print(line)

merging = [b for n, b in results.items() if split(n)[0] == "BM_EnableDisable"]
if merging:
    print()
    print("| other open requests | ns per enable+disable |")
    print("|---|---|")
    for b in sorted(merging, key=lambda b: b["others"]):
        print(f"| {int(b['others'])} | {b['real_time']:.0f} |")
