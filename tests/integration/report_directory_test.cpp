// Where the files go, what a run file tells, and what is said of files that can't be written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/integration/tracked_program.h"
#include "tests/support/temporary_directory.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre, testing::IsSupersetOf, testing::MatchesRegex;

ENVIRONMENT into(const std::string& directory, ENVIRONMENT more = {}) {
  more.insert(
      {{"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}, {"KORVANE_MEM_REPORT_DIRECTORY", directory}});
  return more;
}

const std::set<std::string> reports = {"mem_tbb_fileline.kvi.log", "mem_tbb_filters.kvi.log",
                                       "mem_tbb_subsystem.kvi.log",
                                       "mem_tbb_subsystem_base_addresses.kvi.log"};

// The values of every key, in order.
using FACTS = std::map<std::string, std::vector<std::string>>;
FACTS facts_of(const fs::path& set) {
  FACTS facts;
  for (const std::string& line : split(content_of(set / "mem_tbb_run.kvi.log"), '\n'))
    facts[line.substr(0, line.find('\t'))].push_back(line.substr(line.find('\t') + 1));
  return facts;
}

// Each process expands the name anew; where it goes meanwhile does not matter.
TEST(TheReportDirectory, GetsAWholeSetFromEachProcessOfATree) {
  const RUN run(
      shell("for i in 1 2 3; do perl -e \"chdir q(/); exit 3\" & done; wait; "
            "bash -c \"ls; exit 0\" x >/dev/null; cd /",
            into("made/and %%/%e.%p"), "umask 0;"));
  EXPECT_EQ(run.err(), "");
  EXPECT_EQ(run.file_names(), std::set<std::string>{"made"});
  std::multiset<std::string> programs;
  std::set<std::string> files = reports;
  files.insert("mem_tbb_run.kvi.log");
  for (const auto& set : fs::directory_iterator(run.directory() / "made/and %")) {
    EXPECT_EQ(names_in(set), files) << set;
    EXPECT_EQ(fs::status(set).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(set.path() / "mem_tbb_fileline.kvi.log").permissions(), fs::perms(0600));
    EXPECT_EQ(set.path().extension(), "." + facts_of(set)["pid"].at(0));
    programs.insert(set.path().stem());
  }
  EXPECT_EQ(programs, (std::multiset<std::string>{"bash", "bash", "ls", "perl", "perl", "perl"}));
}

// A directory that can't be used leaves everything as without it, a file the others of its set.
TEST(AFile, ThatCannotBeWrittenWhereItShouldIsSaid) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a link to another user";
  // What is prepared, the directory asked for, where the reports are then, and what is said.
  constexpr const char* rows[][4] = {
      {"touch f;", "f/x", "", "[^ ]*/f/x .Not a directory.: the current directory is used\n"},
      {"ln -s / l; chown -h 1 l;", "l/tmp", "", "[^ ]*l/tmp .a link of another user's [^\n]*\n"},
      {"ln -s l l;", "l", "", "[^ ]*/l .Too many levels of symbolic links.: [^\n]*\n"},
      {"", "%x", "", "\"%x\", where % is none of %p, %e and %%: [^\n]*\n"},
      {"", "x%", "", "\"x%\", where % is none of %p, %e and %%: [^\n]*\n"},
      {"mkdir d; ln -s $PWD/new d/mem_tbb_fileline.kvi.log;", "d", "d",
       "/d/mem_tbb_fileline.kvi.log can't be written: no link is followed\n"},
      {"mkdir d; mkfifo d/mem_tbb_subsystem.kvi.log;", "d", "d",
       "/d/mem_tbb_subsystem.kvi.log can't be written: No such device or address\n"},
      {"mkdir d; touch f; ln f d/mem_tbb_run.kvi.log;", "d", "d",
       "/d/mem_tbb_run.kvi.log can't be written: [^\n]* not a file of this user's alone\n"},
      {"ln -s /dev/full mem_allocations.log;", "", "",
       "mem_allocations.log is incomplete: No space left on device\n"},
      {"mkdir mem_allocations.log;", "", "",
       "mem_allocations.log can't be written: Is a directory\n"},
      {"ln -s /dev/full mem_tbb_fast_leak_warning.log;", "", "",
       "mem_tbb_fast_leak_warning.log is incomplete: No space left on device\n"},
      {"mkdir mem_tbb_timeline.kvi.log;", "", "",
       "mem_tbb_timeline.kvi.log can't be written: Is a directory\n"},
      {"mkdir mem_tbb_subsystem_base_addresses.kvi.log;", "", "",
       "unable to create KMP subsystem base addresses file\n"},
      {"mkdir mem_tbb_filters.kvi.log;", "", "", "unable to create KMP filters file\n"}};
  for (const auto& [preparation, directory, reports_in, said] : rows) {
    SCOPED_TRACE(std::string(preparation) + " " + directory);
    const RUN run(shell("exit 4",
                        into(directory, {{"mem_print_allocations", "on"},
                                         {"KORVANE_MEM_CHECK_LEAKS_FAST", "1"},
                                         {"KORVANE_MEM_PROFILE_PER_LIBRARY", "1"}}),
                        preparation));
    EXPECT_EQ(run.status(), 4);
    EXPECT_THAT(run.err(), MatchesRegex("(MEM: [^\n]*)?" + std::string(said)));
    EXPECT_THAT(content_of(run.directory() / reports_in / "mem_tbb_timeline_detailed.kvi.log"),
                testing::HasSubstr("Time spent dumping"));
    EXPECT_THAT(names_in(run.directory() / reports_in), IsSupersetOf(reports));
    EXPECT_EQ(fs::exists(run.directory() / reports_in / "mem_tbb_run.kvi.log"), *reports_in != 0);
    EXPECT_FALSE(run.file_names().contains("new"));
  }
  const RUN run(shell("(ulimit -f 0; exec perl -e \"exit 5\") 2>&1 | cat; exit ${PIPESTATUS[0]}",
                      into("%e")));
  EXPECT_EQ(run.status(), 5);
  EXPECT_THAT(run.out(), MatchesRegex("(MEM: [^ ]*/perl/mem_tbb_[a-z_]*.kvi.log is incomplete: "
                                      "File too large\n){5}"));
}

TEST(TheAllocationLog, IsOutOfTheWayOfTheHostsDescriptors) {
  const RUN run(
      shell("exec 3>o3 4>o4 5>o5 6>o6; for i in 1 2; do x=$i$x; done; echo $x >&3; exit 0",
            {{"mem_print_allocations", "on"}}));
  EXPECT_EQ(run.file("o3"), "21\n");
  EXPECT_EQ(run.file("o4") + run.file("o5") + run.file("o6"), "");
  EXPECT_THAT(run.file("mem_allocations.log"), MatchesRegex("(ptr=[^\n]*type=(alloc|free)\n)+"));
}

TEST(TheRunFile, TellsWhatTheKernelDoes) {
  PROGRAM program = shell("echo $$ $PPID; cd /; while read l; do echo \"$l\"; done </proc/$$/maps",
                          into("%e", {{"mem_symbolizer", "addr2line"}}));
  program.arguments.insert(program.arguments.end(),
                           {"tab\there", "line\nbreak", "back\\slash", ""});
  const RUN run(program);
  FACTS facts = facts_of(run.directory() / "bash");
  std::vector<std::string> told = split(run.out(), '\n');
  EXPECT_EQ(facts["pid"].at(0) + " " + facts["parent"].at(0), told.at(0));
  EXPECT_EQ(facts["executable"].at(0), fs::canonical("/bin/bash"));
  EXPECT_EQ(facts["directory"].at(0), run.directory());
  EXPECT_EQ(facts["argument"].size(), 7U);
  facts["argument"].erase(facts["argument"].begin(), facts["argument"].begin() + 3);
  EXPECT_THAT(facts["argument"], ElementsAre("tab\\there", "line\\nbreak", "back\\\\slash", ""));
  EXPECT_THAT(facts["start"].at(0), MatchesRegex("20[0-9-]{8}T[0-9:]{8}Z"));
  EXPECT_GE(facts["end"], facts["start"]);
  EXPECT_EQ(facts["ended"].at(0), "exit");
  EXPECT_EQ(facts["granularity"].at(0), "8");
  EXPECT_THAT(facts["setting"], IsSupersetOf({"KORVANE_MEM_PROFILE_PER_FILELINE environment on",
                                              "KORVANE_MEM_REPORT_DIRECTORY environment %e",
                                              "mem_symbolizer environment addr2line",
                                              "KORVANE_MEM_PROFILE_ALL default off",
                                              "mem_profile_stack_trace_ignore_depth default 5"}));
  // Where each file begins that has code mapped.
  std::map<std::string, std::string> begins, mapped, told_of;
  for (const std::string& line : told) {
    const std::string path = line.substr(std::min(line.find('/'), line.size()));
    begins.try_emplace(path, "0x" + line.substr(0, line.find('-')));
    if (line.find(" r-xp ") != line.npos && !path.empty()) mapped[path] = begins[path];
  }
  for (const std::string& module : facts["module"]) {
    const std::vector<std::string> fields = split(module, ' ');
    if (fields.at(4).starts_with('/')) told_of[fields[4]] = fields[0];
    EXPECT_THAT(fields[2], MatchesRegex("([0-9a-f]{16}){1,4}|[0-9a-f]{40}")) << module;
    EXPECT_TRUE(fields[4] != TUK_MEM_LIBRARY || fields[3] == "yes") << module;
  }
  EXPECT_EQ(told_of, mapped);
}

}  // namespace
