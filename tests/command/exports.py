#!/usr/bin/env python3
"""Exports a run with every odd name there can be, and has each format read by somebody else's
reader. Arguments: the command, the description of profiles."""
import csv, gzip, io, json, os, re, shutil, subprocess, sys, tempfile

command, description = map(os.path.abspath, sys.argv[1:3])
work = tempfile.mkdtemp()
os.chdir(work)
TITLES = ("Address", "Current bytes", "Peak bytes", "Cumulative bytes", "Module", "File", "Line", "Function")
END = "Time spent dumping:\t9 clicks.\t9e-06 seconds.\n"
# As the host gave them, and as text that any reader takes: however many marks stand for what is none.
NAMES = [(b'a "b", c;d', 'a "b", c;d'), (b"cr\rlf", "cr\rlf"), (b"two\nlines", "two\nlines"),
         (b"tab\tand =1+1", "tab\tand =1+1"), (b"\xc3\xa4\xe2\x82\xac\xf0\x9f\x90\x8e", "\xe4\u20ac\U0001f40e"),
         (b"cut \xe2\x82", "cut \ufffd"), (b"long \xc0\xaf", "long \ufffd"),
         (b"half \xed\xa0\x80", "half \ufffd"), (b"\xc2\x9b1m\x1b[1m<&>", "\x9b1m\x1b[1m<&>")]


def squeezed(text):
    return re.sub("\ufffd+", "\ufffd", text)


def write(name, text):
    os.makedirs(os.path.dirname(name) or ".", exist_ok=True)
    open(name, "wb").write(text if isinstance(text, bytes) else text.encode())


def export(to, run="run"):
    return subprocess.run([command, "export", run, "--to", to], check=True, capture_output=True).stdout


rows = b"".join(b"0x%x\t5\t%d\t9\tapp\t%s\t7\tf()\n" % (0x1000 + i, 100 + i, name)
                for i, (name, _) in enumerate(NAMES))
write("run/mem_tbb_fileline.x.log", b"MEM: TBB Fileline Tracking Memory Snapshot. [at index 1]\n\n" +
      "\t".join(TITLES).encode() + b"\n" + rows +
      b"OTHER\t-3\t1\t1\t\t\t0\t\n0x2000\t1\t-1\t1\tgone\tg.cpp\t7\tg()\n" + END.encode())
write("run/mem_tbb_subsystem_base_addresses.x.log",
      '"base address","module","dll_path"\n"0x1000","app","/opt/app"\n"0","gone","/opt/gone"\n')
write("run/mem_tbb_run.x.log", "executable\t/bin/prog\npid\t71\nhost\t42\nstart\t2026-11-25T19:44:53Z\n"
      "seconds\t1.5\ncommit\tinf\nended\texit\nallocator\thooks\nevents_not_accounted\t0\nargument\tprog\n"
      "argument\t-x\nmodule\t0x1000 256 ab yes /opt/app\nmodule\t0x9000 64 cd yes /opt/gone\n")
write("run/mem_tbb_timeline_detailed.x.log", "MEM: TBB Module Tracking Detailed Memory Timeline.\n\n"
      "\tapp\tlib\nstart\t1\t2\nwork\t30\t40\nwork\t5\t6\n" + END)
write("run/mem_tbb_subsystem.x.log", "MEM: TBB Subsystem Tracking Memory Snapshot.\n\n"
      "Subsystem\tPeak bytes\napp\t7\nlib\t9\n" + END)
write("run/mem_tbb_auxiliary_timeline.x.log",
      "MEM: TBB Auxiliary Timeline\n\na\tb\n1.5\t18446744073709551615\n2\t7\n" + END)
plain = {0x1000 + i: (100 + i, raw, text) for i, (raw, text) in enumerate(NAMES)}

table = list(csv.DictReader(io.StringIO(export("csv").decode("latin-1"), newline="")))
assert len(table) == len(NAMES) + 2
for row in table:
    assert None not in row and row["max_bytes"] == "", row  # no such column in the report
    if row["address"] != "OTHER" and row["module"] == "app":
        peak, raw, _ = plain[int(row["address"], 16)]
        assert (row["peak_bytes"], row["file"]) == (str(peak), raw.decode("latin-1")), row

