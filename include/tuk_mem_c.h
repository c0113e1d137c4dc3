/* What a host written in C tells and asks the memory library: phases, labels, regions, untracked
   threads, switches, dumps. For C99 and later, and C++.

   Each function does what the one of tuk_mem.h does whose name it bears behind "tuk_", with the
   same threads and promises; those that may be called from a signal handler are marked [signal].
   Where that one takes a text, a null pointer stands for an empty one. No exception leaves: a
   function that the C++ one would leave by an exception, for want of memory or thrown by a handler
   of the host's, answers false and has done nothing. */
#ifndef TUK_MEM_C_H
#define TUK_MEM_C_H

#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

/* The version of this header, told as tuk_mem.h does: a host may include both. */
#define TUK_MEM_VERSION_MAJOR 1
#define TUK_MEM_VERSION_MINOR 0
#define TUK_MEM_VERSION_PATCH 0
#define TUK_MEM_VERSION_STRING           \
  TUK_MEM_TEXT_OF(TUK_MEM_VERSION_MAJOR) \
  "." TUK_MEM_TEXT_OF(TUK_MEM_VERSION_MINOR) "." TUK_MEM_TEXT_OF(TUK_MEM_VERSION_PATCH)
#define TUK_MEM_TEXT_OF(number) TUK_MEM_TEXT_OF_TOKEN(number)
#define TUK_MEM_TEXT_OF_TOKEN(token) #token

#define TUK_MEM_C_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* ---- What is tracked: a bit set. ---- */

enum tuk_mem_tracking_granularity {
  TUK_MEM_TRACK_NONE = 0,
  TUK_MEM_TRACK_PER_BIN = 1,             /* global statistics and profile bins */
  TUK_MEM_TRACK_PER_BIN_DETAILED = 2,    /* every block charged to its bin and tag */
  TUK_MEM_TRACK_PER_LIBRARY = 4,         /* figures per module */
  TUK_MEM_TRACK_PER_FILELINE = 8,        /* figures per allocation site */
  TUK_MEM_TRACK_LEAKS = 16,              /* full leak report */
  TUK_MEM_TRACK_LEAKS_FAST = 32,         /* two-line leak summary */
  TUK_MEM_TRACK_AUXILIARY_TIMELINE = 64, /* sampled process figures */
  TUK_MEM_TRACK_CALL_PATHS = 128,        /* figures per stack that leads to a site */
  TUK_MEM_TRACK_ALL = 95 /* everything but TUK_MEM_TRACK_LEAKS_FAST and TUK_MEM_TRACK_CALL_PATHS */
};

/* Whether the process's allocator has the hook interface: without it no heap block is seen. */
TUK_MEM_C_API bool tuk_mem_allocator_is_hooked(void);
/* Adds bits to what is tracked. False where the allocator's hooks could not be installed by an
   exception of the host's. */
TUK_MEM_C_API bool tuk_mem_enable_tracking(uint32_t bits);
/* Removes bits. */
TUK_MEM_C_API bool tuk_mem_disable_tracking(uint32_t bits);
/* Whether every bit asked for is on. */
TUK_MEM_C_API bool tuk_mem_tracking_is_enabled(uint32_t bits);
/* Starts the accounting afresh. [signal] */
TUK_MEM_C_API bool tuk_mem_reset_tracking_entries(void);
/* The tag in the names of the report files; null, or a call before initialisation, is an internal
   error. */
TUK_MEM_C_API bool tuk_mem_set_tbb_exe_string(const char* exe_string);

/* ---- Phases and labels. ---- */

/* How the process's bytes went while a bin was open. All 0 without TUK_MEM_TRACK_PER_BIN. */
struct tuk_mem_phase_figures {
  uint64_t start_bytes;
  uint64_t end_bytes;
  uint64_t peak_bytes;
};

