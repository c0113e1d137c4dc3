// Runs in pprof's format.
#pragma once

#include <iosfwd>

#include "tools/reports/call_stacks.h"
#include "tools/reports/run.h"

namespace command {

class RESOLVER;

/// A gzip'd profile: samples with bytes and blocks at the peak, live and ever allocated, of each
/// stack where there are call paths, else of each site. Throws UNREADABLE when no process has a
/// report of either.
void write_pprof(std::ostream& out, const reports::RUN& run, RESOLVER& resolver,
                 reports::FRAMES frames);

}  // namespace command
