// The order in which the library's locks are taken, and the check of it.
#pragma once

/// A thread may take a lock only while every lock it holds stands before it in this list. The order
/// is that of docs/architecture.md.
enum class MEM_LOCK_ORDER : int {
  HOOK_SWITCHES,    ///< switching the debugging aids' hooks
  GRANULARITY,      ///< mem_granularity_lock
  TRACKER,          ///< mem_track_and_clear_exclusive_locker, as mouse or cat
  TIMELINE_READER,  ///< mem_module_timeline_lock
  MODULE_TIMELINE,  ///< the module timeline's mutex
  TAG_SNAPSHOTS,    ///< the tag snapshots' mutex
  SITES,            ///< mem_trace_lock
  MODULES,          ///< mem_module_tracker_lock
  CALL_PATHS,       ///< of the call paths
  TOTALS,           ///< what has been claimed of a total
  BIN_LABELS,       ///< the tags of open bins
  LABELS,           ///< the timeline labels
  AUXILIARY,        ///< the process's own figures
  BIN_COUNTERS,     ///< the writer's side of MEM_PBIN_TRACKER_MAP
  BIN_GROWTH,       ///< growing one
  BIN_REGISTRY,     ///< creating and ending the registries of bins
  TEXTS,            ///< kept texts
  RESERVE,          ///< the memory kept back for the reports
  CHILD_MEMORY,     ///< the memory of a child that is tracked
};

/// Compiled in by TUK_MEM_CHECK_LOCK_ORDER (debug and sanitizer builds): a lock taken out of order
/// ends the process with both names.
#ifdef TUK_MEM_CHECK_LOCK_ORDER
void mem_note_lock_taken(MEM_LOCK_ORDER lock);
void mem_note_lock_released(MEM_LOCK_ORDER lock);
/// In a child made by fork: this thread holds nothing.
void mem_forget_locks_held();
#else
inline void mem_note_lock_taken(MEM_LOCK_ORDER) {}
inline void mem_note_lock_released(MEM_LOCK_ORDER) {}
inline void mem_forget_locks_held() {}
#endif
