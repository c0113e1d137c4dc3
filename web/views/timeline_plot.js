// The drawing of the timeline: stacked areas on a canvas; axes, marks and zooming above it in SVG.
import { axisBottom, axisLeft, axisRight } from "d3-axis";
import { brushX } from "d3-brush";
import { scaleLinear } from "d3-scale";
import { event, mouse, select } from "d3-selection";
import { area, line, stack } from "d3-shape";
import { add } from "../base/elements.js";
import { colourOf, resolve } from "../base/colours.js";
import { visible } from "../base/text.js";
import { watchTheme } from "../base/theme.js";
import { byteSteps, bytes, plural, whole } from "../base/units.js";

const height = 320;
const margin = { top: 40, right: 66, bottom: 26, left: 70 };

export function addPlot(parent, process, view, timeline) {
  const frame = add(parent, "div", { class: "plot", tabindex: 0, role: "application" });
  const canvas = add(frame, "canvas", { "aria-hidden": true });
  const svg = select(frame).append("svg").attr("height", height).attr("aria-hidden", true);
  const layers = Object.fromEntries(["phases", "axes", "marks", "cursor", "brush"].map((name) => [name, svg.append("g").attr("class", name)]));
  let scales;

  const draw = () => {
    const width = frame.clientWidth;
    if (width === 0) return;
    svg.attr("width", width);
    scales = makeScales(width, view.get("range"), timeline(), process.resident);
    const drawn = timeline().drawn(...view.get("range"), Math.floor(width - margin.left - margin.right));
    paint(canvas, width, scales, timeline(), drawn, process.resident, view.get("marked"));
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

  select(frame).on("mousemove", () => view.set({ cursor: sampleAt(scales, mouse(frame)[0], view.get("range")) }));
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
    x: scaleLinear().domain([first, Math.max(last, first + 1)]).range([margin.left, width - margin.right]),
    y: scaleLinear().domain([lowest, highest * 1.06]).range(tall),
    resident: scaleLinear().domain([0, Math.max(1, ...resident.slice(first, last + 1)) * 1.06]).range(tall),
    hasResident: resident.some((value) => value > 0),
  };
}

function paint(canvas, width, { x, y, resident: yResident }, timeline, drawn, resident, marked) {
  const ratio = window.devicePixelRatio || 1;
  canvas.width = width * ratio;
  canvas.height = height * ratio;
  canvas.style.width = `${width}px`;
  canvas.style.height = `${height}px`;
  const context = canvas.getContext("2d");
  context.scale(ratio, ratio);
  if (drawn.length === 0) return; // a run may end before its first sample
  const series = timeline.largest;
  const layers = stack()
    .keys([...series.keys()])
    .value((sample, key) => series[key].values[sample])
    .offset(aboveAndBelowZero)(drawn);
  const shape = area().x((_, i) => x(drawn[i])).y0((d) => y(d[0])).y1((d) => y(d[1])).context(context);
  layers.forEach((layer, index) => {
    const { name } = series[index];
    context.beginPath();
    shape(layer);
    context.globalAlpha = marked === null || marked === name ? 0.85 : 0.2;
    context.fillStyle = resolve(colourOf(name));
    context.fill();
  });
  context.globalAlpha = 1;
  layers.forEach((layer, index) => write(context, layer, drawn, x, y, series[index].name));
  drawResident(context, drawn, resident, x, yResident);
}

// What is below zero, as OTHER may be, is stacked downwards.
function aboveAndBelowZero(layers) {
  for (let i = 0; i < (layers[0]?.length ?? 0); ++i) {
    let [above, below] = [0, 0];
    for (const layer of layers) {
      const value = layer[i][1] - layer[i][0];
      if (value < 0) [layer[i][0], layer[i][1]] = [below + value, below];
      else [layer[i][0], layer[i][1]] = [above, above + value];
      if (value < 0) below += value;
      else above += value;
    }
  }
}

// The name of a series where there is room in its area: colours alone would not tell.
function write(context, layer, drawn, x, y, name) {
  context.font = "600 12px system-ui, sans-serif";
  context.textAlign = "center";
  context.textBaseline = "middle";
  context.fillStyle = resolve("var(--on-series)");
  const text = visible(name);
  const room = widestRoom(layer, drawn, x, y);
  if (room.right - room.left >= context.measureText(text).width + 8)
    context.fillText(text, (room.left + room.right) / 2, room.middle);
}

const placesTried = 24;
const lineHeight = 15;

// The widest stretch in which a line of text fits into the area, of some that are tried.
function widestRoom(layer, drawn, x, y) {
  let widest = { left: 0, right: 0 };
  for (let place = 0; place < placesTried; ++place) {
    const centre = Math.floor(((place + 0.5) * layer.length) / placesTried);
    const middle = (y(layer[centre][0]) + y(layer[centre][1])) / 2;
    const fits = (i) => y(layer[i][0]) > middle + lineHeight / 2 && y(layer[i][1]) < middle - lineHeight / 2;
    if (!fits(centre)) continue;
    let [first, last] = [centre, centre];
    while (first > 0 && fits(first - 1)) --first;
    while (last + 1 < layer.length && fits(last + 1)) ++last;
    const room = { left: x(drawn[first]), right: x(drawn[last]), middle };
    if (room.right - room.left > widest.right - widest.left) widest = room;
  }
  return widest;
}

function drawResident(context, drawn, resident, x, y) {
  if (resident.length === 0) return;
  context.beginPath();
  line().defined((sample) => resident[sample] > 0).x(x).y((sample) => y(resident[sample])).context(context)(drawn);
  context.strokeStyle = resolve("var(--text)");
  context.lineWidth = 1.5;
  context.setLineDash([5, 3]);
  context.stroke();
  context.setLineDash([]);
}

