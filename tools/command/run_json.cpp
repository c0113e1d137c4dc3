#include "tools/command/run_json.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace command {

namespace {

using namespace reports;

std::string hexadecimal(std::uint64_t address) { return fmt::format("{:#x}", address); }

// A number where the value is one.
JSON number_or_text(const std::string& value) {
  const char* const end = value.data() + value.size();
  std::int64_t whole = 0;
  if (const auto [rest, error] = std::from_chars(value.data(), end, whole);
      error == std::errc() && rest == end)
    return whole;
  double number = 0;
  if (const auto [rest, error] = std::from_chars(value.data(), end, number);
      error == std::errc() && rest == end && std::isfinite(number))
    return number;
  return value;
}

// Facts that are names, even one of digits.
bool is_text(std::string_view key) {
  constexpr std::string_view texts[] = {"executable", "host",  "directory", "start",
                                        "end",        "ended", "version",   "allocator"};
  return std::find(std::begin(texts), std::end(texts), key) != std::end(texts);
}

JSON json_of(const SITE& site, const KNOWN_FIGURES& known) {
  JSON json;
  json["address"] = site.is_catch_all ? std::string(other_name) : hexadecimal(site.address);
  json["module"] = site.module;
  json["file"] = site.file;
  json["line"] = site.line;
  json["function"] = site.function;
  add_figures(json, site.figures, known);
  return json;
}

JSON json_of(const TABLE<SITE>& table) {
  JSON json = JSON::array();
  for (const SITE& site : table.rows) json.push_back(json_of(site, table.known));
  return json;
}

// With what the row's series held in the first sample, at most, and in the last.
JSON json_of(const TABLE<NAMED_ROW>& table, const std::optional<TIMELINE>& timeline) {
  JSON json = JSON::array();
  for (const NAMED_ROW& row : table.rows) {
    JSON& object = json.emplace_back();
    object["name"] = row.name;
    add_figures(object, row.figures, table.known);
    if (!timeline) continue;
    for (const TIMELINE::SERIES& series : timeline->series) {
      if (series.name != row.name || series.values.empty()) continue;
      object["sampled"] = {{"start", series.values.front()},
                           {"peak", *std::max_element(series.values.begin(), series.values.end())},
                           {"end", series.values.back()}};
    }
  }
  return json;
}

JSON json_of(const TIMELINE& timeline) {
  JSON json;
  json["samples"] = timeline.samples;
  json["is_summary"] = timeline.is_summary;
  json["phases"] = json_of_phases(timeline);
  JSON& series = json["series"] = JSON::array();
  for (const TIMELINE::SERIES& one : timeline.series)
    series.push_back({{"name", one.name}, {"values", one.values}});
  return json;
}

JSON json_of(const AUXILIARY& auxiliary) {
  JSON json = JSON::array();
  for (const AUXILIARY::SERIES& series : auxiliary.series) {
    JSON values = JSON::array();
    for (const double value : series.values) {
      if (std::isnan(value))
        values.push_back(nullptr);
      else if (std::nearbyint(value) == value)
        values.push_back(static_cast<std::int64_t>(value));
      else
        values.push_back(value);
    }
    json.push_back({{"name", series.name}, {"values", std::move(values)}});
  }
  return json;
}

template <class TABLE>
JSON totals_of(const TABLE& table) {
  FIGURES total;
  for (const auto& row : table.rows) total += row.figures;
  JSON json = JSON::object();
  add_figures(json, total, table.known);
  return json;
}

void add_tables(JSON& json, const PROCESS& process) {
  if (const auto* const sites = process.any_sites()) json["totals"] = totals_of(*sites);
  json["highest_bytes"] = process.highest_bytes();
  if (process.sites) json["sites"] = json_of(*process.sites);
  if (process.leaks) json["leaks"] = json_of(*process.leaks);
  if (process.modules) json["modules"] = json_of(*process.modules, process.module_bytes);
  if (process.bins) json["bins"] = json_of(*process.bins, std::nullopt);
  if (process.tags) json["tags"] = json_of(*process.tags, process.tag_bytes);
  for (const LEAK_SUMMARY& summary : process.leak_summaries)
    json["leak_summaries"].push_back({{"name", summary.name},
                                      {"leaked_bytes", summary.leaked_bytes},
                                      {"peak_bytes", summary.peak_bytes}});
  for (const BASE_ADDRESS& base : process.base_addresses)
    json["base_addresses"].push_back(
        {{"module", base.module}, {"address", hexadecimal(base.address)}, {"path", base.path}});
}

void add_timelines(JSON& json, const PROCESS& process) {
  JSON& timelines = json["timelines"] = JSON::object();
  if (process.module_bytes) timelines["module_bytes"] = json_of(*process.module_bytes);
  if (process.module_blocks) timelines["module_blocks"] = json_of(*process.module_blocks);
  if (process.tag_bytes) timelines["tag_bytes"] = json_of(*process.tag_bytes);
  if (process.auxiliary) timelines["auxiliary"] = json_of(*process.auxiliary);
  if (process.peak_sample) timelines["peak_sample"] = *process.peak_sample;
}

JSON json_of(const PROCESS& process) {
  JSON json;
  json["name"] = process.name;
  json["folder"] = process.folder;
  json["tag"] = process.tag;
  json["is_snapshot"] = process.is_snapshot;
  if (process.facts) json["facts"] = json_of_facts(*process.facts);
  add_tables(json, process);
  add_timelines(json, process);
  JSON& snapshots = json["snapshots"] = JSON::array();
  for (const SNAPSHOT& snapshot : process.snapshots) {
    JSON& object = snapshots.emplace_back();
    object["name"] = snapshot.name;
    for (char const* const key : {"end", "seconds"})
      if (snapshot.facts)
        object[key] = is_text(key) ? JSON(snapshot.facts->value(key))
                                   : number_or_text(snapshot.facts->value(key));
  }
  return json;
}

}  // namespace

