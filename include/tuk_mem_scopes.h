// What a host tells the memory library for as long as a scope lasts: guards over tuk_mem.h, for
// C++17 and later. None of them allocates in its destructor, throws from it, or is copied.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "tuk_mem.h"

/// How the process's bytes went during a phase. All 0 without MEM_TRACK_PER_BIN.
struct MEM_PHASE_FIGURES {
  std::uint64_t start_bytes = 0;
  std::uint64_t end_bytes = 0;
  std::uint64_t peak_bytes = 0;
};

/// A profile bin, open for a scope. On the host's main thread, as bins are; bins of scopes nest as
/// they must.
class MEM_PHASE {
 public:
  /// Opens the bin `name` under `tag`, or under the tag of the phase around it.
  explicit MEM_PHASE(std::string name, std::string tag = {})
      : m_name(std::move(name)), m_tag(std::move(tag)) {
    mem_open_profile_bin(m_name, m_tag);
  }
  MEM_PHASE(const MEM_PHASE&) = delete;
  MEM_PHASE& operator=(const MEM_PHASE&) = delete;
  ~MEM_PHASE() { close(); }

  const std::string& name() const noexcept { return m_name; }

  /// Closes the bin before the scope ends, the one opened last, and returns what it measured. Once
  /// it is closed, that again.
  MEM_PHASE_FIGURES close() {
    if (std::exchange(m_is_open, false))
      mem_close_profile_bin(m_tag, &m_figures.start_bytes, &m_figures.end_bytes,
                            &m_figures.peak_bytes);
    return m_figures;
  }

 private:
  std::string m_name;
  std::string m_tag;
  MEM_PHASE_FIGURES m_figures;
  bool m_is_open = true;
};

/// A local region, for a scope: what the process's live blocks come to at most meanwhile. Needs
/// MEM_TRACK_PER_BIN or fast leak tracking; 0 without. Regions nest; those of several threads share
/// one peak.
class MEM_LOCAL_REGION {
 public:
  MEM_LOCAL_REGION()
  noexcept : m_start(mem_get_global_current()), m_outer(mem_enter_local_region()) {}
  MEM_LOCAL_REGION(const MEM_LOCAL_REGION&) = delete;
  MEM_LOCAL_REGION& operator=(const MEM_LOCAL_REGION&) = delete;
  ~MEM_LOCAL_REGION() { mem_exit_local_region(m_outer); }

  /// The bytes that were live at the beginning.
  std::int64_t start_bytes() const noexcept { return m_start.bytes; }
  /// The most that was live until now.
  std::int64_t peak_bytes() const noexcept { return mem_get_local_peak().bytes; }
  /// The most that was live beyond what was at the beginning.
  std::int64_t peak_growth() const noexcept { return peak_bytes() - m_start.bytes; }
  /// What is live now beyond what was at the beginning.
  std::int64_t kept_growth() const noexcept { return mem_get_current_bytes() - m_start.bytes; }

 private:
  MEM_BASE_STATS m_start;
  MEM_BASE_STATS m_outer;
};

/// Keeps what this thread allocates and frees in a scope out of all figures.
class MEM_UNTRACKED_THREAD {
 public:
  MEM_UNTRACKED_THREAD() noexcept : m_was_untracked(mem_block_thread_tracking()) {}
  MEM_UNTRACKED_THREAD(const MEM_UNTRACKED_THREAD&) = delete;
  MEM_UNTRACKED_THREAD& operator=(const MEM_UNTRACKED_THREAD&) = delete;
  ~MEM_UNTRACKED_THREAD() {
    if (!m_was_untracked) mem_unblock_thread_tracking();
  }

 private:
  bool m_was_untracked;
};

/// The label of the module timeline's rows for a scope, and the one for what follows.
class MEM_TIMELINE_LABEL {
 public:
  explicit MEM_TIMELINE_LABEL(const std::string& label, std::string afterwards = "Other")
      : m_afterwards(std::move(afterwards)) {
    mem_set_timeline_label(label);
  }
  MEM_TIMELINE_LABEL(const MEM_TIMELINE_LABEL&) = delete;
  MEM_TIMELINE_LABEL& operator=(const MEM_TIMELINE_LABEL&) = delete;
  ~MEM_TIMELINE_LABEL() { mem_set_timeline_label(m_afterwards); }

 private:
  std::string m_afterwards;
};

/// The most that was live during a call beyond what was before it: what a test holds a function to.
/// As exact as MEM_LOCAL_REGION, whose conditions hold; blocks of other threads count too.
template <class FUNCTION>
std::int64_t mem_peak_growth_of(FUNCTION&& function) {
  const MEM_LOCAL_REGION region;
  std::forward<FUNCTION>(function)();
  return region.peak_growth();
}
