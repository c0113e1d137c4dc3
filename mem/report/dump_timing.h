// The line that says how long a report took.
#pragma once

#include <ctime>
#include <iosfwd>

/// Processor time from its construction on.
class MEM_DUMP_TIMING {
 public:
  MEM_DUMP_TIMING() : m_start(std::clock()) {}

  /// Writes the ticks spent and their seconds, or that the processor clock was unavailable.
  void write(std::ostream& out) const;

 private:
  std::clock_t m_start;
};