/* Opens the bin `name` under `tag`, on the host's main thread. */
TUK_MEM_C_API bool tuk_mem_open_profile_bin(const char* name, const char* tag);
/* Closes the bin opened last; `tag` is the one it was opened with, or it is an internal error.
   Stores what it measured where `figures` is not null. */
TUK_MEM_C_API bool tuk_mem_close_profile_bin(const char* tag,
                                             struct tuk_mem_phase_figures* figures);
/* The label of the module timeline's rows from now on. */
TUK_MEM_C_API bool tuk_mem_set_timeline_label(const char* label);
/* Keeps the tags of bins from setting labels, for good. */
TUK_MEM_C_API bool tuk_mem_disable_profile_bin_tag_timeline_labels(void);

/* ---- Statistics and local regions. ---- */

/* Bytes and blocks of live tracked allocations. */
struct tuk_mem_base_stats {
  int64_t bytes;
  int64_t count;
};

TUK_MEM_C_API struct tuk_mem_base_stats tuk_mem_get_global_current(void);
TUK_MEM_C_API struct tuk_mem_base_stats tuk_mem_get_global_peak(void);
/* The largest values since the innermost local region was entered. */
TUK_MEM_C_API struct tuk_mem_base_stats tuk_mem_get_local_peak(void);
/* Opens a local region; keep the result for its end. Regions nest. */
TUK_MEM_C_API struct tuk_mem_base_stats tuk_mem_enter_local_region(void);
/* Closes it and returns its peak. */
TUK_MEM_C_API struct tuk_mem_base_stats tuk_mem_exit_local_region(struct tuk_mem_base_stats saved);

/* The next five are those of tuk_mem.h. */
#ifndef TUK_MEM_H

/* ---- The calling thread, in or out of all figures. ---- */

/* Leaves it out. Returns whether it was out already; unblock only where this answered false. */
TUK_MEM_C_API bool mem_block_thread_tracking(void);
/* Takes it in again. Returns whether it was out. */
TUK_MEM_C_API bool mem_unblock_thread_tracking(void);
/* Whether it is out. */
TUK_MEM_C_API bool mem_am_blocked(void);

/* ---- Memory mappings, accounted like blocks. ---- */

TUK_MEM_C_API void mem_notify_memory_mapping_added(const void* address, unsigned long size);
TUK_MEM_C_API void mem_notify_memory_mapping_removed(const void* address, unsigned long size);

#endif

/* ---- Peaks, samples and reports. ---- */

/* Hands the peak recorded so far on to the reports, and looks for the next one. [signal] */
TUK_MEM_C_API bool tuk_mem_tbb_tracking_flush_peak(void);
/* Takes one sample of every timeline; internal error before initialisation. [signal] */
TUK_MEM_C_API bool tuk_mem_user_snapshot_tracking_data(void);
/* Writes the whole set of reports into a directory "snapshot-0001" and so on. [signal] */
TUK_MEM_C_API bool tuk_mem_write_report_snapshot(void);

/* Write a report to an open file, which is the host's: neither flushed nor closed. False as the
   function of the same name, when the file didn't take all of it, and for a null file. */
TUK_MEM_C_API bool tuk_mem_dump_tbb_fileline_tracking(FILE* out);
TUK_MEM_C_API bool tuk_mem_dump_tbb_subsystem_tracking(FILE* out);
TUK_MEM_C_API bool tuk_mem_dump_tbb_profile_bin_stats_tracking(FILE* out);
TUK_MEM_C_API bool tuk_mem_dump_tbb_profile_bin_tag_stats_tracking(FILE* out);
TUK_MEM_C_API bool tuk_mem_dump_tbb_module_tracking(FILE* summary, FILE* detailed);
TUK_MEM_C_API bool tuk_mem_dump_tbb_profile_bin_tag_timeline_tracking(FILE* summary,
                                                                      FILE* detailed);

/* Ends tracking for good and writes every report asked for. */
TUK_MEM_C_API bool tuk_mem_shutdown_tbb_tracking(void);

#ifdef __cplusplus
}
#endif

#endif
