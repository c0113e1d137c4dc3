// Numbers as people read them, the same in every locale.

const units = ["B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"];
const minus = "\u2212";

const grouped = (digits) => digits.replace(/\B(?=(\d{3})+$)/g, ",");

/** 14,544 */
export function whole(number) {
  return (number < 0 ? minus : "") + grouped(Math.abs(Math.round(number)).toFixed(0));
}

/** 227 KiB, in three digits. */
export function bytes(number) {
  let value = Math.abs(number);
  let unit = 0;
  for (; (unit === 0 ? value >= 1024 : value >= 999.5) && unit + 1 < units.length; ++unit)
    value /= 1024;
  const digits = unit === 0 || value >= 99.95 ? 0 : value >= 9.995 ? 1 : 2;
  return `${number < 0 ? minus : ""}${value.toFixed(digits)} ${units[unit]}`;
}

/** About `count` sizes between two, of a round number of units. */
export function byteSteps(lowest, highest, count) {
  const step = 2 ** Math.max(0, Math.round(Math.log2((highest - lowest) / count)));
  const first = Math.ceil(lowest / step);
  return Array.from(
    { length: Math.floor(highest / step) - first + 1 },
    (_, index) => (first + index) * step,
  );
}

export const inUnit = (number, unit) => (unit === "bytes" ? bytes(number) : whole(number));

export const exactly = (number, unit) =>
  `${whole(number)} ${Math.abs(number) === 1 ? unit.replace(/s$/, "") : unit}`;

/** With an arrow as well as a sign, for those who tell no colours apart. */
export function change(number, unit) {
  if (number === 0) return "=";
  return `${number > 0 ? "\u25b2 +" : "\u25bc "}${inUnit(number, unit)}`;
}

export function share(part, all) {
  if (!(all > 0)) return "";
  if (part === 0) return "0 %";
  const percent = (100 * part) / all;
  return percent > 0 && percent < 0.1 ? "< 0.1 %" : `${percent.toFixed(percent < 9.95 ? 1 : 0)} %`;
}

export function duration(seconds) {
  if (!(seconds >= 0)) return "";
  if (seconds < 60) return `${seconds.toPrecision(3)} s`;
  const minutes = Math.floor(seconds / 60);
  const rest = `${Math.floor(seconds % 60)} s`;
  if (minutes < 60) return `${minutes} min ${rest}`;
  return `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

export const plural = (count, one, many = `${one}s`) =>
  `${whole(count)} ${count === 1 ? one : many}`;
