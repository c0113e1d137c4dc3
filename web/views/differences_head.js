// The two runs that are compared, and the sums of each.
import { add } from "../base/elements.js";
import { visible } from "../base/text.js";
import { change, exactly, inUnit, plural, share } from "../base/units.js";

export function showDifferencesHead(content, data, differences) {
  const head = add(content, "section", { id: "head", "aria-label": "The two runs" });
  const sides = add(head, "div", { class: "sides" });
  showSide(sides, "Before", data.before);
  showSide(sides, "After", data.after);
  const tiles = add(head, "dl", { class: "tiles" });
  const highest = (side) =>
    side.processes.reduce((sum, { highest_bytes }) => sum + highest_bytes, 0);
  addTile(tiles, "Peak", "bytes", highest(data.before), highest(data.after));
  const titles = {
    current_bytes: "Never freed",
    cumulative_bytes: "Allocated in all",
    cumulative_blocks: "Allocations",
  };
  for (const [key, title] of Object.entries(titles)) {
    const column = differences.known.find((known) => known.key === key);
    if (column) addTile(tiles, title, column.unit, ...differences.sums(key));
  }
}

function showSide(parent, title, side) {
  const card = add(parent, "div", { class: "card" });
  add(card, "h2", { text: title });
  const facts = side.processes.length === 1 ? side.processes[0].facts : undefined;
  const what =
    facts?.arguments.join(" ") ||
    (side.processes.length === 1
      ? side.processes[0].name
      : plural(side.processes.length, "process", "processes"));
  add(card, "code", { text: visible(what) });
  add(card, "p", {
    class: "more",
    text: `${visible(side.path)}${facts?.start ? `, ${facts.start.replace("T", " ").replace("Z", " UTC")}` : ""}`,
  });
  for (const note of side.notes) add(card, "p", { class: "note", text: `Note: ${visible(note)}` });
}

function addTile(tiles, title, unit, before, after) {
  const box = add(tiles, "div");
  add(box, "dt", { text: title });
  const difference = after - before;
  const percent =
    before > 0 && difference !== 0
      ? ` (${difference > 0 ? "+" : "\u2212"}${share(Math.abs(difference), before)})`
      : "";
  add(box, "dd", {
    text: change(difference, unit),
    title: exactly(difference, unit),
    class: difference > 0 ? "grown" : difference < 0 ? "shrunk" : null,
  });
  add(box, "dd", {
    class: "more",
    text: `${inUnit(before, unit)} \u2192 ${inUnit(after, unit)}${percent}`,
  });
}
