#include "tools/command/suppressions.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "tools/reports/cells.h"

namespace command {

namespace {

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  const std::size_t begin = std::min(text.find_first_not_of(blanks), text.size());
  return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

}  // namespace

bool pattern_matches(std::string_view pattern, std::string_view text) {
  if (text.empty()) return false;
  bool is_anchored = pattern.starts_with('^');
  if (is_anchored) pattern.remove_prefix(1);
  bool may_skip = false;
  while (!pattern.empty()) {
    if (pattern.starts_with('$')) return text.empty() || may_skip;
    if (pattern.starts_with('*')) {
      pattern.remove_prefix(1);
      may_skip = true;
      is_anchored = false;
      continue;
    }
    const std::string_view part = pattern.substr(0, pattern.find_first_of("*$"));
    const std::size_t found = text.find(part);  // the first one counts, also in front of a $
    if (found == std::string_view::npos || (is_anchored && found != 0)) return false;
    text.remove_prefix(found + part.size());
    pattern.remove_prefix(part.size());
    is_anchored = may_skip = false;
  }
  return true;
}

void SUPPRESSIONS::read(const std::string& path) {
  errno = 0;
  std::ifstream in(path);
  if (!in) throw reports::UNREADABLE(fmt::format("{}: {}", path, std::strerror(errno)));
  std::string line;
  for (std::size_t number = 1; std::getline(in, line); ++number) {
    constexpr std::string_view kind = "leak:";
    const std::string_view text = trimmed(line);
    if (text.empty() || text.starts_with('#')) continue;
    if (!text.starts_with(kind) || text.size() == kind.size())
      throw reports::UNREADABLE(fmt::format("{}:{}: {} is no suppression, as leak:PATTERN is", path,
                                            number, reports::quoted(text)));
    m_rows.push_back({std::string(text.substr(kind.size())), 0, 0});
  }
}

SUPPRESSIONS::ROW* SUPPRESSIONS::match(const std::vector<std::string_view>& texts) {
  for (ROW& row : m_rows)
    for (const std::string_view text : texts)
      if (!text.empty() && pattern_matches(row.pattern, text)) return &row;
  return nullptr;
}

}  // namespace command
