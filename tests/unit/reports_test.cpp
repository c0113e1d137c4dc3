// Reports: what they show, in which order, to which stream.
#include <unistd.h>

#include <regex>

#include "mem/bins/user_memory_tracker.h"
#include "mem/stack/unwinder.h"
#include "tests/support/debug_lines.h"
#include "tests/support/dumps.h"
#include "tests/support/grouping.h"
#include "tests/support/report.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/tracked_sites.h"

namespace {

using testing::Each, testing::ElementsAre, testing::HasSubstr, testing::MatchesRegex;

class REPORTS : public TRACKER {};

// What of a dump does not tell the time.
std::string figures_of(const std::string& text) {
  return std::regex_replace(
      text, std::regex("Time spent dumping:\t[0-9]+ clicks\\.\t[0-9.e-]+ seconds\\."), "timed");
}

TEST_F(REPORTS, LookTheSameWhateverLocaleAndFlags) {
  mem_enable_tracking(MEM_TRACK_ALL);
  allocate_at<0>(2000000);
  mem_user_snapshot_tracking_data();
  const std::locale odd(std::locale::classic(), new GROUPING);
  const std::locale former = std::locale::global(odd);
  for (const DUMP dump : dumps) {
    std::ostringstream plain;
    plain.imbue(std::locale::classic());
    dump(plain);
    std::ostringstream out;
    out.imbue(odd);
    out << std::hex << std::showbase << std::showpos << std::scientific << std::left;
    out.precision(2);
    out.fill('*');
    const std::ios::fmtflags flags = out.flags();
    dump(out);
    EXPECT_THAT(plain.str(), HasSubstr("2000000")) << "not grouped";
    EXPECT_EQ(figures_of(out.str()), figures_of(plain.str()));
    EXPECT_EQ(out.flags(), flags);
    EXPECT_EQ(out.precision(), 2);
    EXPECT_EQ(out.fill(), '*');
    EXPECT_TRUE(out.getloc() == odd);
  }
  std::locale::global(former);
}

// Every stack is a new address.
class COUNTING_UNWINDER final : public ERR_UNWINDER {
 public:
  char const* name() const override { return "counting"; }
  int capture(void const** buffer, int, int, int) override {
    buffer[0] = ++m_address;
    return 1;
  }