function drawPhases(layer, { x }, phases) {
  const [from, to] = x.range();
  const shown = phases
    .map(({ label, first, count }, index) => ({
      label,
      index,
      left: Math.max(from, x(first - (first > 0 ? 0.5 : 0))),
      right: Math.min(to, x(first + count - 0.5)),
    }))
    .filter(({ left, right }) => right - left >= 1);
  const groups = layer.selectAll("g").data(shown).join((enter) => {
    const group = enter.append("g");
    group.append("rect");
    group.append("text");
    return group;
  });
  groups.attr("class", ({ index }) => (index % 2 ? "odd" : "even"));
  groups.select("rect").attr("x", ({ left }) => left).attr("width", ({ left, right }) => right - left).attr("y", 18).attr("height", height - margin.bottom - 18);
  groups.select("text").attr("x", ({ left, right }) => (left + right) / 2).attr("y", 30)
    .text(({ label, left, right }) => fitting(visible(label), right - left - 6));
}

// Six and a half pixels are the width of a usual letter.
function fitting(text, width) {
  const letters = Math.floor(width / 6.5);
  if (text.length <= letters) return text;
  return letters < 3 ? "" : `${text.slice(0, letters - 1)}\u2026`;
}

function drawAxes(layer, width, { x, y, resident, hasResident }, step) {
  const axes = [
    ["left", axisLeft(y).tickValues(byteSteps(...y.domain(), 5)).tickFormat(bytes).tickSize(-(width - margin.left - margin.right)), margin.left, 0],
    ["bottom", axisBottom(x).ticks(Math.max(2, width / 140)).tickFormat((sample) => (Number.isInteger(sample) ? whole(sample * step) : "")), 0, height - margin.bottom],
  ];
  if (hasResident) axes.push(["right", axisRight(resident).tickValues(byteSteps(...resident.domain(), 5)).tickFormat(bytes), width - margin.right, 0]);
  const groups = layer.selectAll("g.axis").data(axes).join("g").attr("class", ([name]) => `axis ${name}`).attr("transform", ([, , dx, dy]) => `translate(${dx},${dy})`);
  groups.each(function drawAxis([, axis]) {
    select(this).call(axis);
  });
  layer.selectAll("text.title").data(hasResident ? [["heap", 4, "start"], ["\u254c resident", width - 4, "end"]] : [["heap", 4, "start"]])
    .join("text").attr("class", "title").attr("x", ([, left]) => left).attr("y", 30).attr("text-anchor", ([, , anchor]) => anchor).text(([title]) => title);
}

function drawMarks(layer, { x }, process, timeline) {
  const [from, to] = x.domain();
  const marks = marksOf(process, timeline).filter(({ sample }) => sample >= from && sample <= to);
  const groups = layer.selectAll("g").data(marks).join((enter) => {
    const group = enter.append("g");
    group.append("line");
    group.append("text");
    group.append("title");
    return group;
  });
  groups.attr("class", ({ kind }) => kind).attr("transform", ({ sample }) => `translate(${x(sample)},0)`);
  groups.select("line").attr("y1", 18).attr("y2", height - margin.bottom);
  groups.select("title").text(({ help }) => help);
  const isAtEnd = ({ sample, kind }) => kind === "highest" && x(sample) > x.range()[1] - 70;
  groups.select("text").text(({ text }) => text)
    .attr("y", ({ kind }) => (kind === "snapshot" ? height - margin.bottom - 4 : 12))
    .attr("text-anchor", (mark) => (mark.kind === "snapshot" ? "middle" : mark.kind === "peak" || isAtEnd(mark) ? "end" : "start"))
    .attr("dx", (mark) => (mark.kind === "peak" ? (marks.some(isAtEnd) ? -75 : -3) : isAtEnd(mark) ? 0 : 3));
}

// The recorded peak is named to the left of its line, the highest sample to the right: they are often
// close to each other.
function marksOf({ snapshots, peakSample }, timeline) {
  const at = (sample) => Math.min(timeline.samples - 1, Math.floor(sample / timeline.step));
  const marks = snapshots
    .filter(({ sample }) => sample !== undefined)
    .map(({ name, sample, end }) => ({ kind: "snapshot", sample: at(sample), text: `\u2691 ${Number(name.replace("snapshot-", ""))}`, help: `${name} ${end ?? ""}` }));
  const { highestSample, totals, samples } = timeline;
  if (samples > 0) marks.push({ kind: "highest", sample: highestSample, text: `\u25b2 ${bytes(totals[highestSample])}`, help: "The highest sample" });
  if (peakSample !== undefined) marks.push({ kind: "peak", sample: at(peakSample), text: "peak \u25bc", help: "The recorded peak, that of the tables" });
  return marks;
}

function drawCursor(layer, { x }, sample) {
  const [from, to] = x.domain();
  layer.selectAll("line").data(sample >= from && sample <= to ? [sample] : []).join("line").attr("x1", x).attr("x2", x).attr("y1", 18).attr("y2", height - margin.bottom);
}

function addBrush(layer, width, scales, view) {
  const brush = brushX().extent([[margin.left, 18], [width - margin.right, height - margin.bottom]]);
  brush.on("end", () => {
    if (!event.selection || !event.sourceEvent) return;
    const [first, last] = event.selection.map((pixel) => Math.round(scales.x.invert(pixel)));
    layer.call(brush.move, null);
    if (last > first) view.set({ range: [first, last] });
  });
  layer.call(brush);
}

const sampleAt = (scales, pixel, [first, last]) => Math.min(last, Math.max(first, Math.round(scales.x.invert(pixel))));

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
