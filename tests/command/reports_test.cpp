// The readers of reports: what a report may hold, and what is said of one that is damaged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <sstream>

#include "tests/command/written_reports.h"
#include "tests/support/temporary_directory.h"
#include "tools/reports/call_tree.h"
#include "tools/reports/read_run.h"
#include "tools/reports/row_groups.h"
#include "tools/reports/snapshot_samples.h"

namespace {

using namespace reports;
using testing::ElementsAre, testing::MatchesRegex;

const std::string timeline_head = "MEM: TBB Module Tracking Detailed Memory Timeline.\n\n";
const std::string leaks_head = "MEM: TBB Leak Checking Summary.\n\n";
const std::string modules_head = "\"base address\",\"module\",\"dll_path\"\n";
const std::string run_end = "pid\t5\nended\texit\nallocator\thooks\nevents_not_accounted\t0\n";

/// A report of call paths up to its callers; each section has one row.
const std::string paths_head =
    "Call paths\t1\nsetting\tdepth\t64\nbeyond_limit\t0\nmodules\t1\n1\t0x1000\t4096\t\ta\t/a\n"
    "frames\t1\n1\t1\t0x10\nsites\t1\n1\t0x1011\ta\ta.cpp\t5\tf()\t1\t1\t1\t1\t1\t1\n";
const std::string paths_end = "bins\t0\npaths\t1\n1\t1\t0\t1\t1\t1\t1\t1\t1\t0\nend\t1\n";

std::string callers(int count) {
  std::ostringstream text;
  text << "callers\t" << count << "\n";
  for (int i = 1; i <= count; ++i) text << i << "\t" << i - 1 << "\t1\n";
  return text.str();
}

// Every report in the current directory.
class READERS : public testing::Test {
 protected:
  PROCESS read() {
    m_run = read_run(".");
    EXPECT_EQ(m_run.processes.size(), 1U);
    return m_run.processes.at(0);
  }

  const TEMPORARY_DIRECTORY m_directory;
  RUN m_run;
};

TEST_F(READERS, SayWhereAndWhyAReportIsNone) {
  const std::string row = site("0x1", 1, 2, "app\ta.cpp\t5\tf()");
  const std::string auxiliary = "MEM: TBB Auxiliary Timeline\n\na\tb\n1\t";
  const std::string leak = "a leaked 5 bytes in 1 object(s) allocated at a:1 f\n";
  const std::string with_returns = "MEM: TBB Fileline Tracking Memory Snapshot.\r\n\r\n";
  std::string renumbered = callers(2);
  renumbered.replace(renumbered.find("\n2") + 1, 1, "3");
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"mem_tbb_fileline.x.log", with_returns, ":2: an empty line is expected before the header"},
      {"mem_tbb_fileline.x.log", sites_head + row + "\n" + end, ":5: the row has 1 cells .*"},
      {"mem_tbb_auxiliary_timeline.x.log", auxiliary + "nan\n" + end, ":4: .nan. stands where .*"},
      {"mem_tbb_auxiliary_timeline.x.log", auxiliary + "inf\n" + end, ":4: .inf. stands where .*"},
      {"mem_tbb_timeline_detailed.x.log", timeline_head + "a\tb\n" + end,
       ":3: the header of a timeline begins with a tab"},
      {"mem_tbb_leak_warning.x.log", leaks_head + leak, ":3: the report ends here, without its .*"},
      {"mem_tbb_leak_warning.x.log", leaks_head + "a leaked 5 bytes\n" + leak,
       ":3: this is no line of a leak report"},
      {"mem_tbb_fast_leak_warning.log",
       "For more detail, use INI mem_check_leaks=on\na memory leak summary\n=\n"
       "x Leaked bytes: 5\nPeak bytes on heap: 9\n",
       ":4: this is no line of a leak report"},
      {"mem_tbb_subsystem_base_addresses.x.log",
       modules_head + "\"0x1\",\"a\n\"0x2\",\"b\",\"/b\"\n",
       ":2: the row is not three quoted cells"},
      {"mem_tbb_run.x.log", "executable\t/a\nsetting\ta environment\n" + run_end,
       ":2: a setting .*"},
      {"mem_tbb_run.x.log", "executable\t/a\nmodule\t0x1 5 - /a\n" + run_end,
       ":2: a module has .*"},
      {"mem_tbb_run.x.log", "executable\t/a\nmodule\t1 5 - yes /a\n" + run_end,
       ":2: .1. stands .*"},
      {"mem_tbb_call_paths.x.log", paths_head + renumbered + paths_end,
       ":12: row 2 is expected .*"},
      {"mem_tbb_call_paths.x.log", paths_head + "called\t0\n" + paths_end,
       ":10: the section .callers. begins here"},
      {"mem_tbb_call_paths.x.log", paths_head + "callers\t-1\n" + paths_end,
       ":10: no section has so many rows"},
      {"mem_tbb_call_paths.x.log", paths_head + "callers\t2\n1\t0\t1\n",
       ":11: the report ends here, 1 rows before the section does"},
      {"mem_tbb_call_paths.x.log", paths_head + callers(1025) + paths_end, ":1035: no stack is .*"},
      {"mem_tbb_call_paths.x.log", paths_head + callers(1) + paths_end + "more\n",
       ":16: there is text behind the end of the report"},
      {"mem_allocations.log", "ptr=0x1\n", ":1: a report of this kind has no figures .*"}};
  for (const auto& [name, text, sentence] : rows) {
    write_file(name, text);
    try {
      read_run(name);
      ADD_FAILURE() << sentence << " is not said";
    } catch (const UNREADABLE& said) {
      EXPECT_THAT(said.what(), MatchesRegex(name + sentence));
    }
    std::filesystem::remove(name);
  }
  write_file("mem_tbb_call_paths.x.log", paths_head + callers(1024) + paths_end);
  EXPECT_EQ(read().call_paths->callers.size(), 1024U);
}

