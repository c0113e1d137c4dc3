// The single reports: each is written from figures that were copied before, with no lock held.
#pragma once

#include <cstdint>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/paths/call_paths.h"
#include "mem/records/site_snapshot.h"
#include "mem/report/dump_timing.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timeline.h"

class MEM_TEXT_SINK;

/// The figures of all bins or tags, by id; bytes. A row may hold figures of two moments, unless
/// nobody counts meanwhile.
struct MEM_BIN_FIGURES {
  struct ROW {
    std::int64_t max, peak, cumulative, current, flushed_peak;
  };
  std::vector<ROW, MEM_BOOKKEEPING_ALLOCATOR<ROW>> rows;

  static MEM_BIN_FIGURES of_bins();
  static MEM_BIN_FIGURES of_tags();
};

// Of sites, by peak.

void mem_write_fileline(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites,
                        const MEM_DUMP_TIMING& timing = {});
/// `samples` are those of the modules' bytes; null without "Max bytes".
void mem_write_subsystem(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites,
                         const MEM_MODULE_TIMELINE::SERIES_MAP* samples,
                         const MEM_DUMP_TIMING& timing = {});
/// Load address, name and path of every module that was charged, by name.
void mem_write_base_addresses(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites);
/// Every address that the frame filters rejected, with what it was taken for.
void mem_write_filtered_addresses(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites);
/// Every site that still has live blocks, and their sum.
void mem_write_leaks(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites);
/// Every call path of the sites, as a tree of callers.
void mem_write_call_paths(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites,
                          const MEM_CALL_PATH_FIGURES& paths);

// Of samples; a pair is a summary and a detailed table.

void mem_write_module_timeline(MEM_TEXT_SINK& summary, MEM_TEXT_SINK& detailed,
                               const MEM_MODULE_TIMELINE::SERIES_MAP& series,
                               const MEM_MODULE_TIMELINE::LABELS& labels);
void mem_write_tag_timeline(MEM_TEXT_SINK& summary, MEM_TEXT_SINK& detailed,
                            const MEM_PB_TAG_SNAPSHOT::TABLE& table);
void mem_write_auxiliary_timeline(MEM_TEXT_SINK& sink,
                                  const mem_auxiliary_timeline_file_t::SAMPLES& samples);

// Of bins and of tags, in bytes or in units of 2^20 bytes.

void mem_write_bin_stats(MEM_TEXT_SINK& sink, const MEM_BIN_FIGURES& bins);
void mem_write_tag_stats(MEM_TEXT_SINK& sink, const MEM_BIN_FIGURES& tags);
void mem_write_bin_stats_in_mib(MEM_TEXT_SINK& sink, const MEM_BIN_FIGURES& bins);
void mem_write_tag_stats_in_mib(MEM_TEXT_SINK& sink, const MEM_BIN_FIGURES& tags);

/// What the reports are of: the process, how it was profiled, what it has loaded. Not inside the
/// tracker's lock. `ended`: how the run did; null where it has not.
void mem_write_run_file(MEM_TEXT_SINK& sink, MEM_TRACKING_GRANULARITY granularity,
                        char const* ended);
/// How a run ends that ends now.
char const* mem_how_the_run_ends();
