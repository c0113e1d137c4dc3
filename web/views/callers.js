// Who called a function (or line, file, module) and whom it called, each with what was allocated by that
// way, of one run or of two. A click on one goes on from there.
import { add, addSection } from "../base/elements.js";
import { beginning, visible } from "../base/text.js";
import { whole } from "../base/units.js";
import { callersAndCallees } from "../model/callers.js";

const mostRows = 100;

/** `host` has own(tree), a list of each side's sums, `watched`: what in `view` they depend on,
 * columns(unit) of a row: [title, (sums, all) => [text, exact]], tell(sums, unit) for the subject and
 * size(sums), by which rows are sorted. */
export function showCallers(content, paths, state, view, host) {
  const { section } = addSection(
    content,
    "callers",
    "Callers and callees",
    "Of a row of the table or a frame of the graph. A click goes on from there.",
  );
  const frame = add(section, "div", { class: "callers" });
  const show = () => {
    const subject = state.get("subject") ?? heaviest(paths, view, host);
    frame.replaceChildren();
    if (!subject) add(frame, "p", { class: "empty", text: "No call path has any of it." });
    else showSubject(frame, paths, subject, state, view, host);
  };
  state.watch(["subject"], show);
  view.on(["isFolded", "by", ...host.watched], show);
}

// Until the reader chooses, the function that holds, or changed, most by itself.
function heaviest(paths, view, host) {
  const by = view.get("by");
  const tree = paths.tree(by, view.get("isFolded"));
  const sides = host.own(tree).map((own) => {
    const sums = new Map();
    own.forEach((value, node) => {
      if (value !== 0) sums.set(tree.group[node], (sums.get(tree.group[node]) ?? 0) + value);
    });
    return sums;
  });
  const [most] = joined(sides, host);
  return most && subjectOf(tree.groups[most.name], by);
}

const subjectOf = ({ key, title }, by) => ({ title, keys: [[key]], by });

// Sums of each side by the same name, largest first.
function joined(sides, { size }) {
  const names = new Set(sides.flatMap((sums) => [...sums.keys()]));
  return [...names]
    .map((name) => ({ name, sums: sides.map((sums) => sums.get(name) ?? 0) }))
    .filter(({ sums }) => sums.some((sum) => sum !== 0))
    .sort((a, b) => size(b.sums) - size(a.sums));
}

function showSubject(frame, paths, { title, keys, by }, state, view, host) {
  const shownBy = view.get("by");
  // Of lines, where others are shown than the subject is of.
  const tree = paths.tree(by === shownBy ? by : "line", view.get("isFolded"));
  const names = tree.groups.map((group) => paths.keyOf(group.frame, shownBy));
  const found = host.own(tree).map((own, side) => {
    const wanted = new Set(keys[side] ?? keys[0]); // a list for each side, or one for all
    const isWanted = tree.groups.map((group) => wanted.has(paths.keyOf(group.frame, by)));
    return callersAndCallees(
      tree,
      own,
      (group) => isWanted[group],
      (group) => names[group],
    );
  });
  const { unit, title: figure } = paths.column(view.get("figure"));
  const frameOf = new Map(names.map((name, group) => [name, tree.groups[group].frame]));
  const all = found.map((side) => side.all);
  const table = {
    all,
    columns: host.columns(unit),
    // Undefined for what called the outermost.
    named: (name) => frameOf.has(name) && namedBy(paths, frameOf.get(name), shownBy),
    follow: (next) => state.set({ subject: subjectOf(next, shownBy) }),
  };
  const side = (which) =>
    joined(
      found.map((one) => one[which]),
      host,
    );
  showSide(frame, "Called by", side("callers"), table);
  const middle = add(frame, "div", { class: "subject" });
  add(middle, "code", { text: beginning(visible(title)) });
  const list = add(middle, "dl");
  for (const [name, sums] of [
    [`${figure}, with all that it called`, all],
    ["by itself", found.map(({ itself }) => itself)],
  ]) {
    add(list, "dt", { text: name });
    const [text, exact] = host.tell(sums, unit);
    add(list, "dd", { text, title: exact });
  }
  showSide(frame, "It called", side("callees"), table);
}

const namedBy = (paths, frame, by) => ({
  key: paths.keyOf(frame, by),
  title: paths.titleOf(frame, by),
  where: [paths.frames.file[frame], paths.frames.module[frame]].filter(Boolean),
});

function showSide(frame, title, rows, { all, columns, named, follow }) {
  const scroller = add(frame, "div", { class: "scroller" });
  const table = add(scroller, "table", { class: "plain" });
  const head = add(add(table, "thead"), "tr");
  add(head, "th", { scope: "col", text: title });
  for (const [heading] of columns) add(head, "th", { scope: "col", class: "number", text: heading });
  const body = add(table, "tbody");
  for (const { name, sums } of rows.slice(0, mostRows)) {
    const line = add(body, "tr");
    const cell = add(line, "th", { scope: "row" });
    const one = named(name);
    if (one)
      add(cell, "button", {
        type: "button",
        class: "link",
        text: beginning(visible(one.title)),
        title: one.where.map(visible).join(", "),
        onclick: () => follow(one),
      });
    else add(cell, "span", { class: "more", text: "nothing: outermost" });
    for (const [, tell] of columns) {
      const [text, exact] = tell(sums, all);
      add(line, "td", { class: "number", text, title: exact });
    }
  }
  const more = rows.length - mostRows;
  if (more > 0) add(scroller, "p", { class: "help", text: `and ${whole(more)} more` });
  if (rows.length === 0) add(scroller, "p", { class: "empty", text: "nobody" });
}
