// The page of a run: its parts in their order, and what they share.
import { State } from "./base/state.js";
import { giveColours } from "./base/colours.js";
import { showBar } from "./views/bar.js";
import { showHead } from "./views/head.js";
import { showProcesses } from "./views/processes.js";
import { showTimeline } from "./views/timeline.js";
import { showMap } from "./views/map.js";
import { showPaths } from "./views/paths.js";
import { showSites } from "./views/sites_table.js";
import { showBins } from "./views/bins.js";
import { showRunFacts } from "./views/run_facts.js";

export function showRun(run) {
  const content = document.getElementById("content");
  const figure = run.known.some(({ key }) => key === "peak_bytes")
    ? "peak_bytes"
    : run.known[0]?.key;
  const state = new State({
    process: run.processes.length === 1 ? 0 : null, // null: all of them
    figure, // what the map shows
    place: [], // in the map: a module, a file in it and so on
    view: "all",
    by: "line",
    search: "",
    isRegex: false,
    sort: { key: figure, descending: true },
    columns: [
      "module",
      "peak_bytes",
      "current_bytes",
      "max_bytes",
      "cumulative_bytes",
      "cumulative_blocks",
    ],
    open: null, // the row whose details are seen
    subject: null, // whose callers and callees
  });
  giveColours(namesByPeak(run));
  showBar(run, state);
  showHead(content, run, state);
  if (run.processes.length > 1) showProcesses(content, run, state);
  showTimeline(content, run, state);
  if (run.sites.count > 0) showMap(content, run, state);
  showPaths(content, run, state);
  if (run.sites.count > 0) showSites(content, run, state);
  showBins(content, run, state);
  showRunFacts(content, run, state);
}

function namesByPeak({ sites, known, processes, paths }) {
  const values =
    sites.figures[known[0] && ("peak_bytes" in sites.figures ? "peak_bytes" : known[0].key)];
  const sums = new Map();
  for (let site = 0; site < sites.count; ++site)
    if (!sites.isCatchAll(site))
      sums.set(sites.module[site], (sums.get(sites.module[site]) ?? 0) + values[site]);
  const modules = [...sums.keys()].filter(Boolean).sort((a, b) => sums.get(b) - sums.get(a));
  const series = processes.flatMap(({ timelines }) =>
    Object.values(timelines).flatMap(({ largest }) =>
      largest.filter(({ isRest }) => !isRest).map(({ name }) => name),
    ),
  );
  const callers = paths ? new Set(paths.frames.module) : [];
  return [...modules, ...series, ...callers].filter((name) => !["", "OTHER", "Misc"].includes(name));
}
