// Where memory is: an icicle of modules, their files, functions and lines. A click goes down.
import { partition } from "d3-hierarchy";
import { select } from "d3-selection";
import { add, addSection, addSelect } from "../base/elements.js";
import { colourOf } from "../base/colours.js";
import { baseName, beginning, visible } from "../base/text.js";
import { exactly, inUnit, plural, share } from "../base/units.js";
import { belowZero, findPlace, levels, placesTree } from "../model/places.js";

const rowHeight = 36;
const narrowest = 4; // pixels; what is smaller is one hatched cell

export function showMap(content, run, state) {
  const { section, controls } = addSection(
    content,
    "map",
    "Where it is",
    "Module, file, function, line. A click goes down and narrows the table.",
  );
  addSelect(
    controls,
    "Size",
    run.known.map(({ key, title }) => [key, title]),
    state.get("figure"),
    (figure) => state.set({ figure }),
  );
  const path = add(section, "nav", { class: "path", "aria-label": "Shown place" });
  const read = add(section, "p", { class: "read" });
  const frame = add(section, "div", {
    class: "icicle",
    role: "group",
    "aria-label": "Places by size",
  });
  const note = add(section, "p", { class: "axis-note" });
  let tree;
  const draw = () => {
    const node = findPlace(tree, state.get("place"));
    showPath(path, node, state);
    showBelowZero(note, node, run.column(state.get("figure")));
    showCells(frame, read, node, tree, run.column(state.get("figure")), state);
  };
  state.watch(["process", "figure"], () => {
    tree = placesTree(run, run.sitesOf(state.get("process")), state.get("figure"));
    draw();
  });
  state.on(["place"], draw);
  new ResizeObserver(draw).observe(frame);
  frame.addEventListener("keydown", (key) => onKey(key, frame, state));
}

const nameOf = ({ data: { name, place } }) => {
  if (place.length === 0) return "All modules";
  return visible(
    levels[place.length - 1] === "file"
      ? baseName(name)
      : levels[place.length - 1] === "line"
        ? `line ${name}`
        : name,
  );
};

function showPath(path, node, state) {
  select(path)
    .selectAll("button")
    .data(node.ancestors().reverse())
    .join("button")
    .attr("type", "button")
    .attr("aria-current", (step) => (step === node ? "location" : null))
    .text((step) => beginning(nameOf(step), 60))
    .on("click", (step) => state.set({ place: step.data.place, open: null }));
}

// A tile has no negative size.
function showBelowZero(note, node, { unit }) {
  const [lowest, ...others] = belowZero(node);
  note.hidden = !lowest;
  if (!lowest) return;
  const [place, sum] = lowest;
  const name = visible(place.map(baseName).join(" \u203a "));
  const rest = others.length > 0 ? ` and ${plural(others.length, "other")}` : "";
  note.textContent = `Below zero, so not drawn: ${beginning(name)} ${inUnit(sum, unit)}${rest}. Blocks from before the count began were released there.`;
}

function showCells(frame, read, node, tree, column, state) {
  const width = frame.clientWidth;
  if (width === 0) return;
  const cells = layOut(node, width);
  frame.style.height = `${rowHeight * (1 + Math.max(-1, ...cells.map(({ depth }) => depth)))}px`;
  const tell = ({ node: shown, smaller }) => {
    const what = smaller
      ? `${smaller} smaller`
      : shown.data.place.map(visible).join(" \u203a ") || "All modules";
    const part = share(shown.value, tree.value);
    read.textContent = smaller
      ? what
      : `${what}: ${exactly(shown.value, column.unit)}${part && `, ${part} of all`}`;
  };
  tell({ node });
  select(frame)
    .selectAll("button")
    .data(cells)
    .join((enter) => {
      const button = enter.append("button").attr("type", "button");
      button.append("span").attr("class", "name");
      button.append("span").attr("class", "value");
      return button;
    })
    .attr("class", ({ smaller, depth }) => (smaller ? "smaller" : depth === 0 ? "root" : "cell"))
    .attr("tabindex", (_, index) => (index === 0 ? 0 : -1))
    .attr("aria-label", ({ node: shown, smaller }) =>
      smaller
        ? `${smaller} smaller`
        : `${nameOf(shown)}, ${inUnit(shown.value, column.unit)}, ${share(shown.value, tree.value)}`,
    )
    .style("left", ({ left }) => `${left}px`)
    .style("top", ({ depth }) => `${depth * rowHeight}px`)
    .style("width", ({ wide }) => `${wide}px`)
    .style("--colour", ({ node: shown }) =>
      shown.data.place.length > 0 ? colourOf(shown.data.place[0]) : "var(--rest)",
    )
    .on("mouseenter", tell)
    .on("focus", tell)
    .on("click", ({ node: shown, depth }) => {
      state.set({
        place: depth === 0 ? shown.data.place.slice(0, -1) : shown.data.place,
        open: null,
      });
      frame.querySelector("button")?.focus();
    })
    .each(function label({ node: shown, smaller, wide }) {
      const [name, value] = this.children;
      name.textContent = wide > 34 && !smaller ? beginning(nameOf(shown), 200) : "";
      value.textContent =
        wide > 120 && !smaller
          ? `${inUnit(shown.value, column.unit)} \u00b7 ${share(shown.value, tree.value)}`
          : "";
    });
}

// A cell for each node wide enough, and one for what is left at the end of its parent.
function layOut(node, width) {
  if (!(node.value > 0)) return [];
  const root = partition().size([width, 1])(node.copy());
  const cells = [];
  const walk = (shown, depth) => {
    cells.push({ node: shown, left: shown.x0, wide: shown.x1 - shown.x0, depth });
    let smaller = 0;
    let from = 0;
    for (const child of shown.children ?? []) {
      if (!(child.value > 0)) continue;
      if (child.x1 - child.x0 >= narrowest) walk(child, depth + 1);
      else if (++smaller === 1) from = child.x0;
    }
    if (smaller > 0 && shown.x1 - from >= 2)
      cells.push({ node: shown, smaller, left: from, wide: shown.x1 - from, depth: depth + 1 });
  };
  walk(root, 0);
  return cells;
}

function onKey(key, frame, state) {
  const place = state.get("place");
  if (key.key === "Escape" && place.length > 0) {
    state.set({ place: place.slice(0, -1), open: null });
    frame.querySelector("button")?.focus();
  } else {
    const next = neighbour(key.key, document.activeElement, [...frame.children]);
    if (!next) return;
    for (const button of frame.children) button.tabIndex = button === next ? 0 : -1;
    next.focus();
  }
  key.preventDefault();
}

// The cell beside, below or above in the drawing.
function neighbour(key, from, cells) {
  const at = select(from).datum();
  const all = cells.map((cell) => ({ cell, at: select(cell).datum() }));
  const same = all
    .filter((other) => other.at.depth === at.depth)
    .sort((a, b) => a.at.left - b.at.left);
  const index = same.findIndex(({ cell }) => cell === from);
  if (key === "ArrowRight") return same[index + 1]?.cell;
  if (key === "ArrowLeft") return same[index - 1]?.cell;
  const depth = at.depth + (key === "ArrowDown" ? 1 : key === "ArrowUp" ? -1 : NaN);
  const within = all.filter((other) => other.at.depth === depth);
  if (key === "ArrowDown")
    return within.find(
      (other) => other.at.left >= at.left - 0.5 && other.at.left < at.left + at.wide,
    )?.cell;
  return within.find(
    (other) => other.at.left <= at.left + 0.5 && other.at.left + other.at.wide >= at.left + 0.5,
  )?.cell;
}
