// When, and for what: bins, tags, timelines, labels and peaks of hosts that bracket their work.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/integration/tracked_program.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;

constexpr std::int64_t kib = 1024;
constexpr std::int64_t mib = 1024 * kib;

PROGRAM phases(const char* scenario, ENVIRONMENT environment = {{"KORVANE_MEM_PROFILE_ALL", "1"}}) {
  PROGRAM program = tracked("phases", std::move(environment));
  program.arguments = {scenario};
  return program;
}

std::vector<std::int64_t> numbers(const REPORT::ROW& row, const std::vector<std::string>& columns) {
  std::vector<std::int64_t> values;
  for (const std::string& column : columns) values.push_back(row.number(column));
  return values;
}

// The rows of a timeline, whose first column has no title.
std::vector<const REPORT::ROW*> rows_labelled(const REPORT& timeline, const std::string& label) {
  std::vector<const REPORT::ROW*> rows;
  for (const REPORT::ROW& row : timeline.rows())
    if (row.text("") == label) rows.push_back(&row);
  return rows;
}

TEST(ProfileBins, AreChargedWithWhatIsAllocatedWhileTheyAreOpen) {
  const RUN run(phases("open_bins"));
  ASSERT_EQ(run.status(), 0) << run.err();
  const std::string stats = run.file("mem_tbb_pbin_stats.kvi.log");
  const REPORT bins(stats);
  EXPECT_EQ(bins.title(), "Memory Tracking - Profile Bin Stats");
  EXPECT_THAT(bins.header(),
              ElementsAre("Name", "Max bytes", "Peak bytes", "Cumulative bytes", "Current bytes"));
  ASSERT_EQ(bins.rows().size(), 4U);
  const std::vector<std::string> columns = {"Max bytes", "Cumulative bytes", "Current bytes"};
  EXPECT_EQ(bins.rows()[0].text("Name"), "Root");
  EXPECT_THAT(numbers(bins.row("Name", "T::outer"), columns),
              ElementsAre(2 * mib, 3 * mib, 2 * mib));
  EXPECT_THAT(numbers(bins.row("Name", "T::inner"), columns), ElementsAre(2 * mib, 2 * mib, 0));
  EXPECT_THAT(numbers(bins.row("Name", "Root::outer"), columns), ElementsAre(mib, mib, mib));

  const REPORT tags(run.file("mem_tbb_pbin_tag_stats_mb.kvi.log"));
  EXPECT_EQ(tags.title(), "Memory Tracking - Profile Tag Stats (MiB)");
  EXPECT_THAT(tags.header(),
              ElementsAre("Name", "Max MiB", "Peak MiB", "Cumulative MiB", "Current MiB"));
  EXPECT_EQ(tags.row("Name", "T").text("Max MiB"), "3.000");
  EXPECT_EQ(tags.row("Name", "T").text("Cumulative MiB"), "5.000");
  EXPECT_EQ(tags.row("Name", "T").text("Current MiB"), "2.000");
}

TEST(SummaryBins, MeasureGrowthAndPeak) {
  const RUN run(phases("open_bins", {{"KORVANE_MEM_PROFILE_PER_BIN", "1"}}));
  EXPECT_EQ(run.out(),
            "start\n"
            "bin inner grew by 1048576 and reached 2097152\n"
            "bin outer grew by 2097152 and reached 3145728\n"
            "bin outer grew by 1048576 and reached 1048576\n"
            "bin outer grew by 0 and reached 1048576\n");
  const RUN off(phases("open_bins", {}));
  EXPECT_THAT(off.out(), HasSubstr("bin inner grew by 0 and reached 0\n"));
}

struct PEAK_ROW {
  const char* scenario;
  std::int64_t first_phase;
  std::int64_t second_phase;
};

