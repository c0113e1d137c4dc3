#!/usr/bin/env python3
"""Profiles a program and holds every form in which the command shows the run against the raw
reports, to the byte. Arguments: the command, the program, the library."""
import csv, io, json, os, re, shutil, subprocess, sys, tempfile
from collections import Counter

command, program, library = map(os.path.abspath, sys.argv[1:4])
work = tempfile.mkdtemp()
environment = {"PATH": os.environ["PATH"], "HOME": work, "LD_PRELOAD": library,
               "KORVANE_MEM_PROFILE_ALL": "1", "KORVANE_MEM_REPORT_DIRECTORY": work + "/run/%p"}
subprocess.run([program], cwd=work, env=environment, check=True, stdout=subprocess.DEVNULL)


def tuk_mem(*words):
    return subprocess.run([command, *words], check=True, capture_output=True).stdout


def report(name):
    folder = os.path.join(work, "run", os.listdir(work + "/run")[0])
    lines = open(f"{folder}/mem_tbb_{name}.concordance.log").read().split("\n")
    rows = [dict(zip(lines[2].split("\t"), line.split("\t"))) for line in lines[3:] if "\t" in line]
    return [row for row in rows if not next(iter(row.values())).startswith("Time spent")]


def key(title):
    return title.lower().replace(" ", "_")


raw = report("fileline")
titles = [title for title in raw[0] if title.endswith(("bytes", "blocks"))]
titles_of_bins = [title for title in report("pbin_stats")[0] if title.endswith("bytes")]
assert len(raw) > 5 and len(titles) == 10


def sums(rows, names, figures):
    """The figures, summed over the rows that have the same names."""
    result = {}
    for row in rows:
        result.setdefault(tuple(str(row.get(name) or "") for name in names), Counter()).update(
            {figure: int(row[figure]) for figure in figures})
    return {names: {f: c[f] for f in figures} for names, c in result.items()}


def expect(what, shown, names, figures, expected):
    expected = {n: {key(f): v for f, v in row.items()} for n, row in expected.items()}
    found = sums(shown, names, [key(figure) for figure in figures])
    assert found == expected, f"{what}: {[row for row in found.items() if row not in expected.items()]}"


# One row for a line, with the catch-all by its name.
by_line = sums([{"name": "OTHER"} | row if row["Address"] == "OTHER" else row for row in raw],
               ["name", "File", "Line"], titles)
by_line = {(n, f if not n else "", l if not n else ""): row for (n, f, l), row in by_line.items()}
shown = json.loads(tuk_mem("show", work + "/run", "--json"))["tables"][0]
expect("show --json", shown["rows"], ["name", "file", "line"], titles, by_line)
assert len(shown["rows"]) == len(by_line)
for title in titles:
    assert shown["total"][key(title)] == sum(int(row[title]) for row in raw), title
table = list(csv.DictReader(io.StringIO(tuk_mem("show", work + "/run", "--csv").decode())))
for row in table:
    row["line"] = row["line"].replace("0", "") if row["line"] == "0" else row["line"]
expect("show --csv", table, ["name", "file", "line"], titles, by_line)
for by, name, first, figures in (("module", "subsystem", "Subsystem", None),
                                 ("bin", "pbin_stats", "Name", titles_of_bins),
                                 ("tag", "pbin_tag_stats", "Name", titles_of_bins)):
    rows = report(name)
    figures = figures or [title for title in rows[0] if title.endswith(("bytes", "blocks"))]
    shown = json.loads(tuk_mem("show", work + "/run", "--json", "--by", by))["tables"][0]["rows"]
    expect("--by " + by, shown, ["name"], figures, sums(rows, [first], figures))

# Each site by its address.
by_address = sums(raw, ["Address"], titles)
exported = json.loads(tuk_mem("export", work + "/run", "--to", "json"))["processes"][0]
expect("export --to json", exported["sites"], ["address"], titles, by_address)
expect("export --to csv", csv.DictReader(io.StringIO(
    tuk_mem("export", work + "/run", "--to", "csv").decode())), ["address"], titles, by_address)
