// The command as a user runs it, and the reader below it.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>

#include "tests/command/the_command.h"
#include "tests/command/written_reports.h"
#include "tools/reports/call_tree.h"
#include "tools/reports/read_run.h"
#include "tools/reports/row_groups.h"
#include "tools/reports/row_pairs.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf, testing::ElementsAre, testing::HasSubstr, testing::MatchesRegex;

extern "C" void outer_of_the_test() {}
extern "C" void helper_of_the_test() {}

/// The function's address as its module's file counts it.
std::string offset(void (*function)()) {
  Dl_info info{};
  dladdr(reinterpret_cast<void*>(function), &info);
  std::ostringstream text;
  text << std::hex << "0x"
       << reinterpret_cast<std::uintptr_t>(function) -
              reinterpret_cast<std::uintptr_t>(info.dli_fbase);
  return text.str();
}

const std::string paths_name = "mem_tbb_call_paths.kvi.log";
constexpr char const* whole = "end\t3\n";

/// Two sites: f() called by helper_of_the_test(), which outer_of_the_test() calls, at once or by
/// way of a module that is gone; and the catch-all. The first path and what is behind the last are
/// given.
std::string call_paths(std::string first_path = "", const std::string& last = whole,
                       std::string second_caller = "", const std::string& build_id = "") {
  if (first_path.empty()) first_path = "3\t1\t0\t10\t20\t30\t1\t2\t3\t1\n";
  if (second_caller.empty()) second_caller = "2\t1\t2\n";
  return "Call paths\t1\nsetting\tdepth\t64\nsetting\tlimit\t9\nsetting\tper_bin\t0\n"
         "beyond_limit\t7\nmodules\t2\n1\t0x1000\t4096\t" +
         build_id + "\tcommand_tests\t" + fs::read_symlink("/proc/self/exe").string() +
         "\n2\t0x9000\t4096\t\tgone\t/nowhere/libgone.so\nframes\t4\n1\t1\t" +
         offset(outer_of_the_test) + "\n2\t1\t" + offset(helper_of_the_test) +
         "\n3\t2\t0x77\n4\t2\t0x88\nsites\t2\n"
         "1\t0x9077\tgone\t/x/a\tb.cpp\t5\tf()\t15\t26\t37\t4\t5\t6\n"
         "2\tOTHER\t\t\t0\t\t3\t3\t3\t1\t1\t1\ncallers\t5\n1\t0\t1\n" +
         second_caller + "3\t2\t3\n4\t1\t4\n5\t4\t2\nbins\t0\npaths\t3\n" + first_path +
         "0\t1\t0\t5\t6\t7\t3\t3\t3\t0\n5\t2\t0\t3\t3\t3\t1\t1\t1\t0\n" + last;
}

