// The gate of a build, at its borders: what it lets pass, and what it can't tell.
#include <gmock/gmock.h>

#include "tests/command/the_command.h"
#include "tests/command/written_reports.h"

namespace {

using testing::HasSubstr, testing::MatchesRegex;

class THE_GATE : public THE_COMMAND {};

std::string run_file(int pid, const std::string& allocator, int lost) {
  return "executable\t/bin/prog\npid\t" + std::to_string(pid) + "\nended\texit\nallocator\t" +
         allocator + "\nevents_not_accounted\t" + std::to_string(lost) + "\n";
}

TEST_F(THE_GATE, TellsWhatItCanNotTellAndCountsWhatItCan) {
  const std::string some = sites(
      site("0x1", 1, 20, "app\t/x/a.cpp\t5\tf(int)") + site("0x2", 2, 30, "app\tb.cpp\t6\tg()") +
      site("0x3", 0, 9, "app\tc.cpp\t7\th()") + site("OTHER", -4, 1, "\t\t0\t"));
  write("some/mem_tbb_fileline.x.log", some);
  write("some/mem_tbb_subsystem_base_addresses.x.log",
        "\"base address\",\"module\",\"dll_path\"\n\"0x5\",\"app\",\"/opt/one/app\"\n");
  write("summary/mem_tbb_fast_leak_warning.log",
        "For more detail, use INI mem_check_leaks=on\n\na memory leak summary\n=====\n"
        "Leaked bytes:     -3\nPeak bytes on heap:  9\n\nb memory leak summary\n=====\n"
        "Leaked bytes:  4\nPeak bytes on heap:  801\n");
  write("tags/mem_tbb_pbin_tag_stats.x.log",
        "Memory Tracking - Profile Tag Stats\n\nName\tMax bytes\tPeak bytes\nRoot\t1\t2\n");
  write("hookless/mem_tbb_fileline.x.log", some);
  write("hookless/mem_tbb_run.x.log", run_file(5, "none", 0));
  write("lost/mem_tbb_fileline.x.log", some);
  write("lost/mem_tbb_run.x.log", run_file(5, "hooks", 7));
  write("killed/snapshot-0001/mem_tbb_fileline.x.log", some);
  write_file("returns.supp", "# of another system\r\nleak:^f(*$\r\n\tleak:b.c \r\n");
  write_file("path.supp", "leak:/opt/one/\n");
  write_file("empty.supp", "leak:a\nleak:\n");
  const std::tuple<std::vector<std::string>, int, std::string> rows[] = {
      {{"some", "--max-leaked", "300"}, 0, "holds: leaked: 300 .*"},
      {{"some", "--max-leaked", "299", "--top", "1"},
       1,
       "BROKEN: leaked: 300 [^\n]*\n +200  b.cpp:6[^\n]*\n  and 1 more\n"},
      {{"some", "--max-leaked", "0", "--suppressions", "returns.supp"},
       0,
       "holds: leaked: 0 [^\n]*\nsuppressed: 100 in 1 [^\n]*\nsuppressed: 200 in 2 [^\n]*\n"},
      {{"some", "--max-leaked", "0", "--suppressions", "path.supp"}, 0, "holds: .*300 in 3 .*"},
      {{"some", "--max-leaked", "0", "--suppressions", "empty.supp"}, 2, ".*empty.supp:2: .*"},
      {{"some", "--baseline", "some", "--max-growth", "0%"}, 0, "holds: growth .*"},
      {{"some", "--baseline", "some", "--max-growth", "-1%"}, 2, ".*-1%. is no share, as 5% is\n"},
      {{"some", "--baseline", "some", "--max-growth", "nan%"}, 2, ".*nan%. is no share.*"},
      {{"some", "--baseline", "some", "--max-growth", "1%%"}, 2, ".*1%%. is no share.*"},
      {{"summary", "--max-leaked", "4"}, 0, "holds: leaked: 4 .*"},
      {{"summary", "--max-leaked", "3"}, 1, "BROKEN: leaked: 4 [^\n]*\n +4  b\n"},
      {{"summary", "--max-peak", "801"}, 0, "holds: peak of the process: 801 .*"},
      {{"summary", "--max-peak", "800"}, 1, "BROKEN: [^\n]*\n"},
      {{"tags", "--max-peak", "1G"}, 2, ".*no report tells the peak of x: .*"},
      {{"tags", "--max-leaked", "1G"}, 2, ".*no report tells what x leaked: .*"},
      {{"hookless", "--max-peak", "1G"}, 2, ".*no heap block of prog 5 was tracked: .*"},
      {{"some", "--baseline", "hookless", "--max-growth", "1G"}, 2, ".*hookless: no heap block .*"},
      {{"lost", "--max-peak", "1G"}, 0, "holds: .*for want of memory 7 events of prog 5 are .*"},
      {{"killed", "--max-leaked", "300"}, 0, "holds: .* is a snapshot: what was live then .*"}};
  for (auto [words, status, said] : rows) {
    words[0] = in(words[0]);
    if (words.size() > 4) words[4] = words[3] == "--suppressions" ? in(words[4]) : words[4];
    if (words[1] == "--baseline") words[2] = in(words[2]);
    words.insert(words.begin(), "check");
    const RUN checked = run(words);
    EXPECT_EQ(checked.status(), status) << said;
    EXPECT_THAT(checked.out() + checked.err(), MatchesRegex(said));
  }
}

// A build server compares cases by their names from one run to the next.
TEST_F(THE_GATE, GivesCasesNamesThatLast) {
  const std::string fileline = sites(site("0x1", 1, 20, "app\t\"<a>&\x01.cpp\t5\tf()"));
  for (const int pid : {71, 5}) {
    const std::string folder = "run & more/" + std::to_string(pid);
    write(folder + "/mem_tbb_run.x.log", run_file(pid, "hooks", 0));
    write(folder + "/mem_tbb_fileline.x.log", fileline);
  }
  const RUN checked = run({"check", in("run & more"), "--max-peak", "1K", "--junit", in("xml")});
  EXPECT_THAT(checked.out(), HasSubstr("peak of prog 71"));
  const std::string xml = content_of(in("xml"));
  EXPECT_THAT(xml, HasSubstr("run &amp; more\" tests=\"2\" failures=\"2\""));
  EXPECT_THAT(xml, HasSubstr("name=\"peak of prog\""));
  EXPECT_THAT(xml, HasSubstr("name=\"peak of prog (2)\""));
  EXPECT_THAT(xml, HasSubstr("&quot;&lt;a&gt;&amp;\\x01.cpp:5"));
}

TEST_F(THE_GATE, ShowsTheRowsThatGrewAlone) {
  const auto of = [](int peak) {
    return sites(site("0x1", 0, peak, "app\ta.cpp\t5\tf()") +
                 site("0x2", 0, 7, "app\tb.cpp\t5\tg()"));
  };
  write("before/mem_tbb_fileline.x.log", of(10));
  write("after/mem_tbb_fileline.x.log", of(30));
  EXPECT_THAT(run({"check", in("after"), "--baseline", in("before"), "--max-growth", "5%"}).out(),
              MatchesRegex("BROKEN: growth [^\n]*\n +.1.95K  a.cpp:5  f..  app\n"));
}

}  // namespace
