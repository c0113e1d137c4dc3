// An opened row: its names in full, all of its figures, and those of each of its addresses.
import { add } from "../base/elements.js";
import { visible } from "../base/text.js";
import { exactly, inUnit, plural, share, whole } from "../base/units.js";

const mostAddresses = 200;

/** `onwho` is asked for who called the row's code, where that is known. */
export function showRowDetails(frame, run, row, onwho) {
  const names = add(frame, "dl", { class: "names" });
  const name = (title, value) => {
    if (!value) return;
    add(names, "dt", { text: title });
    add(names, "dd", { text: visible(value) });
  };
  if (row.isCatchAll)
    add(frame, "p", {
      text: "Blocks of which no line is known, and releases of blocks from before tracking began.",
    });
  name("Function", row.function);
  name("File", row.file && row.line > 0 ? `${row.file}:${row.line}` : row.file);
  name("Module", row.module);
  if (onwho) addCallersButton(frame, onwho);
  const figures = add(frame, "dl", { class: "figures" });
  const all = Int32Array.from({ length: run.sites.count }, (_, site) => site);
  for (const { key, title, unit } of run.known) {
    const box = add(figures, "div");
    add(box, "dt", { text: title });
    add(box, "dd", {
      text: inUnit(row.figures[key], unit),
      title: exactly(row.figures[key], unit),
    });
    const part = key.startsWith("max_") ? "" : share(row.figures[key], run.sum(all, key));
    add(box, "dd", { class: "more", text: part ? `${part} of all` : "" });
  }
  if (row.sites.length > 1 && "max_bytes" in row.figures)
    add(frame, "p", {
      class: "help",
      text: "The maxima of several addresses are summed; they need not have been reached at the same moment.",
    });
  showAddresses(frame, run, row);
}

function showAddresses(frame, run, { sites }) {
  const shown = [...sites]
    .sort(
      (a, b) => (run.sites.figures.peak_bytes?.[b] ?? 0) - (run.sites.figures.peak_bytes?.[a] ?? 0),
    )
    .slice(0, mostAddresses);
  const table = add(add(frame, "div", { class: "scroller addresses" }), "table", {
    class: "plain",
  });
  const several = run.processes.length > 1;
  const head = add(add(table, "thead"), "tr");
  add(head, "th", { scope: "col", text: plural(sites.length, "address", "addresses") });
  if (several) add(head, "th", { scope: "col", text: "Process" });
  for (const { title } of run.known)
    add(head, "th", { scope: "col", class: "number", text: title });
  const body = add(table, "tbody");
  for (const site of shown) {
    const line = add(body, "tr");
    add(line, "th", { scope: "row", class: "address", text: run.sites.address[site] ?? "OTHER" });
    if (several) add(line, "td", { text: visible(run.processes[run.sites.process[site]].name) });
    for (const { key, unit } of run.known) {
      const value = run.sites.figures[key][site];
      add(line, "td", { class: "number", text: inUnit(value, unit), title: exactly(value, unit) });
    }
  }
  if (sites.length > shown.length)
    add(frame, "p", {
      class: "help",
      text: `and ${whole(sites.length - shown.length)} more addresses`,
    });
}

export function addCallersButton(frame, onclick) {
  add(frame, "button", { type: "button", class: "quiet who", text: "Callers and callees", onclick });
}