// One sentence that names the file, the line and what is wrong; never a crash, never much memory.
TEST_F(THE_COMMAND, TellsWhatIsWrongWithAnInput) {
  const std::string fileline = "mem_tbb_fileline.kvi.log";
  const std::string row = site("0x1", 1, 2, "app\ta.cpp\t5\tf()");
  const std::string noise(std::size_t{100} << 20, '\x81');
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {fileline, "", ": the file is empty"},
      {"profile.json", "{\"a\": 1}\n", ":1: this is no report of the profiler: it begins with .*"},
      {fileline, "{\"a\": 1}\n", ":1: a report of this name begins with .*"},
      {"noise", noise, ":1: the line is longer than 1 MiB, as none of a report is"},
      {fileline, sites_head.substr(0, 20), ":1: the report ends in the middle of this line"},
      {fileline, sites_head, ":3: the report ends here, without the line that .*"},
      {fileline, sites_head + row + row.substr(0, 9) + "\n", ":5: the row has 3 cells where .*"},
      {fileline, sites_head + row.substr(0, 9) + "\n" + row + end, ":4: .* where a number is .*"},
      {fileline,
       sites_head + row.substr(0, 9) + "\nMEM: this report is incomplete: out of memory\n",
       ":5: the report is incomplete: out of memory"},
      {fileline, sites(row) + "more\n", ":6: there is text behind the end of the report"},
      {fileline, sites(site("0x1", 1, 2, "app\ta.cpp\t-5\tf()")), ":4: .* a line number is .*"},
      {fileline, sites_head.substr(0, 60), ":.*"},
      {"mem_tbb_pbin_stats.kvi.log", bins_head + "Root\t1\n", ":4: the row has 2 cells .*"},
      {"mem_tbb_timeline_detailed.kvi.log",
       "MEM: TBB Module Tracking Detailed Memory "
       "Timeline.\n\n\ta\tb\nOther\t1\t99999999999999999999\n" +
           end,
       ":4: .99999999999999999999. stands where a number is expected"},
      {"mem_tbb_leak_warning.kvi.log",
       "MEM: TBB Leak Checking Summary.\n\na leaked 5 bytes in 1 object(s) allocated at a:1 "
       "f\n\nTotal "
       "leaked bytes: 6\n",
       ":5: the total is not the sum of the lines, which is 5"},
      {"mem_tbb_run.kvi.log", "executable\t/bin/a\npid\t5\n", ":2: the file ends here, without .*"},
      {"mem_tbb_run.kvi.log", "executable\t/bin/a\nversion\t2.0.0\n",
       ":2: the reports are of version \"2.0.0\", .*"},
      {paths_name, "Call paths\t2\n", ":1: call paths are written in version \"2\", .*"},
      {paths_name, call_paths("", "", "2\t3\t2\n"), ":19: .3. is the number of no row before"},
      {paths_name, call_paths("9\t1\t0\t1\t1\t1\t1\t1\t1\t0\n"), ":25: .9. is the number .*"},
      {paths_name, call_paths("", "end\t4\n"), ":28: the report has other numbers of paths .*"},
      {paths_name, call_paths("", ""), ":27: the report ends here, before its end"},
      {
          "missing/",
          "",
          "no such file",
      },
  };
  for (const auto& [name, text, sentence] : rows) {
    SCOPED_TRACE(sentence);
    const bool exists = !name.ends_with('/');
    if (exists) write(in(name), text);
    const RUN shown = run({"show", in(name)}, "ulimit -v 150000;");
    EXPECT_EQ(shown.status(), 2);
    EXPECT_EQ(shown.out(), "");
    EXPECT_THAT(shown.err(),
                MatchesRegex("tuk-mem: " + in(name) +
                             (exists ? sentence : ": No such file or directory") + "\n"));
    if (exists) fs::remove(in(name));
  }
}

TEST_F(THE_COMMAND, TakesOfADamagedReportWhatStandsBeforeWhenAsked) {
  write(in("run/mem_tbb_fileline.kvi.log"),
        sites_head + site("0x1", 1, 2, "app\ta.cpp\t5\tf()") + "0x2\t");
  const RUN shown = run({"show", in("run"), "--lenient", "--bytes"});
  EXPECT_EQ(shown.status(), 0);
  EXPECT_THAT(shown.out(), HasSubstr("a.cpp:5"));
  EXPECT_THAT(shown.err(), MatchesRegex("tuk-mem: .*:5: [^\n]*; what stands before is taken\n"));
}

// Columns in another order and of other names, names with tabs and line breaks.
TEST_F(THE_COMMAND, ReadsWhateverNamesAndColumnsThereAre) {
  write(in("run/mem_tbb_fileline.kvi.log"),
        "MEM: TBB Fileline Tracking Memory Snapshot. [at index 3]\n\n"
        "Module\tPeak bytes\tNew figure\tFunction\tLine\tFile\tAddress\n"
        "app\t5\t1\tf()\t7\ta\tb.cpp\t0x1\napp\t5\t1\tf()\t7\ta\nb.cpp\t0x2\nlib\t6\t1\tg()\t8\tx."
        "cpp\tOTHER\n" +
            end);
  write(in("run/mem_tbb_pbin_stats.kvi.log"), bins_head + "Root\t1\t2\na\tb\nc::d\t3\t4\n");
  write(in("run/mem_tbb_pbin_tag_stats.kvi.log"),
        "Memory Tracking - Profile Tag Stats\n\nName\tMax bytes\tPeak "
        "bytes\nRoot\t1\t2\na\tb\nc\t3\t4\n");
  write(in("run/mem_tbb_pbin_tag_timeline_detailed.kvi.log"),
        "MEM: TBB Module Tracking Detailed Memory "
        "Timeline.\n\n\tRoot\ta\tb\nc\nOther\t1\t2\nx\ty\t3\t4\n" +
            end);
  write(
      in("run/mem_tbb_subsystem_base_addresses.kvi.log"),
      "\"base address\",\"module\",\"dll_path\"\n\"0\",\"a\nb\",\"/a\nb\"\n\"0x5\",\"c\",\"/c\"\n");
  write(in("run/mem_tbb_leak_warning.kvi.log"),
        "MEM: TBB Leak Checking Summary.\n\na\nb leaked 5 bytes in 1 object(s) allocated at x\ny:1 "
        "f\n\nTotal leaked bytes: 5\n");
  const reports::RUN run = reports::read_run(in("run"));
  ASSERT_EQ(run.processes.size(), 1U);
  const reports::PROCESS& process = run.processes[0];
  ASSERT_EQ(process.sites->rows.size(), 3U);
  EXPECT_EQ(process.sites->rows[0].file, "a\tb.cpp");
  EXPECT_EQ(process.sites->rows[0].address, 1U);
  EXPECT_EQ(process.sites->rows[0].figures[reports::PEAK_BYTES], 5);
  EXPECT_EQ(process.sites->rows[1].file, "a\nb.cpp");
  EXPECT_TRUE(process.sites->rows[2].is_catch_all);
  EXPECT_EQ(process.path_of_module("a\nb"), "/a\nb");
  EXPECT_EQ(process.path_of_module("c"), "/c");
  EXPECT_EQ(process.leaks->rows.at(0).file, "x\ny");
  EXPECT_EQ(process.bins->rows[1].name, "a\tb\nc::d");
  EXPECT_EQ(process.tag_bytes->series[1].name, "a\tb\nc");
  EXPECT_THAT(process.tag_bytes->series[1].values, ElementsAre(2, 4));
  EXPECT_EQ(process.tag_bytes->phases[1].label, "x\ty");
}