JSON json_of_facts(const RUN_FACTS& facts) {
  JSON json = JSON::object();
  for (const auto& [key, value] : facts.values)
    json[key] = is_text(key) ? JSON(value) : number_or_text(value);
  json["arguments"] = facts.arguments;
  JSON& settings = json["settings"] = JSON::array();
  for (const auto& setting : facts.settings)
    settings.push_back(
        {{"name", setting.name}, {"source", setting.source}, {"value", setting.value}});
  JSON& modules = json["modules"] = JSON::array();
  for (const auto& module : facts.modules)
    modules.push_back({{"path", module.path},
                       {"address", hexadecimal(module.address)},
                       {"size", module.size},
                       {"build_id", module.build_id},
                       {"lines", module.lines}});
  return json;
}

JSON json_of_phases(const TIMELINE& timeline) {
  JSON phases = JSON::array();
  const auto totals = timeline.totals();
  for (const TIMELINE::PHASE& phase : timeline.phases) {
    const auto first = totals.begin() + static_cast<std::ptrdiff_t>(phase.first);
    const auto last = first + static_cast<std::ptrdiff_t>(phase.count);
    phases.push_back({{"label", phase.label},
                      {"first", phase.first},
                      {"count", phase.count},
                      {"start", *first},
                      {"peak", *std::max_element(first, last)},
                      {"end", *(last - 1)}});
  }
  return phases;
}

void add_figures(JSON& object, const FIGURES& figures, const KNOWN_FIGURES& known) {
  for (std::size_t figure = 0; figure < FIGURE_COUNT; ++figure)
    if (known[figure])
      object[std::string(figure_columns[figure].key)] = figures[static_cast<FIGURE>(figure)];
}

JSON json_of_names(const GROUP& row) {
  JSON json;
  if (!row.name.empty()) json["name"] = row.name;
  if (!row.module.empty()) json["module"] = row.module;
  if (!row.file.empty()) json["file"] = row.file;
  if (row.line != 0) json["line"] = row.line;
  if (!row.function.empty()) json["function"] = row.function;
  if (!row.sites.empty()) {
    JSON& addresses = json["addresses"] = JSON::array();
    for (const SITE* const site : row.sites)
      if (!site->is_catch_all) addresses.push_back(hexadecimal(site->address));
  }
  return json;
}

JSON json_of(const std::string& process, const GROUPS& groups, std::size_t shown) {
  JSON json;
  if (!process.empty()) json["process"] = process;
  add_figures(json["total"] = JSON::object(), groups.total, groups.known);
  json["count"] = groups.rows.size();
  JSON& rows = json["rows"] = JSON::array();
  for (std::size_t i = 0; i < shown; ++i)
    add_figures(rows.emplace_back(json_of_names(groups.rows[i])), groups.rows[i].figures,
                groups.known);
  return json;
}

JSON json_of(const FIGURE_COLUMN& column) {
  return {
      {"key", column.key}, {"title", column.title}, {"unit", column.is_bytes ? "bytes" : "blocks"}};
}

JSON json_of(const RUN& run) {
  JSON json;
  json["format"] = "tuk-mem run";
  json["format_version"] = 1;
  json["path"] = run.path;
  JSON& columns = json["columns"] = JSON::array();
  for (const FIGURE_COLUMN& column : figure_columns) columns.push_back(json_of(column));
  json["notes"] = run.notes;
  JSON& processes = json["processes"] = JSON::array();
  for (const PROCESS& process : run.processes) processes.push_back(json_of(process));
  return json;
}

std::string text_of(const JSON& json) {
  constexpr int compact = -1;
  return json.dump(compact, ' ', false, JSON::error_handler_t::replace) + "\n";
}

}  // namespace command
