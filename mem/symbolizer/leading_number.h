// The line number in a location.
#pragma once

#include <algorithm>
#include <charconv>
#include <string_view>

/// Whatever follows the number, such as a discriminator, is left alone; "?" is no number, 0.
inline int mem_leading_number(std::string_view text) {
  int number = 0;
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}
