// The list of the tracker's parts.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string text_of(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

std::vector<std::string> matches_in(const std::string& text, const std::string& pattern) {
  const std::regex wanted(pattern);
  std::vector<std::string> found;
  for (std::sregex_iterator match(text.begin(), text.end(), wanted), end; match != end; ++match)
    found.push_back((*match)[1]);
  std::sort(found.begin(), found.end());
  return found;
}

// One that is declared and not listed would be neither created, emptied, freed nor abandoned.
TEST(TheParts, AreAllInTheListOnce) {
  std::string headers;
  for (const auto& entry : fs::recursive_directory_iterator(SOURCES "/mem"))
    if (entry.path().extension() == ".h") headers += text_of(entry.path());
  const std::vector<std::string> declared =
      matches_in(headers, "extern const MEM_PART (mem_[a-z_]*);");
  EXPECT_GT(declared.size(), 15U);
  EXPECT_EQ(matches_in(text_of(SOURCES "/mem/tracker/parts.cpp"), "&(mem_[a-z_]*_part),"),
            declared);
}

}  // namespace
