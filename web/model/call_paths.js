// Stacks and what was allocated at each, as the page brings them: a node is a stack from the outermost
// frame to its own, a path the figures of one node (in one process and bin).
import { baseName } from "../base/text.js";
import { CallTree } from "./call_tree.js";

const unknownFiles = ["", "Unknown", "??"]; // as reports put it

export class CallPaths {
  #trees = new Map();
  #moved = new Map();

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

  /** The keys of frames that are of a row of reports that are not here, by its names. */
  keysOfRow(row, by, wantedLine) {
    const { count, module, file, line, function: functions } = this.frames;
    const name = (text) => (unknownFiles.includes(text) ? "" : this.#nameOfFile(text));
    const wanted = name(row.file);
    const isInFile = (frame) =>
      name(file[frame]) === wanted && (wanted !== "" || module[frame] === row.module);
    const is = {
      module: (frame) => module[frame] === row.module,
      file: isInFile,
      function: (frame) => functions[frame] === row.function && isInFile(frame),
      line: (frame) => is.function(frame) && is.module(frame) && line[frame] === wantedLine,
    };
    const takes = row.name
      ? (frame) => functions[frame] === row.name && module[frame] === ""
      : is[by];
    const found = Array.from({ length: count }, (_, frame) => frame).filter(takes);
    return new Set(found.map((frame) => this.keyOf(frame, by)));
  }

  /** From now on a file that only one process, or run, has is known by its base name: sources move. */
  mergeMovedFiles() {
    const having = new Map(); // of each file, whose
    const seen = new Map();
    for (let path = 0; path < this.paths.count; ++path) {
      const process = this.paths.process[path];
      if (!seen.has(process)) seen.set(process, new Uint8Array(this.frame.length));
      const nodes = seen.get(process);
      for (let at = this.paths.node[path]; at >= 0 && !nodes[at]; at = this.caller[at]) {
        nodes[at] = 1;
        const file = this.frames.file[this.frame[at]];
        having.set(file, (having.get(file) ?? new Set()).add(process));
      }
    }
    for (const [file, processes] of having)
      if (processes.size === 1) this.#moved.set(file, baseName(file));
  }

  #nameOfFile(file) {
    return this.#moved.get(file) ?? file;
  }

  /** What alike frames are merged by. */
  keyOf(frame, by) {
    const { module, line, function: functions } = this.frames;
    const file = this.#nameOfFile(this.frames.file[frame]);
    if (by === "module") return module[frame];
    if (by === "file") return file || module[frame];
    const name = `${functions[frame]}\0${module[frame]}\0${file}`;
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
