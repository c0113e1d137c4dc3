// A colour for each name, the same in every view. The colours themselves stand in style.css, where
// they differ between light and dark.

const count = 10;
const rest = "var(--rest)";
const numbers = new Map();

/** The earlier a name comes here, the more distinct its colour. */
export function giveColours(names) {
  for (const name of names) if (!numbers.has(name)) numbers.set(name, numbers.size % count);
}

export const colourOf = (name) => (numbers.has(name) ? `var(--series-${numbers.get(name)})` : rest);

/** For a canvas, which knows no variables. */
export function resolve(colour) {
  const name = /^var\((.*)\)$/.exec(colour);
  return name
    ? getComputedStyle(document.documentElement).getPropertyValue(name[1]).trim()
    : colour;
}
