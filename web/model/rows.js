// Rows of the table: sites that are one line (or function, file, module), summed; and which of them
// are shown, in which order.
import { baseName } from "../base/text.js";

/** Sums `sites` into rows by the grouping `by`, of the columns of `run`. */
export function sumRows(run, sites, by) {
  const { rowOf, figures } = run.sites;
  const indexOf = new Map();
  const rows = [];
  for (const site of sites) {
    const id = rowOf[by][site];
    let index = indexOf.get(id);
    if (index === undefined) {
      index = rows.length;
      indexOf.set(id, index);
      rows.push({ id, sites: [], head: site });
    }
    rows[index].sites.push(site);
  }
  for (const row of rows) sumFigures(row, figures);
  for (const row of rows) describe(row, run.sites, by);
  return rows;
}

function sumFigures(row, figures) {
  row.figures = {};
  for (const key in figures) {
    const values = figures[key];
    let sum = 0;
    for (const site of row.sites) sum += values[site];
    row.figures[key] = sum;
  }
  const peaks = figures.peak_bytes ?? figures.current_bytes;
  for (const site of row.sites) if (peaks && peaks[site] > peaks[row.head]) row.head = site;
}

// The names are those of the site that holds most at the peak.
function describe(row, sites, by) {
  const { head } = row;
  row.isCatchAll = sites.isCatchAll(head);
  row.module = sites.module[head];
  row.file = by === "module" ? "" : sites.file[head];
  row.function = by === "module" || by === "file" ? "" : sites.function[head];
  row.line = by === "line" ? sites.line[head] : 0;
  row.place = placeOf(row, by);
}

function placeOf(row, by) {
  if (row.isCatchAll) return "OTHER";
  if (by === "module") return row.module || "OTHER";
  if (by === "function") return row.function || "(unknown function)";
  const file = baseName(row.file) || row.module || "(unknown file)";
  return by === "line" && row.line > 0 ? `${file}:${row.line}` : file;
}

export const views = {
  all: { title: "All", shows: () => true },
  // Titled by the run: live, or never freed.
  leaks: {
    figure: "current_bytes",
    shows: ({ figures }) => figures.current_blocks > 0 || figures.current_bytes > 0,
  },
  elsewhere: {
    title: "Freed by another thread",
    figure: "cumulative_mismatched_bytes",
    shows: ({ figures }) => figures.cumulative_mismatched_bytes > 0,
  },
};

/** A test of rows, or an `error` to show. Text is found in any case of letters. */
export function matcher(text, isRegex) {
  if (text === "") return { matches: () => true };
  if (!isRegex) {
    const wanted = text.toLowerCase();
    return { matches: (row) => searched(row).toLowerCase().includes(wanted) };
  }
  try {
    const expression = new RegExp(text, "i");
    return { matches: (row) => expression.test(searched(row)) };
  } catch (error) {
    return { matches: () => true, error: error.message };
  }
}

// Kept, since it is asked for at every key press.
function searched(row) {
  row.searched ??= `${row.file}${row.line ? `:${row.line}` : ""} ${row.function} ${row.module} ${row.isCatchAll ? "OTHER" : ""}`;
  return row.searched;
}

/** In a new order: by a figure, or by the text of the place or module. */
export function sorted(rows, { key, descending }) {
  const values = rows.map(
    key === "place" || key === "module" ? (row) => row[key] : (row) => row.figures[key],
  );
  const sign = descending ? -1 : 1;
  const order = [...rows.keys()].sort((a, b) =>
    values[a] < values[b] ? -sign : values[a] > values[b] ? sign : a - b,
  );
  return order.map((index) => rows[index]);
}
