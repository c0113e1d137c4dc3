// Who called some functions, lines, files or modules, and whom they called. A path counts once for each
// pair that it has, however often it passes there.

/** `isSubject(group)`; `own` sums of nodes. Callers and callees are sums by `nameOf(group)`, -1 that of what
 * called main. */
export function callersAndCallees(tree, own, isSubject, nameOf) {
  const inclusive = tree.inclusive(own);
  const { parent, group, count } = tree;
  const is = (node) => node > 0 && isSubject(group[node]);
  const name = (node) => nameOf(group[node]);
  const callers = new Map();
  const callees = new Map();
  let all = 0;
  let itself = 0;
  const addOnce = (sums, node, other, happensAt) => {
    for (let above = parent[node]; above > 0; above = parent[above]) if (happensAt(above)) return;
    sums.set(other, (sums.get(other) ?? 0) + inclusive[node]);
  };
  for (let node = 1; node < count; ++node) {
    if (is(node)) {
      itself += own[node];
      if (is(parent[node])) continue;
      const caller = name(parent[node]);
      addOnce(callers, node, caller, (at) => is(at) && !is(parent[at]) && name(parent[at]) === caller);
      if (!hasAbove(parent, node, is)) all += inclusive[node];
    } else if (is(parent[node])) {
      const callee = name(node);
      addOnce(callees, node, callee, (at) => !is(at) && is(parent[at]) && name(at) === callee);
    }
  }
  return { all, itself, callers, callees };
}

function hasAbove(parent, node, is) {
  for (let above = parent[node]; above > 0; above = parent[above]) if (is(above)) return true;
  return false;
}
