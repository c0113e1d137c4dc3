// Who called a function (or line, file, module) and whom it called, each with what was allocated by that
// way. A click on one goes on from there.
import { add, addSection } from "../base/elements.js";
import { beginning, visible } from "../base/text.js";
import { exactly, inUnit, share, whole } from "../base/units.js";
import { callersAndCallees } from "../model/callers.js";
import { ownOf } from "./paths.js";

const mostRows = 100;

export function showCallers(content, paths, state, view) {
  const { section } = addSection(
    content,
    "callers",
    "Callers and callees",
    "Of a row of the table or a frame of the graph. A click goes on from there.",
  );
  const frame = add(section, "div", { class: "callers" });
  const show = () => {
    const subject = state.get("subject") ?? heaviest(paths, view);
    frame.replaceChildren();
    if (!subject) add(frame, "p", { class: "empty", text: "No call path has any of it." });
    else showSubject(frame, paths, subject, state, view);
  };
  state.watch(["subject"], show);
  view.on(["figure", "isFolded", "bin", "process", "by"], show);
}

// Until the reader chooses, the function that holds most by itself.
function heaviest(paths, view) {
  const by = view.get("by");
  const tree = paths.tree(by, view.get("isFolded"));
  const sums = new Map();
  ownOf(paths, tree, view).forEach((value, node) => {
    if (node > 0) sums.set(tree.group[node], (sums.get(tree.group[node]) ?? 0) + value);
  });
  const [most] = [...sums].sort((a, b) => b[1] - a[1]);
  if (!most) return undefined;
  const { key, title } = tree.groups[most[0]];
  return { title, keys: [key], by };
}

function showSubject(frame, paths, { title, keys, by }, state, view) {
  const tree = paths.tree(by, view.get("isFolded"));
  const own = ownOf(paths, tree, view);
  const wanted = new Set(keys);
  const isWanted = tree.groups.map(({ key }) => wanted.has(key));
  const found = callersAndCallees(tree, own, (group) => isWanted[group]);
  const { unit, title: figure } = paths.column(view.get("figure"));
  const follow = ({ key, title: next }) => state.set({ subject: { title: next, keys: [key], by } });
  showSide(frame, "Called by", found.callers, found, tree, unit, follow);
  const middle = add(frame, "div", { class: "subject" });
  add(middle, "code", { text: beginning(visible(title)) });
  const list = add(middle, "dl");
  for (const [name, value] of [
    [`${figure}, with all that it called`, found.all],
    ["by itself", found.itself],
  ]) {
    add(list, "dt", { text: name });
    add(list, "dd", { text: inUnit(value, unit), title: exactly(value, unit) });
  }
  showSide(frame, "It called", found.callees, found, tree, unit, follow);
}

function showSide(frame, title, rows, { all }, tree, unit, follow) {
  const scroller = add(frame, "div", { class: "scroller" });
  const table = add(scroller, "table", { class: "plain" });
  const head = add(add(table, "thead"), "tr");
  add(head, "th", { scope: "col", text: title });
  add(head, "th", { scope: "col", class: "number", text: unit === "bytes" ? "Bytes" : "Blocks" });
  add(head, "th", { scope: "col", class: "number", text: "Share" });
  const body = add(table, "tbody");
  for (const [group, value] of rows.slice(0, mostRows)) {
    const line = add(body, "tr");
    const cell = add(line, "th", { scope: "row" });
    const named = tree.groups[group];
    if (named)
      add(cell, "button", {
        type: "button",
        class: "link",
        text: beginning(visible(named.title)),
        title: [named.file, named.module].filter(Boolean).map(visible).join(", "),
        onclick: () => follow(named),
      });
    else add(cell, "span", { class: "more", text: "nothing: outermost" });
    add(line, "td", { class: "number", text: inUnit(value, unit), title: exactly(value, unit) });
    add(line, "td", { class: "number", text: share(value, all) });
  }
  const more = rows.length - mostRows;
  if (more > 0) add(scroller, "p", { class: "help", text: `and ${whole(more)} more` });
  if (rows.length === 0) add(scroller, "p", { class: "empty", text: "nobody" });
}
