// The list of the tracker's parts.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/support/temporary_directory.h"

namespace {

// What stands between the two texts, wherever they do in one line.
std::vector<std::string> names_between(const std::string& text, const std::string& before,
                                       const std::string& after) {
  std::vector<std::string> found;
  for (std::size_t at = text.find(before); at != text.npos; at = text.find(before, at)) {
    at += before.size();
    const std::size_t end = text.find(after, at);
    if (end < text.find('\n', at)) found.push_back(text.substr(at, end - at));
  }
  std::sort(found.begin(), found.end());
  return found;
}

// One that is declared and not listed would be neither created, emptied, freed nor abandoned.
TEST(TheParts, AreAllInTheListOnce) {
  std::string headers;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(SOURCES "/mem"))
    if (entry.path().extension() == ".h") headers += content_of(entry.path());
  const std::vector<std::string> declared = names_between(headers, "extern const MEM_PART ", ";");
  EXPECT_GT(declared.size(), 15U);
  EXPECT_EQ(names_between(content_of(SOURCES "/mem/tracker/parts.cpp"), "&", ","), declared);
}

}  // namespace
