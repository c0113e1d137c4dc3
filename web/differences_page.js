// The page of what changed between two runs.
import { add, addChoice, addSection, addSelect, goTo } from "./base/elements.js";
import { giveColours } from "./base/colours.js";
import { State } from "./base/state.js";
import { visible } from "./base/text.js";
import { addThemeSwitch } from "./base/theme.js";
import { change, exactly, inUnit, plural } from "./base/units.js";
import { CallPaths } from "./model/call_paths.js";
import { Differences } from "./model/differences.js";
import { matcher, sorted } from "./model/rows.js";
import { showDifferencesHead } from "./views/differences_head.js";
import { addGrid } from "./views/grid.js";
import { showPathsDifference } from "./views/paths_difference.js";
import { addCallersButton } from "./views/row_details.js";
import { addSearch } from "./views/search.js";

const groupings = {
  line: "line",
  function: "function",
  file: "file",
  module: "module",
  tag: "tag",
  bin: "bin",
};
const kinds = {
  changed: { title: "Changed", shows: ({ figures }) => figures.change !== 0 },
  grown: { title: "\u25b2 Grown", shows: ({ figures }) => figures.change > 0 },
  shrunk: { title: "\u25bc Shrunk", shows: ({ figures }) => figures.change < 0 },
  all: { title: "All", shows: () => true },
};

export function showDifferences(data) {
  const differences = new Differences(data);
  const content = document.getElementById("content");
  showBar();
  showDifferencesHead(content, data, differences);
  const paths = data.call_paths && new CallPaths(data.call_paths, data.texts);
  paths?.mergeMovedFiles();
  const shared = new State({ subject: null }); // whose callers and callees
  if (paths) showPathsDifference(content, paths, shared);
  if (differences.groupings.length > 0) showTable(content, differences, paths, shared);
  else
    add(content, "p", {
      class: "empty",
      text: "The two runs have no report in common that could be compared.",
    });
}

function showBar() {
  const bar = document.getElementById("bar");
  document.title = "What changed: heap profiles";
  add(bar, "h1", { text: "What changed between two runs" });
  add(bar, "nav");
  addThemeSwitch(bar);
}

function showTable(content, differences, paths, shared) {
  const state = new State({
    by: differences.groupings[0],
    figure: differences.known.some(({ key }) => key === "peak_bytes")
      ? "peak_bytes"
      : differences.known[0].key,
    kind: "changed",
    search: "",
    isRegex: false,
    sort: { key: "size", descending: true },
    open: null,
  });
  const { section, controls } = addSection(content, "sites", "What changed");
  const choose = addChoice(
    controls,
    "Rows",
    Object.entries(kinds).map(([key, { title }]) => [key, title]),
    "changed",
    (kind) => state.set({ kind, open: null }),
  );
  const of = addSelect(
    controls,
    "Of",
    differences.known.map(({ key, title }) => [key, title]),
    state.get("figure"),
    (figure) => state.set({ figure }),
  );
  addSelect(
    controls,
    "Per",
    differences.groupings.map((by) => [by, groupings[by]]),
    state.get("by"),
    (by) => state.set({ by, figure: knownOf(by), open: null }),
  );
  // Tags and bins have fewer figures than lines.
  const knownOf = (by) => {
    const has = differences.known
      .filter(({ key }) => differences.knows(by, key))
      .map(({ key }) => key);
    return [state.get("figure"), "peak_bytes", ...has].find((key) => has.includes(key));
  };
  const search = addSearch(controls, state);
  const status = add(section, "p", { class: "status", role: "status" });
  const column = () => differences.known.find(({ key }) => key === state.get("figure"));
  const grid = addGrid(section, {
    label: "Differences",
    columns: () => columnsOf(state.get("by"), column()),
    sort: () => state.get("sort"),
    onsort: (key) =>
      state.set({
        sort: {
          key,
          descending:
            state.get("sort").key === key
              ? !state.get("sort").descending
              : key !== "place" && key !== "module",
        },
      }),
    open: () => state.get("open"),
    onopen: (open) => state.set({ open }),
    details: (frame, row) =>
      showDetails(
        frame,
        row,
        differences.figuresOf(state.get("by"), row.id),
        whoCalled(paths, row, state.get("by"), shared),
      ),
  });
  let rows = [];
  const show = () => {
    const { matches, error } = matcher(state.get("search"), state.get("isRegex"));
    search.setError(error);
    const shown = sorted(
      rows.filter(kinds[state.get("kind")].shows).filter(matches),
      state.get("sort"),
    );
    const sum = shown.reduce((all, { figures }) => all + figures.change, 0);
    status.textContent = `${plural(shown.length, "row")} of ${rows.length}, ${column().title.toLowerCase()} ${change(sum, column().unit)}`;
    grid.show(shown);
  };
  state.watch(["by", "figure"], () => {
    of.value = state.get("figure");
    for (const option of of.options)
      option.disabled = !differences.knows(state.get("by"), option.value);
    rows = differences.rowsOf(state.get("by"), state.get("figure"));
    for (const row of rows) row.figures.size = Math.abs(row.figures.change);
    giveColours(new Set(rows.map(({ module }) => module)));
    show();
  });
  state.on(["kind", "search", "isRegex", "sort"], show);
  state.on(["kind"], () => choose(state.get("kind")));
  state.on(["open"], () => grid.refresh());
}

function columnsOf(by, { unit }) {
  const isOfSites = ["line", "function", "file"].includes(by);
  return [
    { key: "place", title: by[0].toUpperCase() + by.slice(1) },
    ...(isOfSites ? [{ key: "module", title: "Module" }] : []),
    { key: "before", title: "Before", unit },
    { key: "after", title: "After", unit },
    { key: "change", title: "Change", unit, isChange: true },
  ];
}

// A line that has moved is another one on each side.
function whoCalled(paths, row, by, shared) {
  if (!paths || by === "tag" || by === "bin") return undefined;
  const keys = row.lines.map((line) => [...paths.keysOfRow(row, by, line)]);
  if (keys.every(({ length }) => length === 0)) return undefined;
  return () => {
    shared.set({ subject: { title: row.place, keys, by } });
    goTo("callers");
  };
}

function showDetails(frame, row, figures, onwho) {
  const names = add(frame, "dl", { class: "names" });
  for (const [title, value] of [
    ["Function", row.function],
    ["File", row.file],
    ["Module", row.module],
  ]) {
    if (!value) continue;
    add(names, "dt", { text: title });
    add(names, "dd", { text: visible(value) });
  }
  if (onwho) addCallersButton(frame, onwho);
  const table = add(add(frame, "div", { class: "scroller" }), "table", { class: "plain" });
  const head = add(add(table, "thead"), "tr");
  for (const title of ["", "Before", "After", "Change"])
    add(head, "th", { scope: "col", class: title ? "number" : null, text: title });
  const body = add(table, "tbody");
  for (const { title, unit, before, after } of figures) {
    const line = add(body, "tr");
    add(line, "th", { scope: "row", text: title });
    for (const value of [before, after])
      add(line, "td", { class: "number", text: inUnit(value, unit), title: exactly(value, unit) });
    add(line, "td", {
      class: "number",
      text: change(after - before, unit),
      title: exactly(after - before, unit),
    });
  }
}
