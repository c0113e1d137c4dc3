// The digits of stl_output's numbers, without sign, prefix and padding.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Room for the text of one conversion; the longest double takes 328 characters.
using FORMAT_BUFFER = std::array<char, 512>;

/// `value` to the base 8, 10 or 16 at the end of `buffer`; empty for 0. `digits` are the sixteen
/// to take.
std::string_view format_integer(std::uint64_t value, unsigned base, const char* digits,
                                FORMAT_BUFFER& buffer);

/// `value` in fixed-point form with `precision` (at least 0) decimals, 17 at most, after a "-" when
/// negative.
std::string_view format_double(double value, int precision, FORMAT_BUFFER& buffer);

using FORMAT_DOUBLE_HOOK = void (*)(char* text);

enum FORMAT_DOUBLE_HOOK_INDEX : std::uint8_t {
  FORMAT_HOOK_CROP_ZEROS = 1,          ///< %g without #
  FORMAT_HOOK_FORCE_DECIMAL_POINT = 3  ///< precision 0 with #
};

/// What is done to the text of a double. Every entry does nothing: readers of the numbers count on
/// zeros that stay, and the decimal point is there anyway.
extern const std::array<FORMAT_DOUBLE_HOOK, 6> _cfltcvt_tab;
