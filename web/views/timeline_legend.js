// What the timeline holds at the cursor, and how each series changed in the stretch that is shown.
import { select } from "d3-selection";
import { add } from "../base/elements.js";
import { colourOf } from "../base/colours.js";
import { visible } from "../base/text.js";
import { bytes, change, exactly, whole } from "../base/units.js";

export function addLegend(parent, view, timeline) {
  const frame = add(parent, "div", { class: "legend" });
  const where = add(frame, "p", { class: "where", "aria-live": "polite" });
  const table = add(frame, "table", { class: "plain" });
  const headings = add(add(table, "thead"), "tr");
  for (const title of ["", "At cursor", "Change shown"])
    add(headings, "th", { scope: "col", class: title ? "number" : null, text: title });
  const body = select(add(table, "tbody"));
  view.watch(["cursor", "range", "stack"], () => {
    const cursor = Math.min(view.get("cursor"), timeline().samples - 1);
    const phase = timeline().phaseAt(cursor);
    where.textContent = `Sample ${whole(cursor * timeline().step)}${phase ? `, in ${visible(phase.label || "(no label)")}` : ""}`;
    showRows(
      body,
      view,
      [{ name: "All", values: timeline().totals, isAll: true }, ...timeline().largest],
      cursor,
    );
  });
}

function showRows(body, view, series, cursor) {
  const [first, last] = view.get("range");
  const rows = body
    .selectAll("tr")
    .data(series)
    .join((enter) => {
      const row = enter.append("tr");
      const name = row.append("th").attr("scope", "row");
      name.append("span").attr("class", "swatch");
      name.append("span").attr("class", "name");
      row.append("td").attr("class", "number");
      row.append("td").attr("class", "number");
      return row;
    });
  rows.classed("all", ({ isAll }) => Boolean(isAll));
  rows.on("mouseenter", ({ name, isAll }) => view.set({ marked: isAll ? null : name }));
  rows.on("mouseleave", () => view.set({ marked: null }));
  rows
    .select(".swatch")
    .style("--colour", ({ name, isAll }) => (isAll ? "transparent" : colourOf(name)));
  rows
    .select(".name")
    .text(({ name }) => visible(name))
    .attr("title", ({ name }) => visible(name));
  rows
    .select("td")
    .text(({ values }) => bytes(values[cursor] ?? 0))
    .attr("title", ({ values }) => exactly(values[cursor] ?? 0, "bytes"));
  rows
    .select("td:last-child")
    .text(({ values }) => change((values[last] ?? 0) - (values[first] ?? 0), "bytes"));
}
