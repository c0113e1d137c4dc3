// The report of call paths against a program's own books of its paths.
#include <array>

#include "tests/integration/tracked_program.h"

namespace {

using testing::_, testing::Each, testing::ElementsAre, testing::HasSubstr, testing::Pair;

// Current, peak and cumulative bytes, the same in blocks; of a path, temporary blocks too.
using FIGURES = std::vector<std::int64_t>;
using LINES = std::vector<std::vector<std::string>>;

FIGURES numbers(const std::vector<std::string>& line, std::size_t first) {
  FIGURES figures;
  for (std::size_t cell = first; cell < line.size(); ++cell)
    figures.push_back(std::stoll(line[cell]));
  return figures;
}

void add(FIGURES& sum, const FIGURES& figures) {
  sum.resize(std::max(sum.size(), figures.size()));
  for (std::size_t figure = 0; figure < figures.size(); ++figure) sum[figure] += figures[figure];
}

// Sections by name; lines by number, from 1.
struct CALL_PATHS {
  std::map<std::string, LINES> sections;
  LINES paths;
  std::int64_t beyond_limit = 0;

  explicit CALL_PATHS(const std::string& text) {
    const std::vector<std::string> lines = split(text, '\n');
    EXPECT_EQ(lines.front(), "Call paths\t1");
    for (std::size_t index = 1; index < lines.size(); ++index) {
      const std::vector<std::string> head = split(lines[index], '\t');
      if (head[0] == "beyond_limit") beyond_limit = std::stoll(head[1]);
      if (head.size() != 2 || head[0] == "beyond_limit") continue;
      LINES& section = sections[head[0]] = {{}};
      for (auto left = head[0] == "end" ? 0 : std::stoll(head[1]); left > 0; --left) {
        section.push_back(split(lines.at(++index), '\t'));
        EXPECT_TRUE(head[0] == "paths" || std::stoull(section.back()[0]) == section.size() - 1);
      }
      EXPECT_TRUE(head[0] != "end" || std::stoull(head[1]) == sections["paths"].size() - 1);
    }
    EXPECT_TRUE(sections.contains("end"));
    paths = {sections["paths"].begin() + 1, sections["paths"].end()};
  }

  const std::vector<std::string>& at(const char* section, const std::string& number) const {
    return sections.at(section).at(std::stoul(number));
  }
  // The frames of a path from the innermost outward.
  LINES frames(const std::vector<std::string>& path) const {
    LINES frames;
    for (std::string node = path[0]; node != "0"; node = at("callers", node)[1])
      frames.push_back(at("frames", at("callers", node)[2]));
    return frames;
  }
  bool is_of(const std::vector<std::string>& path, const std::string& function) const {
    return at("sites", path[1])[5].starts_with(function);
  }

  // The paths of a function, by the callers that lie in the program itself, further and further
  // out.
  std::map<std::string, FIGURES> by_callers(const std::string& function) const {
    std::map<std::string, FIGURES> result;
    for (const std::vector<std::string>& path : paths) {
      if (!is_of(path, function)) continue;
      const LINES stack = frames(path);
      std::string callers;
      for (std::size_t frame = 1; frame < stack.size() && stack[frame][1] == stack[0][1]; ++frame)
        callers += stack[frame][2].substr(2) + " ";
      add(result[callers], numbers(path, 3));
    }
    return result;
  }