TEST_F(READERS, TakeEveryFormOfARow) {
  write_file("mem_tbb_run.x.log",
             "executable\t/bin/a\\tb\\n\\\\c\nargument\ta\\nb\nargument\t\n"
             "setting\tname environment a b\\tc\nmodule\t0x10 32 - no /lib/a b\n"
             "module\t0x50 16 ab yes /lib/c\n" +
                 run_end);
  write_file("mem_tbb_fileline.x.log",
             "MEM: TBB Fileline Tracking Memory Snapshot. [at index 12] of more\n\n" + titles +
                 site("0x1", 4, 2, "app\ta.cpp\t5\tf()") + "Error timing this dump.\n\n");
  write_file("mem_tbb_timeline_detailed.x.log",
             timeline_head + "\ta\tb\nx\t1\t-2\nx\t300\t400\ny\t5\t6\nx\t7\t8\n" + end);
  write_file("mem_tbb_auxiliary_timeline.x.log",
             "MEM: TBB Auxiliary Timeline\n\na\tb\n1.5\t18446744073709551615\n2e3\t7\n" + end);
  write_file("mem_tbb_leak_warning.x.log",
             leaks_head +
                 "OTHER leaked -5 bytes in 2 object(s) allocated at ??:0 ??\n\n"
                 "a leaked 7 bytes in 1 object(s) allocated at a:1:22:9 f:3 g\n"
                 "Total leaked bytes: 2\n");
  write_file("mem_tbb_fast_leak_warning.log",
             "For more detail, use INI mem_check_leaks=on\n\na memory leak summary\n=====\n"
             "Leaked bytes:     -3\nPeak bytes on heap:  9\n\nb memory leak summary\n=====\n"
             "Leaked bytes:  4\nPeak bytes on heap:  801\n");
  const PROCESS process = read();
  EXPECT_EQ(process.tag, "x") << "what has no tag is of the only process";
  EXPECT_EQ(process.facts->value("executable"), "/bin/a\tb\n\\c");
  EXPECT_THAT(process.facts->arguments, ElementsAre("a\nb", ""));
  EXPECT_EQ(process.facts->settings.at(0).value, "a b\tc");
  EXPECT_EQ(process.facts->modules.at(0).build_id, "");
  EXPECT_EQ(process.facts->modules.at(0).path, "/lib/a b");
  EXPECT_EQ(process.facts->modules.at(1).build_id, "ab");
  EXPECT_EQ(process.peak_sample, 12);
  const auto& phases = process.module_bytes->phases;
  ASSERT_EQ(phases.size(), 3U);
  EXPECT_EQ(std::tie(phases[0].label, phases[0].count), std::tuple("x", 2U));
  EXPECT_EQ(std::tie(phases[1].label, phases[1].first), std::tuple("y", 2U));
  EXPECT_THAT(process.module_bytes->totals(), ElementsAre(-1, 700, 11, 15));
  const auto& auxiliary = process.auxiliary->series;
  EXPECT_THAT(auxiliary.at(0).values, ElementsAre(1.5, 2000));
  EXPECT_TRUE(std::isnan(auxiliary.at(1).values[0])) << "what the kernel did not tell";
  EXPECT_EQ(auxiliary.at(1).values[1], 7);
  const auto& leaks = process.leaks->rows;
  EXPECT_TRUE(leaks.at(0).is_catch_all);
  EXPECT_EQ(leaks[0].figures[CURRENT_BYTES], -5);
  EXPECT_EQ(std::tie(leaks.at(1).file, leaks[1].line, leaks[1].function),
            std::tuple("a:1:22", 9U, "f:3 g"));
  ASSERT_EQ(process.leak_summaries.size(), 2U);
  EXPECT_EQ(process.leak_summaries[0].leaked_bytes, -3);
  EXPECT_EQ(process.leak_summaries[1].name, "b");

  // The highest that any report tells.
  EXPECT_EQ(process.highest_bytes(), 801);
  PROCESS without = process;
  without.leak_summaries.clear();
  EXPECT_EQ(without.highest_bytes(), 700) << "in a sample";
  without.module_bytes.reset();
  EXPECT_EQ(without.highest_bytes(), 400) << "at the end";
  EXPECT_EQ(samples_before_snapshot(".", "x"), std::nullopt);
  write_file("mem_tbb_timeline.x.log", timeline_head + "\ta\nx\t1\nx\t2\nx\t3\n" + end + "\n");
  EXPECT_EQ(samples_before_snapshot(".", "x"), 2U) << "the third is the snapshot's own";
}

