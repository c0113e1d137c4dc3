// What a run tells at its end.
#pragma once

#include <string>

#include "tools/command/run/run_directory.h"

namespace command {

/// Writes it to standard error: the program's own output may be read by another program.
void show_summary(const RUN_OPTIONS& options, const RUN_FACTS& facts, const std::string& directory);

}  // namespace command
