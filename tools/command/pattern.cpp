#include "tools/command/pattern.h"

#include <fmt/core.h>

#include <stdexcept>

namespace command {

PATTERN::PATTERN(std::string_view option, const std::string& text) : m_pattern(text, RE2::Quiet) {
  if (!m_pattern.ok())
    throw std::runtime_error(
        fmt::format("{}: \"{}\" is no regular expression: {}", option, text, m_pattern.error()));
}

bool PATTERN::is_found_in(std::string_view text) const {
  return RE2::PartialMatch(re2::StringPiece(text.data(), text.size()), m_pattern);
}

bool PATTERN::is_all_of(std::string_view text) const {
  return RE2::FullMatch(re2::StringPiece(text.data(), text.size()), m_pattern);
}

bool PATTERN::is_found_in_place(std::string_view module, std::string_view function,
                                std::string_view file, std::uint32_t line) const {
  return is_found_in(module) || is_found_in(function) ||
         is_found_in(line == 0 ? std::string(file) : fmt::format("{}:{}", file, line));
}

}  // namespace command
