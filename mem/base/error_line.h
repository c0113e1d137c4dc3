// What a user is told on standard error, put together from parts.
#pragma once

/// Formats a line and says it as mem_say_on_standard_error does. One line whatever its texts hold:
/// of control characters each becomes '?'. Cut at 4,600 characters; takes nothing from the heap.
[[gnu::format(printf, 1, 2)]] void mem_say_error_line(char const* format, ...);