// Processes are summed or listed; snapshots are not counted twice, and stand in for an end that
// never came.
TEST_F(THE_COMMAND, FindsTheProcessesOfARun) {
  const auto of = [](int peak) { return sites(site("0x1", 0, peak, "app\ta.cpp\t5\tf()")); };
  write(in("run/7/mem_tbb_fileline.kvi.log"), of(1));
  write(in("run/7/snapshot-0001/mem_tbb_fileline.kvi.log"), of(2));
  write(in("run/deeper/8/snapshot-0002/mem_tbb_fileline.kvi.log"), of(4));
  write(in("run/deeper/8/snapshot-0010/mem_tbb_fileline.kvi.log"), of(8));
  write(in("run/deeper/8/snapshot-0011.incomplete.8/mem_tbb_fileline.kvi.log"), "");
  write(in("run/9/mem_tbb_fileline.one.log"), of(16));
  write(in("run/9/mem_tbb_fileline.two.log"), of(32));
  const RUN summed = run({"show", in("run"), "--csv"});
  EXPECT_THAT(summed.out(), HasSubstr("\n,,app,a.cpp,5,f(),4,0,5700,5700,5700,0\n"));
  EXPECT_THAT(summed.err(),
              MatchesRegex("[^\n]*killed while it wrote this snapshot\n[^\n]*its last "
                           "snapshot is taken, snapshot-0010\n"));
  EXPECT_THAT(
      run({"show", in("run"), "--csv", "--per-process"}).out(),
      MatchesRegex("process.*\n7,.*,100,100,0\n9,.*,1600,.*\n9,.*,3200,.*\ndeeper/8,.*,800,.*\n"));
}