// The second phase holds its large block when its peak is found.
TEST(Peaks, AtTheEndAreThoseOfTheHigherPhase) {
  for (const PEAK_ROW& row : {PEAK_ROW{"flush_before_a_smaller_phase", 3 * mib, 0},
                              PEAK_ROW{"flush_before_a_larger_phase", 0, 8 * mib + kib}}) {
    SCOPED_TRACE(row.scenario);
    const RUN run(phases(row.scenario));
    const REPORT tags(run.file("mem_tbb_pbin_tag_stats.kvi.log"));
    EXPECT_EQ(tags.row("Name", "P1").number("Peak bytes"), row.first_phase);
    EXPECT_EQ(tags.row("Name", "P2").number("Peak bytes"), row.second_phase);
    const REPORT fileline(run.file("mem_tbb_fileline.kvi.log"));
    const auto in_phases = [](const REPORT::ROW& site) {
      return site.text("File").ends_with("/phases.cpp");
    };
    EXPECT_EQ(fileline.sum("Peak bytes", in_phases), row.first_phase + row.second_phase);
    EXPECT_EQ(fileline.sum("Peak blocks", in_phases), 2);
    // Sorted by it.
    for (std::size_t i = 1; i < fileline.rows().size(); ++i)
      EXPECT_GE(fileline.rows()[i - 1].number("Peak bytes"),
                fileline.rows()[i].number("Peak bytes"));
  }
}

// Sample n finds the modules 1 to n, each of as many blocks as its number.
TEST(ModuleTimeline, ShowsTheEighteenLargestAndSumsUpTheOthers) {
  const RUN run(phases("load_modules", {{"KORVANE_MEM_PROFILE_PER_LIBRARY", "1"}}));
  ASSERT_EQ(run.status(), 0) << run.err();
  const REPORT detailed(run.file("mem_tbb_timeline_detailed.kvi.log"));
  const REPORT blocks(run.file("mem_tbb_cumulative_blocks_timeline_detailed.kvi.log"));
  const REPORT summary(run.file("mem_tbb_timeline.kvi.log"));
  EXPECT_EQ(detailed.title(), "MEM: TBB Module Tracking Detailed Memory Timeline.");
  EXPECT_EQ(summary.title(), "MEM: TBB Module Tracking Memory Timeline.");
  ASSERT_EQ(summary.header().size(), 2U + 18U);
  EXPECT_EQ(summary.header()[1], "Misc");
  EXPECT_EQ(summary.header().back(), "mod120");
  EXPECT_TRUE(std::is_sorted(detailed.header().begin() + 1, detailed.header().end(),
                             [](const std::string& a, const std::string& b) {
                               return strcasecmp(a.c_str(), b.c_str()) < 0;
                             }));
  for (int sample = 1; sample <= 20; ++sample) {
    const std::string label = "sample " + std::to_string(sample);
    const REPORT::ROW& row = *rows_labelled(detailed, label).at(0);
    std::int64_t all = 0;
    for (std::size_t column = 1; column < detailed.header().size(); ++column)
      all += row.number(detailed.header()[column]);
    for (int module = 1; module <= 20; ++module) {
      const std::string name = "mod" + std::to_string(100 + module);
      EXPECT_EQ(row.number(name), module <= sample ? module * 64 * kib : 0)
          << name << " at " << label;
      EXPECT_EQ(rows_labelled(blocks, label).at(0)->number(name), module <= sample ? module : 0);
    }
    const REPORT::ROW& summed = *rows_labelled(summary, label).at(0);
    std::int64_t shown = 0;
    for (std::size_t column = 1; column < summary.header().size(); ++column)
      shown += summed.number(summary.header()[column]);
    EXPECT_EQ(shown, all) << label;
  }
}

// With everything tracked, both timelines are sampled at the same events. The peaks that are found
// while the process ends add rows at the end.
TEST(Timelines, AreLabelled) {
  const RUN run(phases("label_samples"));
  const REPORT modules(run.file("mem_tbb_timeline.kvi.log"));
  const REPORT tags(run.file("mem_tbb_pbin_tag_timeline_detailed.kvi.log"));
  EXPECT_THAT(tags.header(), ElementsAre("", "Root", "L"));
  ASSERT_EQ(modules.rows().size(), tags.rows().size());
  std::size_t first = 0;
  while (modules.rows().at(first).text("") == "Other") ++first;
  constexpr const char* labels[] = {"a", "a", "L", "b", "a"};
  constexpr const char* bins[] = {"Root", "Root", "L::late", "L::later", "Root"};
  for (std::size_t row = 0; row < tags.rows().size(); ++row) {
    const std::size_t sample = row < first ? 0 : std::min<std::size_t>(row - first, 4);
    EXPECT_EQ(modules.rows()[row].text(""), row < first ? "Other" : labels[sample]) << row;
    EXPECT_EQ(tags.rows()[row].text(""), bins[sample]) << row;
    EXPECT_EQ(tags.rows()[row].number("L"), sample < 2 ? 0 : 4 * kib) << row;
  }
  EXPECT_GE(tags.rows().size(), first + 6);
}

