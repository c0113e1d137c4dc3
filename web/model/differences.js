// Rows of two runs that are the same line, function, file, module, tag or bin.
import { baseName } from "../base/text.js";

export class Differences {
  constructor({ columns, rows, texts }) {
    this.rows = rows;
    this.texts = texts;
    this.groupings = Object.keys(rows);
    const first = Object.values(rows)[0];
    this.known = columns.filter(({ key }) => first && key in first.before && key in first.after);
  }

  knows(by, key) {
    return key in this.rows[by].before;
  }

  /** Of a figure, before and after. */
  sums(key) {
    const { before, after } = Object.values(this.rows)[0];
    return [before, after].map((figures) => figures[key].reduce((sum, value) => sum + value, 0));
  }

  /** With the figures `before`, `after` and `change` of one column. */
  rowsOf(by, key) {
    const {
      count,
      name,
      module,
      file,
      function: functions,
      line_before,
      line_after,
      before,
      after,
    } = this.rows[by];
    return Array.from({ length: count }, (_, id) => {
      const row = {
        id,
        name: this.texts[name[id]],
        module: this.texts[module[id]],
        file: this.texts[file[id]],
        function: this.texts[functions[id]],
        lines: [line_before[id], line_after[id]],
        isCatchAll: false,
      };
      row.line = row.lines[1] ?? row.lines[0] ?? 0;
      row.place = placeOf(row, by);
      row.figures = {
        before: before[key][id],
        after: after[key][id],
        change: after[key][id] - before[key][id],
      };
      return row;
    });
  }

  /** Of a row all figures, before and after. */
  figuresOf(by, id) {
    return this.known
      .filter(({ key }) => this.knows(by, key))
      .map((column) => ({
        ...column,
        before: this.rows[by].before[column.key][id],
        after: this.rows[by].after[column.key][id],
      }));
  }
}

function placeOf(row, by) {
  if (row.name) return row.name;
  if (by === "function") return row.function || "(unknown function)";
  const file = baseName(row.file) || row.module || "(unknown file)";
  if (by !== "line" || row.line === 0) return file;
  const [before, after] = row.lines;
  const moved = before !== null && after !== null && before !== after ? ` (was ${before})` : "";
  return `${file}:${row.line}${moved}`;
}