TEST_F(THE_COMMAND, ShowsOneRowForALineAndNamesAsText) {
  write(in("a.log"),
        sites(site("0x1", 1, 20, "app\t/x/a.cpp\t5\tf<int>()") +
              site("0x2", 1, 30, "lib\t/x/a.cpp\t5\tf<long>()") +
              site("0x3", 4, 4,
                   "app\t/x/\x1b[1m\xff\xe2\x80\xae\xe2\x81\xa9\xe2\x81\xaa.cpp\t9\tg(;)") +
              site("OTHER", -3, 1, "\t\t0\t")));
  const std::tuple<std::vector<std::string>, std::string> rows[] = {
      {std::vector<std::string>{},
       "a\n PEAK  CURRENT  TOTAL  LINE[^\n]*\n"
       "4.88K      200  4.88K  a.cpp:5 +f<long>\\(\\) \\+  lib \\+\n"
       "  400      400    400  .x1b.1m\xef\xbf\xbd.xe2.x80.xae.xe2.x81.xa9\xe2\x81\xaa.cpp:9  "
       "g[^\n]*\n"
       "  100     -300    100  OTHER\n5.37K      300  5.37K  total\n"},
      {{"--sort", "current_bytes", "--top", "1", "--columns", "current_bytes", "--bytes"},
       "a\nCURRENT  LINE[^\n]*\n    400 [^\n]*:9 [^\n]*\n   -100  \\(2 more\\)\n    300  total\n"},
      {{"--match", "lib|^g", "--by", "function", "--columns", "peak_bytes"},
       "a\n PEAK  FUNCTION[^\n]*\n2.93K  f<long>\\(\\)  a.cpp +lib\n  400 [^\n]*\n[^\n]*total\n"},
      {{"--by", "module", "--sort", "name", "--columns", "peak_blocks,peak_bytes", "--bytes"},
       "a\nPEAK  MODULE\n 100  OTHER\n2400  app\n3000  lib\n5500  total\n"}};
  fs::rename(in("a.log"), in("mem_tbb_fileline.a.log"));
  for (auto [words, table] : rows) {
    words.insert(words.begin(), {"show", in("mem_tbb_fileline.a.log")});
    const RUN shown = run(words);
    EXPECT_THAT(shown.out(), MatchesRegex(table)) << shown.err();
  }
  EXPECT_THAT(run({"export", in("mem_tbb_fileline.a.log"), "--to", "folded"}).out(),
              HasSubstr("g(,):9 400\n"));
}

TEST_F(THE_COMMAND, ShowsAndExportsStacks) {
  write(in("run/" + paths_name), call_paths());
  const std::tuple<std::vector<std::string>, std::string> rows[] = {
      {{"show", "--tree", "--bytes", "--columns", "peak_bytes,current_bytes"},
       "kvi\nPEAK%  PEAK  CURRENT  CALLERS\n"
       " 89.7    26       15  f..  a.{1,2}tb.cpp:5\n"
       " 69.0    20       10    - helper_of_the_test[^\n]*\n"
       " 69.0    20       10      outer_of_the_test[^\n]*\n"
       " 20.7     6        5    - .beyond the limit.\n"
       " 10.3     3        3  OTHER\n 10.3     3        3    helper_of_the_test[^\n]*\n"
       " 10.3     3        3    gone.0x88  .gone.\n 10.3     3        3    outer[^\n]*\n"
       "100.0    29       18  total\n"},
      {{"show", "--from", "outer_.*", "--by", "function", "--columns", "temporary_blocks"},
       "kvi\nPEAK%  TEMPORARY#  OWN  CALLEES\n100.0           1    0  outer[^\n]*\n"
       " 87.0           1    0    - helper[^\n]*\n 87.0           1   20      f[^\n]*\n"
       " 13.0           0    0    - gone.0x88  .gone.\n 13[^\n]*\n 13[^\n]*OTHER\n"
       "100.0           1    0  total\n"},
      {{"show", "--tree", "--focus", "gone.0x88", "--by", "module", "--columns", "peak_blocks"},
       "kvi\nPEAK%  PEAK#  CALLERS\n100.0      1  OTHER\n[^\n]*  command_tests\n[^\n]*  gone\n"
       "[^\n]*  command_tests\n100.0      1  total\n"},
      {{"show", "--tree", "--ignore", "outer", "--top", "1", "--columns", "peak_bytes"},
       "kvi\nPEAK%  PEAK  CALLERS\n100.0     6  f[^\n]*\n[^\n]*  .beyond the limit.\n[^\n]*\n"},
      {{"export", "--to", "folded"},
       "outer_of_the_test;helper_of_the_test;f.. 20\n.beyond the limit.;f.. 6\n"
       "outer_of_the_test;gone.0x88;helper_of_the_test;OTHER 3\n"}};
  for (auto [words, text] : rows) {
    words.insert(words.begin() + 1, in("run"));
    const RUN shown = run(words);
    EXPECT_THAT(shown.out(), MatchesRegex(text)) << shown.err();
    EXPECT_THAT(shown.err(),
                HasSubstr("/nowhere/libgone.so: No such file or directory: its frames"));
  }
  EXPECT_THAT(
      run({"show", in("run"), "--tree", "--json"}).out(),
      AllOf(HasSubstr("\"frames\":[{\"module\":\"gone\",\"file\":\"/x/a\\tb.cpp\",\"line\":5,"),
            HasSubstr("\"nodes\":[{\"frame\":0,\"parent\":null,\"current_bytes\":15,")));
  write(in("run/" + paths_name), call_paths("", whole, "", "ab"));
  const RUN other_build = run({"show", in("run"), "--tree"});
  EXPECT_THAT(other_build.out(), HasSubstr("command_tests+" + offset(helper_of_the_test)));
  EXPECT_THAT(other_build.err(), HasSubstr("another build than the one that ran"));
  write(in("run/" + paths_name), call_paths());
  write(in("run/mem_tbb_run.kvi.log"),
        "executable\t/bin/a\npid\t5\nstart\t2001-01-01T00:00:00Z\nended\texit\nallocator\tx\n"
        "events_not_accounted\t0\n");
  EXPECT_THAT(run({"show", in("run"), "--tree"}).err(),
              HasSubstr("command_tests: no build id, and"));
  // A process that began later had the file as it is now.
  write(in("after/" + paths_name), call_paths());
  const RUN compared = run({"diff", in("run"), in("after"), "--html", in("page.html")});
  EXPECT_THAT(compared.err(), HasSubstr("command_tests: no build id, and"));
  std::stringstream page;
  page << std::ifstream(in("page.html")).rdbuf();
  EXPECT_THAT(page.str(), AllOf(HasSubstr("command_tests+" + offset(helper_of_the_test)),
                                HasSubstr("\"helper_of_the_test")));
}