process = json.loads(export("json"))["processes"][0]
for site in process["sites"]:
    if site["module"] == "app":
        assert squeezed(site["file"]) == plain[int(site["address"], 16)][2], site
facts = process["facts"]
assert (facts["host"], facts["pid"], facts["seconds"], facts["commit"]) == ("42", 71, 1.5, "inf"), facts
assert process["timelines"]["module_bytes"]["phases"][1] == {
    "label": "work", "first": 1, "count": 2, "start": 70, "peak": 70, "end": 11}
assert process["timelines"]["auxiliary"][1]["values"] == [None, 7]
assert process["modules"][1]["sampled"] == {"start": 2, "peak": 40, "end": 6}, process["modules"]

stacks = export("folded").decode().splitlines()
assert len(stacks) == len(NAMES) + 1, "what has nothing, or less, is no stack"
for stack in stacks[:-1]:
    frames, figure = stack.rsplit(" ", 1)
    assert len(frames.split(";")) == 3 and int(figure) >= 100, stack
    assert frames.isprintable(), stack


def profile(run):
    text = subprocess.run(["protoc", "--decode=tuk_mem_profile.Profile", "-I", os.path.dirname(description),
                           description], input=gzip.decompress(export("pprof", run)), check=True,
                          capture_output=True).stdout.decode()
    strings = [json.loads(re.sub(r"\\([0-7]{3})", lambda m: "\\u00%02x" % int(m[1], 8), s))
               .encode("latin-1").decode() for s in re.findall(r'^string_table: (".*")$', text.replace("\\'", "'"), re.M)]
    entries = [(kind, dict(re.findall(r"^  (\w+): (\S+)$", body, re.M)), body)
               for kind, body in re.findall(r"^(\w+) \{\n(.*?)^\}$", text, re.M | re.S)]
    return text, strings, entries


text, strings, entries = profile("run")
assert {name for _, name in NAMES} <= set(map(squeezed, strings)), strings
mappings = {strings[int(m["filename"])]: m for kind, m, _ in entries if kind == "mapping"}
assert [(int(m["memory_start"]), int(m["memory_limit"]), strings[int(m["build_id"])])
        for m in (mappings["/opt/app"], mappings["/opt/gone"])] == [(0x1000, 0x1100, "ab"), (0x9000, 0x9040, "cd")]
assert "\ntime_nanos: 1795635893000000000\nduration_nanos: 1500000000\n" in text, text[-300:]
assert strings[int(re.search(r"^default_sample_type: (\d+)", text, re.M)[1])] == "peak_bytes"
samples = [body for kind, _, body in entries if kind == "sample"]
assert len(samples) == len(table)
assert all("str: %d\n" % strings.index("prog 71") in body for body in samples)

# Call paths: the program comes first, and a bin is a label.
write("paths/mem_tbb_run.x.log", "executable\t/bin/prog\npid\t5\nended\texit\nallocator\thooks\nevents_not_accounted\t0\n")
write("paths/mem_tbb_call_paths.x.log", "Call paths\t1\nbeyond_limit\t0\nmodules\t2\n"
      "1\t0x7000\t64\tab\tlib\t/nowhere/lib\n2\t0x5000\t32\t\tprog\t/bin/prog\nframes\t2\n1\t1\t0x10\n2\t2\t0x20\n"
      "sites\t1\n1\t0x7011\tlib\ta.cpp\t5\tf()\t1\t1\t1\t1\t1\t1\ncallers\t2\n1\t0\t2\n2\t1\t1\n"
      "bins\t1\n1\tphase\npaths\t1\n2\t1\t1\t1\t1\t1\t1\t1\t1\t1\nend\t1\n")
text, strings, entries = profile("paths")
mappings = [m for kind, m, _ in entries if kind == "mapping"]
assert [strings[int(m["filename"])] for m in mappings] == ["/bin/prog", "/nowhere/lib"], mappings
sample, = (body for kind, _, body in entries if kind == "sample")
assert "str: %d\n" % strings.index("phase") in sample
locations = {l["id"]: l for kind, l, _ in entries if kind == "location"}
stack = [locations[number] for number in re.findall(r"location_id: (\d+)", sample)]
assert [(int(l["address"]), l["mapping_id"]) for l in stack] == [(0x7010, mappings[1]["id"]), (0x5020, mappings[0]["id"])]
shutil.rmtree(work)
