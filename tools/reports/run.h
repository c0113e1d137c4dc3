// What the reports of a run say, whatever files they stand in.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "tools/reports/call_paths.h"
#include "tools/reports/figures.h"
#include "tools/reports/site.h"

namespace reports {

/// Texts that many rows share, kept once. What keep() gives stays good while the object lives,
/// moved or not.
class TEXTS {
 public:
  std::string_view keep(std::string_view text) { return *m_texts.emplace(text).first; }

 private:
  std::unordered_set<std::string> m_texts;
};

/// A module, profile bin or tag.
struct NAMED_ROW {
  std::string name;
  FIGURES figures;
};

/// Rows and which of their figures there are.
template <class ROW>
struct TABLE {
  std::vector<ROW> rows;
  KNOWN_FIGURES known;
};

/// Samples of several series.
struct TIMELINE {
  /// Samples that follow each other under one label.
  struct PHASE {
    std::string label;
    std::size_t first;
    std::size_t count;
  };
  struct SERIES {
    std::string name;
    std::vector<std::int64_t> values;  ///< one for each sample
  };
  std::size_t samples = 0;
  std::vector<PHASE> phases;
  std::vector<SERIES> series;
  bool is_summary = false;  ///< the largest series alone, the others as "Misc"

  /// The sum of all series, for each sample.
  std::vector<std::int64_t> totals() const;
};

/// The process's own figures over time; NaN for one that could not be read.
struct AUXILIARY {
  struct SERIES {
    std::string name;
    std::vector<double> values;
  };
  std::vector<SERIES> series;
};

/// What the run file says.
struct RUN_FACTS {
  struct SETTING {
    std::string name, source, value;
  };
  struct MODULE {
    std::uint64_t address = 0;
    std::uint64_t size = 0;
    std::string build_id;  ///< empty when it has none
    std::string lines;     ///< whether its lines can be told: yes, no, unknown
    std::string path;
  };
  std::map<std::string, std::string, std::less<>> values;  ///< by key, those that come once
  std::vector<std::string> arguments;
  std::vector<SETTING> settings;
  std::vector<MODULE> modules;

  /// Empty when there is no such key.
  std::string value(std::string_view key) const;
};

/// Where a module that was charged lay; at 0 for an executable.
struct BASE_ADDRESS {
  std::uint64_t address;
  std::string module;
  std::string path;
};

/// What the two-line summary of leaks says of a process.
struct LEAK_SUMMARY {
  std::string name;
  std::int64_t leaked_bytes;
  std::int64_t peak_bytes;
};

struct SNAPSHOT {
  std::string name;
  std::optional<RUN_FACTS> facts;
};

/// One set of reports. What no file tells is missing.
struct PROCESS {
  std::string name;    ///< for people
  std::string folder;  ///< where its reports are
  std::string tag;     ///< the host's, in the names of the files
  bool is_snapshot = false;
  std::optional<RUN_FACTS> facts;
  std::optional<TABLE<SITE>> sites;
  std::optional<std::int64_t> peak_sample;  ///< index in the timelines of the peak shown
  std::optional<TABLE<NAMED_ROW>> modules;
  std::optional<TABLE<NAMED_ROW>> bins;
  std::optional<TABLE<NAMED_ROW>> tags;
  std::vector<BASE_ADDRESS> base_addresses;
  std::optional<TABLE<SITE>> leaks;  ///< from the leak report: what is live, without addresses
  std::vector<LEAK_SUMMARY> leak_summaries;
  std::optional<TIMELINE> module_bytes;
  std::optional<TIMELINE> module_blocks;  ///< allocated by then
  std::optional<TIMELINE> tag_bytes;
  std::optional<AUXILIARY> auxiliary;
  std::optional<CALL_PATHS> call_paths;
  std::vector<SNAPSHOT> snapshots;  ///< beside the reports, by number

  /// The sites, of the leak report where there is no other; null without either.
  const TABLE<SITE>* any_sites() const;
  /// The most that the heap is known to have held: at the recorded peak, in a sample or now.
  std::int64_t highest_bytes() const;
  /// Where a module lay; null when no report tells.
  const BASE_ADDRESS* base_of_module(std::string_view module) const;
  /// The file of a module; empty when no report tells.
  std::string_view path_of_module(std::string_view module) const;
};

struct RUN {
  std::string path;
  std::vector<PROCESS> processes;
  std::vector<std::string> notes;  ///< sentences on what was left out, and why
  TEXTS texts;
};

}  // namespace reports
