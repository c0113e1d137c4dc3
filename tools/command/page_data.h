// What the page is given: columns of numbers, each text once. web/model reads it.
#pragma once

#include "tools/command/run_json.h"

namespace command {

JSON page_data_of(const reports::RUN& run);
/// Rows that are the same in both runs, in pairs.
JSON page_data_of(const reports::RUN& before, const reports::RUN& after);

}  // namespace command
