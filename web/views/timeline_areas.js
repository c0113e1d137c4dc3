// The stacked areas of the timeline, with the names of their series in them, on a canvas: thousands of
// points are too many for elements.
import { area, line, stack } from "d3-shape";
import { sharpContext } from "../base/canvas.js";
import { colourOf, resolve } from "../base/colours.js";
import { visible } from "../base/text.js";

export function paintAreas(
  canvas,
  { width, height },
  { x, y, resident: yResident },
  timeline,
  drawn,
  resident,
  marked,
) {
  const context = sharpContext(canvas, width, height);
  if (drawn.length === 0) return; // a run may end before its first sample
  const series = timeline.largest;
  const layers = stack()
    .keys([...series.keys()])
    .value((sample, key) => series[key].values[sample])
    .offset(aboveAndBelowZero)(drawn);
  const shape = area()
    .x((_, i) => x(drawn[i]))
    .y0((d) => y(d[0]))
    .y1((d) => y(d[1]))
    .context(context);
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

function drawResident(context, drawn, resident, x, y) {
  if (resident.length === 0) return;
  context.beginPath();
  line()
    .defined((sample) => resident[sample] > 0)
    .x(x)
    .y((sample) => y(resident[sample]))
    .context(context)(drawn);
  context.strokeStyle = resolve("var(--text)");
  context.lineWidth = 1.5;
  context.setLineDash([5, 3]);
  context.stroke();
  context.setLineDash([]);
}

// The name of a series where there is room in its area: colours alone would not tell.
function write(context, layer, drawn, x, y, name) {
  context.font = "600 12px system-ui, sans-serif";
  context.textAlign = "center";
  context.textBaseline = "middle";
  context.fillStyle = resolve("var(--on-series)");
  const text = visible(name);
  const room = tallestRoom(layer, drawn, x, y, context.measureText(text).width + 8);
  if (room) context.fillText(text, room.centre, room.middle);
}

const placesTried = 24;
const lineHeight = 15;

// Where the area is tallest, of some places in which a line of text so wide fits.
function tallestRoom(layer, drawn, x, y, wide) {
  let tallest;
  for (let place = 0; place < placesTried; ++place) {
    const at = Math.floor(((place + 0.5) * layer.length) / placesTried);
    const [bottom, top] = layer[at].map(y);
    const middle = (bottom + top) / 2;
    const fits = (i) =>
      y(layer[i][0]) > middle + lineHeight / 2 && y(layer[i][1]) < middle - lineHeight / 2;
    if (!fits(at) || bottom - top <= (tallest?.tall ?? 0)) continue;
    let [first, last] = [at, at];
    while (first > 0 && fits(first - 1)) --first;
    while (last + 1 < layer.length && fits(last + 1)) ++last;
    const [left, right] = [x(drawn[first]), x(drawn[last])];
    if (right - left >= wide) tallest = { tall: bottom - top, centre: (left + right) / 2, middle };
  }
  return tallest;
}
