// What changed between two runs as a flame graph: what has grown rises in red, what has shrunk falls in blue.
import { addChoice, addSection, goTo } from "../base/elements.js";
import { State } from "../base/state.js";
import { change, exactly, inUnit } from "../base/units.js";
import { showCallers } from "./callers.js";
import { addFlameControls } from "./flame_controls.js";
import { addFlameGraph } from "./flame_graph.js";

const [before, after] = [0, 1]; // the "processes" of the paths

const widths = [
  ["changed", "Changed", "As wide as what has changed below"],
  ["all", "All", "As wide as the larger of before and after"],
];

export function showPathsDifference(content, paths, state) {
  const view = new State({
    figure: "peak_bytes",
    from: "main",
    by: "function", // lines move between two runs
    isFolded: true,
    bin: null,
    kind: "changed",
    zoom: [],
    search: "",
    isRegex: false,
  });
  const { section, controls } = addSection(
    content,
    "paths",
    "What changed, by callers",
    "\u25b2 red, rising lines: grown. \u25bc blue, falling lines: shrunk.",
  );
  const show = addChoice(controls, "Width", widths, "changed", (kind) => view.set({ kind }));
  view.on(["kind"], () => show(view.get("kind")));
  const search = addFlameControls(controls, paths, view);
  const unit = () => paths.column(view.get("figure")).unit;
  addFlameGraph(section, view, {
    watched: ["figure", "bin", "kind"],
    tree: () => paths.tree(view.get("by"), view.get("isFolded")),
    measure: (tree) => measure(paths.paths, tree, view),
    look: (_, { sums, weight }) => {
      const grown = sums[after] - sums[before];
      return {
        colour: grown === 0 ? "var(--rest)" : grown > 0 ? "var(--grown)" : "var(--shrunk)",
        strength: 0.14 + 0.5 * Math.min(1, Math.abs(grown) / weight),
        sign: grown === 0 ? "" : grown > 0 ? "grown" : "shrunk",
      };
    },
    tell: ({ sums }) =>
      `${changed(sums[after] - sums[before], unit()).join(" (")}), ` +
      `${inUnit(sums[before], unit())} \u2192 ${inUnit(sums[after], unit())}`,
    nothing: () => (view.get("kind") === "changed" ? "Nothing has changed." : "Nothing to draw."),
    setError: search.setError,
    onchoose: ({ key, title }) => {
      state.set({ subject: { title, keys: [[key]], by: view.get("by") } });
      goTo("callers");
    },
  });
  showCallers(content, paths, state, view, {
    watched: ["figure", "bin"],
    own: (tree) => ownOf(paths.paths, tree, view),
    size: (sums) => Math.abs(sums[after] - sums[before]),
    tell: (sums, unit) => [
      `${inUnit(sums[before], unit)} \u2192 ${inUnit(sums[after], unit)}`,
      `${exactly(sums[before], unit)} \u2192 ${exactly(sums[after], unit)}`,
    ],
    columns: (unit) => [
      ["Before", (sums) => [inUnit(sums[before], unit), exactly(sums[before], unit)]],
      ["After", (sums) => [inUnit(sums[after], unit), exactly(sums[after], unit)]],
      ["Change", (sums) => changed(sums[after] - sums[before], unit)],
    ],
  });
}

const changed = (difference, unit) => [change(difference, unit), exactly(difference, unit)];

function ownOf(paths, tree, view) {
  const bin = view.get("bin");
  return [before, after].map((side) =>
    tree.own(
      paths,
      view.get("figure"),
      (path) => paths.process[path] === side && (bin === null || paths.bin[path] === bin),
    ),
  );
}

function measure(paths, tree, view) {
  const own = ownOf(paths, tree, view);
  const weight = own[before].map((value, node) =>
    view.get("kind") === "changed"
      ? Math.abs(own[after][node] - value)
      : Math.max(0, value, own[after][node]),
  );
  return { own, weight };
}
