// Leaks that are known, in the format of the leak sanitizers' suppression files.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace command {

/// Whether `pattern` is found in `text`: a part of it, where '*' stands for anything, '^' at the
/// front for its beginning and '$' for its end. As the sanitizers do, each part is looked for once:
/// "a$" is not in "aba".
bool pattern_matches(std::string_view pattern, std::string_view text);

class SUPPRESSIONS {
 public:
  struct ROW {
    std::string pattern;
    std::int64_t bytes = 0;  ///< what it has suppressed
    std::int64_t blocks = 0;
  };

  /// Lines "leak:PATTERN"; empty ones and those that begin with '#' don't count. Throws
  /// reports::UNREADABLE, also where a line is of another kind.
  void read(const std::string& path);

  /// The first row of which one of the texts has the pattern; null without.
  ROW* match(const std::vector<std::string_view>& texts);
  const std::vector<ROW>& rows() const { return m_rows; }

 private:
  std::vector<ROW> m_rows;
};

}  // namespace command
