// When, and for what: bins, tags, timelines, labels and peaks of hosts that bracket their work.
#include <algorithm>
#include <cstdio>

#include "tests/integration/tracked_program.h"

namespace {

using testing::ElementsAre, testing::MatchesRegex;

constexpr std::int64_t kib = 1024;
constexpr std::int64_t mib = 1024 * kib;

// The first sample with a label. The column of the labels has no title.
const REPORT::ROW& labelled(const REPORT& timeline, const std::string& label) {
  return *std::ranges::find(timeline.rows, label, [](const auto& row) { return row.text(""); });
}

std::int64_t sum_of(const REPORT::ROW& sample) {
  std::int64_t sum = 0;
  for (const auto& [column, cell] : sample.cells)
    if (!column.empty()) sum += std::stoll(cell);
  return sum;
}

TEST(ProfileBins, AreChargedWithWhatIsAllocatedWhileTheyAreOpen) {
  const RUN run(tracked("phases", {"open_bins"}, everything));
  ASSERT_EQ(run.status(), 0) << run.err();
  const REPORT bins(run.file("mem_tbb_pbin_stats.kvi.log"));
  constexpr std::tuple<const char*, int, int, int> rows[] = {
      {"T::outer", 4, 7, 2}, {"T::inner", 2, 2, 0}, {"Root::outer", 1, 1, 1}};
  EXPECT_EQ(bins.rows.size(), 1 + std::size(rows));
  for (const auto& [name, max, cumulative, current] : rows) {
    const REPORT::ROW& row = bins.row("Name", name);
    EXPECT_EQ(row.number("Max bytes"), max * mib) << name;
    EXPECT_EQ(row.number("Cumulative bytes"), cumulative * mib) << name;
    EXPECT_EQ(row.number("Current bytes"), current * mib) << name;
  }
  EXPECT_THAT(run.file("mem_tbb_pbin_tag_stats_mb.kvi.log"),
              MatchesRegex("Memory Tracking - Profile Tag Stats \\(MiB\\)\n\n"
                           "Name\tMax MiB\tPeak MiB\tCumulative MiB\tCurrent MiB\n"
                           ".*\nT\t4.000\t[0-9.]+\t9.000\t2.000\n.*"));
}

TEST(SummaryBins, MeasureGrowthAndPeak) {
  EXPECT_EQ(RUN(tracked("phases", {"open_bins"}, {{"KORVANE_MEM_PROFILE_PER_BIN", "1"}})).out(),
            "bin inner grew by 1048576 and reached 2097152\n"
            "bin outer grew by 2097152 and reached 4194304\n"
            "bin outer grew by 1048576 and reached 1048576\n"
            "bin outer grew by 0 and reached 1048576\n");
}

// What was said of every peak from `smallest` bytes on: total, timeline index and next peak.
struct PEAK {
  std::int64_t bytes, index, next;
};
std::vector<PEAK> peaks_said(const std::string& text, std::int64_t smallest) {
  std::vector<PEAK> peaks;
  for (const std::string& line : split(text, '\n')) {
    long bytes = 0, index = 0, next = 0;
    if (std::sscanf(line.c_str(),
                    "Debug: MEM: Memory tracking: recording peak bytes at %ld bytes (timeline "
                    "index %ld), next peak at >= %ld bytes",
                    &bytes, &index, &next) == 3 &&
        bytes >= smallest)
      peaks.push_back({bytes, index, next});
  }
  return peaks;
}

// By doubling up to the step of the setting, then by every step.
TEST(Peaks, AreRecordedWhereTheTotalHasDoubledOrCrossedAStep) {
  ENVIRONMENT environment = everything;
  environment["KORVANE_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD"] = "1";
  environment["mem_profile_fileline_peak_snapshot_threshold"] = "4194304";
  environment["debug_msg"] = "on";
  const RUN run(tracked("phases", {"climb"}, environment));
  std::vector<std::int64_t> mibs;
  for (const PEAK& peak : peaks_said(run.out(), mib)) {
    mibs.push_back(peak.bytes / mib);
    EXPECT_EQ(peak.next, std::min(2 * peak.bytes, (peak.bytes / (4 * mib) + 1) * 4 * mib));
  }
  EXPECT_THAT(mibs, ElementsAre(1, 3, 4, 8, 12, 16));
  // Held by the module at a sample, but not at the peak.
  const REPORT subsystem(run.file("mem_tbb_subsystem.kvi.log"));
  EXPECT_EQ(subsystem.row("Subsystem", "early").number("Max bytes"), 256 * kib);
  EXPECT_EQ(subsystem.row("Subsystem", "early").number("Peak bytes"), 0);
  const REPORT::ROW& program = subsystem.row("Subsystem", "phases");
  EXPECT_GE(program.number("Max bytes"), program.number("Peak bytes"));
}

// The second phase holds its large block when its peak is found. The title tells the moment of the
// peak shown.
TEST(Peaks, AtTheEndAreThoseOfTheHigherPhase) {
  constexpr std::tuple<const char*, std::int64_t, std::int64_t> rows[] = {
      {"flush_before_a_smaller_phase", 3 * mib, 0},
      {"flush_before_a_larger_phase", 0, 8 * mib + kib}};
  for (const auto& [scenario, first_phase, second_phase] : rows) {
    SCOPED_TRACE(scenario);
    ENVIRONMENT environment = everything;
    environment["debug_msg"] = "on";
    const RUN run(tracked("phases", {scenario}, environment));
    const REPORT tags(run.file("mem_tbb_pbin_tag_stats.kvi.log"));
    EXPECT_EQ(tags.row("Name", "P1").number("Peak bytes"), first_phase);
    EXPECT_EQ(tags.row("Name", "P2").number("Peak bytes"), second_phase);
    const REPORT fileline(run.file("mem_tbb_fileline.kvi.log"));
    EXPECT_EQ(fileline.sum("Peak bytes", "Function", "take(unsigned long)"),
              first_phase + second_phase);
    EXPECT_EQ(fileline.sum("Peak blocks", "Function", "take(unsigned long)"), 2);
    const auto peaks = peaks_said(run.out(), 0);
    const PEAK& highest = *std::ranges::max_element(peaks, {}, &PEAK::bytes);
    EXPECT_THAT(fileline.title,
                testing::EndsWith("[at index " + std::to_string(highest.index) + "]"));
    for (std::size_t i = 1; i < fileline.rows.size(); ++i)
      EXPECT_GE(fileline.rows[i - 1].number("Peak bytes"), fileline.rows[i].number("Peak bytes"));
  }
}

// Sample n finds the modules 1 to n, each of as many blocks as its number.
TEST(ModuleTimeline, ShowsTheEighteenLargestAndSumsUpTheOthers) {
  const RUN run(tracked("phases", {"load_modules"}, {{"KORVANE_MEM_PROFILE_PER_LIBRARY", "1"}}));
  ASSERT_EQ(run.status(), 0) << run.err();
  const REPORT detailed(run.file("mem_tbb_timeline_detailed.kvi.log"));
  const REPORT blocks(run.file("mem_tbb_cumulative_blocks_timeline_detailed.kvi.log"));
  const REPORT summary(run.file("mem_tbb_timeline.kvi.log"));
  EXPECT_EQ(summary.title, "MEM: TBB Module Tracking Memory Timeline.");
  ASSERT_EQ(summary.header.size(), 2U + 18U);
  EXPECT_EQ(summary.header[1], "Misc");
  EXPECT_EQ(summary.header.back(), "mod120");
  for (int sample = 1; sample <= 20; ++sample) {
    const std::string label = "sample " + std::to_string(sample);
    const REPORT::ROW& row = labelled(detailed, label);
    for (int module = 1; module <= 20; ++module) {
      const std::string name = "mod" + std::to_string(100 + module);
      const std::int64_t held = module <= sample ? module : 0;
      EXPECT_EQ(row.number(name), held * 64 * kib) << name << " at " << label;
      EXPECT_EQ(labelled(blocks, label).number(name), held) << name << " at " << label;
    }
    EXPECT_EQ(sum_of(labelled(summary, label)), sum_of(row)) << label;
  }
}

// With everything tracked, both timelines are sampled at the same events. The peaks that are found
// while the process ends add rows at the end.
TEST(Timelines, AreLabelled) {
  const RUN run(tracked("phases", {"label_samples"}, everything));
  const REPORT modules(run.file("mem_tbb_timeline.kvi.log"));
  const REPORT tags(run.file("mem_tbb_pbin_tag_timeline_detailed.kvi.log"));
  EXPECT_THAT(tags.header, ElementsAre("", "Root", "L"));
  const REPORT auxiliary(run.file("mem_tbb_auxiliary_timeline.kvi.log"));
  ASSERT_EQ(modules.rows.size(), tags.rows.size());
  ASSERT_EQ(modules.rows.size(), auxiliary.rows.size());
  constexpr const char* labels[] = {"a", "a", "L", "b", "a"};
  constexpr const char* bins[] = {"Root", "Root", "L::late", "L::later", "Root"};
  std::size_t sample = 0;
  for (std::size_t row = 0; row < tags.rows.size(); ++row) {
    if (modules.rows[row].text("") == "Other") continue;
    EXPECT_GT(auxiliary.rows[row].number("VmSize"), auxiliary.rows[row].number("RSS"));
    EXPECT_EQ(modules.rows[row].text(""), labels[sample]) << row;
    EXPECT_EQ(tags.rows[row].text(""), bins[sample]) << row;
    EXPECT_EQ(tags.rows[row].number("L"), sample < 2 ? 0 : 4 * kib) << row;
    if (sample < 4) ++sample;
  }
  EXPECT_EQ(sample, 4U);
}

TEST(Timelines, AllHoldTheMomentOfAPeak) {
  const RUN run(tracked("phases", {"peak_at_a_release"}, everything));
  const REPORT modules(run.file("mem_tbb_timeline.kvi.log"));
  EXPECT_LT(modules.row("", "peak").number("phases"), 16 * mib)
      << "its release is credited by then";
  const REPORT tags(run.file("mem_tbb_pbin_tag_timeline.kvi.log"));
  EXPECT_EQ(tags.row("", "R::rising").number("R"), 16 * mib);
  const REPORT auxiliary(run.file("mem_tbb_auxiliary_timeline.kvi.log"));
  EXPECT_EQ(auxiliary.rows.size(), modules.rows.size());
  EXPECT_THAT(auxiliary.header,
              ElementsAre("nthreads", "VmSize", "RSS", "rss_percentage", "VmSwap", "major_faults",
                          "minor_faults", "profiler_num_allocs", "profiler_num_deallocs",
                          "profiler_num_outstanding", "profiler_requested_total",
                          "profiler_requested_outstanding", "profiler_allocated_total",
                          "profiler_allocated_outstanding"));
}

TEST(Sampling, OfEveryEventReportsEveryEighthIndex) {
  const RUN run(tracked("phases", {"open_bins"},
                        {{"KORVANE_MEM_PROFILE_PER_LIBRARY", "1"},
                         {"KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", "1"},
                         {"debug_msg", "on"}}));
  std::size_t reported = 0;
  std::string line = "at timeline index 0 with total memory ";
  while (run.out().find(line) != line.npos)
    line = "at timeline index " + std::to_string(8 * ++reported) + " with total memory ";
  // One row an event, and the shutdown's.
  const std::size_t samples = REPORT(run.file("mem_tbb_timeline.kvi.log")).rows.size() - 1;
  EXPECT_EQ(reported, (samples + 7) / 8);
}

}  // namespace
