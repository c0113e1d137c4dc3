// The JSON forms of runs and rows. docs/command.md describes them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tools/reports/row_groups.h"
#include "tools/reports/run.h"

namespace command {

/// Keys stay in the order in which they are added.
using JSON = nlohmann::ordered_json;

/// Everything that the reports say.
JSON json_of(const reports::RUN& run);
/// What its run file says.
JSON json_of_facts(const reports::RUN_FACTS& facts);
/// Its key, title and unit.
JSON json_of(const reports::FIGURE_COLUMN& column);
/// What the heap held in each phase, by all samples.
JSON json_of_phases(const reports::TIMELINE& timeline);
/// The first `shown` rows of a table.
JSON json_of(const std::string& process, const reports::GROUPS& groups, std::size_t shown);
/// A row's names and addresses, without figures.
JSON json_of_names(const reports::GROUP& row);
void add_figures(JSON& object, const reports::FIGURES& figures,
                 const reports::KNOWN_FIGURES& known);

/// As text with a line break at its end. What is no UTF-8 becomes U+FFFD.
std::string text_of(const JSON& json);

}  // namespace command
