// The bar at the top: what was profiled, which process is shown, dark or light.
import { add, addSelect } from "../base/elements.js";
import { addThemeSwitch } from "../base/theme.js";
import { visible } from "../base/text.js";

const parts = [
  ["timeline", "Timeline"],
  ["map", "Where"],
  ["paths", "Flame graph"],
  ["callers", "Callers"],
  ["sites", "Lines"],
  ["bins", "Bins and tags"],
  ["run", "Run"],
];

export function showBar(run, state) {
  const bar = document.getElementById("bar");
  const program = visible(run.processes[0]?.program ?? run.path);
  document.title = `${program}: heap profile`;
  add(bar, "h1", { text: program });
  if (run.processes.length > 1) addProcessSelect(bar, run, state);
  const links = add(bar, "nav", { "aria-label": "Parts of the page" });
  requestAnimationFrame(() => {
    for (const [id, title] of parts)
      if (document.getElementById(id)) add(links, "a", { href: `#${id}`, text: title });
  });
  addThemeSwitch(bar);
}

function addProcessSelect(bar, run, state) {
  const options = run.processes.map(({ name }, index) => [String(index), visible(name)]);
  const list = addSelect(
    bar,
    "Process",
    [["all", `All ${options.length}, summed`], ...options],
    "all",
    (value) =>
      state.set({ process: value === "all" ? null : Number(value), place: [], open: null }),
  );
  state.watch(["process"], () => (list.value = String(state.get("process") ?? "all")));
}