// Processes in the order of their numbers, four folders deep, whoever else has a link there.
TEST_F(READERS, FindWhatIsBelowADirectory) {
  const std::string fileline = sites(site("0x1", 1, 2, "app\ta.cpp\t5\tf()"));
  for (char const* const folder : {"10", "9", "a/b/c/d", "a/b/c/d/e"})
    write(std::string(folder) + "/mem_tbb_fileline.x.log", fileline);
  write("9/snapshot-0001/mem_tbb_run.x.log", "executable\t/a\nseconds\t7\n" + run_end);
  write("9/snapshot-0002/mem_tbb_fileline.x.log", fileline);
  std::filesystem::create_directory_symlink("9", "8");
  std::filesystem::create_symlink("9/mem_tbb_fileline.x.log", "10/mem_tbb_fileline.y.log");
  const RUN run = read_run("./");
  std::vector<std::string> folders;
  for (const PROCESS& process : run.processes) folders.push_back(process.folder);
  EXPECT_THAT(folders, ElementsAre("9", "10", "a/b/c/d"));
  const auto& snapshots = run.processes.at(0).snapshots;
  ASSERT_EQ(snapshots.size(), 2U);
  EXPECT_EQ(snapshots[0].facts->value("seconds"), "7");
  EXPECT_FALSE(snapshots[1].facts);
}

