// The processes of a tree: a row each, to choose one or the sum of all.
import { add, addSection } from "../base/elements.js";
import { visible } from "../base/text.js";
import { bytes, duration, plural, whole } from "../base/units.js";

export function showProcesses(content, run, state) {
  const { section } = addSection(
    content,
    "processes",
    plural(run.processes.length, "process", "processes"),
    "Choose one, or the sum of all.",
  );
  const frame = add(section, "div", { class: "scroller" });
  const table = add(frame, "table", { class: "plain choosable" });
  const headings = add(add(table, "thead"), "tr");
  for (const title of [
    "Process",
    "Arguments",
    "Started",
    "Ran",
    "Peak",
    run.titleOfLive(null),
    "Allocations",
  ])
    add(headings, "th", {
      scope: "col",
      text: title,
      class: title === "Process" || title === "Arguments" ? null : "number",
    });
  const body = add(table, "tbody");
  const choices = [null, ...run.processes.keys()].map((index) => addRow(body, run, index, state));
  state.watch(["process"], () => {
    for (const { index, row, button } of choices) {
      row.classList.toggle("chosen", index === state.get("process"));
      button.setAttribute("aria-pressed", index === state.get("process"));
    }
  });
}

function addRow(body, run, index, state) {
  const row = add(body, "tr");
  const process = run.processes[index];
  const sites = run.sitesOf(index);
  const choose = () => state.set({ process: index, place: [], open: null });
  const name = add(row, "td");
  const button = add(name, "button", {
    type: "button",
    class: "link",
    text: process ? visible(process.name) : "All, summed",
    onclick: choose,
  });
  const cells = process
    ? [
        process.facts?.arguments.slice(1).join(" ") ?? "",
        process.facts?.start?.slice(11, 19) ?? "",
        duration(process.facts?.seconds),
      ]
    : ["", "", ""];
  const peak =
    process?.highest_bytes ??
    run.processes.reduce((sum, { highest_bytes }) => sum + highest_bytes, 0);
  cells.push(
    bytes(peak),
    bytes(run.sum(sites, "current_bytes")),
    whole(run.sum(sites, "cumulative_blocks")),
  );
  cells.forEach((text, cell) =>
    add(row, "td", { class: cell === 0 ? "arguments" : "number", text: visible(text) }),
  );
  return { index, row, button };
}
