// What a host gets beside the profiler, in real programs: the end when memory runs out, the
// controls of the allocator and the list of optimised modules.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <utility>

#include "tests/support/run_program.h"

namespace {

const std::string programs = PROGRAMS_DIRECTORY "/";

// Out of memory.

constexpr int limit_kilobytes = 2'000'000;
constexpr int limit_megabytes = 2'048;  // decimal, as the report counts; 1953 in binary ones

struct ENDING {
  const char* words;
  bool with_allocator;
};

PROGRAM out_of_memory(const ENDING& ending) {
  PROGRAM program{.path = programs + "runs_out_of_memory"};
  std::istringstream words(ending.words);
  for (std::string word; words >> word;) program.arguments.push_back(word);
  if (ending.with_allocator) program.preload = {TCMALLOC_LIBRARY};
  program.shell_prefix = "ulimit -v " + std::to_string(limit_kilobytes) + ";";
  return program;
}

TEST(OutOfMemory, ReportsThePeakOnceAndEndsWithStatus1) {
  constexpr ENDING endings[] = {{"library", false}, {"library", true}, {"library malloc", true},
                                {"threads", false}, {"threads", true}, {"threads malloc", true}};
  const std::regex report("\nOut of memory \\(([0-9]+) megabytes used\\)\n");
  for (const ENDING& ending : endings) {
    SCOPED_TRACE(testing::Message() << ending.words << ", allocator " << ending.with_allocator);
    const RUN run(out_of_memory(ending));
    EXPECT_EQ(run.status(), 1);
    EXPECT_EQ(run.out(), "");
    std::smatch peak;
    ASSERT_TRUE(std::regex_match(run.err(), peak, report)) << run.err();
    EXPECT_THAT(std::stoi(peak[1]),
                testing::AllOf(testing::Gt(limit_megabytes - 80), testing::Le(limit_megabytes)));
  }
}

TEST(OutOfMemory, LeavesTheReportToTheHostsHandler) {
  constexpr ENDING endings[] = {{"handler", false},
                                {"handler malloc", true},
                                {"handler threads", false},
                                {"handler threads malloc", true}};
  for (const ENDING& ending : endings) {
    SCOPED_TRACE(testing::Message() << ending.words << ", allocator " << ending.with_allocator);
    const RUN run(out_of_memory(ending));
    EXPECT_EQ(run.status(), 1);
    EXPECT_EQ(run.out(), "the host's handler\n");
    EXPECT_EQ(run.err(), "");
  }
}

TEST(OutOfMemory, IsTheHostsBusinessWithoutHandlerAndWrapper) {
  const RUN run(out_of_memory({"malloc", true}));
  EXPECT_EQ(run.status(), 0);
  EXPECT_EQ(run.out(), "still here\n");
}

TEST(OutOfMemory, LeavesTheProfileOfWhatUsedIt) {
  PROGRAM program = out_of_memory({"threads", true});
  program.environment = {{"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}};
  const RUN run(program);
  EXPECT_EQ(run.status(), 1);
  EXPECT_THAT(run.file("mem_tbb_fileline.kvi.log"),
              testing::ContainsRegex("\t[12][0-9]{9}\t[^\n]*\truns_out_of_memory\t"));
}

// The controls of the allocator.

constexpr char no_answers[] = "known -1\ngrown 0\nreleased 0\nrate -1\n";

TEST(MallocExtension, ReachesTheRealAllocator) {
  const RUN run({.path = programs + "asks_the_allocator", .preload = {TCMALLOC_LIBRARY}});
  EXPECT_THAT(run.out(),
              testing::MatchesRegex("known 1\ngrown 50[0-9]{6}\nreleased 1\n.*there 1\n"));
}

TEST(MallocExtension, SearchesOnceAndAnswersNeutrally) {
  const RUN run({.path = programs + "asks_the_allocator", .arguments = {TCMALLOC_LIBRARY}});
  EXPECT_EQ(run.out(), std::string(no_answers) + "there 0\nthere 1\n" + no_answers);
}

// The list of optimised modules.

std::string pgo_lines(const RUN& run) {
  std::istringstream out(run.out());
  std::string lines;
  for (std::string line; std::getline(out, line);)
    if (line.find("PGO") != std::string::npos) lines += line + "\n";
  return lines;
}

TEST(PgoModules, AreListedAtExitInByteOrderEachPairOnce) {
  const RUN run({.path = programs + "registers_pgo_modules", .environment = {{"debug_msg", "on"}}});
  EXPECT_EQ(run.status(), 0);
  constexpr char head[] = "Debug: PGO: The code module ";
  constexpr char middle[] = " was last compiled using PGO for:";
  std::string expected;
  for (const auto& [module, profile] :
       {std::pair("libZoom.so", "viewer"), std::pair("libroute.so", ""),
        std::pair("libroute.so", "router, large"), std::pair("lib\xC3\xA9.so", "accents")})
    expected.append(head).append(module).append(middle).append(profile).append("\n");
  EXPECT_EQ(pgo_lines(run), expected);
}

TEST(PgoModules, AreKeptQuietWithoutDebugMessages) {
  const RUN run({.path = programs + "registers_pgo_modules"});
  EXPECT_EQ(run.status(), 0);
  EXPECT_EQ(run.out(), "");
}

}  // namespace
