#include "mem/report/report_figures.h"

#include <utility>

#include "mem/state/granularity.h"
#include "mem/state/tracker_visit.h"

namespace {

bool has(MEM_TRACKING_GRANULARITY granularity, MEM_TRACKING_GRANULARITY bit) {
  return (granularity & bit) != MEM_TRACK_NONE;
}

// What `copy` gives inside the tracker's lock; an empty one when the records are gone.
template <class FIGURES, class COPY>
FIGURES& copied(std::optional<FIGURES>& figures, COPY copy) {
  if (figures) return *figures;
  const MEM_TRACKER_VISIT visit;
  return figures.emplace(visit ? copy() : FIGURES());
}

}  // namespace

MEM_REPORTS_WANTED::MEM_REPORTS_WANTED(MEM_TRACKING_GRANULARITY tracked, bool vx_mode)
    : granularity(tracked),
      sites(mem_tracking_fileline_env_set),
      call_paths(mem_tracking_call_paths_env_set || has(tracked, MEM_TRACK_CALL_PATHS)),
      auxiliary(mem_tracking_auxiliary_timeline_env_set ||
                has(tracked, MEM_TRACK_AUXILIARY_TIMELINE)),
      modules(mem_tracking_library_env_set || has(tracked, MEM_TRACK_PER_LIBRARY)),
      bins(mem_tracking_per_bin_detailed_env_set || has(tracked, MEM_TRACK_PER_BIN_DETAILED)),
      leaks(has(tracked, MEM_TRACK_LEAKS)),
      fast_leaks(!leaks && has(tracked, MEM_TRACK_LEAKS_FAST)),
      in_vx_mode(vx_mode) {}

MEM_SITE_SNAPSHOT& MEM_REPORT_FIGURES::sites() { return m_sites ? *m_sites : m_sites.emplace(); }

const MEM_SITE_SNAPSHOT& MEM_REPORT_FIGURES::sites_by_peak() {
  MEM_SITE_SNAPSHOT& copy = sites();
  if (!std::exchange(m_sites_are_sorted, true)) copy.sort_by_peak();
  return copy;
}

MEM_CALL_PATH_FIGURES& MEM_REPORT_FIGURES::call_paths() {
  return m_call_paths ? *m_call_paths : m_call_paths.emplace(MEM_CALL_PATH_FIGURES::now());
}

MEM_MODULE_TIMELINE::SAMPLES& MEM_REPORT_FIGURES::modules() {
  return copied(m_modules, [] { return mem_module_timeline->samples(); });
}

MEM_PB_TAG_SNAPSHOT::TABLE& MEM_REPORT_FIGURES::tag_samples() {
  return copied(m_tag_samples, [] { return mem_pbin_tag_snapshots->table(); });
}

mem_auxiliary_timeline_file_t::SAMPLES& MEM_REPORT_FIGURES::auxiliary() {
  return copied(m_auxiliary, [] { return mem_auxiliary_timeline_file->samples(); });
}

MEM_BIN_FIGURES& MEM_REPORT_FIGURES::bins() {
  return m_bins ? *m_bins : m_bins.emplace(MEM_BIN_FIGURES::of_bins());
}

MEM_BIN_FIGURES& MEM_REPORT_FIGURES::tags() {
  return m_tags ? *m_tags : m_tags.emplace(MEM_BIN_FIGURES::of_tags());
}

MEM_BASE_STATS& MEM_REPORT_FIGURES::global_current() {
  return m_global_current ? *m_global_current : m_global_current.emplace(mem_get_global_current());
}

MEM_BASE_STATS& MEM_REPORT_FIGURES::global_peak() {
  return m_global_peak ? *m_global_peak : m_global_peak.emplace(mem_get_global_peak());
}

void MEM_REPORT_FIGURES::copy_all_and_now(const MEM_AUXILIARY_SAMPLE& now) {
  sites();
  global_current();
  global_peak();
  if (m_wanted.call_paths) call_paths();
  if (m_wanted.modules) {
    MEM_MODULE_TIMELINE::SAMPLES& samples = modules();
    const MEM_TRACKER_VISIT visit;
    MEM_MODULE_TIMELINE::add_now(samples);
  }
  if (m_wanted.bins) {
    bins();
    tags();
    MEM_PB_TAG_SNAPSHOT::TABLE& samples = tag_samples();
    const MEM_TRACKER_VISIT visit;
    mem_pbin_tag_snapshots->add_now(samples);
  }
  if (m_wanted.auxiliary) auxiliary().push_back(now);
}

void MEM_REPORT_FIGURES::forget() {
  m_sites.reset();
  m_sites_are_sorted = false;
  m_call_paths.reset();
  m_modules.reset();
  m_tag_samples.reset();
  m_bins.reset();
  m_tags.reset();
  m_auxiliary.reset();
}
