// Diagnostics beyond the exported message functions.
#pragma once

#include <atomic>
#include <string>

#include "include/tuk_mem.h"

/// Set while the host's message module is going away: the tracker then prints its debug lines
/// itself. Any thread.
extern std::atomic<bool> is_shutting_down;

/// The tracker's debug line, without a line end: through mem_msg_vdebug or, once is_shutting_down
/// is set, printed as the same line on standard output. An exception of the host's callback ends
/// here.
void mem_tracker_debug(const char* format, ...) TUK_MEM_PRINTF(1, 2);

/// Prints the build's allocator kind when the process ends, if "debug_msg" was on at start-up.
/// One instance: a function-local static of mem_read_korvane_ini_file.
class MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR {
 public:
  MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR(bool enabled, std::string text);
  MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR(const MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR&) =
      delete;
  MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR& operator=(
      const MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR&) = delete;
  ~MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR();

  /// Prints one debug line without the host, whose message system may be gone. `format` holds one
  /// %s; no module prefix is added.
  static void vdebug_at_termination(const char* format, const char* argument);

 private:
  bool m_enabled;
  std::string m_text;  // empty; part of the object's interface
};
