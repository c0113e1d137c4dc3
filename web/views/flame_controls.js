// What a flame graph is of: figure, direction, phase, which frames.
import { add, addChoice, addSelect } from "../base/elements.js";
import { visible } from "../base/text.js";
import { addSearch } from "./search.js";

const directions = [
  ["main", "From main", "The outermost functions above, what they called below"],
  ["line", "From the line", "The functions that allocate above, those who called them below"],
];

/** Of the figures that `paths` have; the choice is kept in `view`. */
export function addFlameControls(controls, paths, view) {
  const chosen = (change) => view.set({ zoom: [], ...change });
  const show = addChoice(controls, "Direction", directions, view.get("from"), (from) =>
    chosen({ from }),
  );
  view.on(["from"], () => show(view.get("from")));
  addSelect(
    controls,
    "Of",
    paths.columns.map(({ key, title }) => [key, title]),
    view.get("figure"),
    (figure) => view.set({ figure }),
  );
  if (paths.bins.length > 0) addPhases(controls, paths, view);
  const merged = [
    ["function", "function"],
    ["line", "line"],
  ];
  const per = addSelect(controls, "Per", merged, view.get("by"), (by) => chosen({ by }));
  view.on(["by"], () => (per.value = view.get("by")));
  const fold = add(controls, "button", {
    type: "button",
    class: "quiet",
    text: "Fold runtime frames",
    title: "Leave out frames of the C++ library and others that no line is charged to",
    onclick: () => chosen({ isFolded: !view.get("isFolded") }),
  });
  view.watch(["isFolded"], () => fold.setAttribute("aria-pressed", view.get("isFolded")));
  const search = addSearch(controls, view, "search-frames", "Search frames");
  return search;
}

function addPhases(controls, { bins }, view) {
  const options = bins.map((name, bin) => [String(bin), visible(name) || "(no bin)"]);
  addSelect(controls, "Phase", [["all", "all"], ...options], "all", (value) =>
    view.set({ bin: value === "all" ? null : Number(value) }),
  );
}
