// What stands around the areas of the timeline: axes, phases, and marks of peaks and snapshots.
import { axisBottom, axisLeft, axisRight } from "d3-axis";
import { select } from "d3-selection";
import { fitting, visible } from "../base/text.js";
import { byteSteps, bytes, whole } from "../base/units.js";
import { bandTop, height, margin } from "./timeline_size.js";

export function drawPhases(layer, { x }, phases) {
  const [from, to] = x.range();
  const shown = phases
    .map(({ label, first, count }, index) => ({
      label,
      index,
      left: Math.max(from, x(first - (first > 0 ? 0.5 : 0))),
      right: Math.min(to, x(first + count - 0.5)),
    }))
    .filter(({ left, right }) => right - left >= 1);
  const groups = layer
    .selectAll("g")
    .data(shown)
    .join((enter) => {
      const group = enter.append("g");
      group.append("rect");
      group.append("text");
      return group;
    });
  groups.attr("class", ({ index }) => (index % 2 ? "odd" : "even"));
  groups
    .select("rect")
    .attr("x", ({ left }) => left)
    .attr("width", ({ left, right }) => right - left)
    .attr("y", bandTop)
    .attr("height", height - margin.bottom - bandTop);
  groups
    .select("text")
    .attr("x", ({ left, right }) => (left + right) / 2)
    .attr("y", bandTop + 13)
    .text(({ label, left, right }) => fitting(visible(label), right - left - 6));
}

export function drawAxes(layer, width, { x, y, resident, hasResident }, step) {
  const axes = [
    [
      "left",
      axisLeft(y)
        .tickValues(byteSteps(...y.domain(), 5))
        .tickFormat(bytes)
        .tickSize(-(width - margin.left - margin.right)),
      margin.left,
      0,
    ],
    [
      "bottom",
      axisBottom(x)
        .ticks(Math.max(2, width / 140))
        .tickFormat((sample) => (Number.isInteger(sample) ? whole(sample * step) : "")),
      0,
      height - margin.bottom,
    ],
  ];
  if (hasResident)
    axes.push([
      "right",
      axisRight(resident)
        .tickValues(byteSteps(...resident.domain(), 5))
        .tickFormat(bytes),
      width - margin.right,
      0,
    ]);
  const groups = layer
    .selectAll("g.axis")
    .data(axes)
    .join("g")
    .attr("class", ([name]) => `axis ${name}`)
    .attr("transform", ([, , dx, dy]) => `translate(${dx},${dy})`);
  groups.each(function drawAxis([, axis]) {
    select(this).call(axis);
  });
  layer
    .selectAll("text.title")
    .data(
      hasResident
        ? [
            ["heap", 4, "start"],
            ["\u254c resident", width - 4, "end"],
          ]
        : [["heap", 4, "start"]],
    )
    .join("text")
    .attr("class", "title")
    .attr("x", ([, left]) => left)
    .attr("y", bandTop + 13)
    .attr("text-anchor", ([, , anchor]) => anchor)
    .text(([title]) => title);
}

export function drawMarks(layer, { x }, process, timeline) {
  const [from, to] = x.domain();
  const marks = marksOf(process, timeline).filter(({ sample }) => sample >= from && sample <= to);
  const groups = layer
    .selectAll("g")
    .data(marks)
    .join((enter) => {
      const group = enter.append("g");
      group.append("line");
      group.append("text");
      group.append("title");
      return group;
    });
  groups
    .attr("class", ({ kind }) => kind)
    .attr("transform", ({ sample }) => `translate(${x(sample)},0)`);
  groups
    .select("line")
    .attr("y1", bandTop)
    .attr("y2", height - margin.bottom);
  groups.select("title").text(({ help }) => help);
  // Lines of their own: the recorded peak and the highest sample are often close to each other.
  const lines = { highest: 11, peak: 25, snapshot: height - margin.bottom - 4 };
  const nearBorder = (sample) =>
    x(sample) < margin.left + 40 ? "start" : x(sample) > x.range()[1] - 40 ? "end" : "middle";
  groups
    .select("text")
    .text(({ text }) => text)
    .attr("y", ({ kind }) => lines[kind])
    .attr("text-anchor", ({ sample }) => nearBorder(sample));
}

function marksOf({ snapshots, peakSample }, timeline) {
  const at = (sample) => Math.min(timeline.samples - 1, Math.floor(sample / timeline.step));
  const marks = snapshots
    .filter(({ sample }) => sample !== undefined)
    .map(({ name, sample, end }) => ({
      kind: "snapshot",
      sample: at(sample),
      text: `\u2691 ${Number(name.replace("snapshot-", ""))}`,
      help: `${name} ${end ?? ""}`,
    }));
  const { highestSample, totals, samples } = timeline;
  if (samples > 0)
    marks.push({
      kind: "highest",
      sample: highestSample,
      text: `\u25b2 ${bytes(totals[highestSample])}`,
      help: "The highest sample",
    });
  if (peakSample !== undefined)
    marks.push({
      kind: "peak",
      sample: at(peakSample),
      text: "\u25bc peak",
      help: "The recorded peak, that of the tables",
    });
  return marks;
}