/// One module, which is gone, so that frames are shown by offsets; of each stack the frames,
/// outermost first, its site, bin and peak. Three frames are kept of a stack.
struct STACK_OF_TEST {
  std::vector<int> frames;
  int site, bin, peak;
};
std::string stacks_report(const std::vector<STACK_OF_TEST>& stacks) {
  std::map<std::vector<int>, std::size_t> numbers = {{{}, 0}};
  std::string callers;
  std::string paths;
  for (const auto& [frames, site, bin, peak] : stacks) {
    std::vector<int> stack;
    for (const int frame : frames) {
      const std::size_t caller = numbers[stack];
      stack.push_back(frame);
      const auto [found, is_new] = numbers.emplace(stack, numbers.size());
      if (is_new)
        callers += std::to_string(found->second) + "\t" + std::to_string(caller) + "\t" +
                   std::to_string(frame) + "\n";
    }
    paths += std::to_string(numbers[frames]) + "\t" + std::to_string(site) + "\t" +
             std::to_string(bin) + "\t0\t" + std::to_string(peak) + "\t0\t0\t0\t0\t0\n";
  }
  const std::string count = std::to_string(stacks.size()) + "\n";
  return "Call "
         "paths\t1\nsetting\tdepth\t3\nsetting\tlimit\t9\nsetting\tper_bin\t1\nbeyond_limit\t0\n"
         "modules\t1\n1\t0x1000\t4096\t\tm\t/nowhere/"
         "m\nframes\t4\n1\t1\t0x1\n2\t1\t0x2\n3\t1\t0x3\n"
         "4\t1\t0x4\nsites\t3\n1\t0x1\tm\t/a.c\t1\tf\t0\t0\t0\t0\t0\t0\n2\t0x2\tm\t/b.c\t2\tg"
         "\t0\t0\t0\t0\t0\t0\n3\t0x3\tm\t/c.c\t3\t\t0\t0\t0\t0\t0\t0\ncallers\t" +
         std::to_string(numbers.size() - 1) + "\n" + callers +
         "bins\t2\n1\tread\n2\twrite\npaths\t" + count + paths + "end\t" + count;
}

