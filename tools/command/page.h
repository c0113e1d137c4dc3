// A run, or two, as a page that a browser opens from disk. web/ has what the page does.
#pragma once

#include <string>

#include "tools/reports/run.h"

namespace command {

/// One file that needs no other; an empty name, or "-", is standard output. Throws
/// std::runtime_error.
void write_page(const reports::RUN& run, const std::string& file_name);
/// What changed between the two.
void write_differences_page(const reports::RUN& before, const reports::RUN& after,
                            const std::string& file_name);

}  // namespace command
