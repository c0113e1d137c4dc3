// The host's stack unwinders.
#pragma once

#include "export.h"

/// Walks the calling thread's stack. Objects live as long as the process.
class PLATFORM_API ERR_UNWINDER {
 public:
  virtual ~ERR_UNWINDER() = default;

  /// "eh_frame_internal" (this library's own, which reads nothing but the stack),
  /// "backtrace" (the C library's) or "tester" (both, compared over the whole stack; a difference
  /// goes to the report set by ERR_UNWINDER_TESTER::set_report). Null for any other
  /// name. The first call for a name walks once, so that whatever the walker sets up lazily is
  /// set up here.
  static ERR_UNWINDER* get_unwinder(char const* name);

  virtual char const* name() const = 0;

  /// Stores up to `max_frames` return addresses, innermost first, and returns how many. Frame 0
  /// is capture itself; the `skip` innermost frames are left out. `flags` must be 0.
  virtual int capture(void const** buffer, int max_frames, int skip, int flags) = 0;
};

/// The error library's cache of frame-description lookups, used by the walkers that look
/// descriptions up one frame at a time. The default only remembers the switch: the C library's
/// own lookup is lock-free and needs no cache above it.
class PLATFORM_API ERR__Unwind_Find_FDE_CACHE {
 public:
  static void enable(bool on);
  static bool is_enabled();
};

/// Where the "tester" unwinder reports that its two walks differ: the number of frames of each
/// and the index of the first that differs.
class PLATFORM_API ERR_UNWINDER_TESTER {
 public:
  using REPORT = void (*)(int first_count, int second_count, int differs_at);
  static void set_report(REPORT report);
};
