// The few lines that have to be seen, whatever the host does with its messages.
#pragma once

#include <string_view>

/// Writes a line to the descriptor of standard error, whole, past the host's streams. Nothing where
/// it is closed, has no reader any more or takes nothing for as long as it is waited for. Any
/// thread; nothing is taken from the heap.
void mem_say_on_standard_error(std::string_view line, int longest_wait_ms = 100);
