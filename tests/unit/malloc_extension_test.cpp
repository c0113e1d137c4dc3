// The allocator's release rate, which the stand-in allocator has.
#include <gtest/gtest.h>

#include "include/tuk_mem.h"

// The stand-in allocator's.
extern "C" double MallocExtension_GetMemoryReleaseRate();

namespace {

TEST(MallocExtension, ForwardsTheReleaseRate) {
  MEM::MALLOC_EXTENSION::set_memory_release_rate(2.5);
  EXPECT_EQ(MallocExtension_GetMemoryReleaseRate(), 2.5);
  EXPECT_EQ(MEM::MALLOC_EXTENSION::get_memory_release_rate(), 2.5);
}

TEST(MallocExtension, PrintsAMessageAsADebugLine) {
  setenv("debug_msg", "on", 1);
  testing::internal::CaptureStdout();
  MEM::MALLOC_EXTENSION::print_message("released 5 MB");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Debug: MEM: released 5 MB\n");
}

}  // namespace
