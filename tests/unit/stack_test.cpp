// Which frame of a stack is the allocation site.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mem/records/cat_mouse_lock.h"
#include "mem/records/site_map.h"
#include "mem/settings/tuning.h"
#include "mem/stack/frame_rules.h"
#include "mem/stack/user_filters.h"
#include "platform/err_unwinder.h"
#include "tests/support/debug_lines.h"
#include "tests/support/scripted_symbolizer.h"
#include "tests/support/temporary_directory.h"

namespace {

using testing::ElementsAre;
using TEXTS = std::initializer_list<char const*>;

void expect_kept(bool kept, TEXTS modules, TEXTS functions, TEXTS files) {
  for (char const* module : modules) EXPECT_NE(mem_module_is_rejected(module), kept) << module;
  for (char const* function : functions)
    EXPECT_NE(mem_frame_is_rejected(frame("tool", function, "/src/a.cpp")), kept) << function;
  for (char const* file : files)
    EXPECT_NE(mem_frame_is_rejected(frame("tool", "f", file)), kept) << file;
}

TEST(FrameRules, RejectWhatSaysNothingAboutTheRequester) {
  mem_user_filters_modules->emplace_back("usermod");
  mem_user_filters_functions->emplace_back("user_function");
  mem_user_filters_files->emplace_back("user_file");
  expect_kept(false,
              {"", "tuk_mem_more", "tbbmalloc", "Ormel", "LZMA", "stdc++fs", "IOMP5", "usermod2"},
              {"std::f", "void std::f", "mem_f", "MEM_F", "operator new(unsigned long)",
               "operator newish", "ZIV_F", "boost::f", "tbb::f", "brn::f", "user_function_2"},
              {"/opt/zelt_tools/x.h", "/a/orm_x.cpp", "/a/mem_x.cpp", "/a/ziv_x.cpp",
               "/c++/12/new_allocator.h", "/a/pool_map_glue.h", "/a/fen_tools.cpp",
               "/a/sarn_mem_bridge.cpp", "/a/user_file.cpp"});
  expect_kept(
      true, {"tool", "my_tuk_mem", "TBB", "ormel2", "lzmax", "lzm", "iomp"},
      {"main", "stdx::f", "int std::f", "memory", "operator delete", "ziv_f", "a::boost::f"},
      {"/a/opt/zelt_tools/x.h", "/orm_a/x.cpp", "orm_x.cpp", "new_allocator.h",
       "/a/new_allocator.hpp", "/a/fen_tools.h"});
}

using FRAMES = SCRIPTED_SYMBOLIZER::FRAMES;

MEM_ADDRESS_TRACKER& site_of(std::vector<void const*> stack) {
  const MEM_INSIDE_AS_MOUSE mouse;
  std::unique_lock<tbb::spin_mutex> lock(mem_trace_lock);
  return *mem_filter_stack_trace(stack.data(), static_cast<int>(stack.size()), lock);
}

std::string text_of(const MEM_ADDRESS_TRACKER& site) {
  const MEM_ADDRESS_INFO& info = site.address_info;
  if (info.address == nullptr) return "catch-all";
  return std::string(info.function_name_buffer) + " " + info.file_name_buffer;
}

TEST(StackFilter, ChoosesTheFirstFrameThatIsKept) {
  const FRAMES known[] = {{frame("tool", "std::f", "/a.cpp")},
                          {frame("tbb", "f", "/a.cpp")},
                          {frame("tool", "host", "/b.cpp"), frame("tool", "not me", "/c.cpp")},
                          {frame("tool", "std::f", "/a.cpp"), frame("tool", "boost::f", "/a.cpp"),
                           frame("tool", "no file", ""), frame("tool", "inlined", "/c.cpp")},
                          {frame("tool", "", "/a.cpp"), frame("tool", "caller", "/d.cpp")},
                          {frame("tool", "no file", "")},
                          {frame("tool", "no file", "")},
                          {frame("tool", "", "")}};
  SCRIPTED_SYMBOLIZER symbolizer;
  symbolizer.frames_at = [&](void const* address) { return *static_cast<FRAMES const*>(address); };
  EXPECT_EQ(text_of(site_of({})), "catch-all");
  EXPECT_EQ(text_of(site_of({&known[2], &known[0]})), "host /b.cpp");
  EXPECT_FALSE(mem_want_tbb_filters_file);
  EXPECT_EQ(text_of(site_of({&known[0], &known[1], &known[2]})), "host /b.cpp");
  EXPECT_TRUE(mem_want_tbb_filters_file);
  EXPECT_EQ(text_of(site_of({&known[0], &known[3]})), "inlined /c.cpp");
  EXPECT_EQ(text_of(site_of({&known[4]})), "caller /d.cpp");
  EXPECT_EQ(text_of(site_of({&known[0], &known[1], &known[5]})), "catch-all");
  EXPECT_EQ(symbolizer.source_requests, 5) << "once per address, never in a rejected module";
  EXPECT_TRUE(mem_address_tracker_map->at(&known[0]).filtered);
  mem_allow_no_fileline_info = true;
  EXPECT_EQ(text_of(site_of({&known[6]})), "no file Unknown");
  EXPECT_EQ(text_of(site_of({&known[7]})), "catch-all");

  symbolizer.frames_at = [](void const* address) {
    const std::lock_guard other_thread(mem_trace_lock);  // not held while symbolizing
    MEM_ADDRESS_TRACKER faster{};
    faster.address_info = frame("tool", "faster", "/a.cpp");
    faster.address_info.address = address;
    mem_address_tracker_map->try_emplace(address, faster);
    return FRAMES{frame("tool", "slower", "/b.cpp")};
  };
  EXPECT_EQ(text_of(site_of({&symbolizer})), "faster /a.cpp") << "the first insertion wins";
}

TEST(UserFilters, AreReadLineByLine) {
  const TEMPORARY_DIRECTORY directory;
  write_file("filters",
             "\n# a comment\n  filter_module foo # my wrapper\nfilter_module foo bar\n"
             "filter_function\nfilter_function #\nFilter_module foo\n#note\n"
             "filter_function\tget_  \nfilter_file_basename glue.\n   \t\nfilter_module last #");
  mem_read_user_filters();
  setenv("mem_user_defined_filters_file", "nowhere", 1);
  EXPECT_THAT(debug_lines_of(mem_read_user_filters),
              ElementsAre("error opending memory tracker user defined filters file \"nowhere\""));
  setenv("mem_user_defined_filters_file", "filters", 1);
  EXPECT_THAT(
      debug_lines_of(mem_read_user_filters),
      ElementsAre(
          "reading user defined filters from \"filters\"", "accepting module filter: \"foo\"",
          "lineno 4: unexpected text following filter argument",
          "lineno 5: missing filter argument", "lineno 6: missing filter argument",
          "line 7: unexpected filter command: \"Filter_module\"",
          "line 8: unexpected filter command: \"#note\"", "accepting function filter: \"get_\"",
          "accepting file basename filter: \"glue.\"", "accepting module filter: \"last\"",
          "accepted 4 user defined filters (5 errors)"));
  EXPECT_THAT(*mem_user_filters_modules, ElementsAre("foo", "last"));
  EXPECT_THAT(*mem_user_filters_functions, ElementsAre("get_"));
  EXPECT_THAT(*mem_user_filters_files, ElementsAre("glue."));
  write_file("filters", "filter_module one\n");
  EXPECT_EQ(debug_lines_of(mem_read_user_filters).back(),
            "accepted 1 user defined filter (0 errors)");
}

[[gnu::noipa]] std::vector<void const*> stack_by(char const* unwinder, int max_frames, int skip) {
  std::vector<void const*> stack(50);
  stack.resize(static_cast<std::size_t>(
      ERR_UNWINDER::get_unwinder(unwinder)->capture(stack.data(), max_frames, skip, 0)));
  return stack;
}

TEST(Unwinder, SkipsTheInnermostFramesWhicheverItIs) {
  std::vector<std::vector<void const*>> stacks;
  for (char const* name : {"eh_frame_internal", "backtrace", "tester"}) {
    stacks.push_back(stack_by(name, 50, 1));
    EXPECT_EQ(stacks.back(), stacks[0]) << name;
    EXPECT_EQ(stack_by(name, 3, 3), std::vector(&stacks[0][2], &stacks[0][5])) << name;
  }
}

}  // namespace
