// Lists that the code walks, against the sources and documents that have to agree with them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "mem/host/settings.h"
#include "tests/support/temporary_directory.h"

namespace {

using testing::HasSubstr;
using NAMES = std::multiset<std::string>;

std::string source_file(const std::string& name) { return content_of(SOURCES "/" + name); }

// What the group of the pattern stands for, everywhere in a text.
NAMES names_in(const std::string& text, const std::string& pattern) {
  const std::regex regex(pattern);
  NAMES found;
  for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
    found.insert(match->str(1));
  return found;
}

std::string settings_line(const MEM_SETTINGS_ROW& row) {
  std::string names[3];
  for (const auto& [source, type, name] : row.settings)
    names[source].append(names[source].empty() ? " `" : ", `").append(name).append("`");
  const auto cell = [](const std::string& text) { return text.empty() ? text : " " + text; };
  return "|" + names[MEM_SETTING::ENVIRONMENT] + " |" + names[MEM_SETTING::SETTINGS_FILE] + " |" +
         cell(row.default_value) + " | " + row.effect + " |\n";
}

TEST(TheTable, IsTheSettingsPagesWhole) {
  std::string table = "| environment | setting | default | effect |\n|---|---|---|---|\n";
  for (const MEM_SETTINGS_ROW& row : mem_settings) table += settings_line(row);
  EXPECT_THAT(source_file("docs/settings.md") + "\n", HasSubstr("\n" + table + "\n"));
}

TEST(TheTable, KnowsEverySwitchThatIsWrittenAbout) {
  std::set<std::string> known, written;
  for (const MEM_SETTINGS_ROW& row : mem_settings)
    for (const MEM_SETTING& setting : row.settings) known.insert(setting.name);
  for (char const* file :
       {"include/tuk_mem.h", "README.md", "docs/profiling.md", "docs/settings.md",
        "docs/command.md", "docs/symbols.md", "docs/reports.md", "docs/toolbox.md",
        "docs/stress.md", "docs/benchmarks.md", "docs/call_paths.md"})
    for (char const* pattern : {"(KORVANE_MEM_[A-Z_]+)", "[Ss]ettings? [`\"]+([a-z0-9_]+)"})
      written.merge(names_in(source_file(file), pattern));
  EXPECT_GT(written.size(), 15U);
  EXPECT_THAT(known, testing::IsSupersetOf(written));
}

// Past the table nothing is read: no setting of its own somewhere, no switch of a caller's in a
// process with more rights than the caller. A part of the tracker that is declared and not listed
// would be neither created, emptied, freed nor abandoned.
TEST(TheLists, AreWholeAndTheOnlyOnes) {
  const std::string reading =
      "(getenv\\(|mem_cfg_(?:is_on|get_value|get_int_value)\\(\"|mem_env_is_on\\(\")";
  // The one place, and PATH, by which programs are found.
  const std::set<std::string> exempt = {"environment.cpp", "thr_command.cpp"};
  NAMES parts;
  for (char const* folder : {"mem", "platform"})
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(SOURCES "/" + std::string(folder))) {
      const std::string text = entry.is_regular_file() ? content_of(entry.path()) : "";
      EXPECT_TRUE(exempt.contains(entry.path().filename()) || names_in(text, reading).empty())
          << entry.path();
      parts.merge(names_in(text, "extern const MEM_PART (\\w+);"));
    }
  EXPECT_GT(parts.size(), 15U);
  EXPECT_EQ(names_in(source_file("mem/tracker/parts.cpp"), "&(\\w+),"), parts);
}

}  // namespace
