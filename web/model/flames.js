// A call tree as a flame graph has it: nodes with a weight, which is their width, and sums of figures;
// from the outermost functions down, or from the lines that allocate to those who called them. Children
// are found when they are asked for: most are too narrow to be drawn.

/** `own` has a list of sums, `weight` what is never negative. */
export const fromMain = (tree, own, weight) => {
  const sums = own.map((one) => tree.inclusive(one));
  return new FromMain(tree, { sums, weight: tree.inclusive(weight) }, 0, null);
};

class Flame {
  #children;

  constructor(group, parent) {
    this.group = group; // -1: all
    this.parent = parent;
  }

  /** The heaviest first; those without weight are left out. */
  get children() {
    this.#children ??= this.findChildren()
      .filter(({ weight }) => weight > 0)
      .sort((a, b) => b.weight - a.weight);
    return this.#children;
  }

  /** The groups from the outermost node to this one. */
  get path() {
    return this.parent === null ? [] : [...this.parent.path, this.group];
  }
}

class FromMain extends Flame {
  constructor(tree, inclusive, node, parent) {
    super(tree.group[node], parent);
    Object.assign(this, { tree, inclusive, node, weight: inclusive.weight[node] });
  }

  get sums() {
    return this.inclusive.sums.map((sum) => sum[this.node]);
  }

  findChildren() {
    return Array.from(
      this.tree.childrenOf(this.node),
      (child) => new FromMain(this.tree, this.inclusive, child, this),
    );
  }
}

export const fromLine = (tree, own, weight) => {
  const has = (node) => own.some((one) => one[node] !== 0); // sums are of those without width, too
  const allocating = Int32Array.from(weight.keys()).filter((node) => node > 0 && has(node));
  const all = weight.reduce((sum, value) => sum + value, 0);
  const indexOf = new Int32Array(tree.groups.length).fill(-1); // of a group among some children
  return new FromLine(tree, { own, weight, indexOf }, -1, null, all, allocating, allocating);
};

// Of some nodes, `reached` is how far up their callers this one has come.
class FromLine extends Flame {
  constructor(tree, figures, group, parent, weight, nodes, reached) {
    super(group, parent);
    Object.assign(this, { tree, figures, weight, nodes, reached });
  }

  get sums() {
    const { own } = this.figures;
    if (this.parent === null) return own.map((one) => one.reduce((sum, value) => sum + value, 0));
    return own.map((one) => this.nodes.reduce((sum, node) => sum + one[node], 0));
  }

  // By counting, and the children share two arrays: there may be a million nodes at each level.
  findChildren() {
    const { tree, figures, nodes, reached } = this;
    const { indexOf } = figures;
    const indices = new Int32Array(nodes.length);
    const found = []; // for each child its group, count and weight
    for (let i = 0; i < nodes.length; ++i) {
      if (reached[i] === 0) continue;
      const group = tree.group[reached[i]];
      if (indexOf[group] < 0) indexOf[group] = found.push({ group, count: 0, weight: 0 }) - 1;
      indices[i] = indexOf[group];
      const child = found[indices[i]];
      ++child.count;
      child.weight += figures.weight[nodes[i]];
    }
    let end = 0;
    for (const child of found) {
      indexOf[child.group] = -1;
      child.next = end;
      end += child.count;
    }
    const [theirs, above] = [new Int32Array(end), new Int32Array(end)];
    for (let i = 0; i < nodes.length; ++i) {
      if (reached[i] === 0) continue;
      const at = found[indices[i]].next++;
      theirs[at] = nodes[i];
      above[at] = tree.parent[reached[i]];
    }
    return found.map(({ group, count, weight, next }) => {
      const [own, up] = [theirs, above].map((list) => list.subarray(next - count, next));
      return new FromLine(tree, figures, group, this, weight, own, up);
    });
  }
}

/** The node at the end of a path of groups; its nearest parent where there is none. */
export function findFlame(root, path) {
  let node = root;
  for (const group of path) {
    const child = node.children.find((one) => one.group === group);
    if (!child) break;
    node = child;
  }
  return node;
}

/** What passes through one of the groups: `own` of nodes at or below such a one. */
export function sumThrough(tree, own, groups) {
  const isBelow = new Uint8Array(tree.count);
  let sum = 0;
  for (let node = 1; node < tree.count; ++node) {
    if (isBelow[tree.parent[node]] || groups.has(tree.group[node])) isBelow[node] = 1;
    if (isBelow[node]) sum += own[node];
  }
  return sum;
}

/** Cells to draw in `width` pixels, `zoomed` as wide as all of it: those at least a pixel wide, and one for
 * what is left of their parent. */
export function layOut(zoomed, width) {
  const cells = [];
  for (let node = zoomed.parent; node !== null; node = node.parent)
    cells.unshift({ node, left: 0, wide: width, isAbove: true });
  cells.forEach((cell, depth) => (cell.depth = depth));
  const scale = zoomed.weight > 0 ? width / zoomed.weight : 0;
  const walk = (node, left, level) => {
    cells.push({ node, left, wide: node.weight * scale, depth: level });
    let at = left;
    let drawn = 0;
    for (const child of node.children) {
      if (child.weight * scale < 1) break;
      walk(child, at, level + 1);
      at += child.weight * scale;
      ++drawn;
    }
    const narrow = node.children.slice(drawn);
    const wide = narrow.reduce((sum, child) => sum + child.weight, 0) * scale;
    if (wide >= 2)
      cells.push({ node, smaller: narrow.length, left: at, wide, depth: level + 1 });
  };
  walk(zoomed, 0, cells.length);
  return cells;
}
