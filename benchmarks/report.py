#!/usr/bin/env python3
"""Prints the fan-out table (ns per record received and ratio to the floor of the same run, and,
when given, callgrind instructions per batch and their ratio) and the growth of request merging
from Google Benchmark JSON files. A file named *.ir holds "NAME INSTRUCTIONS_PER_BATCH" lines."""
import json
import sys

results, instructions = {}, {}
for path in sys.argv[1:]:
    with open(path) as f:
        if path.endswith(".ir"):
            for line in f:
                name, ir = line.split()
                instructions[name] = float(ir)
            continue
        for b in json.load(f)["benchmarks"]:
            results[b["name"]] = b


def split(name):
    family, _, args = name.partition("/")
    return family, args


def order(item):
    b = item[1]
    return (split(item[0])[0], b.get("requests", 0), b.get("clients", 0), b.get("records", 0))


print("| case | records | clients | requests per client | received per batch | ns/record | "
      "floor ns/record | ratio | instructions per batch | floor instructions | ratio |")
print("|---|---|---|---|---|---|---|---|---|---|---|")
for name, b in sorted(results.items(), key=order):
    family, args = split(name)
    if family.endswith("Floor") or "ns_per_record" not in b:
        continue
    floor_name = f"{family}Floor/{args}"
    floor = results.get(floor_name)
    ns = b["ns_per_record"] * 1e9
    cells = [family[3:], int(b["records"]), int(b["clients"]), int(b["requests"]),
             f"{b['received']:.0f}", f"{ns:.1f}"]
    if floor:
        fns = floor["ns_per_record"] * 1e9
        cells += [f"{fns:.1f}", f"{ns / fns:.2f}"]
        if abs(floor["received"] - b["received"]) > 0.5:
            cells[4] += f" (floor {floor['received']:.0f})"
    else:
        cells += ["-", "-"]
    ir, fir = instructions.get(name), instructions.get(floor_name)
    cells += [f"{ir:.0f}" if ir else "-", f"{fir:.0f}" if fir else "-",
              f"{ir / fir:.2f}" if ir and fir else "-"]
    print("| " + " | ".join(str(c) for c in cells) + " |")

if any(split(n)[0] == "BM_EnableDisable" for n in results):
    print()
    print("| other open requests | ns per enable+disable | instructions per enable+disable |")
    print("|---|---|---|")
    for name, b in sorted(((n, b) for n, b in results.items() if split(n)[0] == "BM_EnableDisable"),
                          key=lambda item: item[1]["others"]):
        ir = instructions.get(name)
        print(f"| {int(b['others'])} | {b['real_time']:.0f} | {f'{ir:.0f}' if ir else '-'} |")
