#include "mem/report/dump_timing.h"

#include "mem/base/host_thread.h"
#include "mem/report/report_text.h"

void MEM_DUMP_TIMING::write(MEM_REPORT_TEXT& out) const {
  out.flush();
  if (m_start == static_cast<std::clock_t>(-1)) {
    out << "Error timing this dump.\n";
    return;
  }
  const std::clock_t ticks = std::clock() - m_start;
  const MEM_FLOATING_POINT_KEPT host_floating_point;
  out << "Time spent dumping:\t" << ticks << " clicks.\t"
      << static_cast<double>(static_cast<float>(ticks) / 1e6F) << " seconds.\n";
}