for name, timeline in (("timeline_detailed", "module_bytes"),
                       ("cumulative_blocks_timeline_detailed", "module_blocks"),
                       ("pbin_tag_timeline_detailed", "tag_bytes")):
    samples = exported["timelines"][timeline]
    for series in samples["series"]:
        assert series["values"] == [int(row[series["name"]]) for row in report(name)], series["name"]
    labels = [phase["label"] for phase in samples["phases"] for _ in range(phase["count"])]
    assert labels == [row[""] for row in report(name)], name
for series in exported["timelines"]["auxiliary"]:
    assert series["values"] == [float(row[series["name"]]) for row in report("auxiliary_timeline")]

folded = Counter()
for line in tuk_mem("export", work + "/run", "--to", "folded").decode().splitlines():
    stack, count = line.rsplit(" ", 1)
    folded[stack] += int(count)
expected = Counter()
for row in raw:
    expected[f"{row['Module']};{row['File']};{row['Function']}:{row['Line']}"] += int(row["Peak bytes"])
assert folded == +expected, (folded, expected)

if go := shutil.which("go"):
    profile = work + "/profile.pb.gz"
    tuk_mem("export", work + "/run", "--to", "pprof", "-o", profile)
    pprof = lambda *words: subprocess.run([go, "tool", "pprof", *words, profile], check=True,
                                          capture_output=True, text=True,
                                          env=environment | {"LD_PRELOAD": ""}).stdout
    text = pprof("-raw")
    # A name that pprof shortens stands behind in full.
    locations = {number: (address, f"{full or name} {place}")
                 for number, address, name, place, full in re.findall(
        r"^ +(\d+): (0x[0-9a-f]+)(?: M=\d+)? (.*) (\S*:\d+) s=0(?:\((.*)\))?$", text, re.M)}
    of_profile = ["Peak bytes", "Peak blocks", "Current bytes", "Current blocks",
                  "Cumulative bytes", "Cumulative blocks"]
    found = {}
    for figures, number in re.findall(r"^ +((?:-?\d+ +)*-?\d+): (\d+) *$", text, re.M):
        address, place = locations[number]
        found[address] = (dict(zip(of_profile, map(int, figures.split()))), place)
    # pprof drops what is zero.
    charged = [row for row in raw if any(int(row[title]) for title in of_profile)]
    assert len(found) == len(charged)
    for row in charged:
        address = row["Address"] if row["Address"] != "OTHER" else "0x0"
        figures, place = found[address]
        assert figures == {title: int(row[title]) for title in of_profile}, row
        assert address == "0x0" or place == f"{row['Function']} {row['File']}:{row['Line']}", place
    top = pprof("-top", "-unit=bytes", "-nodefraction=0")
    assert f"of {sum(int(row['Peak bytes']) for row in raw)}B total" in top, top
else:
    print("no go: pprof's own reading of the profile is not tried")

# Of call paths: the highest level of the tree is the table, and below it nothing gets lost.
subprocess.run([program], cwd=work, check=True, stdout=subprocess.DEVNULL, env=environment |
               {"KORVANE_MEM_PROFILE_CALL_PATHS": "1",
                "KORVANE_MEM_REPORT_DIRECTORY": work + "/paths/%p"})
table = json.loads(tuk_mem("show", work + "/paths", "--json"))["tables"][0]
tree = json.loads(tuk_mem("show", work + "/paths", "--tree", "--json"))["tables"][0]
keys = [name for name in tree["total"] if name != "temporary_blocks"]
top = [node | tree["frames"][node["frame"]] for node in tree["nodes"] if node["parent"] is None]
line = lambda row: (row.get("name"), row.get("file"), row.get("line"))
expected = {line(row): [row[key] for key in keys] for row in table["rows"]}
found = {line(row): [row[key] for key in keys] for row in top}
assert len(top) > 5 and found == {name: row for name, row in expected.items() if any(row)}, found
below = [Counter() for _ in tree["nodes"]]
for node in tree["nodes"]:
    if node["parent"] is not None:
        below[node["parent"]].update({key: node[key] for key in keys})
for node, sums_below in zip(tree["nodes"], below):
    assert all(node[key] == node["own"][key] + sums_below[key] for key in keys), node
assert any("main" == frame.get("function") for frame in tree["frames"])
stacks = tuk_mem("export", work + "/paths", "--to", "folded").decode().splitlines()
assert sum(int(stack.rsplit(" ", 1)[1]) for stack in stacks) == table["total"]["peak_bytes"]
shutil.rmtree(work)
