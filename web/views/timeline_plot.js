// The drawing of the timeline: its layers, and how the reader points, zooms and moves in it.
import { brushX } from "d3-brush";
import { scaleLinear } from "d3-scale";
import { event, mouse, select } from "d3-selection";
import { add } from "../base/elements.js";
import { watchTheme } from "../base/theme.js";
import { bytes, plural } from "../base/units.js";
import { paintAreas } from "./timeline_areas.js";
import { drawAxes, drawMarks, drawPhases } from "./timeline_marks.js";
import { bandTop, height, margin } from "./timeline_size.js";

export function addPlot(parent, process, view, timeline) {
  const frame = add(parent, "div", { class: "plot", tabindex: 0, role: "application" });
  const canvas = add(frame, "canvas", { "aria-hidden": true });
  const svg = select(frame).append("svg").attr("height", height).attr("aria-hidden", true);
  const layers = Object.fromEntries(
    ["phases", "axes", "marks", "cursor", "brush"].map((name) => [
      name,
      svg.append("g").attr("class", name),
    ]),
  );
  let scales;

  const draw = () => {
    const width = frame.clientWidth;
    if (width === 0) return;
    svg.attr("width", width);
    scales = makeScales(width, view.get("range"), timeline(), process.resident);
    const drawn = timeline().drawn(
      ...view.get("range"),
      Math.floor(width - margin.left - margin.right),
    );
    paintAreas(
      canvas,
      { width, height },
      scales,
      timeline(),
      drawn,
      process.resident,
      view.get("marked"),
    );
    drawPhases(layers.phases, scales, timeline().phases);
    drawAxes(layers.axes, width, scales, timeline().step);
    drawMarks(layers.marks, scales, process, timeline());
    addBrush(layers.brush, width, scales, view);
    moveCursor();
    frame.setAttribute("aria-label", description(timeline()));
  };
  const moveCursor = () => {
    if (scales) drawCursor(layers.cursor, scales, view.get("cursor"));
  };

  select(frame).on("mousemove", () =>
    view.set({ cursor: sampleAt(scales, mouse(frame)[0], view.get("range")) }),
  );
  select(frame).on("keydown", () => onKey(event, view, timeline()));
  select(frame).on("dblclick", () => view.set({ range: [0, timeline().samples - 1] }));
  view.watch(["range", "stack", "marked"], draw);
  view.watch(["cursor"], moveCursor);
  watchTheme(draw);
  const observer = new ResizeObserver(draw);
  observer.observe(frame);
  return { end: () => observer.disconnect() };
}

const description = ({ samples, totals, highestSample }) =>
  `Timeline of ${plural(samples, "sample")}, at most ${bytes(totals[highestSample] ?? 0)}. ` +
  "Left and right move the cursor, plus and minus zoom, escape shows all.";

function makeScales(width, [first, last], timeline, resident) {
  let highest = 1;
  let lowest = 0;
  for (let sample = first; sample <= last; ++sample) {
    let below = 0;
    for (const { values } of timeline.largest) below += Math.min(0, values[sample]);
    highest = Math.max(highest, timeline.totals[sample] - below);
    lowest = Math.min(lowest, below);
  }
  const tall = [height - margin.bottom, margin.top];
  return {
    x: scaleLinear()
      .domain([first, Math.max(last, first + 1)])
      .range([margin.left, width - margin.right]),
    y: scaleLinear()
      .domain([lowest, highest * 1.06])
      .range(tall),
    resident: scaleLinear()
      .domain([0, Math.max(1, ...resident.slice(first, last + 1)) * 1.06])
      .range(tall),
    hasResident: resident.some((value) => value > 0),
  };
}

function drawCursor(layer, { x }, sample) {
  const [from, to] = x.domain();
  layer
    .selectAll("line")
    .data(sample >= from && sample <= to ? [sample] : [])
    .join("line")
    .attr("x1", x)
    .attr("x2", x)
    .attr("y1", bandTop)
    .attr("y2", height - margin.bottom);
}

function addBrush(layer, width, scales, view) {
  const brush = brushX().extent([
    [margin.left, bandTop],
    [width - margin.right, height - margin.bottom],
  ]);
  brush.on("end", () => {
    if (!event.selection || !event.sourceEvent) return;
    const [first, last] = event.selection.map((pixel) => Math.round(scales.x.invert(pixel)));
    layer.call(brush.move, null);
    if (last > first) view.set({ range: [first, last] });
  });
  layer.call(brush);
}

const sampleAt = (scales, pixel, [first, last]) =>
  Math.min(last, Math.max(first, Math.round(scales.x.invert(pixel))));

function onKey(key, view, { samples }) {
  const [first, last] = view.get("range");
  const cursor = view.get("cursor");
  const stride = Math.max(1, Math.round((last - first) / (key.shiftKey ? 10 : 100)));
  const zoom = (factor) => {
    const half = Math.max(1, Math.round(((last - first) * factor) / 2));
    view.set({ range: [Math.max(0, cursor - half), Math.min(samples - 1, cursor + half)] });
  };
  const actions = {
    ArrowLeft: () => view.set({ cursor: Math.max(first, cursor - stride) }),
    ArrowRight: () => view.set({ cursor: Math.min(last, cursor + stride) }),
    "+": () => zoom(0.5),
    "-": () => zoom(2),
    Escape: () => view.set({ range: [0, samples - 1] }),
  };
  if (!actions[key.key]) return;
  actions[key.key]();
  key.preventDefault();
}
