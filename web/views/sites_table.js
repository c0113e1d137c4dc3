// The table of lines: views, search, order, columns; its rows are in grid.js.
import { add, addChoice, addSection, addSelect, goTo } from "../base/elements.js";
import { visible } from "../base/text.js";
import { inUnit, plural } from "../base/units.js";
import { isIn } from "../model/places.js";
import { matcher, sorted, sumRows, views } from "../model/rows.js";
import { addColumnsMenu } from "./columns_menu.js";
import { addGrid } from "./grid.js";
import { showRowDetails } from "./row_details.js";
import { addSearch } from "./search.js";

const groupings = [
  ["line", "line"],
  ["function", "function"],
  ["file", "file"],
  ["module", "module"],
];

export function showSites(content, run, state) {
  const { section, controls } = addSection(content, "sites", "Line by line");
  addViews(controls, run, state);
  const per = addSelect(controls, "Per", groupings, state.get("by"), (by) =>
    state.set({ by, open: null }),
  );
  state.on(["by"], () => (per.value = state.get("by")));
  const search = addSearch(controls, state);
  addColumnsMenu(controls, run.known, state);
  const status = add(section, "p", { class: "status", role: "status" });
  const grid = addGrid(section, {
    label: "Allocation sites",
    columns: () => columnsOf(run, state),
    sort: () => state.get("sort"),
    onsort: (key) => state.set({ sort: turned(state.get("sort"), key) }),
    open: () => state.get("open"),
    onopen: (open) => state.set({ open }),
    details: (frame, row) => showRowDetails(frame, run, row, whoCalled(run, row, state)),
    onescape: () => state.set({ place: state.get("place").slice(0, -1) }),
  });

  let rows = [];
  const select = () => {
    const sites = run
      .sitesOf(state.get("process"))
      .filter((site) => isIn(run.sites, site, state.get("place")));
    rows = sumRows(run, sites, state.get("by"));
    show();
  };
  const show = () => {
    const { matches, error } = matcher(state.get("search"), state.get("isRegex"));
    const shown = sorted(
      rows.filter(views[state.get("view")].shows).filter(matches),
      state.get("sort"),
    );
    search.setError(error);
    status.textContent = told(run, state, shown, rows);
    grid.show(shown);
  };
  state.watch(["process", "place", "by"], select);
  state.on(["view", "search", "isRegex", "sort"], show);
  state.on(["columns", "open"], () => grid.refresh());
  state.on(["figure"], () => sortBy(state, state.get("figure")));
}

// Of the frames that the row's sites were charged to.
function whoCalled({ paths }, row, state) {
  const by = state.get("by");
  const keys = paths?.keysOfSites(row.sites, by) ?? [];
  if (keys.length === 0) return undefined;
  return () => {
    state.set({ subject: { title: row.place, keys: [keys], by } });
    goTo("callers");
  };
}

const sortBy = (state, key) =>
  state.set({ sort: { key, descending: true }, columns: shownWith(state, key) });

const shownWith = (state, key) =>
  state.get("columns").includes(key) ? state.get("columns") : [...state.get("columns"), key];

function addViews(controls, run, state) {
  const choices = Object.entries(views)
    .filter(([, { figure }]) => !figure || figure in run.sites.figures)
    .map(([key, { title }]) => [key, title ?? (() => run.titleOfLive(state.get("process")))]);
  const show = addChoice(controls, "Rows", choices, state.get("view"), (view) => {
    const figure = views[view].figure ?? state.get("figure");
    state.set({
      view,
      open: null,
      sort: { key: figure, descending: true },
      columns: shownWith(state, figure),
    });
  });
  state.watch(["view", "process"], () => show(state.get("view")));
}

function columnsOf(run, state) {
  const place = {
    key: "place",
    title: { line: "Line", function: "Function", file: "File", module: "Module" }[state.get("by")],
  };
  const chosen = state.get("columns");
  const module =
    chosen.includes("module") && state.get("by") !== "module"
      ? [{ key: "module", title: "Module" }]
      : [];
  return [place, ...module, ...run.known.filter(({ key }) => chosen.includes(key))];
}

const turned = (sort, key) => ({
  key,
  descending: sort.key === key ? !sort.descending : key !== "place" && key !== "module",
});

function told(run, state, shown, all) {
  const key = run.column(state.get("sort").key) ? state.get("sort").key : state.get("figure");
  const { title, unit } = run.column(key);
  const sum = shown.reduce((total, { figures }) => total + figures[key], 0);
  const count = plural(shown.length, "row");
  const of = shown.length < all.length ? ` of ${all.length}` : "";
  const place =
    state.get("place").length > 0 ? ` in ${state.get("place").map(visible).join(" \u203a ")}` : "";
  return `${count}${of}${place}, ${title.toLowerCase()} ${inUnit(sum, unit)}`;
}
