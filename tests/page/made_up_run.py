"""Reports of a run that never was: of any size, with any names."""
import os
import random

FIGURES = ("Current bytes,Max bytes,Peak bytes,Cumulative bytes,Cumulative requested bytes,"
           "Cumulative mismatched bytes,Current blocks,Max blocks,Peak blocks,Cumulative blocks").split(",")
TIMING = b"Time spent dumping:\t1 clicks.\t1e-06 seconds.\n"


def write(directory, name, title, rows):
    os.makedirs(directory, exist_ok=True)
    with open(f"{directory}/{name}.host.log", "wb") as out:
        out.write(title + b"\n\n")
        for row in rows:
            out.write(b"\t".join(c if isinstance(c, bytes) else str(c).encode() for c in row) + b"\n")
        out.write(TIMING)


def write_sites(directory, sites):
    """Each site: module, file, line, function, figures."""
    header = ["Address", *FIGURES, "Module", "File", "Line", "Function"]
    rows = [[hex(0x1000 + 16 * i), *figures, module, file, line, function]
            for i, (module, file, line, function, figures) in enumerate(sites)]
    write(directory, "mem_tbb_fileline", b"MEM: TBB Fileline Tracking Memory Snapshot. [at index 3]",
          [header, *rows])


def write_call_paths(directory, stacks, sites, bins=()):
    """Each stack: offsets of its frames, the outermost first, number of its site, bin and figures."""
    frames, callers, paths = {}, {}, []
    for stack, site, bin_number, figures in stacks:
        node = 0
        for offset in stack:
            frame = frames.setdefault(offset, len(frames) + 1)
            node = callers.setdefault((node, frame), len(callers) + 1)
        paths.append((node, site, bin_number, *figures))
    numbered = lambda name, rows: [(name, len(rows)), *((i, *row) for i, row in enumerate(rows, 1))]
    rows = [("Call paths", 1), ("setting", "depth", 64), ("setting", "limit", 10**6), ("setting", "per_bin", int(bool(bins))),
            ("beyond_limit", 0), *numbered("modules", [("0x1000", 4096, "", "host", "/nowhere/host")]),
            *numbered("frames", [(1, hex(offset)) for offset in frames]),
            *numbered("sites", [(hex(0x1000 + 16 * i), *site[:4], *([0] * 6)) for i, site in enumerate(sites)]),
            *numbered("callers", list(callers)), *numbered("bins", [(name,) for name in bins]),
            ("paths", len(paths)), *paths, ("end", len(paths))]
    os.makedirs(directory, exist_ok=True)
    with open(f"{directory}/mem_tbb_call_paths.host.log", "wb") as out:
        for row in rows:
            out.write(b"\t".join(c if isinstance(c, bytes) else str(c).encode() for c in row) + b"\n")


def write_timelines(directory, names, samples, label=lambda sample: "phase"):
    """Series that rise and fall, under labels."""
    values = [[abs((sample * (n + 3)) % 5000 - 2500) * 1000 for n in range(len(names))]
              for sample in range(samples)]
    rows = [["", *names], *([label(i), *row] for i, row in enumerate(values))]
    write(directory, "mem_tbb_timeline", b"MEM: TBB Module Tracking Memory Timeline.", rows)
    write(directory, "mem_tbb_auxiliary_timeline", b"MEM: TBB Auxiliary Timeline",
          [["nthreads", "RSS"], *([1, 10**7 + 100 * i] for i in range(samples))])


def write_run(directory, pid, arguments):
    lines = [b"executable\t/usr/bin/host"] + [b"argument\t" + a for a in arguments]
    lines += [b"pid\t%d" % pid, b"seconds\t1.5", b"start\t2026-01-02T03:04:05Z", b"ended\texit", b"allocator\tnone",
              b"events_not_accounted\t0"]
    os.makedirs(directory, exist_ok=True)
    with open(f"{directory}/mem_tbb_run.host.log", "wb") as out:
        out.write(b"\n".join(lines) + b"\n")


def figures(peak):
    return [peak // 2, peak, peak, 3 * peak, 3 * peak - 1, peak // 4, 2, 4, 3, 9]


def write_large(directory, sites=10_000, samples=20_000, series=20, paths=100_000):
    source = random.Random(1)
    modules = [f"module_{n}" for n in range(series)]
    sites = [
        (source.choice(modules), f"/home/user/src/part_{i % 400}/file_{i % 1300}.cpp", i % 997 + 1,
         f"part_{i % 400}::Holder<std::vector<int, std::allocator<int> > >::insert_{i % 3000}(int)",
         figures(source.randrange(10**7)))
        for i in range(sites)]
    write_sites(directory, sites)
    outer = [[100 * depth + source.randrange(1 + depth) for depth in range(source.randrange(5, 40))]
             for _ in range(paths // 10)]
    write_call_paths(directory, [
        ((*stack[:source.randrange(3, len(stack))], 4000 + i % 5000, 9000 + i % len(sites)), i % len(sites) + 1, 0,
         [source.randrange(10**5) for _ in range(7)])
        for i, stack in enumerate(outer * 10)], sites)
    write_timelines(directory, modules, samples, lambda sample: f"phase {sample // 900}")
    write_run(directory, 1, [b"host"])
