"""Sets the benches' figures beside their budgets: bench_table.py FOLDER [JSON_FILE]. Exits 1 when a budget is missed."""
import glob
import json
import os
import sys

figures = {}
for path in glob.glob(os.path.join(sys.argv[1], "*.json")):
    with open(path, encoding="utf-8") as stream:
        for row in json.load(stream)["benchmarks"]:
            scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}[row["time_unit"]]
            name = row["name"].split("/iterations:")[0].split("/process_time")[0]
            figures[name.removesuffix("/real_time")] = {"real": row["real_time"] * scale, "cpu": row["cpu_time"] * scale}
            # A counted figure stands as it was counted, in KB.
            figures |= {f"{name}.{key}": {"count": value} for key, value in row.items() if key.endswith("KB")}

# What is measured, the figure, and the budget it is held against: "<=" or ">=" and the number.
ROWS = [
    ("poll of an unchanged log, 1,000,000 rows beside 10,000", ("pollUnchanged/1000000", "pollUnchanged/10000"), "<=", 1.5),
    ("poll of one row more, 1,000,000 rows beside 10,000", ("pollOneRowMore/1000000", "pollOneRowMore/10000"), "<=", 1.5),
    ("first read of events, speed beside simdjson's DOM", ("simdjsonEvents", "firstReadEvents"), ">=", 0.35),
    ("first read of judgments, speed beside simdjson's DOM", ("simdjsonTicks", "firstReadTicks"), ">=", 0.35),
    ("one appended row, beside open, write and close", ("appendedRow", "bareThreeCalls"), "<=", 1.3),
    ("redaction of 8 KB without identifiers, beside the bare patterns", ("redaction/plain", "barePatterns/plain"), "<=", 1.5),
    ("redaction of 8 KB with identifiers, beside the bare patterns", ("redaction/identifiers", "barePatterns/identifiers"), "<=", 1.5),
    ("sealing chunks of 1 MiB, speed beside OpenSSL and the writes", ("bareSealing/1048576", "sealing/1048576"), ">=", 0.9),
    ("the same, chunks of 32 KiB", ("bareSealing/32768", "sealing/32768"), ">=", 0.9),
    ("opening chunks of 1 MiB, speed beside OpenSSL and the reads", ("bareOpening/1048576", "opening/1048576"), ">=", 0.9),
    ("the same, chunks of 32 KiB", ("bareOpening/32768", "opening/32768"), ">=", 0.9),
    ("recording 1920x1080, CPU beside a bare ffmpeg", ("recording", "bareRecording"), "<=", 1.3),
    ("a locate in a 1 GB sidecar, KB read after the bisection", ("sidecarReads.afterKB", None), "<=", 32),
    ("a locate in a 1 GB sidecar, ms of CPU", ("locateInAGigabyte", None), "<=", 1),
    ("a random batch from a million judgments, ms of CPU", ("drawVerdictBlind", None), "<=", 1000),
    ("a batch of what stood out, likewise", ("drawInteresting", None), "<=", 1000),
    ("gate message over a full day, ms", ("gateMessage", None), "<=", 5),
    ("a sampling turn, ms of CPU", ("wholeTurn", None), "<=", 1),
    ("AmbitudeApp --dump on a year of logs, ms", ("dumpAsAProgram/10", None), "<=", 50),
    ("the same, the declaration at the far end, ms", ("dumpAsAProgram/99999", None), "<=", 50),
    ("AmbitudeApp's window, from the start to its first paint, ms", ("startToFirstPaint", None), "<=", 400),
]

missed = 0
print(f"{'':66}{'figure':>10}{'budget':>10}")
for title, (ours, beside), sense, budget in ROWS:
    if ours not in figures or (beside and beside not in figures):
        print(f"{title:66}{'-':>10}{sense + ' ' + format(budget, 'g'):>10}  not measured")
        missed += 1
        continue
    clock = "real" if ours.startswith(("dump", "recording", "startTo")) else "cpu"  # a recording times the CPU of its children itself
    if "count" in figures[ours]:
        figure = figures[ours]["count"]
    else:
        figure = figures[ours][clock]
        figure = figure / figures[beside][clock] if beside else figure * 1e3
    kept = figure <= budget if sense == "<=" else figure >= budget
    missed += not kept
    print(f"{title:66}{figure:>10.2f}{sense + ' ' + format(budget, 'g'):>10}  {'' if kept else 'MISSED'}")
if len(sys.argv) > 2:
    with open(sys.argv[2], "w", encoding="utf-8") as stream:
        json.dump(figures, stream, indent=1, sort_keys=True)
sys.exit(1 if missed else 0)
