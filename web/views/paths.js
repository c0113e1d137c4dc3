// The call paths of a run: a flame graph, and below it who called what, of the same figures.
import { addSection, goTo } from "../base/elements.js";
import { colourOf } from "../base/colours.js";
import { State } from "../base/state.js";
import { exactly, inUnit, share } from "../base/units.js";
import { showCallers } from "./callers.js";
import { addFlameControls } from "./flame_controls.js";
import { addFlameGraph } from "./flame_graph.js";

export function showPaths(content, run, state) {
  const { paths } = run;
  if (!paths) return;
  const view = new State({
    figure: "peak_bytes",
    from: "main",
    by: "function",
    isFolded: true,
    bin: null,
    process: null,
    zoom: [],
    search: "",
    isRegex: false,
  });
  state.watch(["process"], () => view.set({ process: state.get("process") }));
  const { section, controls } = addSection(
    content,
    "paths",
    "Flame graph",
    "Callers above those whom they called. A click looks closer.",
  );
  const search = addFlameControls(controls, paths, view);
  const unit = () => paths.column(view.get("figure")).unit;
  addFlameGraph(section, view, {
    watched: ["figure", "bin", "process"],
    tree: () => paths.tree(view.get("by"), view.get("isFolded")),
    // A sum below zero, which releases of earlier blocks make, has no width.
    measure: (tree) => {
      const own = ownOf(paths, tree, view);
      return { own: [own], weight: own.map((value) => Math.max(0, value)) };
    },
    look: (group) => ({ colour: colourOf(group.module), strength: 0.3, sign: "" }),
    tell: ({ sums: [sum] }, root) => {
      const part = share(sum, root.sums[0]);
      return `${inUnit(sum, unit())} (${exactly(sum, unit())})${part && `, ${part} of all`}`;
    },
    setError: search.setError,
    onchoose: ({ key, title }) => {
      state.set({ subject: { title, keys: [[key]], by: view.get("by") } });
      goTo("callers");
    },
  });
  showCallers(content, paths, state, view, {
    watched: ["figure", "bin", "process"],
    own: (tree) => [ownOf(paths, tree, view)],
    size: ([sum]) => sum,
    tell: told,
    columns: (unit) => [
      [unit === "bytes" ? "Bytes" : "Blocks", (sums) => told(sums, unit)],
      ["Share", ([sum], [all]) => [share(sum, all)]],
    ],
  });
}

const told = ([sum], unit) => [inUnit(sum, unit), exactly(sum, unit)];

/** The chosen figure of each node by itself, of the chosen process and phase. */
function ownOf({ paths }, tree, view) {
  const [process, bin] = [view.get("process"), view.get("bin")];
  return tree.own(
    paths,
    view.get("figure"),
    (path) =>
      (process === null || paths.process[path] === process) &&
      (bin === null || paths.bin[path] === bin),
  );
}
