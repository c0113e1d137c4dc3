// Names of bins and tags, and which is open.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <string>
#include <thread>

#include "mem/bins/bin_names.h"

namespace {

using NAMES = MEM_BIN_NAME_MGR<std::uint32_t>;

TEST(BinNames, KeepTheirIdsInOrderOfFirstOpening) {
  struct STEP {
    char const* opened;  // null: the name opened last is closed
    std::uint32_t current;
    char const* name;
  };
  constexpr STEP steps[] = {
      {"a", 1, "a"},       {"b", 2, "b"},     {"a", 1, "a"},     {nullptr, 2, "b"},
      {nullptr, 1, "a"},   {"a", 1, "a"},     {"A", 3, "A"},     {"", 4, ""},
      {"Root", 0, "Root"}, {nullptr, 4, ""},  {"b", 2, "b"},     {nullptr, 4, ""},
      {nullptr, 3, "A"},   {nullptr, 1, "a"}, {nullptr, 1, "a"}, {nullptr, 0, "Root"},
  };
  NAMES names;
  EXPECT_EQ(names.current_id(), 0U);
  EXPECT_EQ(names.get_curr_name(), "Root");
  EXPECT_THROW(names.id_to_name(1), std::out_of_range);
  for (const STEP& step : steps) {
    if (step.opened != nullptr)
      names.open(step.opened);
    else
      names.close(names.get_curr_name());
    EXPECT_EQ(names.current_id(), step.current) << &step - steps;
    EXPECT_EQ(names.get_curr_name(), step.name) << &step - steps;
  }
  EXPECT_EQ(names.id_to_name(3), "A");
  EXPECT_THROW(names.id_to_name(5), std::out_of_range);
}

TEST(BinNames, StayInPlaceWhileOthersAreAdded) {
  NAMES names;
  const auto& root = names.id_to_name(0);
  for (std::uint32_t id = 1; id <= 70000; ++id) names.open("bin" + std::to_string(id));
  EXPECT_EQ(names.current_id(), 70000U);
  EXPECT_EQ(root, "Root");
  names.open("bin65536");
  EXPECT_EQ(names.current_id(), 65536U);
}

TEST(BinNames, UnbalancedClosesEndTheProcess) {
  struct ROW {
    char const* condition;
    void (*broken_by)(NAMES&);
  };
  constexpr ROW rows[] = {
      {"!m_pb_id_stack.empty()", [](NAMES& names) { names.pop(); }},
      {"!m_pb_id_stack.empty()", [](NAMES& names) { names.close("Root"); }},
      {"!m_pb_id_stack.empty()",
       [](NAMES& names) {
         names.open("a");
         names.pop();
         names.pop();
       }},
      {"name == get_curr_name()", [](NAMES& names) { names.close("a"); }},
      {"name == get_curr_name()",
       [](NAMES& names) {
         names.open("x");
         names.open("y");
         names.close("x");
       }},
      {"name == get_curr_name()",
       [](NAMES& names) {
         names.open("x");
         names.close("X");
       }},
  };
  for (const ROW& row : rows) {
    NAMES names;
    EXPECT_EXIT(row.broken_by(names), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr(std::string("Internal error: MEM: ") + row.condition +
                                   " (mem/mem_tbb_tracker_profile_bins:"));
  }
}

// For the thread sanitizer: allocating threads ask while the host opens and closes.
TEST(BinNames, CurrentIdIsReadByOtherThreads) {
  NAMES names;
  std::atomic<bool> done = false;
  std::uint32_t largest = 0;
  std::thread reader([&] {
    while (!done) largest = std::max(largest, names.current_id());
  });
  for (std::uint32_t id = 1; id <= 2000; ++id) {
    names.open("bin" + std::to_string(id));
    if (id % 2 == 0) names.pop();
  }
  done = true;
  reader.join();
  EXPECT_LE(largest, 2000U);
}

}  // namespace
