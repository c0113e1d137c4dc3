// Stacks and what was allocated at each, as the page brings them: a node is a stack from the outermost
// frame to its own, a path the figures of one node (in one process and bin).
import { baseName } from "../base/text.js";
import { CallTree } from "./call_tree.js";

export class CallPaths {
  #trees = new Map();

  constructor(json, texts) {
    const { frames, paths } = json;
    const text = (numbers) => numbers.map((number) => texts[number]);
    this.columns = json.columns;
    this.bins = text(json.bins);
    this.frames = {
      count: frames.line.length,
      function: text(frames.function),
      file: text(frames.file),
      module: text(frames.module),
      line: frames.line,
      isFolded: frames.folded,
    };
    this.frame = Int32Array.from(json.frame);
    this.caller = callersOf(json.depth);
    this.paths = {
      count: paths.node.length,
      node: paths.node,
      process: paths.process,
      site: paths.site,
      bin: paths.bin,
      figures: paths.figures,
    };
  }

  column(key) {
    return this.columns.find((column) => column.key === key);
  }

  /** Kept, since figures and phases change more often than what is merged. */
  tree(by, isFolded) {
    const key = `${by} ${isFolded}`;
    if (!this.#trees.has(key)) this.#trees.set(key, new CallTree(this, by, isFolded));
    return this.#trees.get(key);
  }

  /** The frame of a node that a line would be charged to: the innermost that is not the runtime's. */
  chargedFrame(node) {
    for (let at = node; at >= 0; at = this.caller[at])
      if (!this.frames.isFolded[this.frame[at]]) return this.frame[at];
    return this.frame[node];
  }

  /** The frames of the lines that these sites were charged to. */
  keysOfSites(sites, by) {
    const wanted = new Set(sites);
    const nodes = this.paths.node.filter((node, path) => node >= 0 && wanted.has(this.paths.site[path]));
    return [...new Set(nodes.map((node) => this.keyOf(this.chargedFrame(node), by)))];
  }

  /** What alike frames are merged by. */
  keyOf(frame, by) {
    const { module, file, line, function: functions } = this.frames;
    if (by === "module") return module[frame];
    if (by === "file") return file[frame] || module[frame];
    const name = `${functions[frame]}\0${module[frame]}\0${file[frame]}`;
    return by === "line" ? `${name}\0${line[frame]}` : name;
  }

  titleOf(frame, by) {
    const { module, file, line, function: functions } = this.frames;
    const where = baseName(file[frame]) || module[frame] || "(unknown file)";
    if (by === "module") return module[frame] || "(no module)";
    if (by === "file") return where;
    const name = functions[frame] || `(unknown function of ${module[frame] || "no module"})`;
    return by === "line" && line[frame] > 0 ? `${name} ${where}:${line[frame]}` : name;
  }
}

// Nodes come with callees behind their caller, so the depth of each is enough.
function callersOf(depths) {
  const caller = new Int32Array(depths.length);
  const last = [];
  depths.forEach((depth, node) => {
    caller[node] = depth === 0 ? -1 : last[depth - 1];
    last[depth] = node;
  });
  return caller;
}
