// What a check found, and that in the form which build servers show.
#pragma once

#include <string>
#include <vector>

namespace command {

/// One limit, held against one figure.
struct CHECK_RESULT {
  std::string name;       ///< "leaked"
  std::string case_name;  ///< the same from one build to the next
  bool is_broken;
  std::string sentence;  ///< "2.1K leaked, 0 allowed"
  std::string rows;      ///< the table of those that break it; empty when it holds
};

/// A test suite with a case for each limit.
std::string junit_of(const std::string& run, const std::vector<CHECK_RESULT>& results);

}  // namespace command
