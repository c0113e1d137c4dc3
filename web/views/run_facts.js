// The small print: where and how the program ran, its settings and modules.
import { add, addSection } from "../base/elements.js";
import { visible } from "../base/text.js";
import { bytes, plural, whole } from "../base/units.js";

const titles = [
  ["executable", "Program"],
  ["pid", "Process"],
  ["parent", "Started by process"],
  ["host", "Machine"],
  ["directory", "Directory"],
  ["start", "From"],
  ["end", "Until"],
  ["ended", "Ended by"],
  ["allocator", "Allocator"],
  ["version", "Profiler's version"],
  ["events_not_accounted", "Events not accounted"],
];

export function showRunFacts(content, run, state) {
  if (!run.processes.some(({ facts }) => facts)) return;
  const { section } = addSection(content, "run", "The run");
  const frame = add(section, "div");
  state.watch(["process"], () => {
    frame.replaceChildren();
    const facts = run.processes[state.get("process") ?? -1]?.facts;
    if (!facts) add(frame, "p", { class: "empty", text: "Choose one process to see how it ran." });
    else showFacts(frame, facts);
  });
}

function showFacts(frame, facts) {
  const list = add(frame, "dl", { class: "facts" });
  const fact = (title, value) => {
    add(list, "dt", { text: title });
    add(list, "dd", { text: visible(String(value)) });
  };
  for (const [key, title] of titles)
    if (facts[key] !== undefined && facts[key] !== "") fact(title, facts[key]);
  fact("Arguments", facts.arguments.join(" "));
  const without = facts.modules.filter(({ lines }) => lines !== "yes");
  addTable(
    frame,
    `${plural(without.length, "module")} without debug information`,
    ["Module", "Lines", "Size", "Build id"],
    without.map(({ path, lines, size, build_id }) => [
      path,
      lines,
      bytes(size),
      build_id || "none",
    ]),
  );
  addTable(
    frame,
    `${whole(facts.modules.length)} modules`,
    ["Module", "Address", "Size", "Build id"],
    facts.modules.map(({ path, address, size, build_id }) => [
      path,
      address,
      bytes(size),
      build_id || "none",
    ]),
  );
  addTable(
    frame,
    `${whole(facts.settings.length)} settings`,
    ["Setting", "From", "Value"],
    facts.settings.map(({ name, source, value }) => [name, source, value]),
  );
}

function addTable(frame, title, headings, rows) {
  if (rows.length === 0) return;
  const details = add(frame, "details");
  add(details, "summary", { text: title });
  const table = add(add(details, "div", { class: "scroller" }), "table", { class: "plain" });
  const head = add(add(table, "thead"), "tr");
  for (const heading of headings) add(head, "th", { scope: "col", text: heading });
  const body = add(table, "tbody");
  for (const row of rows) {
    const line = add(body, "tr");
    for (const cell of row) add(line, "td", { text: visible(String(cell)) });
  }
}