 private:
  char const* m_address = nullptr;
};

#if !defined __SANITIZE_ADDRESS__ && !defined __SANITIZE_THREAD__  // they use memory of their own
TEST_F(REPORTS, OfAHundredThousandSitesTakeTwentyMegabytes) {
  COUNTING_UNWINDER unwinder;
  mem_tbb_unwinder = &unwinder;
  mem_enable_tracking(bits(8));
  for (int site = 0; site < 100000; ++site) STAND_IN::release(STAND_IN::allocate(20));
  for (const DUMP dump : {dumps[0], dumps[1]}) {
    write_file("/proc/self/clear_refs", "5");  // the peak starts again
    const std::uint64_t before = mem_info_get_process_current_working_set_size();
    std::ostream nowhere(nullptr);
    dump(nowhere);
    EXPECT_LT(mem_info_get_process_peak_working_set_size(), before + 20000000);
  }
}
#endif

// Ties go by what is held, by what was ever held, and by address; that of the catch-all, which has
// the figures of some sites here, is null. No peak is recorded.
TEST_F(REPORTS, OrderSitesWithoutAPeak) {
  const TEMPORARY_DIRECTORY directory;
  m_symbolizer.frames_at = [line = 0](void const*) mutable {
    ++line;  // each site is asked about twice
    return SCRIPTED_SYMBOLIZER::FRAMES{frame("alpha", "f", "/f.cpp", line / 2)};
  };
  mem_enable_tracking(bits(8 | 16));
  constexpr std::size_t held[] = {16, 32, 16, 16, 32, 48, 16, 16};
  for (const std::size_t site : {5U, 2U, 7U, 0U, 3U, 6U, 1U, 4U}) sites_at[site](held[site]);
  for (const std::size_t site : {3U, 0U, 3U, 0U, 3U, 0U}) STAND_IN::release(sites_at[site](16));
  m_symbolizer.frames_at = [](void const*) {
    return SCRIPTED_SYMBOLIZER::FRAMES{frame("alpha", "std::f", "/f.cpp")};
  };
  allocate_at<8>(16);

  const REPORT fileline(text_of(dumps[0]));
  std::vector<std::string> lines;
  std::tuple<std::int64_t, std::int64_t, std::uint64_t> former(-1000, 0, 0);
  for (const REPORT::ROW& row : fileline.rows) {
    const bool is_catch_all = row.text("Address") == "OTHER";
    const std::tuple order(-row.number("Current bytes"), -row.number("Cumulative bytes"),
                           is_catch_all ? 0 : std::stoull(row.text("Address"), nullptr, 16));
    EXPECT_EQ(row.number("Peak bytes"), 0);
    EXPECT_TRUE(former < order) << row.text("Address");
    former = order;
    if (!is_catch_all) lines.push_back(row.text("Line"));
  }
  EXPECT_EQ(lines.size(), 8U);

  mem_shutdown_tbb_tracking();
  std::vector<std::string> leaks;
  for (const std::string& line : split(content_of("mem_tbb_leak_warning.kvi.log"), '\n'))
    if (line.starts_with("alpha leaked ")) leaks.push_back(split(split(line, ':')[1], ' ')[0]);
  EXPECT_EQ(leaks, lines);
}

TEST_F(REPORTS, LabelTheModulesByWhatWasInForceAndShowBytesAgainAfterTheEnd) {
  const TEMPORARY_DIRECTORY directory;
  mem_set_timeline_label("early");
  mem_enable_tracking(bits(2));
  allocate_at<0>(20);  // the first event takes a sample, of tags and label alone
  mem_set_timeline_label("late");
  mem_enable_tracking(bits(4));
  allocate_at<0>(100);
  for (char const* const name : {"Zone", "zone"}) {
    site_module = name;
    sites_at[*name == 'Z' ? 1 : 2](20);
  }
  mem_user_snapshot_tracking_data();
  mem_set_timeline_label("end");
  mem_shutdown_tbb_tracking();
  const REPORT timeline(text_of(dumps[4]));
  EXPECT_THAT(timeline.column(""), ElementsAre("late", "end"));
  EXPECT_THAT(timeline.header,
              ElementsAre("", "Misc", "OTHER", testing::StrCaseEq("zone"), "alpha"));
  EXPECT_THAT(timeline.column("alpha"), ElementsAre("112", "112"));
  EXPECT_THAT(content_of("mem_tbb_cumulative_blocks_timeline_detailed.kvi.log"),
              HasSubstr("\nlate\t1\t0\t2\nend\t1\t0\t2\n"));
}

TEST_F(REPORTS, OfFastLeakCheckingKnowThePeakOfAnEarlierPhase) {
  const TEMPORARY_DIRECTORY directory;
  mem_enable_tracking(bits(32));
  STAND_IN::release(allocate_at<0>(1000));
  mem_tbb_tracking_flush_peak();
  allocate_at<0>(20);
  mem_shutdown_tbb_tracking();
  EXPECT_THAT(content_of("mem_tbb_fast_leak_warning.log"),
              HasSubstr("Leaked bytes:                32\nPeak bytes on heap:        1008\n"));
  EXPECT_TRUE(mem_tracking_is_enabled(MEM_TRACK_LEAKS_FAST)) << "for hosts that ask later";
}

TEST_F(REPORTS, AreAllWrittenWhileABinIsOpenThatNoTimelineCanName) {
  const TEMPORARY_DIRECTORY directory;
  mem_enable_tracking(bits(2 | 4 | 16));
  MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = true;
  allocate_at<0>(20);
  for (int id = 0; id <= 65535; ++id) mem_open_profile_bin(std::to_string(id), "");
  allocate_at<0>(100);
  EXPECT_THAT(debug_lines_of(mem_shutdown_tbb_tracking), testing::Contains(HasSubstr("65536")));
  const REPORT samples(content_of("mem_tbb_pbin_tag_timeline.kvi.log"));
  ASSERT_EQ(samples.rows.size(), 1U);
  EXPECT_EQ(samples.rows[0].text(""), "Root");
  EXPECT_EQ(REPORT(content_of("mem_tbb_pbin_stats.kvi.log")).rows.back().text("Name"),
            "Root::65535");
  EXPECT_THAT(content_of("mem_tbb_leak_warning.kvi.log"), HasSubstr("\nTotal leaked bytes: 144\n"));
}

TEST_F(REPORTS, KnowTheNamesOfBinsThatAreBeingOpened) {
  mem_enable_tracking(bits(2));
  MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = true;
  std::atomic<bool> done = false;
  std::thread opener([&] {
    std::uint64_t bytes[3];
    for (int bin = 0; bin < 20000; ++bin) {
      const std::string tag = std::to_string(bin % 1000);
      mem_open_profile_bin(std::to_string(bin), tag);
      STAND_IN::release(allocate_at<0>(20));
      mem_close_profile_bin(tag, &bytes[0], &bytes[1], &bytes[2]);
    }
    done = true;
  });
  while (!done) {
    ASSERT_THAT(REPORT(text_of(dumps[2])).column("Name"),
                Each(MatchesRegex("Root|[0-9]+::[0-9]+")));
    ASSERT_THAT(REPORT(text_of(dumps[3])).column("Name"), Each(MatchesRegex("Root|[0-9]+")));
  }
  opener.join();
}

}  // namespace
