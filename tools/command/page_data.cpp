#include "tools/command/page_data.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tools/command/page_call_paths.h"
#include "tools/command/page_texts.h"
#include "tools/reports/row_pairs.h"
#include "tools/reports/snapshot_samples.h"

namespace command {

namespace {

using namespace reports;

// A screen has fewer columns. Where there are more, of each few the highest is kept.
constexpr std::size_t most_samples = 20000;

// Modules are told apart by their names alone.
constexpr std::pair<char const*, BY> groupings[] = {
    {"line", BY::LINE}, {"function", BY::FUNCTION}, {"file", BY::FILE}};

// In a comparison a line is part of a function: only so it is found again where it has moved to.
constexpr std::pair<char const*, BY> compared_groupings[] = {
    {"line", BY::LINE_OF_FUNCTION}, {"function", BY::FUNCTION}, {"file", BY::FILE},
    {"module", BY::MODULE},         {"tag", BY::TAG},           {"bin", BY::BIN}};

JSON columns() {
  JSON json = JSON::array();
  for (const FIGURE_COLUMN& column : figure_columns) json.push_back(json_of(column));
  return json;
}

using SITES = std::vector<const SITE*>;

JSON figures_of(const SITES& sites, const KNOWN_FIGURES& known) {
  JSON json = JSON::object();
  for (std::size_t figure = 0; figure < FIGURE_COUNT; ++figure) {
    if (!known[figure]) continue;
    JSON& values = json[std::string(figure_columns[figure].key)] = JSON::array();
    for (const SITE* const site : sites)
      values.push_back(site->figures[static_cast<FIGURE>(figure)]);
  }
  return json;
}

// For each site the row that it is part of.
JSON rows_of(const SITES& sites, const std::vector<const PROCESS*>& processes, BY by) {
  std::unordered_map<const SITE*, std::size_t> rows;
  const GROUPS groups = group(processes, by);
  for (std::size_t row = 0; row < groups.rows.size(); ++row)
    for (const SITE* const site : groups.rows[row].sites) rows.emplace(site, row);
  JSON json = JSON::array();
  for (const SITE* const site : sites) json.push_back(rows.at(site));
  return json;
}

JSON sites_of(const RUN& run, PAGE_TEXTS& texts) {
  JSON json;
  SITES sites;
  std::vector<const PROCESS*> processes;
  KNOWN_FIGURES known;
  JSON& process_numbers = json["process"] = JSON::array();
  for (std::size_t i = 0; i < run.processes.size(); ++i) {
    const auto* const table = run.processes[i].any_sites();
    if (table == nullptr) continue;
    processes.push_back(&run.processes[i]);
    known |= table->known;
    for (const SITE& site : table->rows) {
      sites.push_back(&site);
      process_numbers.push_back(i);
    }
  }
  for (char const* const key : {"address", "module", "file", "line", "function"})
    json[key] = JSON::array();
  for (const SITE* const site : sites) {
    json["address"].push_back(site->is_catch_all ? JSON()
                                                 : JSON(fmt::format("{:#x}", site->address)));
    json["module"].push_back(texts.number(site->module));
    json["file"].push_back(texts.number(site->file));
    json["line"].push_back(site->line);
    json["function"].push_back(texts.number(site->function));
  }
  json["figures"] = figures_of(sites, known);
  JSON& rows = json["row_of"] = JSON::object();
  if (!processes.empty())
    for (const auto& [name, by] : groupings) rows[name] = rows_of(sites, processes, by);
  return json;
}

JSON named_rows_of(const TABLE<NAMED_ROW>& table) {
  JSON json = JSON::array();
  for (const NAMED_ROW& row : table.rows)
    add_figures(json.emplace_back(JSON{{"name", row.name}}), row.figures, table.known);
  return json;
}

std::size_t step_of(std::size_t samples) {
  return std::max<std::size_t>(1, (samples + most_samples - 1) / most_samples);
}

// The samples that are kept: of each `step` the highest.
std::vector<std::size_t> kept_samples(const TIMELINE& timeline, std::size_t step) {
  std::vector<std::size_t> kept;
  const auto totals = timeline.totals();
  for (std::size_t first = 0; first < timeline.samples; first += step) {
    const auto begin = totals.begin() + static_cast<std::ptrdiff_t>(first);
    const std::size_t count = std::min(step, timeline.samples - first);
    const auto highest = std::max_element(begin, begin + static_cast<std::ptrdiff_t>(count));
    kept.push_back(static_cast<std::size_t>(highest - totals.begin()));
  }
  return kept;
}

JSON timeline_of(const TIMELINE& timeline) {
  JSON json;
  const std::size_t step = step_of(timeline.samples);
  const auto kept = kept_samples(timeline, step);
  json["samples"] = kept.size();
  json["step"] = step;
  json["all_samples"] = timeline.samples;
  json["phases"] = json_of_phases(timeline);
  JSON& all_series = json["series"] = JSON::array();
  for (const TIMELINE::SERIES& series : timeline.series) {
    JSON values = JSON::array();
    for (const std::size_t sample : kept) values.push_back(series.values[sample]);
    all_series.push_back({{"name", series.name}, {"values", std::move(values)}});
  }
  return json;
}

// The resident size at the samples of a timeline; 0 where it could not be read.
JSON resident_of(const AUXILIARY& auxiliary) {
  JSON json = JSON::array();
  for (const AUXILIARY::SERIES& series : auxiliary.series) {
    if (series.name != "RSS") continue;
    const std::size_t step = step_of(series.values.size());
    for (std::size_t first = 0; first < series.values.size(); first += step) {
      double highest = 0;
      for (std::size_t i = first; i < std::min(first + step, series.values.size()); ++i)
        highest = std::fmax(highest, series.values[i]);
      json.push_back(static_cast<std::int64_t>(highest));
    }
  }
  return json;
}

JSON snapshots_of(const RUN& run, const PROCESS& process) {
  JSON json = JSON::array();
  for (const SNAPSHOT& snapshot : process.snapshots) {
    JSON& object = json.emplace_back(JSON{{"name", snapshot.name}});
    const auto samples =
        samples_before_snapshot(run.path + "/" + process.folder + "/" + snapshot.name, process.tag);
    if (samples) object["sample"] = *samples;
    if (snapshot.facts) object["end"] = snapshot.facts->value("end");
  }
  return json;
}

// All of a process but its sites.
JSON process_of(const RUN& run, const PROCESS& process) {
  JSON json;
  json["name"] = process.name;
  json["is_snapshot"] = process.is_snapshot;
  if (process.facts) json["facts"] = json_of_facts(*process.facts);
  json["highest_bytes"] = process.highest_bytes();
  if (process.bins) json["bins"] = named_rows_of(*process.bins);
  if (process.tags) json["tags"] = named_rows_of(*process.tags);
  JSON& timelines = json["timelines"] = JSON::object();
  if (process.module_bytes) timelines["module_bytes"] = timeline_of(*process.module_bytes);
  if (process.tag_bytes) timelines["tag_bytes"] = timeline_of(*process.tag_bytes);
  if (process.auxiliary) timelines["resident"] = resident_of(*process.auxiliary);
  if (process.peak_sample) timelines["peak_sample"] = *process.peak_sample;
  json["snapshots"] = snapshots_of(run, process);
  return json;
}

// One side of a comparison: what it is of.
JSON side_of(const RUN& run) {
  JSON json;
  json["path"] = run.path;
  json["notes"] = run.notes;
  JSON& processes = json["processes"] = JSON::array();
  for (const PROCESS& process : run.processes) {
    JSON& object = processes.emplace_back();
    object["name"] = process.name;
    object["highest_bytes"] = process.highest_bytes();
    if (process.facts) object["facts"] = json_of_facts(*process.facts);
  }
  return json;
}

bool tells(const RUN& run, BY by) {
  return std::any_of(run.processes.begin(), run.processes.end(),
                     [by](const PROCESS& process) { return reports::tells(process, by); });
}

// Both sides of each pair, null where a row is on one side alone.
JSON names_of(const std::vector<ROW_PAIR>& pairs, PAGE_TEXTS& texts) {
  JSON json;
  for (const ROW_PAIR& pair : pairs) {
    const GROUP& row = pair.after != nullptr ? *pair.after : *pair.before;
    json["name"].push_back(texts.number(row.name));
    json["module"].push_back(texts.number(row.module));
    json["file"].push_back(texts.number(row.file));
    json["function"].push_back(texts.number(row.function));
    json["line_before"].push_back(pair.before != nullptr ? JSON(pair.before->line) : JSON());
    json["line_after"].push_back(pair.after != nullptr ? JSON(pair.after->line) : JSON());
  }
  return json;
}

JSON figures_of(const std::vector<ROW_PAIR>& pairs, const GROUP* ROW_PAIR::*side,
                const KNOWN_FIGURES& known) {
  JSON json = JSON::object();
  for (std::size_t figure = 0; figure < FIGURE_COUNT; ++figure) {
    if (!known[figure]) continue;
    JSON& values = json[std::string(figure_columns[figure].key)] = JSON::array();
    for (const ROW_PAIR& pair : pairs)
      values.push_back(pair.*side != nullptr ? (pair.*side)->figures[static_cast<FIGURE>(figure)]
                                             : 0);
  }
  return json;
}

JSON pairs_of(const RUN& before, const RUN& after, BY by, PAGE_TEXTS& texts) {
  const GROUPS rows_before = group(all_processes(before), by);
  const GROUPS rows_after = group(all_processes(after), by);
  const auto pairs = pair_rows(rows_before, rows_after);
  const KNOWN_FIGURES known = rows_before.known & rows_after.known;
  JSON json = names_of(pairs, texts);
  json["count"] = pairs.size();
  json["before"] = figures_of(pairs, &ROW_PAIR::before, known);
  json["after"] = figures_of(pairs, &ROW_PAIR::after, known);
  return json;
}

void add_call_path_notes(JSON& notes, const RUN& run,
                         const std::vector<RESOLVER::PROCESS_STACKS>& stacks) {
  for (std::string& note : notes_on_call_paths(run, stacks)) notes.push_back(std::move(note));
}

std::size_t paths_of(const std::vector<RESOLVER::PROCESS_STACKS>& processes) {
  std::size_t count = 0;
  for (const auto& process : processes) count += process.stacks.paths().paths.size();
  return count;
}

void add_note_of_summed(JSON& notes, const PAGE_CALL_PATHS& paths) {
  if (paths.summed() > 0)
    notes.push_back(fmt::format("The {} call paths that hold least are summed, for each line.",
                                paths.summed()));
}

void add_call_paths(JSON& json, const RUN& run, RESOLVER& resolver, PAGE_TEXTS& texts) {
  const auto stacks = resolver.resolve(run);
  PAGE_CALL_PATHS paths(paths_of(stacks));
  std::int64_t first_site = 0;
  auto of = stacks.begin();
  for (std::size_t i = 0; i < run.processes.size(); ++i) {
    if (of != stacks.end() && of->process == &run.processes[i]) paths.add(*of++, i, first_site);
    if (const auto* const sites = run.processes[i].any_sites())
      first_site += static_cast<std::int64_t>(sites->rows.size());
  }
  if (paths.is_empty()) return;
  json["call_paths"] = paths.json(texts);
  add_call_path_notes(json["notes"], run, stacks);
  add_note_of_summed(json["notes"], paths);
}

// Where both sides have some, as of one process before and one after.
void add_call_paths(JSON& json, const RUN& before, const RUN& after, RESOLVER& resolver,
                    PAGE_TEXTS& texts) {
  const auto stacks_before = resolver.resolve(before);
  const auto stacks_after = resolver.resolve(after);
  if (stacks_before.empty() && stacks_after.empty()) return;
  JSON& notes_before = json["before"]["notes"];
  JSON& notes_after = json["after"]["notes"];
  if (stacks_before.empty() || stacks_after.empty())
    return (stacks_before.empty() ? notes_before : notes_after)
        .push_back("There are no call paths to compare with those of the other run.");
  PAGE_CALL_PATHS paths(paths_of(stacks_before) + paths_of(stacks_after));
  for (const auto& of : stacks_before) paths.add(of, 0, 0);
  for (const auto& of : stacks_after) paths.add(of, 1, 0);
  json["call_paths"] = paths.json(texts);
  add_call_path_notes(notes_before, before, stacks_before);
  add_call_path_notes(notes_after, after, stacks_after);
  add_note_of_summed(notes_after, paths);
}

}  // namespace

JSON page_data_of(const RUN& run) {
  JSON json;
  RESOLVER resolver;  // has texts of the page
  PAGE_TEXTS texts;
  json["kind"] = "run";
  json["path"] = run.path;
  json["notes"] = run.notes;
  json["columns"] = columns();
  JSON& processes = json["processes"] = JSON::array();
  for (const PROCESS& process : run.processes) processes.push_back(process_of(run, process));
  json["sites"] = sites_of(run, texts);
  add_call_paths(json, run, resolver, texts);
  json["texts"] = std::move(texts).json();
  return json;
}

JSON page_data_of(const RUN& before, const RUN& after) {
  JSON json;
  RESOLVER resolver;  // has texts of the page
  PAGE_TEXTS texts;
  json["kind"] = "differences";
  json["columns"] = columns();
  json["before"] = side_of(before);
  json["after"] = side_of(after);
  JSON& rows = json["rows"] = JSON::object();
  for (const auto& [name, by] : compared_groupings)
    if (tells(before, by) && tells(after, by)) rows[name] = pairs_of(before, after, by, texts);
  add_call_paths(json, before, after, resolver, texts);
  json["texts"] = std::move(texts).json();
  return json;
}

}  // namespace command
