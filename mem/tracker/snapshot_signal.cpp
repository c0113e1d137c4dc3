#include "mem/tracker/snapshot_signal.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <iterator>

#include "mem/base/error_line.h"
#include "mem/output/report_directory.h"
#include "mem/state/tracker_state.h"
#include "platform/raw_syscall.h"

namespace {

constexpr char const* setting = "KORVANE_MEM_SNAPSHOT_SIGNAL";

// Raised where they are caused: after a handler that only takes notes the cause is still there.
constexpr int faults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT};

constinit std::atomic<bool> is_listening = false;
constinit std::atomic<bool (*)()> ask_for_snapshot = nullptr;
constinit std::atomic<int> signal_number = 0;

// Written by whoever asks first, read once it is answered.
constinit char mark[PATH_MAX + 64] = "";
constinit std::atomic<bool> is_marked = false;

// Of a handler: nothing that a signal may not interrupt. No descriptor is taken for it.
void make_mark() { thr_raw_syscall(SYS_mknodat, AT_FDCWD, mark, S_IFREG | 0600, 0); }

// In a child it is made late.
void make_directory(char const* path) {
  constexpr mode_t for_this_user_alone = 0700;
  thr_raw_syscall(SYS_mkdirat, AT_FDCWD, path, for_this_user_alone);
}

char* append(char* to, char const* text) { return stpcpy(to, text); }

void mark_request() {
  char* end = mark;
  char const* const directory = mem_wanted_report_directory();
  if (directory != nullptr) {
    make_directory(directory);
    end = append(mark, directory);
  } else {
    const long length = thr_raw_syscall(SYS_getcwd, mark, PATH_MAX);
    if (length <= 0 || *mark != '/') return;
    end = mark + length - 1;
  }
  end = append(end, "/snapshot.");
  end = std::to_chars(end, end + 16, thr_raw_syscall(SYS_getpid)).ptr;
  append(end, ".requested");
  make_mark();
  is_marked = true;
}

void on_signal(int) {
  if (is_listening && mem_is_tracked_process() && ask_for_snapshot.load()()) mark_request();
}

// 0 for none.
int signal_of(char const* name) {
  int number = 0;
  char const* const end = name + strlen(name);
  const auto parsed = std::from_chars(name, end, number);
  if (parsed.ec == std::errc() && parsed.ptr == end) return number > 0 ? number : 0;
  if (strncasecmp(name, "SIG", 3) == 0) name += 3;
  for (number = 1; number < NSIG; ++number) {
    char const* const known = sigabbrev_np(number);
    if (known != nullptr && strcasecmp(known, name) == 0) return number;
  }
  return 0;
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

void mem_listen_to_snapshot_signal(char const* name, bool (*ask)()) {
  const int number = signal_of(name);
  ask_for_snapshot = ask;
  is_listening = true;
  if (char const* const trouble = take_over(number)) {
    is_listening = false;
    mem_say_error_line("MEM: %s is \"%.200s\", which %s: no signal asks for snapshots", setting,
                       name, trouble);
    return;
  }
  signal_number = number;
}

void mem_unmark_snapshot_request(const std::atomic<bool>& asks_again) {
  if (!is_marked) return;
  thr_raw_syscall(SYS_unlinkat, AT_FDCWD, mark, 0);
  if (asks_again) make_mark();
}

void mem_stop_listening_to_snapshot_signal() {
  if (!is_listening.exchange(false)) return;
  if (is_marked) thr_raw_syscall(SYS_unlinkat, AT_FDCWD, mark, 0);
  if (!is_ours(signal_number))
    mem_say_error_line("MEM: the program has taken over signal %d of %s: it asked for no snapshot",
                       signal_number.load(), setting);
}

void mem_ignore_snapshot_signal_in_child() {
  is_listening = false;
  is_marked = false;
}

void mem_listen_to_snapshot_signal_in_child() { is_listening = signal_number != 0; }
