// Runs in pprof's format.
#pragma once

#include <iosfwd>

#include "tools/reports/run.h"

namespace command {

/// A gzip'd profile: a sample for each site with its bytes and blocks at the peak, live and ever
/// allocated. Throws UNREADABLE when no process has a report per line.
void write_pprof(std::ostream& out, const reports::RUN& run);

}  // namespace command
