// When, and for what: bins, tags, timelines, labels and peaks of hosts that bracket their work. All
// sizes are sizes of the allocator, so that requested and allocated bytes are the same.
#include <cstdio>

#include "mem/bins/user_memory_tracker.h"
#include "mem/settings/tuning.h"
#include "mem/state/granularity.h"
#include "tests/support/debug_lines.h"
#include "tests/support/dumps.h"
#include "tests/support/report.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/tracked_sites.h"

namespace {

using testing::ElementsAre, testing::HasSubstr, testing::Pair;

constexpr std::int64_t kib = 1024;
constexpr std::int64_t mib = 1024 * kib;

// Everything is tracked, as if the environment said so at the start.
class PHASES : public TRACKER {
 protected:
  PHASES() {
    setenv("KORVANE_MEM_PROFILE_ALL", "1", 1);
    mem_enable_tracking(mem_get_tracking_granularity_from_env());
    MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory = true;
    MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = true;
  }
  // A report that the end writes.
  static REPORT written(const std::string& name) {
    return REPORT(content_of("mem_tbb_" + name + ".kvi.log"));
  }

 private:
  const TEMPORARY_DIRECTORY m_directory;
};

void* take(std::int64_t size) { return allocate_at<0>(static_cast<std::size_t>(size)); }
void give(void* block) { STAND_IN::release(block); }

// By how much a bin grew, and what it reached.
template <class WORK>
std::pair<std::int64_t, std::int64_t> in_bin(const char* name, const char* tag, WORK work) {
  std::uint64_t start = 0, end = 0, peak = 0;
  mem_open_profile_bin(name, tag);
  work();
  mem_close_profile_bin(tag, &start, &end, &peak);
  return {static_cast<std::int64_t>(end - start), static_cast<std::int64_t>(peak - start)};
}

void sample(const std::string& label) {
  mem_set_timeline_label(label);
  mem_user_snapshot_tracking_data();
}

// Nested, reopened, with and without a tag; what each holds stands beside, in MiB.
TEST_F(PHASES, ChargeTheirBinsAndMeasureGrowthAndPeak) {
  void* kept = nullptr;
  EXPECT_THAT(in_bin("outer", "T",
                     [&] {
                       give(take(4 * mib));         // T::outer 0, 4 at most
                       void* released = take(mib);  // T::outer 1
                       EXPECT_THAT(in_bin("inner", "",
                                          [&] {
                                            void* first = take(mib);  // T::inner 1
                                            kept = take(mib);         // T::inner 2
                                            give(first);              // T::inner 1
                                          }),
                                   Pair(mib, 2 * mib));
                       give(released);  // T::outer 0
                       take(mib);       // T::outer 1
                     }),
              Pair(2 * mib, 4 * mib));
  EXPECT_THAT(in_bin("outer", "T", [] { take(mib); }), Pair(mib, mib));  // T::outer 2
  EXPECT_THAT(in_bin("outer", "",
                     [&] {
                       take(mib);   // Root::outer 1
                       give(kept);  // T::inner 0
                     }),
              Pair(0, mib));
  mem_shutdown_tbb_tracking();
  const REPORT bins = written("pbin_stats");
  EXPECT_THAT(bins.header,
              ElementsAre("Name", "Max bytes", "Peak bytes", "Cumulative bytes", "Current bytes"));
  constexpr std::tuple<const char*, int, int, int> rows[] = {
      {"Root", 0, 0, 0}, {"T::outer", 4, 7, 2}, {"T::inner", 2, 2, 0}, {"Root::outer", 1, 1, 1}};
  EXPECT_EQ(bins.rows.size(), std::size(rows));
  for (const auto& [name, max, cumulative, current] : rows) {
    const REPORT::ROW& row = bins.row("Name", name);
    EXPECT_EQ(row.number("Max bytes"), max * mib) << name;
    EXPECT_EQ(row.number("Cumulative bytes"), cumulative * mib) << name;
    EXPECT_EQ(row.number("Current bytes"), current * mib) << name;
  }
  EXPECT_EQ(content_of("mem_tbb_pbin_tag_stats_mb.kvi.log"),
            "Memory Tracking - Profile Tag Stats (MiB)\n\n"
            "Name\tMax MiB\tPeak MiB\tCumulative MiB\tCurrent MiB\n"
            "Root\t1.000\t0.000\t1.000\t1.000\nT\t4.000\t4.000\t9.000\t2.000\n");
}

// What was said of every peak: its total and timeline index.
template <class WORK>
std::map<long, long> peaks_of(WORK work) {
  std::map<long, long> peaks;
  for (const std::string& line : debug_lines_of(work)) {
    long bytes = 0, index = 0, next = 0;
    if (std::sscanf(line.c_str(),
                    "Memory tracking: recording peak bytes at %ld bytes (timeline index %ld), next "
                    "peak at >= %ld bytes",
                    &bytes, &index, &next) < 3)
      continue;
    EXPECT_EQ(next, std::min(2 * bytes, (bytes + mib - 1) / mib * mib));
    peaks[bytes] = index;
  }
  return peaks;
}

// A module may hold most at a sample, and nothing at the last peak.
TEST_F(PHASES, KnowTheMostThatAModuleHeldAtASample) {
  site_module = "early";
  void* const early = allocate_at<1>(kib / 2);
  mem_user_snapshot_tracking_data();
  give(early);
  site_module = "alpha";
  take(mib);
  give(take(kib));
  const REPORT subsystem(text_of(dumps[1]));
  EXPECT_EQ(subsystem.row("Subsystem", "early").number("Max bytes"), kib / 2);
  EXPECT_EQ(subsystem.row("Subsystem", "early").number("Peak bytes"), 0);
  EXPECT_EQ(subsystem.row("Subsystem", "alpha").number("Max bytes"), mib + kib);
}

// A first phase with a peak of 3 MiB is flushed; the second one holds its large block when its peak
// is found. The title tells the moment of the peak shown.
void expect_the_higher_peak(std::int64_t second, std::int64_t first_shown,
                            std::int64_t second_shown) {
  mem_fileline_peak_snapshot_threshold = mib;
  const std::map<long, long> peaks = peaks_of([&] {
    in_bin("first", "P1", [] {
      void* a = take(1 * mib);
      void* b = take(2 * mib);
      give(a);
      mem_tbb_tracking_flush_peak();
      give(b);
    });
    in_bin("second", "P2", [&] {
      void* c = take(second);
      give(allocate_at<1>(kib));
      give(c);
    });
  });
  mem_shutdown_tbb_tracking();
  const REPORT tags(content_of("mem_tbb_pbin_tag_stats.kvi.log"));
  EXPECT_EQ(tags.row("Name", "P1").number("Peak bytes"), first_shown);
  EXPECT_EQ(tags.row("Name", "P2").number("Peak bytes"), second_shown);
  const REPORT fileline(content_of("mem_tbb_fileline.kvi.log"));
  EXPECT_EQ(fileline.sum("Peak bytes", "Module", "alpha"), first_shown + second_shown);
  EXPECT_EQ(fileline.sum("Peak blocks", "Module", "alpha"), 2);
  const auto& [highest, index] = *peaks.rbegin();
  EXPECT_EQ(highest, first_shown + second_shown);
  EXPECT_THAT(fileline.title, testing::EndsWith("[at index " + std::to_string(index) + "]"));
  for (std::size_t i = 1; i < fileline.rows.size(); ++i)
    EXPECT_GE(fileline.rows[i - 1].number("Peak bytes"), fileline.rows[i].number("Peak bytes"));
}
TEST_F(PHASES, ShowTheFlushedPeakWhenItWasHigher) { expect_the_higher_peak(mib, 3 * mib, 0); }
TEST_F(PHASES, ShowTheLastPeakWhenItWasHigher) {
  expect_the_higher_peak(8 * mib, 0, 8 * mib + kib);
}

TEST_F(PHASES, KeepAFlushedPeakOverAReset) {
  void* const block = take(3 * mib);
  give(take(kib));
  mem_tbb_tracking_flush_peak();
  give(block);
  mem_reset_tracking_entries();
  take(mib);
  mem_shutdown_tbb_tracking();
  EXPECT_EQ(written("fileline").sum("Peak bytes", "Module", "alpha"), 3 * mib + kib);
}

// Sample n finds the modules 1 to n, each of as many blocks as its number.
TEST_F(PHASES, HaveTheirEighteenLargestModulesAndTheSumOfTheOthersInTheSummary) {
  mem_disable_tracking(bits(2));
  std::vector<std::string> shown = {"", "Misc"};
  for (int module = 1; module <= 20; ++module) {
    const std::string name = "mod" + std::to_string(100 + module);
    if (module > 2) shown.push_back(name);
    site_module = name.c_str();
    for (int block = 0; block < module; ++block) sites_at[static_cast<std::size_t>(module)](kib);
    sample(std::to_string(module));
  }
  mem_set_timeline_label("end");
  mem_shutdown_tbb_tracking();
  const REPORT detailed = written("timeline_detailed"), summary = written("timeline");
  const REPORT blocks = written("cumulative_blocks_timeline_detailed");
  EXPECT_EQ(summary.title, "MEM: TBB Module Tracking Memory Timeline.");
  EXPECT_EQ(summary.header, shown);
  for (int sample = 1; sample <= 20; ++sample) {
    const std::string label = std::to_string(sample);
    const auto expect_row = [&](const REPORT& timeline, const std::string& module, int figure) {
      EXPECT_EQ(timeline.row("", label).number(module), figure) << module << " " << label;
    };
    expect_row(summary, "Misc", (sample == 1 ? 1 : 3) * kib);
    for (int module = 1; module <= 20; ++module) {
      const std::string name = "mod" + std::to_string(100 + module);
      const int held = module <= sample ? module : 0;
      expect_row(detailed, name, held * kib);
      expect_row(blocks, name, held);
      if (module > 2) expect_row(summary, name, held * kib);
    }
  }
}

// With everything tracked, all timelines are sampled at the same events; the end is one. A tag
// first charged at the third sample has zeros before; in force, it is the label.
TEST_F(PHASES, AreLabelledInEveryTimeline) {
  mem_set_timeline_label("first event");
  take(kib);
  sample("a");
  sample("a");
  in_bin("late", "L", [] {
    take(4 * kib);
    mem_user_snapshot_tracking_data();
  });
  mem_disable_profile_bin_tag_timeline_labels();
  mem_set_timeline_label("b");
  in_bin("later", "L", mem_user_snapshot_tracking_data);
  mem_set_timeline_label("a");
  mem_shutdown_tbb_tracking();
  const REPORT tags = written("pbin_tag_timeline_detailed");
  EXPECT_THAT(tags.header, ElementsAre("", "Root", "L"));
  EXPECT_THAT(tags.column(""), ElementsAre("Root", "Root", "Root", "L::late", "L::later", "Root"));
  EXPECT_THAT(tags.column("L"), ElementsAre("0", "0", "0", "4096", "4096", "4096"));
  EXPECT_THAT(written("timeline").column(""), ElementsAre("first event", "a", "a", "L", "b", "a"));
  EXPECT_THAT(written("timeline").column("alpha"),
              ElementsAre("1024", "1024", "1024", "5120", "5120", "5120"));
}

// Between two samples; the modules' figures are taken after the release.
TEST_F(PHASES, HoldTheMomentOfAPeakInEveryTimeline) {
  take(kib);
  in_bin("rising", "R", [] {
    void* large = take(16 * mib);
    mem_set_timeline_label("peak");
    give(large);
    mem_set_timeline_label("after");
  });
  mem_block_thread_tracking();
  allocate_at<0>(20);
  give(allocate_at<0>(100));
  mem_unblock_thread_tracking();
  mem_shutdown_tbb_tracking();
  const REPORT modules = written("timeline"), auxiliary = written("auxiliary_timeline");
  EXPECT_THAT(modules.column(""), ElementsAre("Other", "peak", "Other"));
  EXPECT_EQ(modules.row("", "peak").number("alpha"), kib);
  EXPECT_EQ(written("pbin_tag_timeline").row("", "R::rising").number("R"), 16 * mib);
  ASSERT_EQ(auxiliary.rows.size(), 3U);
  for (const REPORT::ROW& row : auxiliary.rows) EXPECT_GT(row.number("VmSize"), row.number("RSS"));
  EXPECT_THAT(auxiliary.header,
              ElementsAre("nthreads", "VmSize", "RSS", "rss_percentage", "VmSwap", "major_faults",
                          "minor_faults", "profiler_num_allocs", "profiler_num_deallocs",
                          "profiler_num_outstanding", "profiler_requested_total",
                          "profiler_requested_outstanding", "profiler_allocated_total",
                          "profiler_allocated_outstanding"));
  std::vector<std::string> own;
  for (std::size_t cell = 7; cell < auxiliary.header.size(); ++cell)
    own.push_back(auxiliary.rows.back().text(auxiliary.header[cell]));
  EXPECT_THAT(own, ElementsAre("2", "1", "1", "120", "8", "144", "32"));
}

TEST_F(PHASES, AreSampledAtEveryNthEventAndSayEveryEighth) {
  setenv("KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", "2", 1);
  mem_read_snapshot_settings();
  const auto said = debug_lines_of([] {
    for (int event = 0; event < 40; ++event) take(16);
  });
  EXPECT_THAT(said, ElementsAre(HasSubstr("at timeline index 0 with total memory 16"),
                                HasSubstr("at timeline index 8 with total memory 272"),
                                HasSubstr("at timeline index 16 with total memory 528")));
  mem_user_snapshot_tracking_data();  // takes a sample, and the place of one
  take(16);
  mem_shutdown_tbb_tracking();
  EXPECT_EQ(written("timeline").rows.size(), 20U + 2);
}

}  // namespace