TEST(Timelines, AllHoldTheMomentOfAPeak) {
  const RUN run(phases("peak_at_a_release"));
  const REPORT modules(run.file("mem_tbb_timeline.kvi.log"));
  const auto at_peak = rows_labelled(modules, "peak");
  ASSERT_EQ(at_peak.size(), 1U);
  // The sample is taken when the module's release has been credited.
  EXPECT_LT(at_peak[0]->number("phases"), 16 * mib);
  const REPORT tags(run.file("mem_tbb_pbin_tag_timeline.kvi.log"));
  const auto in_bin = rows_labelled(tags, "R::rising");
  ASSERT_GE(in_bin.size(), 1U);
  EXPECT_EQ(in_bin[0]->number("R"), 16 * mib);
  EXPECT_EQ(REPORT(run.file("mem_tbb_auxiliary_timeline.kvi.log")).rows().size(),
            modules.rows().size());
  EXPECT_EQ(
      REPORT(run.file("mem_tbb_pbin_tag_stats.kvi.log")).row("Name", "R").number("Peak bytes"),
      16 * mib);
}

TEST(AuxiliaryTimeline, HasTheProcessesFigures) {
  const RUN run(phases("peak_at_a_release", {{"mem_profile_auxiliary_timeline", "on"}}));
  const REPORT report(run.file("mem_tbb_auxiliary_timeline.kvi.log"));
  EXPECT_EQ(report.title(), "MEM: TBB Auxiliary Timeline");
  EXPECT_THAT(report.header(),
              ElementsAre("nthreads", "VmSize", "RSS", "rss_percentage", "VmSwap", "major_faults",
                          "minor_faults", "profiler_num_allocs", "profiler_num_deallocs",
                          "profiler_num_outstanding", "profiler_requested_total",
                          "profiler_requested_outstanding", "profiler_allocated_total",
                          "profiler_allocated_outstanding"));
  ASSERT_GE(report.rows().size(), 2U);
  for (const REPORT::ROW& row : report.rows()) {
    EXPECT_EQ(row.number("nthreads"), 1);
    EXPECT_EQ(row.number("VmSize") % kib, 0);
    EXPECT_NEAR(
        std::stof(row.text("rss_percentage")),
        100.0F * static_cast<float>(row.number("RSS")) / static_cast<float>(row.number("VmSize")),
        0.001F);
    EXPECT_EQ(row.number("profiler_num_outstanding"),
              row.number("profiler_num_allocs") - row.number("profiler_num_deallocs"));
    EXPECT_GT(row.number("minor_faults"), row.number("major_faults"));
  }
}

TEST(Sampling, OfEveryEventReportsEveryEighthIndex) {
  const RUN run(phases("open_bins", {{"KORVANE_MEM_PROFILE_PER_LIBRARY", "1"},
                                     {"KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", "1"},
                                     {"debug_msg", "on"}}));
  std::int64_t index = 0;
  for (const std::string& line : split(run.out(), '\n')) {
    constexpr std::string_view head = "Debug: MEM: Memory tracking: at timeline index ";
    if (!line.starts_with(head)) continue;
    EXPECT_EQ(std::stoll(line.substr(head.size())), index);
    EXPECT_THAT(line, HasSubstr(" with total memory "));
    index += 8;
  }
  // One row an event, and the shutdown's.
  const auto samples =
      static_cast<std::int64_t>(REPORT(run.file("mem_tbb_timeline.kvi.log")).rows().size()) - 1;
  EXPECT_EQ(index, (samples + 7) / 8 * 8);
}

}  // namespace
