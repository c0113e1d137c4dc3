// Being profiled shows in nothing that a program, its parent or its children see: a program that
// does on purpose what those of tests/wild happen to do.
#include <unistd.h>

#include <chrono>
#include <thread>

#include "tests/integration/tracked_program.h"
#include "tests/support/processes.h"

namespace {

using testing::HasSubstr, testing::IsEmpty;

// The tools run in their host's directory, where nothing else does.
std::vector<int> tools_after_a_second(const RUN& run) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  std::vector<int> left = processes_in(run.directory());
  while (!left.empty() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    left = processes_in(run.directory());
  }
  return left;
}

TEST(Guest, LeavesNoToolBehindAndReportsHoweverTheHostEnds) {
  constexpr std::tuple<const char*, int, bool> ends[] = {
      {"return", 0, true},        {"_exit", 6, false},
      {"quick_exit", 5, true},    {"exit_in_a_thread", 7, true},
      {"pthread_exit", 0, true},  {"throw", 128 + 6, false},
      {"SEGV", 128 + 11, false},  {"TERM", 128 + 15, false},
      {"KILL", 128 + 9, false},   {"exec", 0, false},
      {"leave_a_child", 0, false}};
  for (const auto& [scenario, status, reports] : ends) {
    SCOPED_TRACE(scenario);
    const RUN run(tracked("guest", {scenario}, per_fileline));
    EXPECT_EQ(run.status(), status) << run.err();
    EXPECT_EQ(run.out(),
              std::string(scenario) == "exec" ? "tools run: 1\ntools left: 0\n" : "tools run: 1\n");
    EXPECT_THAT(tools_after_a_second(run), IsEmpty());
    EXPECT_EQ(run.file_names().contains("mem_tbb_fileline.kvi.log"), reports);
  }
}

TEST(Guest, TakesNothingOfTheHosts) {
  constexpr std::pair<const char*, const char*> rows[] = {
      {"wait_with_a_handler", "tools run: 1\nchildren: 0\nsignals: 0\n"},
      {"wait_as_subreaper", "tools run: 1\nchildren: 0\nsignals: 0\n"},
      {"wait_for_another_host", "tools run: 1\nchildren: 1\n"},
      {"wait_ignoring_children", "tools run: 1\nchildren: 0\nsignals: 0\n"},
      {"take_descriptors", "tools run: 1\nopened: 1021\nlost or written to: 0\n"},
      {"load_a_module_that_waits", "loaded: 1\n"},
      {"lose_tools_among_threads", "tools run: 1\nthreads: 8\n"},
      {"trap_floating_point", "raised: 0\n"},
      {"start_without_descriptors", ""}};
  for (const auto& [scenario, out] : rows) {
    SCOPED_TRACE(scenario);
    const RUN run(tracked("guest", {scenario}, per_fileline));
    EXPECT_EQ(run.status(), 0) << run.err();
    EXPECT_EQ(run.out(), out);
    if (std::string(scenario) == "start_without_descriptors") {
      EXPECT_EQ(run.file("out"), "in place: 3\n");
    }
  }
}

// Where an orphan goes decides who is to be a tool's parent: bash takes care of every child that
// ends, dash does not.
TEST(Guest, IsTheSameUnderEveryKindOfInit) {
  if (std::system("unshare -fp --mount-proc true 2>/dev/null") != 0)
    GTEST_SKIP() << "needs the right to be init";
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  for (const std::string init : {"bash", "dash"}) {
    const RUN run({.path = "/usr/bin/unshare",
                   .arguments = {"-fp", "--mount-proc", init, "-c",
                                 self + " --gtest_filter=Guest.Leaves*:Guest.Takes*; exit $?"},
                   .environment = with_symbolizer({})});
    EXPECT_EQ(run.status(), 0) << init << run.out();
  }
}

// What the system has no room for, or a file that may not be read, is said once.
TEST(Guest, SaysWhatItCannotAsk) {
  const auto as_nobody = [](const std::string& script) {
    return shell("exec setpriv --reuid 65534 --clear-groups bash -c \"" + script + "\"",
                 per_fileline, "chmod 777 .; cp /bin/ls own_ls; chmod 711 own_ls;");
  };
  std::pair<PROGRAM, const char*> rows[] = {
      {shell("ulimit -n 8; exec ls /dev/null"), "can't be started, for want of "},
      {as_nobody("ulimit -u 1; exec ls /dev/null"), "can't be started, for want of "},
      {as_nobody("exec ./own_ls /dev/null"), "own_ls can't be read"},
      {tracked("guest", {"forbid_children"}, per_fileline), "guest can't be started"}};
  for (auto& [program, said] : rows) {
    SCOPED_TRACE(program.arguments.back());
    if (program.arguments.back().find("setpriv") != std::string::npos && geteuid() != 0) continue;
    program.environment["debug_msg"] = "on";
    const RUN run(program);
    EXPECT_EQ(run.status(), 0) << run.err();
    EXPECT_THAT(run.out(), HasSubstr(said));
  }
}

}  // namespace
