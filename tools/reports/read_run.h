// Reading a run, whatever of it one points at.
#pragma once

#include <string>

#include "tools/reports/line_reader.h"
#include "tools/reports/run.h"

namespace reports {

enum class DAMAGED {
  REFUSED,  ///< the first damaged report ends the reading
  KEPT,     ///< of each, what stands before the damage is taken, and a note says so
};

/// Reads a directory with a folder for each process, one process's folder, a snapshot, or a single
/// report file. Throws UNREADABLE.
RUN read_run(const std::string& path, DAMAGED damaged = DAMAGED::REFUSED);

}  // namespace reports
