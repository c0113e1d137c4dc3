// A flame graph: where the reader points, zooms and moves in it. What its cells mean and look like, the host
// tells: that of one run, or of the difference of two.
import { add } from "../base/elements.js";
import { watchTheme } from "../base/theme.js";
import { beginning, visible } from "../base/text.js";
import { plural, share } from "../base/units.js";
import { findFlame, fromLine, fromMain, layOut, sumThrough } from "../model/flames.js";
import { matcher } from "../model/rows.js";
import { paintFlames, rowHeight } from "./flame_paint.js";

const help =
  "Arrows move, Enter looks closer, Escape goes back up, c shows callers and callees, / searches.";

/** `host` has tree(), measure(tree), look(group, node), tell(node, root), `watched`: what in `view` they
 * depend on, setError() for the search, and may have onchoose(group) and nothing(), what to say where there is
 * nothing to draw. */
export function addFlameGraph(parent, view, host) {
  return new FlameGraph(parent, view, host);
}

class FlameGraph {
  #view;
  #host;
  #root;
  #cells = [];
  #found = null; // groups that the search finds
  #selected = []; // by its path, since nodes change
  #pointed; // the cell below the pointer

  constructor(parent, view, host) {
    this.#view = view;
    this.#host = host;
    this.#addParts(parent);
    const measured = ["from", "by", "isFolded", ...host.watched];
    view.on(measured, () => this.#measure());
    view.on(["search", "isRegex"], () => this.#search());
    view.on(["zoom"], () => {
      this.#selected = view.get("zoom");
      this.#lay();
    });
    watchTheme(() => this.#paint());
    new ResizeObserver(() => this.#lay()).observe(this.frame);
    this.#measure();
  }

  #addParts(parent) {
    const line = add(parent, "div", { class: "flame-line" });
    this.read = add(line, "p", { class: "read", "aria-live": "polite" });
    this.up = add(line, "button", {
      type: "button",
      class: "quiet",
      text: "Whole graph",
      onclick: () => this.#view.set({ zoom: [] }),
    });
    if (this.#host.onchoose)
      this.choose = add(line, "button", {
        type: "button",
        class: "quiet",
        text: "Callers and callees",
        onclick: () => this.#choose(),
      });
    this.frame = add(parent, "div", {
      class: "flames",
      tabindex: 0,
      role: "application",
      "aria-label": `Flame graph. ${help}`,
    });
    this.space = add(this.frame, "div");
    this.canvas = add(this.space, "canvas", { "aria-hidden": true });
    this.status = add(parent, "p", { class: "axis-note", role: "status" });
    this.frame.addEventListener("scroll", () => this.#paint(), { passive: true });
    this.frame.addEventListener("mousemove", (event) => this.#point(this.#cellAt(event)));
    this.frame.addEventListener("mouseleave", () => this.#point(undefined));
    this.frame.addEventListener("click", (event) => this.#zoomTo(this.#cellAt(event)));
    this.frame.addEventListener("keydown", (key) => this.#onKey(key));
  }

  #measure() {
    this.tree = this.#host.tree();
    this.figures = this.#host.measure(this.tree);
    const from = this.#view.get("from") === "main" ? fromMain : fromLine;
    this.#root = from(this.tree, this.figures.own, this.figures.weight);
    this.#search();
  }

  #search() {
    const { matches, error } = matcher(this.#view.get("search"), this.#view.get("isRegex"));
    this.#found = null;
    if (this.#view.get("search") !== "" && !error)
      this.#found = new Set(
        [...new Set(this.tree.group.subarray(1))].filter((group) => matches(this.tree.groups[group])),
      );
    this.#host.setError(error);
    this.#lay();
  }

  #lay() {
    const width = this.space.clientWidth;
    if (width === 0) return;
    const zoomed = findFlame(this.#root, this.#view.get("zoom"));
    this.up.disabled = zoomed === this.#root;
    this.#cells = layOut(zoomed, width);
    this.#pointed = undefined;
    const depth = this.#cells.reduce((most, cell) => Math.max(most, cell.depth), 0);
    this.space.style.height = `${(depth + 1) * rowHeight}px`;
    this.#showStatus();
    this.#show(this.#selectedCell);
  }

  #paint() {
    const { groups } = this.tree;
    paintFlames(this.canvas, this.frame, this.#cells, {
      selected: this.#selectedCell,
      pointed: this.#pointed,
      isFound: (node) => this.#found === null || this.#found.has(node.group),
      isSearched: this.#found !== null,
      title: (node) => (node.group < 0 ? this.#allTitle : groups[node.group].title),
      look: (node) => this.#host.look(groups[node.group] ?? { module: "" }, node),
    });
  }

  get #allTitle() {
    return this.#view.get("from") === "main" ? "All" : "All, by who allocates";
  }

  get #selectedCell() {
    const node = findFlame(this.#root, this.#selected);
    return (
      this.#cells.find((cell) => cell.node === node && !cell.smaller) ??
      this.#cells.find((cell) => !cell.isAbove)
    );
  }

  #showStatus() {
    const { weight } = this.figures;
    const all = this.#root.weight;
    let text = all > 0 ? "" : (this.#host.nothing?.() ?? "Nothing to draw.");
    if (this.#found && all > 0) {
      const part = share(sumThrough(this.tree, weight, this.#found), all);
      text = `${plural(this.#found.size, "frame")} found, in ${part} of it.`;
    }
    this.status.textContent = text;
  }

  #tell(cell) {
    if (!cell) return void (this.read.textContent = "");
    const { node, smaller } = cell;
    if (smaller) return void (this.read.textContent = plural(smaller, "narrower frame"));
    const group = this.tree.groups[node.group];
    const where = [group?.line ? "" : group?.file, group?.module].filter(Boolean);
    this.read.replaceChildren();
    add(this.read, "strong", { text: this.#host.tell(node, this.#root) });
    add(this.read, "span", {
      text: ` ${visible(beginning(group?.title ?? this.#allTitle))} ${where.map(visible).join(", ")}`,
    });
  }

  #cellAt({ clientX, clientY }) {
    const box = this.space.getBoundingClientRect();
    const [x, y] = [clientX - box.left, clientY - box.top];
    return this.#cells.find(
      ({ left, wide, depth }) =>
        depth === Math.floor(y / rowHeight) && x >= left && x < left + Math.max(1, wide),
    );
  }

  #point(cell) {
    if (cell === this.#pointed) return;
    this.#pointed = cell;
    this.#show(cell ?? this.#selectedCell);
  }

  #show(cell) {
    if (this.choose) this.choose.disabled = !(this.#selectedCell?.node.group >= 0);
    this.#tell(cell);
    this.#paint();
  }

  #zoomTo(cell) {
    if (!cell) return;
    this.#select(cell);
    this.#view.set({ zoom: cell.node.path });
  }

  #choose() {
    const group = this.tree.groups[this.#selectedCell?.node.group];
    if (group) this.#host.onchoose?.(group);
  }

  #select(cell) {
    if (!cell || cell.smaller) return;
    this.#selected = cell.node.path;
    const top = cell.depth * rowHeight;
    const seen = this.frame.clientHeight;
    if (top < this.frame.scrollTop) this.frame.scrollTop = top;
    else if (top + rowHeight > this.frame.scrollTop + seen)
      this.frame.scrollTop = top + rowHeight - seen;
    this.#show(cell);
  }

  #onKey(key) {
    const from = this.#selectedCell;
    if (!from) return;
    const drawn = this.#cells.filter(({ smaller }) => !smaller);
    const beside = (step) => {
      const row = drawn.filter(({ depth }) => depth === from.depth);
      return row[row.indexOf(from) + step];
    };
    const actions = {
      ArrowDown: () => this.#select(drawn.find(({ node }) => node.parent === from.node)),
      ArrowUp: () => this.#select(drawn.find(({ node }) => node === from.node.parent)),
      ArrowRight: () => this.#select(beside(1)),
      ArrowLeft: () => this.#select(beside(-1)),
      Enter: () => this.#zoomTo(from),
      Escape: () => this.#view.set({ zoom: this.#view.get("zoom").slice(0, -1) }),
      c: () => this.#choose(),
    };
    if (!actions[key.key] || key.ctrlKey || key.metaKey || key.altKey) return;
    actions[key.key]();
    key.preventDefault();
  }
}
