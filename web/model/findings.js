// The sentences of an expert who has looked at the page: what holds most, when it grew, what leaked.
import { bytes, inUnit, plural, share } from "../base/units.js";
import { sumRows } from "./rows.js";

const highestBy = (rows, key) =>
  rows.reduce(
    (best, row) => (row.figures[key] > (best?.figures[key] ?? 0) ? row : best),
    undefined,
  );

/** Each a title, a text, and what to set to look at it. */
export function findings(run, process) {
  const sites = run.sitesOf(process);
  const rows = sumRows(run, sites, "line").filter(({ isCatchAll }) => !isCatchAll);
  const one = run.processes[process ?? 0];
  return [
    peak(run, sites, rows),
    growth(process === null && run.processes.length > 1 ? undefined : one),
    neverFreed(run.titleOfLive(process), rows),
    elsewhere(run, sites, rows),
  ].filter(Boolean);
}

function peak(run, sites, rows) {
  const row = highestBy(rows, "peak_bytes");
  const all = run.sum(sites, "peak_bytes");
  if (!row) return undefined;
  return {
    title: "Most at the peak",
    place: row.place,
    text: `holds ${bytes(row.figures.peak_bytes)}, ${share(row.figures.peak_bytes, all)} of ${bytes(all)}.`,
    set: {
      view: "all",
      place: [],
      sort: { key: "peak_bytes", descending: true },
      by: "line",
      search: "",
      open: row.id,
    },
  };
}

function growth(process) {
  const timeline = process?.timelines.module ?? process?.timelines.tag;
  if (!timeline) return undefined;
  let most;
  for (const phase of timeline.byLabel().values()) if (phase.rise > (most?.rise ?? 0)) most = phase;
  if (!most) return undefined;
  return {
    title: "Grew most in",
    place: most.label || "(no label)",
    text: `by ${bytes(most.rise)}, up to ${bytes(most.peak)}.`,
    target: "timeline",
  };
}

function neverFreed(title, rows) {
  const leaking = rows.filter(
    ({ figures }) => figures.current_blocks > 0 || figures.current_bytes > 0,
  );
  const row = highestBy(leaking, "current_bytes");
  if (!row) return { title, place: "", text: "Nothing that was charged to a line." };
  const sum = (key) => leaking.reduce((all, { figures }) => all + (figures[key] ?? 0), 0);
  return {
    title,
    place: row.place,
    text:
      `holds ${bytes(row.figures.current_bytes)}, of ${bytes(sum("current_bytes"))} in ` +
      `${plural(sum("current_blocks"), "block")} from ${plural(leaking.length, "line")}.`,
    set: {
      view: "leaks",
      place: [],
      by: "line",
      search: "",
      sort: { key: "current_bytes", descending: true },
      open: row.id,
    },
  };
}

function elsewhere(run, sites, rows) {
  const key = "cumulative_mismatched_bytes";
  const row = highestBy(rows, key);
  if (!row) return undefined;
  const all = run.sum(sites, key);
  return {
    title: "Freed by another thread",
    place: row.place,
    text:
      `allocated ${inUnit(row.figures[key], "bytes")} of ${bytes(all)}, ` +
      `${share(all, run.sum(sites, "cumulative_bytes"))} of all bytes.`,
    set: {
      view: "elsewhere",
      place: [],
      by: "line",
      search: "",
      sort: { key, descending: true },
      open: row.id,
    },
  };
}