// Figures by hand. m+0x1 begins all stacks, but for one that was deeper than three frames.
TEST_F(THE_COMMAND, ShowsTreesOfStacks) {
  write(in("run/" + paths_name), stacks_report({{{1, 4}, 1, 1, 60},
                                                {{1, 2, 4}, 1, 2, 20},
                                                {{2, 2, 4}, 1, 1, 10},
                                                {{1, 2, 4}, 2, 1, 25},
                                                {{}, 2, 0, -20},
                                                {{1, 4}, 3, 2, 5}}));
  const std::tuple<std::vector<std::string>, std::string> rows[] = {
      {{"show", "--tree"},
       "PEAK%  PEAK  CALLERS\n 90.0    90  f  a.c:1\n 60.0    60    - m+0x1  [m]\n"
       " 30.0    30    - m+0x2  [m]\n 20.0    20      - m+0x1  [m]\n 10.0    10      - m+0x2  [m]\n"
       " 10.0    10        (beyond the depth)\n  5.0     5  g  b.c:2\n 25.0    25    - m+0x2  [m]\n"
       " 25.0    25      m+0x1  [m]\n-20.0   -20    - (no call path)\n  5.0     5  c.c:3\n"
       "  5.0     5    m+0x1  [m]\n100.0   100  total\n"},
      {{"show", "--tree", "--percent-limit", "20", "--match", "f|g", "--ignore", "depth"},
       "PEAK%  PEAK  CALLERS\n 88.9    80  f  a.c:1\n 66.7    60    - m+0x1  [m]\n"
       " 22.2    20    - m+0x2  [m]\n 22.2    20      m+0x1  [m]\n 11.1    10  (2 more)\n100.0    "
       "90  total\n"},
      {{"show", "--from", "m.0x2", "--bin", "read"},
       "PEAK%  PEAK  OWN  CALLEES\n100.0    35    0  m+0x2  [m]\n 71.4    25   25    - g  b.c:2\n"
       " 28.6    10    0    - m+0x2  [m]\n 28.6    10   10      f  a.c:1\n100.0    35    0  "
       "total\n"},
      {{"show", "--tree", "--focus", "no call path|0x3", "--by", "module"},
       "PEAK%  PEAK  CALLERS\n        -20  m\n        -20    (no call path)\n        -20  total\n"},
      {{"export", "--to", "folded"},
       "m+0x1;f 60\nm+0x1;m+0x2;f 20\n(beyond the depth);m+0x2;m+0x2;f 10\nm+0x1;m+0x2;g 25\n"
       "m+0x1;?? 5\n"}};
  for (auto [words, text] : rows) {
    SCOPED_TRACE(testing::PrintToString(words));
    words.insert(words.begin() + 1, in("run"));
    if (words[0] == "show") words.insert(words.end(), {"--bytes", "--columns", "peak_bytes"});
    const RUN shown = run(words);
    EXPECT_EQ(shown.out(), words[0] == "show" ? "kvi\n" + text : text) << shown.err();
  }
  EXPECT_THAT(run({"show", in("run"), "--tree"}).err(),
              HasSubstr("kvi: 1 of 6 call paths are deeper than the 3 frames that were kept"));
  EXPECT_THAT(run({"show", in("run"), "--from", "main"}).err(),
              HasSubstr("function of that name; outermost are m+0x1\n"));
}

// Functions that are inlined are frames of their own; the stack begins at the site's.
TEST(Stacks, ShowInlinedFunctionsAndFoldFrames) {
  using reports::FRAMES;
  reports::CALL_PATHS paths;
  paths.modules.emplace_back();
  paths.frames = {{1, 1}, {1, 2}};
  paths.callers = {{0, 1}, {1, 2}, {2, 2}};
  paths.sites.emplace_back().function = "site";
  paths.sites.back().line = 5;
  paths.paths = {{3, 1, 0, {}}};
  reports::PLACES places;
  const auto place = [&](std::string_view function, std::uint32_t line, bool is_folded) {
    reports::FRAME_PLACE one;
    one.function = function;
    one.line = line;
    one.is_folded = is_folded;
    return places.number(one);
  };
  reports::RESOLVED_FRAMES frames;
  frames.add(std::vector{place("main", 1, false)});
  frames.add(std::vector{place("std::inner", 4, true), place("site", 5, false),
                         place("std::outer", 6, true), place("caller", 7, false)});
  const reports::CALL_STACKS stacks(paths, frames, places);
  const auto names = [&](FRAMES which) {
    reports::CALL_STACKS::STACK stack;
    stacks.get(paths.paths[0], which, stack);
    std::string text;
    for (const auto& frame : stack) text.append(places[frame.place].function).append(" ");
    return text;
  };
  EXPECT_EQ(names(FRAMES::FOLDED), "site caller site caller main ");
  EXPECT_EQ(names(FRAMES::ALL), "site std::outer caller std::inner site std::outer caller main ");

  reports::CALL_TREE_OPTIONS options;
  options.direction = reports::CALL_TREE_OPTIONS::CALLEES;
  options.by = reports::BY::FUNCTION;
  const auto before = reports::CALL_TREE::build({&stacks, 1}, options);
  options.frames = FRAMES::ALL;
  const auto pairs = pair_nodes(before, reports::CALL_TREE::build({&stacks, 1}, options), places);
  EXPECT_EQ(pairs.size(), 1U + 5 + 8 - 2) << "main and caller are in both at the same place";
}

