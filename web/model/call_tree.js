// Paths with alike frames merged into groups and, when asked, the runtime's frames left out. Node 0 is
// what has called the outermost frames; callers come before callees.

export class CallTree {
  #children;

  constructor(paths, by, isFolded) {
    const groupOf = this.#group(paths, by);
    const parent = [-1];
    const group = [-1];
    const known = new Map();
    this.at = new Int32Array(paths.frame.length); // for each node of the paths, the one of this tree
    for (let node = 0; node < this.at.length; ++node) {
      const frame = paths.frame[node];
      const above = paths.caller[node] < 0 ? 0 : this.at[paths.caller[node]];
      if (isFolded && paths.frames.isFolded[frame]) {
        this.at[node] = above;
        continue;
      }
      const key = above * this.groups.length + groupOf[frame];
      let found = known.get(key);
      if (found === undefined) {
        known.set(key, (found = parent.length));
        parent.push(above);
        group.push(groupOf[frame]);
      }
      this.at[node] = found;
    }
    this.parent = Int32Array.from(parent);
    this.group = Int32Array.from(group);
  }

  get count() {
    return this.parent.length;
  }

  #group(paths, by) {
    const numbers = new Map();
    const groupOf = new Int32Array(paths.frames.count);
    this.groups = [];
    for (let frame = 0; frame < groupOf.length; ++frame) {
      const key = paths.keyOf(frame, by);
      let number = numbers.get(key);
      if (number === undefined) {
        numbers.set(key, (number = this.groups.length));
        this.groups.push({
          key,
          frame, // one of them
          title: paths.titleOf(frame, by),
          module: paths.frames.module[frame],
          file: paths.frames.file[frame],
          function: paths.frames.function[frame],
          line: by === "line" ? paths.frames.line[frame] : 0,
        });
      }
      groupOf[frame] = number;
    }
    return groupOf;
  }

  /** Sums the figures of those paths for which `takes(path)` into nodes. */
  own(paths, key, takes) {
    const sums = new Float64Array(this.count);
    const values = paths.figures[key];
    for (let path = 0; path < paths.count; ++path)
      if (takes(path)) sums[paths.node[path] < 0 ? 0 : this.at[paths.node[path]]] += values[path];
    return sums;
  }

  /** Of each node with all that it called. */
  inclusive(own) {
    const sums = own.slice();
    for (let node = this.count - 1; node > 0; --node) sums[this.parent[node]] += sums[node];
    return sums;
  }

  childrenOf(node) {
    this.#children ??= this.#listChildren();
    const { first, list } = this.#children;
    return list.subarray(first[node], first[node + 1]);
  }

  #listChildren() {
    const first = new Int32Array(this.count + 1);
    for (let node = 1; node < this.count; ++node) ++first[this.parent[node] + 1];
    for (let node = 0; node < this.count; ++node) first[node + 1] += first[node];
    const next = first.slice();
    const list = new Int32Array(this.count - 1);
    for (let node = 1; node < this.count; ++node) list[next[this.parent[node]]++] = node;
    return { first, list };
  }
}
