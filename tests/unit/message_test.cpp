// Where diagnostics go, and what stands around them.
#include <gtest/gtest.h>

#include "include/tuk_mem.h"
#include "mem/host/message.h"

namespace {

struct WRAPPING_ROW {
  int mode;
  const char* printed;
};

constexpr WRAPPING_ROW wrappings[] = {
    {0, "Debug: MEM: x=5\n"},
    {7, "Debug: MEM: x=5\n"},
    {1,
     "msg_tcl_post_message 0 { \"Debug\" \"\" \"\" \"MEM: x=5\" {  } {  } 0 0 \"\" 0 0 \"app\" 0 "
     "-1 0 "
     "\"\"}\n"},
    {2,
     "{\"args\":\"\",\"flag\":0,\"help_id\":\"\",\"hierarchy_path\":\"\",\"id\":0,\"object_type\":"
     "\"MSG_"
     "POST\",\"raw\":\"\",\"severity\":0,\"source\":\"app\",\"source_id\":-1,\"sub_messages\":[],"
     "\"suppress\":false,\"suppress_type\":0,\"text\":\"MEM: "
     "x=5\",\"timestamp\":0,\"type\":\"Debug\"}"
     "\n"},
};

TEST(DebugMessage, IsWrappedAsTheModeSays) {
  setenv("debug_msg", "on", 1);
  for (const WRAPPING_ROW& row : wrappings) {
    mem_set_ipc_mode(static_cast<MEM_IPC_MODE>(row.mode));
    testing::internal::CaptureStdout();
    EXPECT_TRUE(mem_msg_vdebug("x=%d", 5));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed) << "mode " << row.mode;
  }
}

}  // namespace
