// The heap over time: what is stacked, which samples are seen, and where the cursor stands.
import { add, addChoice, addSection } from "../base/elements.js";
import { State } from "../base/state.js";
import { whole } from "../base/units.js";
import { addLegend } from "./timeline_legend.js";
import { addPlot } from "./timeline_plot.js";

const stacks = [
  [
    "module",
    "By module",
    "The bytes that each module's code allocated, and the phases of the timeline's labels",
  ],
  ["tag", "By tag", "The bytes allocated under each tag, and the phases of the bins"],
];

export function showTimeline(content, run, state) {
  if (!run.processes.some(({ timelines }) => timelines.module || timelines.tag)) return;
  const { section, controls } = addSection(
    content,
    "timeline",
    "Over time",
    "Drag to look closer, point to read values.",
  );
  const frame = add(section, "div");
  let end = () => {};
  state.watch(["process"], () => {
    end();
    frame.replaceChildren();
    controls.replaceChildren();
    const process = run.processes[state.get("process") ?? -1];
    if (!process)
      add(frame, "p", {
        class: "empty",
        text: "Each process has a time of its own. Choose one to see it.",
      });
    else if (process.timelines.module || process.timelines.tag)
      end = showProcess(frame, controls, process);
    else add(frame, "p", { class: "empty", text: "This process has no timeline." });
  });
}

function showProcess(frame, controls, process) {
  const choices = stacks.filter(([key]) => process.timelines[key]);
  const first = process.timelines[choices[0][0]];
  const view = new State({
    stack: choices[0][0],
    range: [0, first.samples - 1],
    cursor: restingPlace(process, first),
    marked: null, // the series that the reader points at
  });
  const timeline = () => process.timelines[view.get("stack")];
  const whole_range = () => [0, timeline().samples - 1];
  if (choices.length > 1) {
    const show = addChoice(controls, "Stacked", choices, view.get("stack"), (stack) => {
      view.set({ stack, range: [0, process.timelines[stack].samples - 1], marked: null });
      show(stack);
    });
  }
  const reset = add(controls, "button", {
    type: "button",
    class: "quiet",
    id: "reset-zoom",
    text: "Whole run",
    onclick: () => view.set({ range: whole_range() }),
  });
  const columns = add(frame, "div", { class: "timeline" });
  const plot = addPlot(columns, process, view, timeline);
  addLegend(columns, view, timeline);
  add(frame, "p", { class: "axis-note", text: axisNote(first) });
  view.watch(["range", "stack"], () => {
    const [from, to] = view.get("range");
    reset.disabled = from === 0 && to === timeline().samples - 1;
    reset.title = `Shown: samples ${whole(from * first.step)} to ${whole(to * first.step)}`;
  });
  return plot.end;
}

const restingPlace = (process, timeline) =>
  process.peakSample === undefined
    ? timeline.highestSample
    : Math.min(timeline.samples - 1, Math.floor(process.peakSample / timeline.step));

function axisNote({ allSamples, step }) {
  const thinned = step > 1 ? ` Of each ${whole(step)} samples the highest is drawn.` : "";
  return `${whole(allSamples)} samples, taken after a fixed number of allocations and releases, and at peaks: a busy moment is long, an idle one short.${thinned}`;
}
