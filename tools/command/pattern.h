// Regular expressions of the command line.
#pragma once

#include <re2/re2.h>

#include <string>
#include <string_view>

namespace command {

/// RE2's syntax. Throws std::runtime_error for what is no regular expression, with the option's
/// name.
class PATTERN {
 public:
  PATTERN(std::string_view option, const std::string& text);

  bool is_empty() const { return m_pattern.pattern().empty(); }
  bool is_found_in(std::string_view text) const;
  /// The whole text, not a part of it.
  bool is_all_of(std::string_view text) const;
  bool is_found_in_place(std::string_view module, std::string_view function, std::string_view file,
                         std::uint32_t line) const;

 private:
  RE2 m_pattern;
};

}  // namespace command