  // Sums over a site's paths are the site's figures, here and in the report per line.
  void expect_sums(const std::string& fileline) const {
    const REPORT lines(fileline);
    std::map<std::string, FIGURES> sums;
    for (const std::vector<std::string>& path : paths) add(sums[path[1]], numbers(path, 3));
    for (const std::vector<std::string>& site : sections.at("sites")) {
      if (site.empty()) continue;
      FIGURES sum = sums[site[0]];
      sum.resize(6);
      EXPECT_EQ(sum, numbers(site, 6)) << site[5];
      FIGURES line;
      for (const char* column : {"Current bytes", "Peak bytes", "Cumulative bytes",
                                 "Current blocks", "Peak blocks", "Cumulative blocks"})
        line.push_back(lines.row("Address", site[1]).number(column));
      EXPECT_EQ(sum, line) << site[5];
    }
    EXPECT_EQ(lines.rows.size(), sections.at("sites").size() - 1);
  }
  LINES without_path() const {
    LINES result;
    for (const std::vector<std::string>& path : paths)
      if (path[0] == "0") result.push_back(path);
    return result;
  }
};

std::map<std::string, FIGURES> books(const RUN& run) {
  std::map<std::string, FIGURES> result;
  for (const std::string& line : split(run.out(), '\n')) {
    const auto [path, figures] = std::pair(line.substr(5, line.find('=') - 6), line.find('=') + 2);
    std::string callers;
    for (const std::string& caller : split(path, '\t')) callers += caller + " ";
    add(result[callers], numbers(split(line.substr(figures), '\t'), 0));
  }
  std::erase_if(result, [](const auto& entry) { return testing::Matches(Each(0))(entry.second); });
  return result;
}

PROGRAM host(const std::string& scenario, const std::string& depth, ENVIRONMENT environment = {}) {
  environment.insert({{"KORVANE_MEM_PROFILE_CALL_PATHS", "1"},
                      {"KORVANE_MEM_PROFILE_PER_FILELINE", "1"},
                      {"mem_call_path_depth", depth},
                      {"KORVANE_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD", "1"}});
  return tracked("call_paths", {scenario, depth}, environment);
}

constexpr const char* allocating = "(anonymous namespace)::allocate(";
constexpr const char* paths_file = "mem_tbb_call_paths.kvi.log";
constexpr const char* fileline_file = "mem_tbb_fileline.kvi.log";

TEST(CallPaths, AreThoseOfTheProgramsBooksHoweverDeepTheyAreAndWhoeverWalks) {
  constexpr std::array<const char*, 2> rows[] = {
      {"64", ""}, {"8", ""}, {"2", ""}, {"64", "backtrace"}};
  for (const auto& [depth, unwinder] : rows) {
    SCOPED_TRACE(std::string(depth) + " " + unwinder);
    const RUN run(host("known", depth, {{"KORVANE_MEM_PROFILE_UNWINDER", unwinder}}));
    EXPECT_EQ(run.status(), 0) << run.err();
    const CALL_PATHS paths(run.file(paths_file));
    EXPECT_EQ(paths.by_callers(allocating), books(run));
    paths.expect_sums(run.file(fileline_file));
    EXPECT_TRUE(paths.without_path().empty());
    for (const std::vector<std::string>& path : paths.paths)
      EXPECT_LE(paths.frames(path).size(), std::stoul(depth));
  }
}

TEST(CallPaths, KeepPeaksOverFlushesAndResetsAndAgreeWithTheSitesInSnapshots) {
  for (const char* scenario : {"phases", "reset"}) {
    SCOPED_TRACE(scenario);
    const RUN run(host(scenario, "64", {{"KORVANE_MEM_REPORT_DIRECTORY", "reports"}}));
    EXPECT_EQ(run.status(), 0) << run.err();
    const CALL_PATHS paths(run.file(std::string("reports/") + paths_file));
    EXPECT_EQ(paths.by_callers(allocating), books(run));
    paths.expect_sums(run.file(std::string("reports/") + fileline_file));
    const std::string snapshot = "reports/snapshot-0001/";
    CALL_PATHS(run.file(snapshot + paths_file)).expect_sums(run.file(snapshot + fileline_file));
  }
}

TEST(CallPaths, OfAModuleThatIsLoadedAgainAreOthers) {
  const RUN run(host("in_plugin", "64"));
  const CALL_PATHS paths(run.file(paths_file));
  std::map<std::string, std::map<std::string, std::int64_t>> blocks;  // by name and module
  for (const std::vector<std::string>& path : paths.paths) {
    if (!paths.is_of(path, allocating)) continue;
    const std::string& module = paths.frames(path).at(2)[1];
    blocks[paths.at("modules", module)[4]][module] += numbers(path, 8).front();
  }
  EXPECT_THAT(blocks["plugin_900"], ElementsAre(Pair(_, 2), Pair(_, 2)));
  EXPECT_THAT(blocks["plugin_3000"], ElementsAre(Pair(_, 2)));
  paths.expect_sums(run.file(fileline_file));
}

TEST(CallPaths, AreSplitByBinAndLimited) {
  const RUN split_run(
      host("in_bins", "64",
           {{"mem_call_paths_per_bin", "on"}, {"KORVANE_MEM_PROFILE_BIN_TAG_PLOT", "1"}}));
  const CALL_PATHS split(split_run.file(paths_file));
  std::map<std::string, std::int64_t> blocks_of_bins;
  for (const std::vector<std::string>& path : split.paths)
    if (split.is_of(path, allocating))
      blocks_of_bins[split.at("bins", path[2])[1]] += numbers(path, 8)[0];
  EXPECT_EQ(blocks_of_bins, (std::map<std::string, std::int64_t>{
                                {"Root", 1}, {"Root::first", 6}, {"Root::second", 3}}));
  EXPECT_EQ(split.by_callers(allocating), books(split_run));
  split.expect_sums(split_run.file(fileline_file));

  const RUN limited_run(host("known", "999", {{"mem_call_paths_limit", "4"}}));
  EXPECT_THAT(limited_run.err(), HasSubstr("mem_call_path_depth is \"999\", which is not a decimal "
                                           "number from 1 to 250: 250 holds"));
  const CALL_PATHS limited(limited_run.file(paths_file));
  limited.expect_sums(limited_run.file(fileline_file));
  std::int64_t beyond = 0;
  for (const std::vector<std::string>& path : limited.without_path()) beyond += numbers(path, 8)[0];
  EXPECT_GT(beyond, 0);
  EXPECT_EQ(beyond, limited.beyond_limit);
  EXPECT_EQ(limited.paths.size(), 4 + limited.without_path().size());
}

}  // namespace
