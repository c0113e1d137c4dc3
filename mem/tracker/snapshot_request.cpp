#include "mem/tracker/snapshot_request.h"

#include <time.h>

#include <algorithm>
#include <cstdint>

#include "mem/host/settings.h"
#include "mem/tracker/snapshot_signal.h"

alignas(64) constinit std::atomic<bool> mem_snapshot_may_be_due = false;
constinit bool mem_snapshots_in_vx_mode = false;

namespace {

constinit std::atomic<bool> is_asked_for = false;
constinit std::atomic<bool> is_asked_by_signal = false;
constinit std::atomic<bool> is_being_answered = false;
constinit std::atomic<void (*)()> writer = nullptr;
constinit std::atomic<std::int64_t> interval = 0;  // of milliseconds; 0 for none
constinit std::int64_t asked_interval = 0;
constinit std::atomic<std::int64_t> next_due = 0;

// The kernel's own, which costs each event no more than reading a word of its page.
std::int64_t milliseconds_now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return time.tv_sec * std::int64_t{1000} + time.tv_nsec / 1000000;
}

// For one of the threads that look.
bool interval_is_over() {
  const std::int64_t length = interval;
  if (length == 0) return false;
  const std::int64_t now = milliseconds_now();
  std::int64_t due = next_due;
  return now >= due && next_due.compare_exchange_strong(due, now + length);
}

void start_interval() {
  interval = asked_interval;
  if (interval == 0) return;
  next_due = milliseconds_now() + interval;
  mem_snapshot_may_be_due = true;
}

// A signal handler runs this.
bool ask() {
  const bool is_first = !is_asked_by_signal.exchange(true);
  is_asked_for = true;
  mem_snapshot_may_be_due = true;
  return is_first;
}

bool is_unanswered() { return is_asked_by_signal || is_being_answered; }

void create(MEM_TRACKING_GRANULARITY granularity) {
  constexpr std::uint64_t longest = 1'000'000'000;
  const std::uint64_t seconds = mem_setting_unsigned(mem_settings_row("mem_snapshot_interval"));
  const std::string signal = mem_setting_text(mem_settings_row("mem_snapshot_signal"));
  mem_snapshots_in_vx_mode = mem_setting_is_on("MEM_LEAK_TRACKING_IN_VX_MODE");
  if (granularity == MEM_TRACK_NONE) return;
  asked_interval = 1000 * static_cast<std::int64_t>(std::min(seconds, longest));
  start_interval();
  if (!signal.empty()) mem_listen_to_snapshot_signal(signal.c_str(), {ask, is_unanswered});
}

void stop() {
  interval = 0;
  is_asked_for = false;
  is_asked_by_signal = false;
  is_being_answered = false;
  mem_snapshot_may_be_due = false;
}

}  // namespace

void mem_set_snapshot_writer(void (*write)()) { writer = write; }

[[gnu::cold, gnu::noinline]] void mem_write_snapshot_if_due() {
  if (interval_is_over()) is_asked_for = true;
  void (*const write)() = writer;
  if (is_asked_for && write != nullptr) write();
}

bool mem_take_snapshot_request() {
  if (!is_asked_for.exchange(false)) return false;
  is_being_answered = true;  // before the other ends: who looks finds one of them
  is_asked_by_signal = false;
  mem_snapshot_may_be_due = interval != 0;
  if (is_asked_for) mem_snapshot_may_be_due = true;
  return true;
}

void mem_snapshot_is_done() {
  is_being_answered = false;
  mem_settle_snapshot_mark();
}

void mem_end_snapshots() {
  stop();
  mem_stop_listening_to_snapshot_signal();
}

constinit const MEM_PART mem_snapshots_part(MEM_CREATE{create},
                                            MEM_RESET{mem_nothing},  // the interval runs on
                                            MEM_FREE{mem_nothing},   // the end has stopped it
                                            MEM_ABANDON{[] {
                                              stop();
                                              mem_ignore_snapshot_signal_in_child();
                                            }},
                                            MEM_FOLLOW{[] {
                                              start_interval();
                                              mem_listen_to_snapshot_signal_in_child();
                                            }});
