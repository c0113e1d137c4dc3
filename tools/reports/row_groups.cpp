#include "tools/reports/row_groups.h"

#include <algorithm>
#include <array>
#include <map>
#include <string>

#include "tools/reports/line_reader.h"

namespace reports {

namespace {

bool is_of_bins(BY by) { return by == BY::BIN || by == BY::TAG; }

// The rows that a report has already.
const std::optional<TABLE<NAMED_ROW>>& named_rows(const PROCESS& process, BY by) {
  static const std::optional<TABLE<NAMED_ROW>> none;
  if (is_of_bins(by)) return by == BY::BIN ? process.bins : process.tags;
  return by == BY::MODULE ? process.modules : none;
}

class GROUPING {
 public:
  explicit GROUPING(BY by) { m_groups.by = by; }

  void add_sites(const TABLE<SITE>& table) {
    know(table.known);
    for (const SITE& site : table.rows) {
      GROUP& group = group_of(row_key_of(site, m_groups.by));
      add(group, site.figures);
      group.sites.push_back(&site);
    }
  }

  void add_named(const TABLE<NAMED_ROW>& table) {
    know(table.known);
    for (const NAMED_ROW& row : table.rows) {
      GROUP& group = group_of({row.name, {}, {}, 0});
      group.name = row.name;
      add(group, row.figures);
    }
  }

  // Beside named rows, which have the figures already.
  void add_sites_to_named(const TABLE<SITE>& table) {
    for (const SITE& site : table.rows) {
      const bool is_other = site.is_catch_all || site.module.empty();
      const auto found = m_index.find({is_other ? other_name : site.module, {}, {}, 0});
      if (found != m_index.end()) m_groups.rows[found->second].sites.push_back(&site);
    }
  }

  bool is_empty() const { return !m_has_report; }

  GROUPS finished() && {
    for (GROUP& group : m_groups.rows) describe(group);
    sort_by(m_groups.rows, PEAK_BYTES);
    return std::move(m_groups);
  }

 private:
  void know(const KNOWN_FIGURES& known) {
    m_groups.known = m_has_report ? m_groups.known & known : known;
    m_has_report = true;
  }

  GROUP& group_of(const ROW_KEY& key) {
    const auto [found, is_new] = m_index.emplace(key, m_groups.rows.size());
    if (is_new) m_groups.rows.emplace_back();
    return m_groups.rows[found->second];
  }

  void add(GROUP& group, const FIGURES& figures) {
    group.figures += figures;
    m_groups.total += figures;
  }

  void describe(GROUP& group) const {
    if (group.sites.empty()) return;
    std::stable_sort(group.sites.begin(), group.sites.end(), [](const SITE* a, const SITE* b) {
      return a->figures.comes_before(b->figures);
    });
    const SITE& first = *group.sites.front();
    if (first.is_catch_all) {
      group.name = other_name;
      return;
    }
    group.module = first.module;
    if (m_groups.by == BY::MODULE) {
      group.name = first.module.empty() ? other_name : first.module;
      return;
    }
    group.file = first.file;
    if (m_groups.by == BY::FILE) return;
    group.function = first.function;
    if (m_groups.by != BY::FUNCTION) group.line = first.line;
  }

  GROUPS m_groups;
  std::map<ROW_KEY, std::size_t> m_index;
  bool m_has_report = false;
};

// The setting that makes the reports which are missing.
[[noreturn]] void fail_without(BY by) {
  throw UNREADABLE(std::string("there is no report ") +
                   (is_of_bins(by)
                        ? "of bins and tags: profile with KORVANE_MEM_PROFILE_BIN_TAG_PLOT=1"
                        : "per line: profile with KORVANE_MEM_PROFILE_PER_FILELINE=1"));
}

}  // namespace

bool is_known_file(std::string_view file) {
  return !file.empty() && file != "Unknown" && file != "??";
}

ROW_KEY row_key_of(const PLACE& place, BY by) {
  if (place.is_catch_all) return {other_name, {}, {}, 0};
  if (by == BY::MODULE) return {place.module, {}, {}, 0};
  if (by == BY::LINE_OF_FUNCTION || !is_known_file(place.file))
    return {place.module, place.file, by == BY::FILE ? std::string_view() : place.function,
            by == BY::LINE || by == BY::LINE_OF_FUNCTION ? place.line : 0};
  if (by == BY::FUNCTION) return {{}, place.file, place.function, 0};
  return {{}, place.file, {}, by == BY::LINE ? place.line : 0};
}

bool GROUP::is_of_several(std::string_view SITE::*text) const {
  return std::any_of(sites.begin(), sites.end(),
                     [&](const SITE* site) { return site->*text != sites.front()->*text; });
}

std::vector<const PROCESS*> all_processes(const RUN& run) {
  std::vector<const PROCESS*> processes;
  for (const PROCESS& process : run.processes) processes.push_back(&process);
  return processes;
}

bool tells(const PROCESS& process, BY by) {
  return named_rows(process, by) || (!is_of_bins(by) && process.any_sites() != nullptr);
}

GROUPS group(const std::vector<const PROCESS*>& processes, BY by) {
  GROUPING grouping(by);
  for (const PROCESS* const process : processes) {
    const auto& named = named_rows(*process, by);
    const TABLE<SITE>* const sites = is_of_bins(by) ? nullptr : process->any_sites();
    if (named) grouping.add_named(*named);
    if (named && sites != nullptr) grouping.add_sites_to_named(*sites);
    if (!named && sites != nullptr) grouping.add_sites(*sites);
  }
  if (grouping.is_empty()) fail_without(by);
  return std::move(grouping).finished();
}

void sort_by(std::vector<GROUP>& rows, FIGURE figure) {
  const auto texts = [](const GROUP& row) {
    return std::tie(row.name, row.file, row.line, row.function, row.module);
  };
  std::sort(rows.begin(), rows.end(), [&](const GROUP& a, const GROUP& b) {
    if (a.figures[figure] != b.figures[figure]) return a.figures[figure] > b.figures[figure];
    if (a.figures.comes_before(b.figures)) return true;
    if (b.figures.comes_before(a.figures)) return false;
    return texts(a) < texts(b);
  });
}

}  // namespace reports
