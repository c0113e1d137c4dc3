// The hook interface over allocators that have none. tests/integration/CMakeLists.txt runs tests of
// the other files over them, too.
#include <regex>

#include "tests/integration/tracked_program.h"

namespace {

using testing::HasSubstr;

PROGRAM hook_frames(std::vector<std::string> preloaded, std::vector<std::string> words = {}) {
  PROGRAM program = tracked("hook_frames", std::move(words));
  program.preload = std::move(preloaded);
  return program;
}

// What the allocator that has hooks makes of it is the measure, function by function. Where that
// one does it all, the unoptimised library's frame is looked through.
TEST(OverAnyMalloc, HooksAreCalledAsByTheAllocatorThatHasThem) {
  const std::string measure = RUN(hook_frames({TCMALLOC_LIBRARY})).out();
  EXPECT_EQ(split(measure, '\n').size(), 21U);
  constexpr const char* rows[][2] = {{MALLOC_LIBRARY, ""},
                                     {MALLOC_LIBRARY, MIMALLOC_LIBRARY},
                                     {MALLOC_LIBRARY, JEMALLOC_LIBRARY},
                                     {MALLOC_LIBRARY, TCMALLOC_LIBRARY},
                                     {MALLOC_LIBRARY_O0, ""},
                                     {MALLOC_LIBRARY_O0, MIMALLOC_LIBRARY},
                                     {MALLOC_LIBRARY_O0, JEMALLOC_LIBRARY}};
  for (const auto& [malloc_library, allocator] : rows) {
    SCOPED_TRACE(testing::Message() << malloc_library << " over " << allocator);
    const bool has_pvalloc = allocator != std::string(JEMALLOC_LIBRARY);
    EXPECT_EQ(RUN(hook_frames({malloc_library, allocator})).out(),
              has_pvalloc ? measure : std::regex_replace(measure, std::regex("pvalloc.*\n"), ""));
  }
}

TEST(OverAnyMalloc, ReallocReleasesFirstAndGivesBackWhatItCouldNotMove) {
  for (const char* allocator : {"", JEMALLOC_LIBRARY, MIMALLOC_LIBRARY})
    EXPECT_EQ(RUN(hook_frames({MALLOC_LIBRARY, allocator}, {"realloc"})).out(),
              "moved: 1 released, 1 given, right\n"
              "in place: 1 released, 1 given, right\n"
              "failed: 1 released, 1 given, right\n"
              "overflown: stays\n")
        << allocator;
}

// Over the C library's operators: where an allocator has its own, it can't be seen whether they are
// left.
TEST(OverAnyMalloc, NewHandlersAreCalledForWantOfMemoryAloneAndMayJump) {
  EXPECT_EQ(RUN(hook_frames({MALLOC_LIBRARY}, {"new_handler"})).out(),
            "for want of memory: called\n"
            "left: 100 released, 100 given\n"
            "room made: 1 released, 2 given, 2 frames\n");
}

TEST(OverAnyMalloc, AnAllocatorWithHooksThatComesLaterKeepsItsOwn) {
  for (const char* allocator : {"", JEMALLOC_LIBRARY})
    EXPECT_EQ(RUN(hook_frames({MALLOC_LIBRARY, allocator}, {TCMALLOC_LIBRARY})).out(),
              "1 released, 1 given\n")
        << allocator;
}

// Neither blocks that are none of malloc's nor any twice.
TEST(OverAnyMalloc, AHostsOperatorsTellOfTheBlocksBehindThem) {
  PROGRAM in_executable = hook_frames({MALLOC_LIBRARY});
  in_executable.path += "_own";
  for (const PROGRAM& program : {in_executable, hook_frames({MALLOC_LIBRARY, OWN_OPERATORS})}) {
    const std::string out = RUN(program).out();
    EXPECT_THAT(out, HasSubstr("operator new[](20): "));
    EXPECT_EQ(std::regex_replace(out, std::regex(".*hooks called 1 1\n"), ""), "");
  }
}

TEST(OverAnyMalloc, CallsOfDlsymItselfAreServed) {
  const RUN run(hook_frames({MALLOC_LIBRARY, ALLOCATING_DLSYM}));
  EXPECT_EQ(run.out(), "whole\n" + RUN(hook_frames({TCMALLOC_LIBRARY})).out()) << run.err();
}

TEST(OverAnyMalloc, AnExecutablesOwnIsNotSeenAndThatIsSaid) {
  PROGRAM program = tracked("own_malloc", {}, per_fileline);
  program.preload = {TUK_MEM_LIBRARY, MALLOC_LIBRARY};
  const RUN run(program);
  EXPECT_EQ(run.status(), 0);
  EXPECT_THAT(run.err(), HasSubstr("no heap block will be in the reports\n"));
  EXPECT_EQ(REPORT(run.file("mem_tbb_fileline.kvi.log")).rows.size(), 1U);
}

}  // namespace