TEST(Diff, PairsLinesThatHaveMoved) {
  using LINES = std::vector<std::uint32_t>;
  using PAIRS = std::vector<std::pair<std::size_t, std::size_t>>;
  const std::tuple<LINES, LINES, PAIRS> rows[] = {{{10}, {17}, {{0, 0}}},
                                                  {{10, 12}, {12, 14}, {{0, 0}, {1, 1}}},
                                                  {{10, 20, 30}, {10, 30}, {{0, 0}, {2, 1}}},
                                                  {{10, 20, 30}, {15, 35}, {{0, 0}, {2, 1}}},
                                                  {{10, 30}, {12, 20, 32}, {{0, 0}, {1, 2}}},
                                                  {{10, 20}, {11, 23}, {{0, 0}, {1, 1}}},
                                                  {LINES{}, {5}, PAIRS{}}};
  for (const auto& [before, after, pairs] : rows)
    EXPECT_EQ(reports::pair_lines(before, after), pairs) << testing::PrintToString(before);
}

TEST_F(THE_COMMAND, TellsWhatGrewShrankCameAndWent) {
  const std::string f = "app\t/old/a.cpp\t5\tf()", g = "app\t/old/a.cpp\t9\tg()";
  write(in("before/mem_tbb_fileline.kvi.log"), sites(site("0x1", 1, 20, f) + site("0x2", 0, 9, g) +
                                                     site("0x3", 0, 5, "app\tb.cpp\t1\th()")));
  write(in("after/mem_tbb_fileline.kvi.log"), sites(site("0x7", 1, 25, "app\t/new/a.cpp\t8\tf()") +
                                                    site("0x8", 0, 6, "app\t/new/a.cpp\t9\tg()") +
                                                    site("0x9", 0, 1, "app\tb.cpp\t1\ti()")));
  EXPECT_THAT(
      run({"diff", in("before"), in("after"), "--bytes"}).out(),
      MatchesRegex("CHANGE[^\n]*\n  .500    2000   2500  grew    a.cpp:8 [^\n]*\n"
                   "  -500     500      0  went [^\n]*h\\(\\)[^\n]*\n"
                   "  -300     900    600  shrank[^\n]*\n  .100       0    100  came[^\n]*\n"
                   "  -200    3400   3200          total\n0 changed[^\n]*, 0 are the same.\n"));
  EXPECT_THAT(run({"diff", in("before"), in("after"), "--json", "--top", "1"}).out(),
              HasSubstr("\"line\":8,\"function\":\"f()\",\"change\":\"grew\",\"line_before\":5,"
                        "\"before\":{\"current_bytes\":100,"));
}

