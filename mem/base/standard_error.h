// The few lines that have to be seen, whatever the host does with its messages.
#pragma once

#include <string_view>

/// Writes a line to the descriptor of standard error, whole, past the host's streams. Nothing where
/// it is closed, has no reader any more or takes nothing for a tenth of a second. Any thread.
void mem_say_on_standard_error(std::string_view line);
