// Where memory is: module > file > function > line, as a tree.
import { hierarchy } from "d3-hierarchy";

export const levels = ["module", "file", "function", "line"];

const nameAt = {
  module: (sites, site) => (sites.isOfNoModule(site) ? "OTHER" : sites.module[site]),
  file: (sites, site) => sites.file[site] || "(unknown file)",
  function: (sites, site) => sites.function[site] || "(unknown function)",
  line: (sites, site) => String(sites.line[site]),
};

/** Whether a site lies in the place: the names of a module, a file in it and so on. */
export const isIn = (sites, site, place) =>
  place.every((name, depth) => nameAt[levels[depth]](sites, site) === name);

/** The largest first. A sum below zero, which releases of earlier blocks make, counts as nothing. */
export function placesTree(run, sites, key) {
  const root = { name: "", place: [], children: new Map(), value: 0 };
  const values = run.sites.figures[key];
  for (const site of sites) {
    let node = root;
    for (const level of levels) {
      if (run.sites.isCatchAll(site) && level === "file") break;
      node = childOf(node, nameAt[level](run.sites, site));
    }
    node.value += values[site];
  }
  return hierarchy(root, (node) => [...node.children.values()])
    .sum(({ value }) => Math.max(0, value))
    .sort((a, b) => b.value - a.value);
}

function childOf(node, name) {
  let child = node.children.get(name);
  if (!child) {
    child = { name, place: [...node.place, name], children: new Map(), value: 0 };
    node.children.set(name, child);
  }
  return child;
}

/** What has no size below a node: [place, sum below zero], the lowest first. */
export const belowZero = (node) =>
  node
    .descendants()
    .filter(({ data }) => data.value < 0)
    .map(({ data: { place, value } }) => [place, value])
    .sort((a, b) => a[1] - b[1]);

/** The node of a place; its nearest parent where there is none. */
export function findPlace(root, place) {
  let node = root;
  for (const name of place) {
    const child = node.children?.find(({ data }) => data.name === name);
    if (!child) break;
    node = child;
  }
  return node;
}
