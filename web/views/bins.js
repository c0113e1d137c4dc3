// Profile bins and tags: what was allocated in each, and what the heap held while it was open.
import { add, addSection } from "../base/elements.js";
import { visible } from "../base/text.js";
import { bytes, exactly, whole } from "../base/units.js";
import { colourOf } from "../base/colours.js";

const own = [
  ["max_bytes", "Max"],
  ["peak_bytes", "Peak"],
  ["cumulative_bytes", "Cumulative"],
  ["current_bytes", "Current"],
];
const heap = [
  ["start", "Start"],
  ["peak", "Peak"],
  ["end", "End"],
];

export function showBins(content, run, state) {
  if (!run.processes.some(({ tags, bins }) => tags?.length > 0 || bins?.length > 0)) return;
  const { section } = addSection(
    content,
    "bins",
    "Bins and tags",
    "What was allocated while each was open, and what the whole heap held then, by the samples taken.",
  );
  const frame = add(section, "div", { class: "scroller" });
  state.watch(["process"], () => {
    frame.replaceChildren();
    const process = run.processes[state.get("process") ?? -1];
    if (!process)
      add(frame, "p", { class: "empty", text: "Choose one process to see its bins and tags." });
    else showTable(frame, process);
  });
}

function showTable(frame, { tags = [], bins = [], timelines }) {
  const table = add(frame, "table", { class: "plain bins" });
  addHeadings(add(table, "thead"));
  const body = add(table, "tbody");
  const openBins = timelines.tag?.byLabel() ?? new Map();
  const openTags = timelines.module?.byLabel() ?? new Map();
  const left = new Set(bins);
  for (const tag of tags) {
    addRow(body, tag, tag.name, openTags.get(tag.name), true);
    for (const bin of bins)
      if (bin.name.startsWith(`${tag.name}::`) && left.delete(bin))
        addRow(body, bin, bin.name.slice(tag.name.length + 2), openBins.get(bin.name), false);
  }
  for (const bin of left)
    if (!tags.some(({ name }) => name === bin.name))
      addRow(body, bin, bin.name, openBins.get(bin.name), false);
}

function addHeadings(head) {
  const groups = add(head, "tr");
  add(groups, "td");
  add(groups, "th", { scope: "colgroup", colspan: own.length, text: "Allocated in it" });
  add(groups, "th", {
    scope: "colgroup",
    colspan: heap.length + 1,
    text: "The heap while it was open",
  });
  const titles = add(head, "tr");
  add(titles, "th", { scope: "col", text: "Tag and bin" });
  for (const [, title] of [...own, ...heap])
    add(titles, "th", { scope: "col", class: "number", text: title });
  add(titles, "th", { scope: "col", class: "number", text: "Times" });
}

function addRow(body, figures, name, open, isTag) {
  const row = add(body, "tr", { class: isTag ? "tag" : "bin" });
  const cell = add(row, "th", { scope: "row", title: visible(figures.name) });
  if (isTag) add(cell, "span", { class: "swatch", style: `--colour: ${colourOf(figures.name)}` });
  add(cell, "span", { text: visible(name) });
  const number = (value) =>
    add(row, "td", {
      class: "number",
      text: value === undefined ? "" : bytes(value),
      title: value === undefined ? null : exactly(value, "bytes"),
    });
  for (const [key] of own) number(figures[key]);
  if (!open)
    return void add(row, "td", {
      class: "number more",
      colspan: heap.length + 1,
      text: "no sample was taken in it",
    });
  for (const [key] of heap) number(open[key]);
  add(row, "td", { class: "number", text: whole(open.times) });
}
