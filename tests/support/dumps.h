// Every report that goes to a stream, and a stream that holds up whoever writes to it.
#pragma once

#include <atomic>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>

#include "include/tuk_mem.h"

using DUMP = void (*)(std::ostream&);
inline constexpr DUMP dumps[] = {
    [](std::ostream& out) { mem_dump_tbb_fileline_tracking(out); },
    [](std::ostream& out) { mem_dump_tbb_subsystem_tracking(out); },
    [](std::ostream& out) { mem_dump_tbb_profile_bin_stats_tracking(out); },
    [](std::ostream& out) { mem_dump_tbb_profile_bin_tag_stats_tracking(out); },
    [](std::ostream& out) { mem_dump_tbb_module_tracking(out, out); },
    [](std::ostream& out) { mem_dump_tbb_profile_bin_tag_timeline_tracking(out, out); }};

inline void dump_all(std::ostream& out) {
  for (const DUMP dump : dumps) dump(out);
}

inline std::string text_of(DUMP dump) {
  std::ostringstream out;
  dump(out);
  return out.str();
}

/// Gets on only when another thread has done some work. That thread stays: so does the buffer.
class NEEDS_ANOTHER_THREAD : public std::streambuf {
 public:
  explicit NEEDS_ANOTHER_THREAD(void (*work)()) {
    std::thread([this, work] {
      for (;; m_asked = false, m_asked.notify_one()) {
        m_asked.wait(false);
        work();
      }
    }).detach();
  }

 private:
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(char const*, std::streamsize count) override {
    m_asked = true;
    m_asked.notify_one();
    m_asked.wait(true);
    return count;
  }
  std::atomic<bool> m_asked = false;
};
