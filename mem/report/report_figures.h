// What a set of reports is written from.
#pragma once

#include <optional>

#include "mem/report/reports.h"

/// Which reports a set has: those asked for by name, and those of what is tracked.
struct MEM_REPORTS_WANTED {
  MEM_TRACKING_GRANULARITY granularity;
  bool sites;
  bool call_paths;
  bool auxiliary;
  bool modules;
  bool bins;
  bool leaks;
  bool fast_leaks;
  bool in_vx_mode;  ///< which names the leak reports

  /// As of now, where so much is tracked.
  MEM_REPORTS_WANTED(MEM_TRACKING_GRANULARITY tracked, bool vx_mode);

  bool any_timeline() const { return auxiliary || modules || bins; }
  bool any() const {
    return granularity != MEM_TRACK_NONE || sites || call_paths || any_timeline();
  }
};

/// The figures, each copied when it is first asked for, on a thread that is the cat at rest or on
/// its way to writing. Asking may throw std::bad_alloc. What was copied in one stay as the cat is
/// of one moment.
class MEM_REPORT_FIGURES {
 public:
  explicit MEM_REPORT_FIGURES(const MEM_REPORTS_WANTED& wanted) : m_wanted(wanted) {}

  const MEM_REPORTS_WANTED& wanted() const { return m_wanted; }

  MEM_SITE_SNAPSHOT& sites();
  /// The same, sorted at the first time.
  const MEM_SITE_SNAPSHOT& sites_by_peak();
  MEM_CALL_PATH_FIGURES& call_paths();
  MEM_MODULE_TIMELINE::SAMPLES& modules();
  MEM_PB_TAG_SNAPSHOT::TABLE& tag_samples();
  MEM_BIN_FIGURES& bins();
  MEM_BIN_FIGURES& tags();
  mem_auxiliary_timeline_file_t::SAMPLES& auxiliary();
  /// Bytes not freed, and their peak.
  MEM_BASE_STATS& global_current();
  MEM_BASE_STATS& global_peak();

  /// Copies all that is wanted, with one more sample in each timeline, of this moment and, for the
  /// process's own figures, of `now`. As the cat at rest: nothing changes meanwhile.
  void copy_all_and_now(const MEM_AUXILIARY_SAMPLE& now);

  /// Gives the memory back: what is asked for again is copied again.
  void forget();

 private:
  MEM_REPORTS_WANTED m_wanted;
  std::optional<MEM_SITE_SNAPSHOT> m_sites;
  bool m_sites_are_sorted = false;
  std::optional<MEM_CALL_PATH_FIGURES> m_call_paths;
  std::optional<MEM_MODULE_TIMELINE::SAMPLES> m_modules;
  std::optional<MEM_PB_TAG_SNAPSHOT::TABLE> m_tag_samples;
  std::optional<MEM_BIN_FIGURES> m_bins;
  std::optional<MEM_BIN_FIGURES> m_tags;
  std::optional<mem_auxiliary_timeline_file_t::SAMPLES> m_auxiliary;
  std::optional<MEM_BASE_STATS> m_global_current;
  std::optional<MEM_BASE_STATS> m_global_peak;
};
