#include "mem/tracker/snapshot_signal.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <iterator>

#include "mem/base/error_line.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/request_mark.h"
#include "mem/tracker/signal_number.h"

namespace {

constexpr char const* setting = "KORVANE_MEM_SNAPSHOT_SIGNAL";

// Raised where they are caused: after a handler that only takes notes the cause is still there.
constexpr int faults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT};

constinit std::atomic<bool> is_listening = false;
constinit MEM_SNAPSHOT_REQUESTS requests = {};  // while nobody listens
constinit std::atomic<int> signal_number = 0;

constinit std::atomic<bool> may_be_marked = false;

bool is_to_be_marked() { return is_listening && requests.is_unanswered(); }

// Any thread, and handlers in the middle of it: whoever changes something looks afterwards whether
// it is still right.
void settle() {
  bool marked = false;
  do {
    marked = is_to_be_marked();
    marked ? mem_make_request_mark() : mem_remove_request_mark();
  } while (marked != is_to_be_marked());
}

void on_signal(int) {
  if (!is_listening || !mem_is_tracked_process() || !requests.ask()) return;
  may_be_marked = true;
  settle();
}

bool is_fault(int number) {
  return std::find(std::begin(faults), std::end(faults), number) != std::end(faults);
}

bool is_ours(int number) {
  struct sigaction now {};
  return sigaction(number, nullptr, &now) == 0 && now.sa_handler == on_signal;
}

// Null, or why not, in words.
char const* take_over(int number) {
  if (number == 0) return "is the name or number of no signal";
  if (is_fault(number)) return "tells of a fault";
  struct sigaction former {};
  if (sigaction(number, nullptr, &former) != 0) return "can't be caught";
  if (former.sa_handler == SIG_IGN) return "is ignored in this process";
  if (former.sa_handler != SIG_DFL) return "is handled by the program itself";
  struct sigaction own {};
  own.sa_handler = on_signal;
  own.sa_flags = SA_RESTART | SA_ONSTACK;
  return sigaction(number, &own, nullptr) == 0 ? nullptr : "can't be caught";
}

}  // namespace

void mem_listen_to_snapshot_signal(char const* name, MEM_SNAPSHOT_REQUESTS to_be_told) {
  const int number = mem_signal_number(name);
  requests = to_be_told;
  mem_place_request_mark();
  is_listening = true;
  if (char const* const trouble = take_over(number)) {
    is_listening = false;
    mem_say_error_line("MEM: %s is \"%.200s\", which %s: no signal asks for snapshots", setting,
                       name, trouble);
    return;
  }
  signal_number = number;
}

void mem_settle_snapshot_mark() {
  if (may_be_marked) settle();
}

void mem_stop_listening_to_snapshot_signal() {
  if (!is_listening.exchange(false)) return;
  mem_settle_snapshot_mark();
  if (!is_ours(signal_number))
    mem_say_error_line("MEM: the program has taken over signal %d of %s: it asked for no snapshot",
                       signal_number.load(), setting);
}

void mem_ignore_snapshot_signal_in_child() {
  is_listening = false;
  may_be_marked = false;
}

void mem_listen_to_snapshot_signal_in_child() {
  if (signal_number == 0) return;
  mem_place_request_mark();
  is_listening = true;
}
