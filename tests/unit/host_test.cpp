// Settings lookups, messages, internal errors and the critical section.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csetjmp>
#include <csignal>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "include/tuk_mem.h"
#include "mem/base/critical_section.h"
#include "mem/host/message.h"
#include "tests/support/threads.h"

// The host's own function, which the library looks up by name.
extern "C" void cfg_dyn_get_int_value(const char*, int* out, int default_value) {
  *out = default_value + 1000;
}

namespace {

// Every kind of lookup: boolean by either default, integer, text, switch.
std::string lookups_of(const char* name) {
  std::ostringstream text;
  text << mem_cfg_is_on(name, false) << mem_cfg_is_on(name, true) << " "
       << mem_cfg_get_int_value(name, 7) << " \"" << mem_cfg_get_value(name) << "\" "
       << mem_env_is_on(name);
  return text.str();
}

constexpr const char* lookups[][2] = {
    {"", "01 0 \"\" 0"},   {"oN", "11 0 \"oN\" 1"},        {"OFF", "00 0 \"OFF\" 1"},
    {"0", "00 0 \"0\" 0"}, {"12abc", "01 12 \"12abc\" 1"}, {"4294967297", "01 1 \"4294967297\" 1"}};

TEST(Lookup, AsksTheCallbackElseTheHostsFunctionFoundOnceElseTheEnvironment) {
  EXPECT_EQ(lookups_of("nowhere"), "01 1007 \"\" 0");
  mem_set_cfg_get_int_value_callback(nullptr);  // not searched for again
  EXPECT_EQ(lookups_of("nowhere"), "01 0 \"\" 0");
  EXPECT_EQ(lookups_of(nullptr), "01 0 \"\" 0");
  for (const auto& [value, found] : lookups) {
    setenv("somewhere", value, 1);
    EXPECT_EQ(lookups_of("somewhere"), found);
  }
  mem_set_cfg_is_on_callback([](const char*, bool default_value) { return !default_value; });
  mem_set_cfg_get_int_value_callback([](const char*, int* out, int) { *out += 3; });
  mem_set_cfg_get_value_callback([](const char*, std::string* out) { *out += "x"; });
  EXPECT_EQ(lookups_of("somewhere"), "10 3 \"x\" 1");
}

void expect_printed(const char* expected, void (*work)()) {
  testing::internal::CaptureStdout();
  work();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
}

TEST(Message, IsPrintedAsTheSettingTheModeAndTheGuardsSay) {
  expect_printed("Debug: MEM: guarded 1\n", [] {
    mem_tracker_debug("off");
    const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT outer;
    { const MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT inner; }
    mem_tracker_debug("guarded %d", 1);
  });
  setenv("debug_msg", "on", 1);
  constexpr const char* wrappings_by_mode[] = {
      "Debug: MEM: x=5\n",
      R"(msg_tcl_post_message 0 { "Debug" "" "" "MEM: x=5" {  } {  } 0 0 "" 0 0 "app" 0 -1 0 ""}
)",
      R"({"args":"","flag":0,"help_id":"","hierarchy_path":"","id":0,"object_type":"MSG_POST",)"
      R"("raw":"","severity":0,"source":"app","source_id":-1,"sub_messages":[],"suppress":false,)"
      R"("suppress_type":0,"text":"MEM: x=5","timestamp":0,"type":"Debug"}
)",
      "Debug: MEM: x=5\n"};
  for (int mode = 0; mode < 4; ++mode) {
    mem_set_ipc_mode(static_cast<MEM_IPC_MODE>(mode));
    expect_printed(wrappings_by_mode[mode], [] { mem_msg_vdebug("x=%d", 5); });
  }
}

TEST(CriticalSection, GivesBackEveryHoldThoughDestroyedUnderThreadsThatWaitAndHold) {
  MEM_CRITICAL_SECTION section;
  section.unlock();
  section.lock();
  std::thread([&] { section.lock(), section.unlock(); }).join();  // no mutex yet: nobody waits
  EXPECT_EQ(section.lock_count(), 1U);
  section.initialize();
  EXPECT_EQ(section.lock_count(), 0U);
  section.unlock();

  section.lock(), section.lock();
  std::atomic<int> entered{0};
  auto threads = start_threads(4, [&](unsigned) {
    for (int turn = 0; turn < 20000; ++turn) section.lock(), ++entered, section.unlock();
  });
  usleep(10000);
  EXPECT_EQ(entered, 0);
  section.unlock(), section.unlock();
  while (entered < 1000) std::this_thread::yield();
  section.lock();
  section.destroy();
  section.lock(), section.unlock(), section.unlock();
  threads.clear();
  EXPECT_EQ(section.lock_count(), 0U);
  section.initialize();
  std::thread([&] { section.lock(), section.unlock(); }).join();  // left to nobody
}

std::jmp_buf reported;

// Comes back from the first error's report, which aborts, and raises a second error.
void fail_twice() {
  std::cout << std::hex << std::setw(30);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  std::signal(SIGABRT, [](int) { siglongjmp(reported, 1); });
  if (sigsetjmp(reported, 1) == 0) mem_internal_error("first.cpp", 1, "first");
  std::signal(SIGABRT, SIG_DFL);
  mem_internal_error("second.cpp", 22, "second %s", "error");
}

TEST(InternalErrorDeathTest, IsCutAndEndsTheProcessWhenItHappensWhileReporting) {
  EXPECT_DEATH(mem_internal_error("a.cpp", 7, "%s", std::string(600, 'x').c_str()),
               "Fatal error: MEM: x{499} \\(a.cpp:7\\)");
  EXPECT_EXIT(fail_twice(), testing::ExitedWithCode(255),
              "\nInternal Error: second.cpp\\(22\\):second error\n");
}

}  // namespace
