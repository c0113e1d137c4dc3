// The head: the run in five figures, and what strikes one who reads all of it.
import { add, goTo } from "../base/elements.js";
import { beginning, visible } from "../base/text.js";
import { bytes, duration, exactly, plural, whole } from "../base/units.js";
import { findings } from "../model/findings.js";

export function showHead(content, run, state) {
  const head = add(content, "section", { id: "head", "aria-label": "The run in short" });
  const line = add(head, "div", { class: "run-line" });
  const tiles = add(head, "dl", { class: "tiles" });
  const found = add(head, "div", { class: "findings" });
  for (const note of run.notes) add(head, "p", { class: "note", text: `Note: ${visible(note)}` });
  state.watch(["process"], () => {
    const chosen = state.get("process");
    const processes = chosen === null ? run.processes : [run.processes[chosen]];
    showLine(line, processes);
    showTiles(tiles, run, chosen, processes);
    showFindings(found, run, state);
  });
}

function showLine(line, processes) {
  line.replaceChildren();
  const facts = processes[0].facts;
  if (processes.length > 1) {
    add(line, "span", { text: `${plural(processes.length, "process", "processes")}, summed` });
    return;
  }
  if (!facts) {
    add(line, "span", { text: processes[0].name });
    return;
  }
  const command = facts.arguments.length > 0 ? facts.arguments.join(" ") : facts.executable;
  add(line, "code", { text: visible(command), title: visible(facts.executable ?? "") });
  const when = (facts.start ?? "").replace("T", " ").replace("Z", " UTC");
  add(line, "span", { text: facts.host ? `${when} on ${visible(facts.host)}` : when });
}

function showTiles(tiles, run, chosen, processes) {
  tiles.replaceChildren();
  const sites = run.sitesOf(chosen);
  const tile = (title, value, more, exact) => {
    const box = add(tiles, "div");
    add(box, "dt", { text: title });
    add(box, "dd", { text: value, title: exact });
    add(box, "dd", { class: "more", text: more });
  };
  const sum = (key) => run.sum(sites, key);
  const highest = processes.reduce((all, process) => all + process.highest_bytes, 0);
  tile(
    "Peak",
    bytes(highest),
    processes.length > 1 ? "sum of each one's peak" : "of the heap",
    exactly(highest, "bytes"),
  );
  const facts = processes.length === 1 ? processes[0].facts : undefined;
  if ("current_bytes" in run.sites.figures) {
    const left = sum("current_bytes");
    tile(
      run.titleOfLive(chosen),
      bytes(left),
      `in ${plural(sum("current_blocks"), "block")}`,
      exactly(left, "bytes"),
    );
  }
  if ("cumulative_blocks" in run.sites.figures)
    tile(
      "Allocations",
      whole(sum("cumulative_blocks")),
      `${bytes(sum("cumulative_bytes"))} in all`,
      exactly(sum("cumulative_bytes"), "bytes"),
    );
  if (facts?.seconds !== undefined) {
    const rate = sum("cumulative_blocks") / facts.seconds;
    tile(
      "Ran",
      duration(facts.seconds),
      rate > 0 ? `${whole(rate)} allocations a second` : "",
      `${facts.seconds} seconds`,
    );
  }
  if (facts?.peak_resident_bytes !== undefined)
    tile(
      "Resident",
      bytes(facts.peak_resident_bytes),
      "the process at most",
      exactly(facts.peak_resident_bytes, "bytes"),
    );
  if (facts?.modules.length > 0) {
    const without = facts.modules.filter(({ lines }) => lines !== "yes").length;
    tile(
      "Modules",
      whole(facts.modules.length),
      without > 0 ? `${whole(without)} without debug information` : "all with debug information",
    );
  }
}

function showFindings(found, run, state) {
  found.replaceChildren();
  if (run.sites.count === 0) return;
  for (const { title, place, text, set, target } of findings(run, state.get("process"))) {
    const box = add(found, set || target ? "button" : "div", {
      class: "finding",
      type: set || target ? "button" : null,
    });
    add(box, "span", { class: "title", text: title });
    if (place) add(box, "code", { text: beginning(visible(place), 120) });
    add(box, "span", { text });
    if (set || target)
      box.addEventListener("click", () => {
        if (set) state.set({ ...set, isRegex: false, columns: [...new Set([...state.get("columns"), set.sort.key])] });
        goTo(target ?? "sites");
      });
  }
}