TEST_F(READERS, GroupWhatIsOneRow) {
  write("1/mem_tbb_fileline.x.log",
        sites(site("0x1", 1, 2, "app\t/a.cpp\t5\tf()") + site("0x2", 1, 3, "lib\t/a.cpp\t5\tg()") +
              site("0x3", 1, 4, "app\t??\t0\tf()") + site("0x4", 1, 5, "lib\t??\t0\tf()") +
              site("0x5", 1, 6, "\t\t0\t")));
  write("1/mem_tbb_subsystem.x.log",
        "MEM: TBB Subsystem Tracking Memory Snapshot.\n\nSubsystem\tPeak bytes\tMax bytes\n"
        "app\t7\t8\nOTHER\t9\t9\n" +
            end);
  write("2/mem_tbb_subsystem.x.log",
        "MEM: TBB Subsystem Tracking Memory Snapshot.\n\nSubsystem\tPeak bytes\n"
        "app\t7\nlib\t9\n" +
            end);
  const RUN run = read_run(".");
  const auto names = [&](BY by) {
    std::vector<std::string> result;
    for (const GROUP& row : group({&run.processes.at(0)}, by).rows)
      result.emplace_back(row.name.empty() ? row.module : row.name)
          .append(1, static_cast<char>('0' + row.sites.size()));
    return result;
  };
  EXPECT_THAT(names(BY::LINE), ElementsAre("1", "lib2", "lib1", "app1"))
      << "a file that nobody knows is not the same one in two modules";
  EXPECT_THAT(names(BY::MODULE), ElementsAre("OTHER1", "app2"))
      << "beside the modules' own figures";
  const GROUPS both = group(all_processes(run), BY::MODULE);
  EXPECT_TRUE(both.known[PEAK_BYTES]);
  EXPECT_FALSE(both.known[MAX_BYTES]) << "one of the processes does not tell";
  EXPECT_EQ(both.total[PEAK_BYTES], 32);
}

// Stacks of one process, made frame by frame.
class CALL_TREES : public testing::Test {
 protected:
  std::uint32_t place(std::string_view function, std::string_view file, std::uint32_t line,
                      bool is_folded = false) {
    FRAME_PLACE place;
    place.function = function;
    place.file = file;
    place.line = line;
    place.is_folded = is_folded;
    return m_places.number(place);
  }
  // A frame called by that caller, 0 for none; of the places at it, the innermost first.
  std::uint32_t call(std::uint32_t caller, const std::vector<std::uint32_t>& places) {
    m_paths.frames.push_back({0, m_paths.frames.size()});
    m_frames.add(places);
    m_paths.callers.push_back({caller, static_cast<std::uint32_t>(m_paths.frames.size())});
    return static_cast<std::uint32_t>(m_paths.callers.size());
  }
  void allocate(std::uint32_t caller, const PLACE& site, int peak, std::uint32_t bin = 0) {
    m_paths.sites.push_back({site, 0, {}});
    m_paths.paths.push_back({caller, static_cast<std::uint32_t>(m_paths.sites.size()), bin, {}});
    m_paths.paths.back().figures.at(1) = peak;
    m_paths.paths.back().figures.at(0) = 100 - peak;
  }
  CALL_TREE built(CALL_TREE_OPTIONS options = {}) {
    options.direction = CALL_TREE_OPTIONS::CALLEES;
    m_stacks.emplace(m_paths, m_frames, m_places);
    return CALL_TREE::build({&*m_stacks, 1}, options);
  }
  // Each function with its peak, and in brackets what it calls.
  std::string text(const CALL_TREE& tree, std::uint32_t node = CALL_TREE::root) const {
    std::string result;
    for (const std::uint32_t child : tree.children(node)) {
      const auto& one = tree.nodes()[child];
      result.append(result.empty() ? "" : " ").append(m_places[one.place].function);
      result += std::to_string(one.all[PEAK_BYTES]);
      if (const std::string below = text(tree, child); !below.empty())
        result.append("(").append(below).append(")");
    }
    return result;
  }

  CALL_PATHS m_paths;
  PLACES m_places;
  RESOLVED_FRAMES m_frames;
  std::optional<CALL_STACKS> m_stacks;
};

