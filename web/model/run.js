// The data of a run, in columns, as the page brings it.
import { CallPaths } from "./call_paths.js";
import { Timeline } from "./timeline.js";

/** Allocation sites of all processes: a number in every column for each. */
class Sites {
  constructor(json, texts) {
    this.count = json.process.length;
    this.process = Int32Array.from(json.process);
    this.address = json.address;
    this.line = json.line;
    this.module = json.module.map((number) => texts[number]);
    this.file = json.file.map((number) => texts[number]);
    this.function = json.function.map((number) => texts[number]);
    this.rowOf = {
      ...json.row_of,
      module: json.module.map((number, site) => (this.isOfNoModule(site) ? -1 : number)),
    };
    this.figures = {};
    for (const [key, values] of Object.entries(json.figures))
      this.figures[key] = Float64Array.from(values);
  }

  isOfNoModule(site) {
    return this.isCatchAll(site) || this.module[site] === "";
  }

  /** Of no line at all: what could not be charged to one. */
  isCatchAll(site) {
    return this.address[site] === null;
  }
}

class Process {
  constructor(json) {
    Object.assign(this, json);
    const { module_bytes, tag_bytes, resident, peak_sample } = json.timelines;
    this.timelines = {};
    if (module_bytes) this.timelines.module = new Timeline(module_bytes);
    if (tag_bytes) this.timelines.tag = new Timeline(tag_bytes);
    this.resident = resident ?? [];
    this.peakSample = peak_sample;
  }

  get program() {
    const path = this.facts?.executable ?? "";
    return path === "" ? this.name : path.slice(path.lastIndexOf("/") + 1);
  }
}

export class Run {
  constructor(json) {
    this.path = json.path;
    this.notes = json.notes;
    this.columns = json.columns;
    this.processes = json.processes.map((process) => new Process(process));
    this.sites = new Sites(json.sites, json.texts);
    this.paths = json.call_paths && new CallPaths(json.call_paths, json.texts);
    this.known = json.columns.filter(({ key }) => key in this.sites.figures);
  }

  /** Of blocks that are live in the end; before it, nobody knows yet. Of all processes for null. */
  titleOfLive(process) {
    const shown = process === null ? this.processes : [this.processes[process]];
    const running = shown.filter(
      ({ is_snapshot, facts }) => is_snapshot || facts?.ended === "not yet",
    );
    if (running.length === 0) return "Never freed";
    return running.length === shown.length ? "Live" : "Live or never freed";
  }

  column(key) {
    return this.columns.find((column) => column.key === key);
  }

  /** The sites of one process, or of all for null. */
  sitesOf(process) {
    const all = Int32Array.from({ length: this.sites.count }, (_, site) => site);
    return process === null ? all : all.filter((site) => this.sites.process[site] === process);
  }

  sum(sites, key) {
    const values = this.sites.figures[key];
    return values ? sites.reduce((sum, site) => sum + values[site], 0) : 0;
  }
}

export function readData() {
  return JSON.parse(document.getElementById("data").textContent);
}
