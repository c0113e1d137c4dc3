// Names of the profiled program, which may hold anything.

const names = { "\t": "\\t", "\n": "\\n", "\r": "\\r" };

// Controls, and what would turn the direction of the text around it or break its line.
const unseen = /[\u0000-\u001f\u007f-\u009f\u200b-\u200f\u2028-\u202e\u2060-\u2069\ufeff]/g;

/** With what can't be seen made visible: \t, \x1b, \u202e. */
export const visible = (text) =>
  text.replace(unseen, (c) => {
    const code = c.charCodeAt(0).toString(16);
    return (
      names[c] ?? (code.length > 2 ? `\\u${code.padStart(4, "0")}` : `\\x${code.padStart(2, "0")}`)
    );
  });

export const baseName = (path) => path.slice(path.lastIndexOf("/") + 1);

/** The beginning, for where a whole template would only be cut off by the border. */
export const beginning = (text, length = 300) =>
  text.length <= length ? text : `${text.slice(0, length)}\u2026`;

/** The beginning that fits into so many pixels: six and a half are the width of a usual letter. */
export function fitting(text, width) {
  const letters = Math.floor(width / 6.5);
  if (text.length <= letters) return text;
  return letters < 3 ? "" : `${text.slice(0, letters - 1)}\u2026`;
}
