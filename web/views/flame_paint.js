// The cells of a flame graph on a canvas as large as what is seen of it: tens of thousands are too many for
// elements, and a deep recursion is taller than a canvas may be.
import { sharpContext } from "../base/canvas.js";
import { resolve } from "../base/colours.js";
import { fitting, visible } from "../base/text.js";

export const rowHeight = 20;
const leastForText = 26;

/** `how` tells title and look of a node, what is selected and what a search has found. */
export function paintFlames(canvas, frame, cells, how) {
  const [width, height] = [frame.clientWidth, frame.clientHeight];
  const context = sharpContext(canvas, width, height);
  context.translate(0, -frame.scrollTop);
  context.textBaseline = "middle";
  const colours = new Map();
  const colour = (name) => {
    if (!colours.has(name)) colours.set(name, resolve(name));
    return colours.get(name);
  };
  const first = Math.floor(frame.scrollTop / rowHeight);
  const last = Math.ceil((frame.scrollTop + height) / rowHeight);
  for (const cell of cells)
    if (cell.depth >= first && cell.depth <= last) paintCell(context, cell, how, colour);
  if (how.pointed) outline(context, how.pointed, colour("var(--text)"), 1);
  if (how.selected) outline(context, how.selected, colour("var(--accent)"), 2);
}

function paintCell(context, { node, smaller, left, wide, depth, isAbove }, how, colour) {
  const box = [left, depth * rowHeight, Math.max(0.6, wide - (wide > 3 ? 1 : 0.3)), rowHeight - 1];
  if (smaller) return hatch(context, box, "grown", colour("var(--line)"), 1);
  const { colour: name, strength, sign } = how.look(node);
  const isFound = how.isFound(node);
  const filled = node.group < 0 ? 0.16 : how.isSearched && isFound ? strength + 0.35 : strength;
  context.globalAlpha = (isFound ? 1 : 0.35) * (isAbove ? 0.6 : 1) * filled;
  context.fillStyle = colour(name);
  context.fillRect(...box);
  context.globalAlpha = isFound ? 1 : 0.5;
  if (sign) hatch(context, box, sign, colour(name), 0.28);
  if (wide < leastForText) return;
  context.globalAlpha = isFound ? 1 : 0.6;
  context.fillStyle = colour("var(--text)");
  const isBold = how.isSearched && isFound && node.group >= 0;
  context.font = `${isBold ? "700 " : ""}12px system-ui, sans-serif`;
  const mark = sign === "grown" ? "\u25b2 " : sign === "shrunk" ? "\u25bc " : "";
  const text = fitting(mark + visible(how.title(node)), wide - 8);
  context.fillText(text, left + 4, depth * rowHeight + rowHeight / 2, wide - 6);
}

// Slanting lines up for what has grown, down for what has shrunk.
function hatch(context, [left, top, wide, high], kind, colour, alpha) {
  context.save();
  context.beginPath();
  context.rect(left, top, wide, high);
  context.clip();
  context.globalAlpha *= alpha;
  context.strokeStyle = colour;
  context.lineWidth = 1.5;
  context.beginPath();
  for (let at = left - high - ((left - high) % 7); at < left + wide + high; at += 7) {
    context.moveTo(at, kind === "grown" ? top + high : top);
    context.lineTo(at + high, kind === "grown" ? top : top + high);
  }
  context.stroke();
  context.restore();
}

function outline(context, { left, wide, depth }, colour, lineWidth) {
  context.globalAlpha = 1;
  context.strokeStyle = colour;
  context.lineWidth = lineWidth;
  context.strokeRect(left + 1, depth * rowHeight + 1, Math.max(1, wide - 3), rowHeight - 3);
}