TEST_F(THE_COMMAND, HoldsARunAgainstLimits) {
  write(in("run/mem_tbb_fileline.kvi.log"), sites(site("0x1", 2, 20, "app\ta.cpp\t5\tleaky(int)") +
                                                  site("0x2", 1, 30, "lib\tb<.cpp\t6\tg()")));
  write(in("less/mem_tbb_fileline.kvi.log"), sites(site("0x1", 2, 48, "app\ta.cpp\t5\tf()")));
  write(in("grown/mem_tbb_fileline.kvi.log"), sites(site("0x1", 9, 1, "app\tg.cpp\t5\tf()")));
  write(in("hookless/mem_tbb_fileline.kvi.log"), sites(site("OTHER", 0, 0, "\t\t0\t")));
  write(in("all.supp"), "# known\nleak:^leaky(*)$\n\nleak:b<\n");
  write(in("one.supp"), "leak:^eaky\nleak:leaky$\nleak:p$\nleak:lib\n");
  write(in("bad.supp"), "leak:a\nrace:b\n");
  const std::tuple<std::vector<std::string>, int, std::string> rows[] = {
      {{"--max-peak", "5000"}, 0, "holds: peak of kvi: 4.88K .5000 bytes., 5000 allowed\n"},
      {{"--max-peak", "4999"},
       1,
       "BROKEN: [^\n]*\n +2.93K  b<.cpp:6 [^\n]*\n +1.95K  a.cpp:5[^\n]*\n"},
      {{"--max-leaked", "0.2K"},
       1,
       "BROKEN: leaked: 300 [^\n]*\n +200  a.cpp:5[^\n]*\n +100[^\n]*\n"},
      {{"--max-leaked", "0", "--suppressions", in("all.supp")},
       0,
       "holds: leaked: 0 [^\n]*\nsupp.*"},
      {{"--max-leaked", "0", "--suppressions", in("one.supp")}, 1, "BROKEN: leaked: 200 .*"},
      {{"--baseline", in("less"), "--max-growth", "4.2%"}, 0, "holds: .*"},
      {{"--baseline", in("less"), "--max-growth", "4%"}, 1, "BROKEN: growth .*.2.93K  b<.*"},
      {{"--baseline", in("less"), "--max-growth", "200"}, 0, "holds: .*"},
      {{"--baseline", in("hookless"), "--max-growth", "1G"}, 2, ".*no heap block of kvi was .*"},
      {{"--max-leaked", "0", "--suppressions", in("bad.supp")}, 2, ".*supp:2: .race:b. is no .*"},
      {{"--max-peak", "12Q"}, 2, "tuk-mem: .12Q. is no size, as 200M or 1.5G is\n"},
      {{"--max-growth", "5%"}, 2, "tuk-mem: --max-growth and --baseline need each other\n"},
      {std::vector<std::string>{}, 2, "tuk-mem: check needs a limit: .*"},
      {{"--max-paek", "1"}, 2, "tuk-mem: [^\n]*--max-paek[^\n]*\nTry 'tuk-mem check --help'.\n"}};
  for (auto [words, status, said] : rows) {
    words.insert(words.begin(), {"check", in("run"), "--junit", in("junit.xml")});
    const RUN checked = run(words);
    EXPECT_EQ(checked.status(), status) << said;
    EXPECT_THAT(checked.out() + checked.err(), MatchesRegex(said));
  }
  EXPECT_THAT(run({"check", in("grown"), "--max-peak", "1"}).out(), HasSubstr("900  g.cpp:5"));
  run({"check", in("run"), "--max-leaked", "0", "--max-peak", "1G", "--junit", in("junit.xml")});
  EXPECT_THAT(
      content_of(in("junit.xml")),
      MatchesRegex(".*tests=\"2\" failures=\"1\">.*message=\"300 [^\n]*\">\n.*b&lt;.cpp.*"));
}

TEST_F(THE_COMMAND, SaysWhichReportsTellNothingOfWhatIsAsked) {
  write(in("run/1/mem_tbb_fileline.kvi.log"), sites(site("0x1", 0, 20, "app\ta.cpp\t5\tf()")));
  write(in("run/2/mem_tbb_pbin_stats.kvi.log"), bins_head + "Root\t1\t2\n");
  const std::string without = ": 1 of 2 processes have no report of such rows, as 2\n";
  const std::string no_column = ": no report has the column max_blocks\n";
  const std::tuple<std::vector<std::string>, int, std::string> rows[] = {
      {{"export", in("run"), "--to", "csv"}, 0, without},
      {{"export", in("run"), "--to", "folded", "--column", "current_bytes"},
       0,
       without + "tuk-mem: " + in("run") +
           ": no row has current_bytes above zero; --column peak_bytes tells more\n"},
      {{"export", in("run/1"), "--to", "folded", "--column", "max_blocks"}, 2, no_column},
      {{"diff", in("run/1"), in("run/1"), "--column", "max_blocks"}, 2, no_column}};
  for (const auto& [words, status, said] : rows) {
    const RUN asked = run(words);
    EXPECT_EQ(asked.status(), status);
    EXPECT_EQ(asked.err(), "tuk-mem: " + words[1] + said);
  }
}

// As any tool in a pipeline.
TEST_F(THE_COMMAND, KeepsTheMannersOfAPipeline) {
  write(in("mem_tbb_fileline.kvi.log"), sites(site("0x1", 2, 20, "app\ta.cpp\t5\tf()")));
  const std::string show = TUK_MEM_COMMAND " show " + in("mem_tbb_fileline.kvi.log");
  const std::pair<std::string, std::string> rows[] = {
      {show + " >/dev/full; echo $? >&2",
       "tuk-mem: standard output can't be written: No space left on device\n2\n"},
      {"trap \"\" PIPE; { sleep 0.2; " + show + "; echo $? >&2; } | true", "141\n"}};
  for (const auto& [script, said] : rows)
    EXPECT_EQ(RUN({.path = "/bin/bash", .arguments = {"-c", script}}).err(), said);
  EXPECT_THAT(run({"--help"}).out(), HasSubstr("show"));
  EXPECT_EQ(run({}).status(), 2);
}

}  // namespace
