// A program run by the command: it notices nothing, and is found in the reports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/run_program.h"

namespace {

using testing::AllOf, testing::HasSubstr, testing::Not;

RUN run(const std::vector<std::string>& words, const std::string& prefix = "") {
  return RUN({.path = TUK_MEM_COMMAND, .arguments = words, .shell_prefix = prefix});
}

TEST(ARun, EndsAsTheProgramDoes) {
  const std::string make =
      "echo x >text; mkdir folder; printf \"#!folder/none\\n\" >script; "
      "chmod +x script; cp " TUK_MEM_STATIC_PROGRAM " static; ln -s " TUK_MEM_ALLOCATING_PROGRAM
      " link; " TUK_MEM_COMMAND " run -o again --filters missing true 2>none; ";
  const std::tuple<std::vector<std::string>, int, std::string, std::string> rows[] = {
      {{"--", "sh", "-c", "cat; exit 7"}, 7, "in\n", "exit status 7"},
      {{"sh", "-c", "kill -TERM $$"}, 128 + 15, "", "killed by SIGTERM"},
      {{"sh", "-c", "kill -36 $$"}, 128 + 36, "", "killed by signal 36"},
      {{"--no-children", "./link", "leak"}, 0, "", "scenarios.cpp:"},
      {{"-o", "again", "true"}, 0, "", "exit status 0"},
      {{"sh", "-c", "sleep 2 >none 2>&1 &"}, 0, "", "still running, "},
      {{"python3", "-c", "import os; x = bytes(10**7); os.fork(); x = 1"}, 0, "", "leaked "},
      {{""}, 127, "", "No such file"},
      {{"--no-summary", "sh", "-c", "echo $0 $1", "-o", "--lines"}, 0, "-o --lines\n", ""},
      {{"nothing_of_this_name"}, 127, "", "nothing_of_this_name: command not found"},
      {{"./missing"}, 127, "", "./missing: No such file or directory"},
      {{"./script"}, 127, "", "folder/none: No such file or directory"},
      {{"./text"}, 126, "", "./text: Permission denied"},
      {{"./folder"}, 126, "", "./folder: Is a directory"},
      {{"./static"}, 126, "", "./static: is linked statically"},
      {{"-o", ".", "true"}, 125, "", ".: holds something already"},
      {{"--peak-step", "many", "true"}, 2, "", "many"},
      {{}, 2, "", "PROGRAM is required"}};
  for (const auto& [words, status, out, message] : rows) {
    std::vector<std::string> all = {"run"};
    all.insert(all.end(), words.begin(), words.end());
    const RUN result(run(all, make + "echo in | "));
    SCOPED_TRACE(message);
    EXPECT_EQ(result.status(), status) << result.err();
    EXPECT_EQ(result.out(), out);
    EXPECT_THAT(result.err(), AllOf(HasSubstr(message), Not(HasSubstr("leaked -"))));
  }
}

// Where nobody can be told, that is not the program's status.
TEST(ARun, NeedsNoStandardError) {
  const RUN result({.path = "/bin/sh",
                    .arguments = {"-c", "for to in \"&-\" /dev/full; do eval \"" TUK_MEM_COMMAND
                                        " run true 2>$to\"; echo $?; done"}});
  EXPECT_EQ(result.out(), "0\n0\n");
}

// The process and its children, the largest of them named, each with reports of its own.
TEST(ARun, ShowsWhereItsProcessesHeldMemory) {
  const std::string leak = std::string(TUK_MEM_ALLOCATING_PROGRAM) + " leak";
  const RUN result(run({"run", "-o", "all", "--", "sh", "-c", leak + "; exec " + leak}));
  EXPECT_EQ(result.status(), 0) << result.err();
  EXPECT_THAT(result.err(), AllOf(HasSubstr("the largest of "), HasSubstr("scenarios.cpp:"),
                                  HasSubstr("tuk-mem show all")));
  EXPECT_THAT(result.file("all/run.json"), HasSubstr("\"exit_status\": 0"));
}

// It is asked for a snapshot before it is told to end, which it does without reports.
TEST(ARun, KeepsWhatATerminatedProgramHeld) {
  const std::string loop =
      "import time\nwhile True: x = [bytes(i) for i in range(3000)]; time.sleep(0.01)";
  const RUN result(
      run({"run", "-o", "ended", "--", "python3", "-c", loop},
          "(for i in $(seq 60); do sleep 1; " TUK_MEM_COMMAND
          " top -n 1 $(pgrep -nf \"^[^ ]*python3[^ ]* -c import time\") >top 2>none && break; "
          "done; pkill -TERM -f \"tuk-mem run -o ended\") & "));
  EXPECT_EQ(result.status(), 128 + 15);
  EXPECT_THAT(result.err(), AllOf(HasSubstr("its last snapshot is taken"), HasSubstr("leaked ")));
  EXPECT_THAT(result.file("top"), HasSubstr("python3"));
}

}  // namespace