// Its line is found among those inlined at its address, whatever its function is called there.
TEST_F(CALL_TREES, BeginBehindTheLineThatIsCharged) {
  const std::uint32_t main = call(0, {place("main", "m.cpp", 1)});
  const std::uint32_t caller =
      call(main, {place("std::in", "x.h", 4, true), place("mid", "b.cpp", 5),
                  place("f", "b.cpp", 6), place("out", "o.cpp", 7)});
  const std::tuple<PLACE, std::string> rows[] = {
      {{"", "b.cpp", 6, "f"}, "main7(out7(f7))"},
      {{"", "b.cpp", 6, "f.part.0"}, "main7(out7(f.part.07))"},
      {{"", "c.cpp", 6, "f"}, "main7(out7(f7))"},
      {{"", "Unknown", 0, "g"}, "main7(out7(f7(g7)))"},
      {{"", "x.h", 4, "std::in"}, "main7(out7(f7(mid7(std::in7))))"}};
  for (const auto& [site, expected] : rows) {
    m_paths.paths.clear();
    allocate(caller, site, 7);
    EXPECT_EQ(text(built()), expected);
  }
}

TEST_F(CALL_TREES, AreCutSortedAndSplitByBin) {
  const std::uint32_t main = call(0, {place("main", "m.cpp", 1)});
  const std::uint32_t recursive = place("rec", "m.cpp", 2);
  const std::uint32_t once = call(main, {recursive});
  const std::uint32_t twice = call(call(once, {recursive}), {place("f", "m.cpp", 3)});
  m_paths.bins = {"first", "second"};
  allocate(call(main, {place("g", "m.cpp", 4)}), {"", "m.cpp", 4, "g"}, 5, 1);
  allocate(twice, {"", "m.cpp", 3, "f"}, 20, 2);
  allocate(call(once, {place("h", "m.cpp", 5)}), {"", "m.cpp", 5, "h"}, 30);
  CALL_TREE tree = built();
  EXPECT_EQ(text(tree), "main55(g5 rec50(rec20(f20) h30))");
  tree.sort_by(PEAK_BYTES);
  EXPECT_EQ(text(tree), "main55(rec50(h30 rec20(f20)) g5)");
  tree.sort_by(CURRENT_BYTES);
  EXPECT_EQ(text(tree), "main55(rec50(rec20(f20) h30) g5)");
  CALL_TREE_OPTIONS options;
  options.bin = "second";
  EXPECT_EQ(text(built(options)), "main20(rec20(rec20(f20)))");
  options.bin = {};
  options.from.resize(recursive + 1);
  options.from[recursive] = true;
  EXPECT_EQ(text(built(options)), "rec50(rec20(f20) h30)");
  options.ignored.resize(place("h", "m.cpp", 5) + 1);
  options.ignored.back() = true;
  EXPECT_EQ(text(built(options)), "rec20(rec20(f20))");
}

// Of two runs, wherever they were built; two of one name stay two.
TEST_F(CALL_TREES, ArePairedByFunctionsAndBaseNames) {
  const auto allocate_in = [&](const std::string_view file, int peak) {
    allocate(call(call(0, {place("main", "m.cpp", 1)}), {place("f", file, 2)}), {"", file, 2, "f"},
             peak);
  };
  allocate_in("/old/a.cpp", 1);
  allocate_in("/old/sub/a.cpp", 2);
  allocate_in("/old/gone.cpp", 3);
  const CALL_TREE before = built();
  m_paths.paths.clear();
  allocate_in("/new/a.cpp", 10);
  allocate_in("/new/came.cpp", 20);
  const CALL_TREE after = built();
  std::vector<std::pair<std::int64_t, std::int64_t>> peaks;
  for (const CALL_TREE_PAIR& pair : pair_nodes(before, after, m_places))
    peaks.emplace_back(before.nodes()[pair.before].all[PEAK_BYTES],
                       after.nodes()[pair.after].all[PEAK_BYTES]);
  // The roots, main, and below it; the root stands where there is none.
  EXPECT_THAT(peaks,
              testing::UnorderedElementsAre(std::pair(6, 30), std::pair(6, 30), std::pair(1, 10),
                                            std::pair(2, 30), std::pair(3, 30), std::pair(6, 20)));
}

}  // namespace
