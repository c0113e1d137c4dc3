// The line that says how long a report took.
#pragma once

#include <ctime>

class MEM_REPORT_TEXT;

/// Processor time from its construction on.
class MEM_DUMP_TIMING {
 public:
  MEM_DUMP_TIMING() : m_start(std::clock()) {}

  /// Hands over what has been written, then adds the ticks spent and their seconds, or that the
  /// processor clock was unavailable.
  void write(MEM_REPORT_TEXT& out) const;

 private:
  std::clock_t m_start;
};
