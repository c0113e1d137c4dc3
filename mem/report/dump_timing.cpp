#include "mem/report/dump_timing.h"

#include <ostream>

void MEM_DUMP_TIMING::write(std::ostream& out) const {
  if (m_start == static_cast<std::clock_t>(-1)) {
    out << "Error timing this dump." << std::endl;
    return;
  }
  const std::clock_t ticks = std::clock() - m_start;
  out << "Time spent dumping:\t" << ticks << " clicks.\t" << static_cast<float>(ticks) / 1e6F
      << " seconds." << std::endl;
}
