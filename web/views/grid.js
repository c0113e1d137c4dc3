// A table of any length: only the rows in view are elements. One row at a time may be open, with
// its details below it.
import { select } from "d3-selection";
import { add } from "../base/elements.js";
import { colourOf } from "../base/colours.js";
import { beginning, visible } from "../base/text.js";
import { change, exactly, inUnit } from "../base/units.js";

const rowHeight = 32;
const mostInView = 16;
const margin = 6; // rows beyond the edges, for scrolling

/** `host` tells columns, order and what is open, and is told what the reader wants. */
export function addGrid(parent, host) {
  return new Grid(parent, host);
}

class Grid {
  #host;
  #rows = [];
  #highest = {};
  #active = 0;
  #detailsHeight = 0;

  constructor(parent, host) {
    this.#host = host;
    this.frame = add(parent, "div", { class: "grid", role: "grid", tabindex: 0, "aria-label": host.label });
    this.head = add(this.frame, "div", { class: "grid-head", role: "row" });
    this.body = add(this.frame, "div", { class: "grid-body", role: "rowgroup" });
    this.details = add(this.body, "div", { class: "details", role: "row", hidden: true });
    this.empty = add(this.frame, "p", { class: "empty", text: "No row matches.", hidden: true });
    this.frame.addEventListener("scroll", () => this.#showRows(), { passive: true });
    this.frame.addEventListener("keydown", (key) => this.#onKey(key));
    new ResizeObserver(() => this.#showRows()).observe(this.frame);
  }

  show(rows) {
    this.#rows = rows;
    this.#active = 0;
    this.frame.scrollTop = 0;
    this.refresh();
  }

  /** After a change of columns, order or the open row. */
  refresh() {
    const columns = this.#host.columns();
    const widths = columns.map(({ key }) => ({ place: 230, module: 120 })[key] ?? 92);
    const wide = widths.map((least, index) => `minmax(${least}px, ${columns[index].key === "place" ? "1fr" : `${least + 20}px`})`);
    this.frame.style.setProperty("--columns", wide.join(" "));
    this.frame.style.setProperty("--least", `${widths.reduce((sum, least) => sum + least)}px`);
    for (const { key } of columns)
      this.#highest[key] = this.#rows.reduce((most, { figures }) => Math.max(most, Math.abs(figures[key] ?? 0)), 0);
    this.#showHead(columns);
    this.empty.hidden = this.#rows.length > 0;
    this.frame.setAttribute("aria-rowcount", this.#rows.length + 1);
    this.#showDetails();
    this.#showRows();
  }

  get #openIndex() {
    const open = this.#host.open();
    return open === null ? -1 : this.#rows.findIndex(({ id }) => id === open);
  }

  #showHead(columns) {
    const sort = this.#host.sort();
    select(this.head)
      .selectAll("button")
      .data(columns)
      .join("button")
      .attr("type", "button")
      .attr("role", "columnheader")
      .attr("tabindex", 0)
      .attr("data-key", ({ key }) => key)
      .attr("class", ({ unit }) => (unit ? "number" : null))
      .attr("aria-sort", ({ key }) => (key !== sort.key ? "none" : sort.descending ? "descending" : "ascending"))
      .text(({ title, key }) => (key !== sort.key ? title : `${title} ${sort.descending ? "\u25be" : "\u25b4"}`))
      .on("click", ({ key }) => this.#host.onsort(key));
  }

  #showDetails() {
    const index = this.#openIndex;
    this.details.hidden = index < 0;
    this.details.replaceChildren();
    this.#detailsHeight = 0;
    if (index >= 0) {
      this.#active = index;
      this.#host.details(add(this.details, "div", { role: "gridcell" }), this.#rows[index]);
      this.#detailsHeight = this.details.offsetHeight;
      this.details.style.top = `${(index + 1) * rowHeight}px`;
    }
    const inView = Math.min(mostInView, Math.max(1, this.#rows.length)) * rowHeight;
    this.body.style.height = `${this.#rows.length * rowHeight + this.#detailsHeight}px`;
    this.frame.style.maxHeight = `${inView + this.#detailsHeight + this.head.offsetHeight + 2}px`;
    if (index >= 0) this.#scrollTo(index);
  }

  #topOf(index) {
    const open = this.#openIndex;
    return index * rowHeight + (open >= 0 && index > open ? this.#detailsHeight : 0);
  }

  #showRows() {
    const first = Math.max(0, Math.floor((this.frame.scrollTop - this.#detailsHeight) / rowHeight) - margin);
    const last = Math.min(this.#rows.length, Math.ceil((this.frame.scrollTop + this.frame.clientHeight) / rowHeight) + margin);
    const columns = this.#host.columns();
    const open = this.#openIndex;
    const shown = this.#rows.slice(first, last).map((row, offset) => ({ row, index: first + offset }));
    const lines = select(this.body).selectAll(".row").data(shown).join((enter) =>
      enter.append("div").attr("class", "row").attr("role", "row").on("click", ({ row, index }) => {
        this.#active = index;
        this.#toggle(row);
      }));
    lines
      .attr("id", ({ index }) => `${this.#host.label.replace(/\W/g, "-")}-${index}`)
      .attr("aria-rowindex", ({ index }) => index + 2)
      .attr("aria-expanded", ({ index }) => index === open)
      .attr("aria-selected", ({ index }) => index === this.#active)
      .style("top", ({ index }) => `${this.#topOf(index)}px`);
    const cells = lines.selectAll(".cell").data(({ row }) => columns.map((column) => ({ row, column }))).join("div");
    cells.attr("role", "gridcell").attr("class", ({ column }) => `cell ${column.unit ? "number" : column.key}`);
    cells.each(showCell(this.#highest));
    this.#tellActive();
  }

  #tellActive() {
    const row = this.body.querySelector("[aria-selected=true]");
    if (row) this.frame.setAttribute("aria-activedescendant", row.id);
    else this.frame.removeAttribute("aria-activedescendant");
  }

  #toggle(row) {
    this.#host.onopen(this.#host.open() === row.id ? null : row.id);
  }

  #move(index) {
    this.#active = Math.max(0, Math.min(this.#rows.length - 1, index));
    this.#scrollTo(this.#active);
    this.#showRows();
  }

  #scrollTo(index) {
    const top = this.#topOf(index);
    const seen = this.frame.clientHeight - this.head.offsetHeight;
    const needed = rowHeight + (index === this.#openIndex ? this.#detailsHeight : 0);
    if (top < this.frame.scrollTop) this.frame.scrollTop = top;
    else if (top + needed > this.frame.scrollTop + seen) this.frame.scrollTop = Math.min(top, top + needed - seen);
  }

  #onKey(key) {
    if (key.target !== this.frame) return;
    const actions = {
      ArrowDown: () => this.#move(this.#active + 1),
      ArrowUp: () => this.#move(this.#active - 1),
      PageDown: () => this.#move(this.#active + mostInView),
      PageUp: () => this.#move(this.#active - mostInView),
      Home: () => this.#move(0),
      End: () => this.#move(this.#rows.length - 1),
      Enter: () => this.#rows[this.#active] && this.#toggle(this.#rows[this.#active]),
      Escape: () => (this.#openIndex >= 0 ? this.#host.onopen(null) : this.#host.onescape?.()),
    };
    if (!actions[key.key]) return;
    actions[key.key]();
    key.preventDefault();
  }
}

const showCell = (highest) =>
  function show({ row, column: { key, unit, isChange } }) {
    if (key === "place") return showPlace(this, row);
    if (key === "module") return showModule(this, row);
    const value = row.figures[key];
    this.textContent = isChange ? change(value, unit) : inUnit(value, unit);
    this.title = exactly(value, unit);
    this.classList.toggle("zero", value === 0);
    this.classList.toggle("grown", Boolean(isChange) && value > 0);
    this.classList.toggle("shrunk", Boolean(isChange) && value < 0);
    this.style.setProperty("--part", highest[key] > 0 ? Math.abs(value) / highest[key] : 0);
  };

function showPlace(cell, row) {
  cell.replaceChildren();
  cell.title = "";
  add(cell, "bdi", { class: "place-name", text: beginning(visible(row.place)) });
  if (row.function && row.function !== row.place)
    add(cell, "bdi", { class: "function", text: beginning(visible(row.function)) });
}

function showModule(cell, row) {
  cell.replaceChildren();
  cell.title = visible(row.module);
  add(cell, "span", { class: "swatch", style: `--colour: ${colourOf(row.module)}` });
  add(cell, "bdi", { text: beginning(visible(row.isCatchAll ? "" : row.module)) });
}
