// Which frame of a stack is the allocation site.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <ucontext.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <utility>

#include "mem/records/site_map.h"
#include "mem/settings/tuning.h"
#include "mem/stack/frame_rules.h"
#include "mem/stack/unknown_for_now.h"
#include "mem/stack/user_filters.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/unwind/stack_walk.h"
#include "platform/err_unwinder.h"
#include "tests/support/debug_lines.h"
#include "tests/support/scripted_symbolizer.h"
#include "tests/support/temporary_directory.h"

namespace {

using testing::ElementsAre;
struct RULE_ROW {
  bool (*is_rejected)(char const*);
  std::initializer_list<char const*> rejected, kept;
};

const RULE_ROW rules[] = {
    {mem_module_is_rejected,
     {"", "tuk_mem_more", "tbbmalloc", "Ormel", "LZMA", "stdc++fs", "IOMP5", "usermod2"},
     {"tool", "my_tuk_mem", "TBB", "ormel2", "lzmax", "lzm", "iomp"}},
    {[](char const* function) { return mem_frame_is_rejected(frame("tool", function, "/a.cpp")); },
     {"std::f", "void std::f", "mem_f", "MEM_F", "operator new(unsigned long)", "operator newish",
      "ZIV_F", "boost::f", "tbb::f", "brn::f", "user_function_2"},
     {"main", "stdx::f", "int std::f", "memory", "operator delete", "ziv_f", "a::boost::f"}},
    {[](char const* file) { return mem_frame_is_rejected(frame("tool", "f", file)); },
     {"/opt/zelt_tools/x.h", "/a/orm_x.cpp", "/a/mem_x.cpp", "/a/ziv_x.cpp",
      "/c++/12/new_allocator.h", "/a/pool_map_glue.h", "/a/fen_tools.cpp", "/a/sarn_mem_bridge.cpp",
      "/a/user_file.cpp"},
     {"/a/opt/zelt_tools/x.h", "/orm_a/x.cpp", "orm_x.cpp", "new_allocator.h",
      "/a/new_allocator.hpp", "/a/fen_tools.h"}}};

TEST(FrameRules, RejectWhatSaysNothingAboutTheRequester) {
  mem_user_filters_modules->emplace_back("usermod");
  mem_user_filters_functions->emplace_back("user_function");
  mem_user_filters_files->emplace_back("user_file");
  for (const RULE_ROW& rule : rules) {
    for (char const* text : rule.rejected) EXPECT_TRUE(rule.is_rejected(text)) << text;
    for (char const* text : rule.kept) EXPECT_FALSE(rule.is_rejected(text)) << text;
  }
}

using FRAMES = SCRIPTED_SYMBOLIZER::FRAMES;

// The function of the site that is chosen.
std::string site_of(std::vector<void const*> stack) {
  const MEM_INSIDE_AS_MOUSE mouse;
  std::unique_lock lock(mem_trace_lock);
  const MEM_ADDRESS_INFO& info =
      mem_filter_stack_trace(stack.data(), static_cast<int>(stack.size()), lock)->address_info;
  return info.address == nullptr ? "catch-all" : info.function_name_buffer;
}

TEST(StackFilter, ChoosesTheFirstFrameThatIsKept) {
  const FRAMES known[] = {{frame("tool", "std::f", "/a.cpp")},
                          {frame("tbb", "f", "/a.cpp")},
                          {frame("tool", "host", "/b.cpp"), frame("tool", "not me", "/c.cpp")},
                          {frame("tool", "std::f", "/a.cpp"), frame("tool", "no file", ""),
                           frame("tool", "inlined", "/c.cpp")},
                          {frame("tool", "no file", "")},
                          {frame("tool", "no file", "")}};
  SCRIPTED_SYMBOLIZER symbolizer;
  symbolizer.frames_at = [&](void const* address) { return *static_cast<FRAMES const*>(address); };
  EXPECT_EQ(site_of({&known[0], &known[1], &known[2]}), "host");
  EXPECT_EQ(site_of({&known[0], &known[3]}), "inlined");
  EXPECT_EQ(site_of({&known[0], &known[1], &known[4]}), "catch-all");
  EXPECT_EQ(symbolizer.source_requests, 4) << "once per address, never in a rejected module";
  mem_allow_no_fileline_info = true;
  EXPECT_EQ(site_of({&known[5]}), "no file");
}

// One more allocation at the address asks once its rest is over, not before. When several rest
// their module does, and no other.
TEST(StackFilter, AsksAgainForWhatIsUnknownForNow) {
  SCRIPTED_SYMBOLIZER symbolizer;
  symbolizer.frames_at = [](void const*) { return FRAMES{frame("tool", "found", "/a.cpp")}; };
  symbolizer.answers_hold = MEM_SYMBOL_ANSWER::for_now;
  static const std::array<char, 500> here{};
  const auto there = reinterpret_cast<void const*>(&std::puts);
  const auto rest = std::exchange(mem_unknown_address_rest, std::chrono::hours(1));
  for (int time = 0; time < 2; ++time) EXPECT_EQ(site_of({&here[0], &here[1]}), "catch-all");
  EXPECT_EQ(symbolizer.source_requests, 2);
  for (const char& address : here) EXPECT_EQ(site_of({&address}), "catch-all");
  EXPECT_LT(symbolizer.source_requests.exchange(0), 20);
  symbolizer.answers_hold = MEM_SYMBOL_ANSWER::for_good;
  for (const char& address : here) EXPECT_EQ(site_of({&address}), "catch-all");
  EXPECT_EQ(site_of({&here[0], there}), "found");
  EXPECT_EQ(symbolizer.source_requests, 1);
  mem_unknown_address_rest = std::chrono::milliseconds(0);
  EXPECT_EQ(site_of({&here[0]}), "found");
  mem_unknown_address_rest = rest;
}

TEST(UserFilters, AreReadLineByLine) {
  const TEMPORARY_DIRECTORY directory;
  write_file("filters",
             "\n# a comment\n  filter_module foo # my wrapper\nfilter_module foo bar\n"
             "filter_function #\nFilter_module foo\nfilter_function\tget_  \n"
             "filter_file_basename glue.\n   \t\nfilter_module last #");
  setenv("mem_user_defined_filters_file", "filters", 1);
  EXPECT_THAT(
      debug_lines_of(mem_read_user_filters),
      ElementsAre(
          "reading user defined filters from \"filters\"", "accepting module filter: \"foo\"",
          "lineno 4: unexpected text following filter argument",
          "lineno 5: missing filter argument",
          "line 6: unexpected filter command: \"Filter_module\"",
          "accepting function filter: \"get_\"", "accepting file basename filter: \"glue.\"",
          "accepting module filter: \"last\"", "accepted 4 user defined filters (3 errors)"));
}

// Innermost frame first; null beyond the outermost. Nothing here allocates: a signal handler does
// the same.
using STACK = std::array<void const*, 60>;

// The same stack by the library's own unwinder and by the C library's.
struct STACKS {
  STACK ours{}, expected{};
};

MEM_UNWIND_FRAME frame_above(void const* own_frame) {
  auto const* const words = static_cast<std::uintptr_t const*>(own_frame);
  return {words[1], reinterpret_cast<std::uintptr_t>(words + 2), words[0]};
}

[[gnu::noinline]] STACKS innermost() {
  auto* const caller =
      reinterpret_cast<void const*>(frame_above(__builtin_frame_address(0)).return_address);
  STACK frames{};
  const auto captured = [&](char const* unwinder) {
    const int count = ERR_UNWINDER::get_unwinder(unwinder)->capture(frames.data(), 60, 1, 0);
    auto* const end = frames.begin() + count;
    STACK stack{};
    std::copy(std::find(frames.begin(), end, caller), end, stack.begin());
    return stack;
  };
  return {captured("eh_frame_internal"), captured("backtrace")};
}

STACKS found;

// Each calls the one before, from a frame of another kind.
[[gnu::noinline, gnu::optimize("omit-frame-pointer")]] STACKS from_behind_a_return(int last) {
  static volatile int kept = 0;
  found = {};
  if (kept == last) [[likely]]
    return {};
  return innermost();
}

void from_library_callback() {
  int values[] = {2, 1};
  std::qsort(values, 2, sizeof values[0], [](void const*, void const*) {
    found = from_behind_a_return(1);
    return 0;
  });
}

[[gnu::optimize("omit-frame-pointer")]] void from_large_frame() {
  volatile char room[700'000];
  room[0] = 1;
  from_library_callback();
  room[1] = room[0];
}

void from_aligned_frame() {
  alignas(128) volatile char room[256];
  room[0] = 1;
  from_library_callback();
  room[1] = room[0];
}

constexpr std::size_t page = 4096;

// Pages of a stack between two that can't be read.
stack_t guarded_stack() {
  constexpr std::size_t size = 64 * page;
  auto* const pages = static_cast<char*>(
      mmap(nullptr, size + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(pages + page, size, PROT_READ | PROT_WRITE);
  return {.ss_sp = pages + page, .ss_flags = 0, .ss_size = size};
}

void from_other_signal_stack() {
  const stack_t wanted = guarded_stack();
  stack_t former;
  sigaltstack(&wanted, &former);
  struct sigaction action {};
  action.sa_flags = SA_ONSTACK;
  action.sa_handler = [](int) { from_aligned_frame(); };
  sigaction(SIGUSR1, &action, nullptr);
  std::raise(SIGUSR1);
  sigaltstack(&former, nullptr);
}

void from_fiber() {
  static ucontext_t fiber, here;
  getcontext(&fiber);
  fiber.uc_stack = guarded_stack();
  fiber.uc_link = &here;
  makecontext(&fiber, from_aligned_frame, 0);
  swapcontext(&here, &fiber);
}

void expect_agreement(void (*walk)()) {
  walk();
  const STACKS stacks = found;
  ASSERT_NE(stacks.expected[5], nullptr);
  EXPECT_EQ(stacks.ours, stacks.expected);
}

TEST(Unwinders, AgreeOnFramesOfEveryKind) {
  for (auto* walk : {from_large_frame, from_aligned_frame, from_other_signal_stack, from_fiber}) {
    expect_agreement(walk);
    std::thread(expect_agreement, walk).join();  // another outermost frame
  }
}

// Frames of all sizes, at every place near the end of a stack that has no outermost frame.
TEST(AWalk, EndsWhereTheStackDoes) {
  from_large_frame();
  const STACK addresses = found.ours;
  const stack_t stack = guarded_stack();
  std::memset(stack.ss_sp, 0x11, stack.ss_size);
  const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(stack.ss_sp) + stack.ss_size;
  for (void const* address : addresses)
    for (std::uintptr_t below = 8; below < 2 * page; below += 8)
      for (const std::uintptr_t frame_pointer :
           {end - below, end - 8, end + 8, std::uintptr_t{0}}) {
        STACK frames{};
        const auto code = reinterpret_cast<std::uintptr_t>(address);
        const int count = mem_walk_stack({code, end - below, frame_pointer}, 0, frames.data(), 60);
        ASSERT_LE(count, 2) << address << " " << below;
      }
}

}  // namespace
