#include "mem/host/message.h"

#include <boost/format.hpp>
#include <cstdio>
#include <locale>

#include "mem/host/callbacks.h"
#include "mem/host/settings.h"

constinit std::atomic<bool> is_shutting_down = false;

namespace {

constinit std::atomic<std::int32_t> mem_ipc_mode = MEM_IPC_MODE_NONE;

// What stands around a debug message. The text between is put in as it is: the
// library's own messages hold no quotes, braces or backslashes.
struct WRAPPING {
  const char* head;
  const char* tail;
};

constexpr WRAPPING plain_wrapping = {"Debug: ", ""};
constexpr WRAPPING tcl_wrapping = {"msg_tcl_post_message 0 { \"Debug\" \"\" \"\" \"",
                                   "\" {  } {  } 0 0 \"\" 0 0 \"app\" 0 -1 0 \"\"}"};
constexpr WRAPPING json_wrapping = {
    "{\"args\":\"\",\"flag\":0,\"help_id\":\"\",\"hierarchy_path\":\"\",\"id\":0,"
    "\"object_type\":\"MSG_POST\",\"raw\":\"\",\"severity\":0,\"source\":\"app\","
    "\"source_id\":-1,\"sub_messages\":[],\"suppress\":false,\"suppress_type\":0,\"text\":\"",
    "\",\"timestamp\":0,\"type\":\"Debug\"}"};

const WRAPPING& current_wrapping() {
  switch (mem_ipc_mode) {
    case MEM_IPC_MODE_TCL:
      return tcl_wrapping;
    case MEM_IPC_MODE_JSON:
      return json_wrapping;
    default:
      return plain_wrapping;
  }
}

void print_message(const char* module, const char* format, va_list args) {
  std::printf("%s: ", module);
  std::vprintf(format, args);
}

}  // namespace

void mem_set_ipc_mode(MEM_IPC_MODE mode) { mem_ipc_mode = mode; }

bool mem_msg_local_vinfo(const char* module, const char* format, va_list args) {
  if (const auto callback = mem_host_callbacks.msg_local_vinfo)
    return callback(module, format, args);
  print_message(module, format, args);
  std::putchar('\n');
  return true;
}

bool mem_msg_local_vdebug(const char* module, const char* format, va_list args) {
  if (const auto callback = mem_host_callbacks.msg_local_vdebug)
    return callback(module, format, args);
  if (!mem_setting_is_on("debug_msg")) return true;
  const WRAPPING& wrapping = current_wrapping();
  std::fputs(wrapping.head, stdout);
  print_message(module, format, args);
  std::printf("%s\n", wrapping.tail);
  return true;
}

bool mem_msg_vdebug(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const bool answer = mem_msg_local_vdebug("MEM", format, args);
  va_end(args);
  return answer;
}

void mem_tracker_debug(const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (is_shutting_down) {
    std::fputs(plain_wrapping.head, stdout);
    print_message("MEM", format, args);
    std::putchar('\n');
  } else {
    try {
      mem_msg_local_vdebug("MEM", format, args);
    } catch (...) {  // the host's callback; what the tracker is doing goes on
    }
  }
  va_end(args);
}

void mem_tbb_tracking_notify_msg_shutting_down() { is_shutting_down = true; }

MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT::MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT()
    : m_was_clear(!is_shutting_down.exchange(true)) {}

MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT::~MEM_TBB_NO_MSG_DEBUG_UNTIL_SCOPE_EXIT() {
  if (m_was_clear) is_shutting_down = false;
}

MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR::MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR(
    bool enabled, std::string text)
    : m_enabled(enabled), m_text(std::move(text)) {}

MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR::~MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR() {
  if (!m_enabled) return;
  try {
    // The blanks align the two values.
    vdebug_at_termination("MEM: Native allocator:          '%s'", "TCMalloc");
    vdebug_at_termination("MEM: Allocator used by Korvane: '%s'", "TCMalloc");
  } catch (...) {  // nobody is left to tell
  }
}

void MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR::vdebug_at_termination(const char* format,
                                                                      const char* argument) {
  const WRAPPING& wrapping = current_wrapping();
  const std::string text = boost::str(boost::format(format, std::locale::classic()) % argument);
  std::printf("%s%s%s\n", wrapping.head, text.c_str(), wrapping.tail);
}
