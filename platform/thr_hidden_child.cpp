// The program's parent is a process that runs in the host's memory, as after vfork, on a stack of
// its own. It is started by clone without a signal: such a child is passed over by every plain
// wait, as long as it executes no program. Usually it starts the program and ends, and is waited
// for at once; the program is an orphan then, which init adopts. Where orphans are unwelcome it
// stays as the keeper. Nothing here touches errno, thread-local storage or the allocator.
#include "platform/thr_hidden_child.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/futex.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <iterator>

#include "platform/raw_syscall.h"
#include "platform/thr_adoption.h"

// clone by its other name. ThreadSanitizer takes the plain one for a fork whose child has a memory
// of its own: in one that is shared, both would release the lock that it takes meanwhile.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" int __clone(int (*function)(void*), void* stack_end, int flags, void* argument, ...);

namespace {

constexpr std::size_t stack_size = std::size_t{32} * 1024;
constexpr int number_of_signals = 64;
constexpr int life_line_number = STDERR_FILENO + 1;

// Shared by the host's thread, the parent and, until it executes the program, the child.
struct PLAN {
  THR_START start;
  bool parent_stays;
  pid_t host;
  char* program_stack_end;
  pid_t program;
  std::atomic<int> error;
  std::atomic<int> has_started;  // a futex; 1 once `error` is final
};

// What the kernel takes for a signal's action; all zeros is the default.
struct KERNEL_ACTION {
  void* handler = nullptr;
  unsigned long flags = 0;
  void* restorer = nullptr;
  std::uint64_t mask = 0;
};

using SIGNAL_SET = std::uint64_t;

THR_BARE void set_signal_mask(SIGNAL_SET set, SIGNAL_SET* former) {
  thr_raw_syscall(SYS_rt_sigprocmask, SIG_SETMASK, &set, former, sizeof set);
}

// What the program's process does before it is the program.

THR_BARE void take_default_actions() {
  const KERNEL_ACTION action;
  for (int number = 1; number <= number_of_signals; ++number)
    thr_raw_syscall(SYS_rt_sigaction, number, &action, nullptr, sizeof action.mask);
}

// Out of the way of the numbers that are about to be filled.
THR_BARE int moved_up(int descriptor) {
  constexpr int free_from = life_line_number + 1;
  return static_cast<int>(thr_raw_syscall(SYS_fcntl, descriptor, F_DUPFD, free_from));
}

THR_BARE void close_from(unsigned first) {
  if (thr_raw_syscall(SYS_close_range, first, ~0U, 0) == 0) return;
  rlimit limit{};
  thr_raw_syscall(SYS_getrlimit, RLIMIT_NOFILE, &limit);
  for (unsigned number = first; number < limit.rlim_cur; ++number)
    thr_raw_syscall(SYS_close, number);
}

// What is written there is for nobody. Where there is no such device, `instead` can't be written to
// either.
THR_BARE int moved_up_or_null(int descriptor, int instead) {
  if (descriptor >= 0) return moved_up(descriptor);
  const int null = moved_up(static_cast<int>(thr_raw_syscall(SYS_open, "/dev/null", O_WRONLY)));
  return null >= 0 ? null : instead;
}

// What ends the program: the life line, or else its input, which it watches itself.
THR_BARE int life_line_of(const THR_START& start) {
  return start.life_line >= 0 ? start.life_line : start.input;
}

THR_BARE bool place_descriptors(const THR_START& start) {
  const int life_line = moved_up(life_line_of(start));
  const int standard[] = {moved_up(start.input), moved_up_or_null(start.output, -1),
                          moved_up_or_null(start.errors, life_line)};
  bool placed = true;
  for (int number = 0; number < 3; ++number)
    placed = thr_raw_syscall(SYS_dup2, standard[number], number) == number && placed;
  placed = thr_raw_syscall(SYS_dup2, life_line, life_line_number) == life_line_number && placed;
  close_from(static_cast<unsigned>(start.life_line >= 0 ? life_line_number + 1 : life_line_number));
  return placed;
}

THR_BARE bool is_closed(int life_line) {
  pollfd line{.fd = life_line, .events = 0, .revents = 0};
  const timespec at_once{};
  thr_raw_syscall(SYS_ppoll, &line, 1, &at_once, nullptr);
  return line.revents != 0;
}

// By the signal that a descriptor sends its owner when something happens to it.
THR_BARE bool tie_to_life_line() {
  const long own_group = thr_raw_syscall(SYS_getpid);
  return thr_raw_syscall(SYS_fcntl, life_line_number, F_SETSIG, SIGKILL) == 0 &&
         thr_raw_syscall(SYS_fcntl, life_line_number, F_SETOWN, -own_group) == 0 &&
         thr_raw_syscall(SYS_fcntl, life_line_number, F_SETFL, O_ASYNC) == 0 &&
         !is_closed(life_line_number);
}

// As execvp: what is not there, or may not be run, does not end the search.
THR_BARE int execute(const THR_COMMAND& command) {
  int error = ENOENT;
  for (char** file = command.files; *file != nullptr; ++file) {
    const auto answer =
        static_cast<int>(-thr_raw_syscall(SYS_execve, *file, command.words, command.environment));
    if (answer != ENOENT && answer != ENOTDIR) error = answer;
    if (answer != ENOENT && answer != ENOTDIR && answer != EACCES) break;
  }
  return error;
}

THR_BARE int run_program(void* argument) {
  constexpr int could_not_run = 127;
  auto& plan = *static_cast<PLAN*>(argument);
  take_default_actions();
  thr_raw_syscall(SYS_setsid);
  if (plan.parent_stays) thr_raw_syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL, 0, 0);
  if (!place_descriptors(plan.start) || (plan.start.life_line >= 0 && !tie_to_life_line())) {
    plan.error = EMFILE;
    return could_not_run;
  }
  thr_raw_syscall(SYS_chdir, plan.start.directory);
  set_signal_mask(0, nullptr);
  plan.error = execute(plan.start.command);
  return could_not_run;
}

// What its parent does.

// It may keep more rights than a host that gives some up, and can write to its stack. So it gives
// up everything but waiting and ending.
THR_BARE bool can_do_nothing_but_wait() {
  constexpr auto number_offset = static_cast<std::uint32_t>(offsetof(seccomp_data, nr));
  constexpr auto arch_offset = static_cast<std::uint32_t>(offsetof(seccomp_data, arch));
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, arch_offset),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 0, 6),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number_offset),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_futex, 5, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_ppoll, 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_wait4, 3, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit, 2, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{.len = static_cast<unsigned short>(std::size(rules)), .filter = rules};
  return thr_raw_syscall(SYS_prctl, PR_SET_NO_NEW_PRIVS, 1, 0, 0) == 0 &&
         thr_raw_syscall(SYS_prctl, PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0) == 0;
}

enum : std::size_t { of_life_line, of_program, of_host, number_watched };

// Leaves nothing open but what is watched, at the first numbers. A kernel that can't show the
// host as a descriptor leaves it to the life line.
THR_BARE bool open_what_is_watched(const PLAN& plan, pollfd* events) {
  const int sources[] = {
      moved_up(life_line_of(plan.start)),
      moved_up(static_cast<int>(thr_raw_syscall(SYS_pidfd_open, plan.program, 0))),
      moved_up(static_cast<int>(thr_raw_syscall(SYS_pidfd_open, plan.host, 0))),
  };
  for (int i = 0; i < static_cast<int>(number_watched); ++i) {
    const bool exists = thr_raw_syscall(SYS_dup2, sources[i], i) == i;
    events[i] = {.fd = exists ? i : -1, .events = POLLIN, .revents = 0};
  }
  events[of_life_line].events = 0;  // what is written there is for the program
  close_from(number_watched);
  return events[of_life_line].fd >= 0 && events[of_program].fd >= 0;
}

// Until the program has ended, or the kernel has killed it for the life line's sake. At the host's
// end it may live on, when a child of the host has the life line too; but not longer than this.
// Where a filter of the host's forbids to watch, the program's end is waited for: it comes when
// nobody is left to ask it.
THR_BARE void stay_until_the_end(pollfd* events) {
  long answer = 0;
  do {
    answer = thr_raw_syscall(SYS_ppoll, events, number_watched, nullptr, nullptr);
  } while ((answer >= 0 || answer == -EINTR) && events[of_life_line].revents == 0 &&
           events[of_program].revents == 0 && events[of_host].revents == 0);
  if (answer < 0 || events[of_life_line].revents != 0 || events[of_program].revents != 0)
    while (thr_raw_syscall(SYS_wait4, -1, nullptr, __WALL, nullptr) > 0) {
    }
}

THR_BARE void announce_start(PLAN& plan) {
  plan.has_started = 1;
  thr_raw_syscall(SYS_futex, &plan.has_started, FUTEX_WAKE, 1, nullptr);
}

THR_BARE int run_parent(void* argument) {
  auto& plan = *static_cast<PLAN*>(argument);
  // What the program leaves behind is the keeper's as well, not the host's.
  if (plan.parent_stays) thr_raw_syscall(SYS_prctl, PR_SET_CHILD_SUBREAPER, 1, 0, 0);
  constexpr int shared_until_it_runs = CLONE_VM | CLONE_VFORK | CLONE_UNTRACED | SIGCHLD;
  plan.program = __clone(run_program, plan.program_stack_end, shared_until_it_runs, &plan);
  if (plan.program < 0) {
    plan.error = EAGAIN;
  } else if (plan.error != 0) {
    thr_raw_syscall(SYS_wait4, plan.program, nullptr, __WALL, nullptr);
  } else if (plan.parent_stays) {
    pollfd events[number_watched];
    thr_raw_syscall(SYS_setsid);
    thr_raw_syscall(SYS_chdir, "/");
    if (open_what_is_watched(plan, events) && can_do_nothing_but_wait()) {
      announce_start(plan);
      stay_until_the_end(events);
      return 0;
    }
    plan.error = EAGAIN;  // it ends with its parent
  }
  announce_start(plan);
  return 0;
}

// What the host's thread does. It must not be interrupted while others run in its memory.
class EVERY_SIGNAL_HELD {
 public:
  EVERY_SIGNAL_HELD() { set_signal_mask(~SIGNAL_SET{0}, &m_former); }
  EVERY_SIGNAL_HELD(const EVERY_SIGNAL_HELD&) = delete;
  EVERY_SIGNAL_HELD& operator=(const EVERY_SIGNAL_HELD&) = delete;
  ~EVERY_SIGNAL_HELD() { set_signal_mask(m_former, nullptr); }

 private:
  SIGNAL_SET m_former = 0;
};

// False while it is there, which is asked for by WNOHANG; when it has gone, somebody else may have
// waited for it.
bool reap(pid_t parent, int flags) {
  long ended = -EINTR;
  while (ended == -EINTR)
    ended = thr_raw_syscall(SYS_wait4, parent, nullptr, flags | __WALL, nullptr);
  return ended != 0;
}

// False when the parent was killed before it came so far. (Without CLONE_VFORK: a debugger would be
// told of its end.)
bool await_start(const PLAN& plan, pid_t parent) {
  constexpr timespec a_moment{.tv_sec = 0, .tv_nsec = 10'000'000};
  while (plan.has_started == 0) {
    thr_raw_syscall(SYS_futex, &plan.has_started, FUTEX_WAIT, 0, &a_moment);
    if (plan.has_started == 0 && reap(parent, WNOHANG)) return plan.has_started != 0;
  }
  return true;
}

}  // namespace

int thr_start_hidden_child(const THR_START& start, THR_ROOM& room, THR_KEEPER& keeper) {
  const int former_errno = errno;
  PLAN& plan = *room.take<PLAN>(1);
  plan.start = start;
  plan.parent_stays = thr_orphans_are_unwelcome();
  plan.host = static_cast<pid_t>(thr_raw_syscall(SYS_getpid));
  constexpr std::size_t alignment = 16;
  char* parent_stack_end = room.take<char>(stack_size + alignment) + stack_size;
  plan.program_stack_end = room.take<char>(stack_size + alignment) + stack_size;

  const EVERY_SIGNAL_HELD held;
  // No signal is named: nothing is sent at its end, and plain waits pass over it.
  const pid_t parent = __clone(run_parent, parent_stack_end, CLONE_VM | CLONE_UNTRACED, &plan);
  const int clone_error = parent < 0 ? errno : 0;
  errno = former_errno;
  if (parent < 0) return clone_error;
  if (!await_start(plan, parent)) return EAGAIN;
  const int error = plan.error;
  if (plan.parent_stays && error == 0) {
    keeper = {.process = parent, .room = room.leave()};
  } else {
    reap(parent, 0);
  }
  return error;
}

bool thr_await_hang_up(int descriptor) {
  pollfd line{.fd = descriptor, .events = 0, .revents = 0};
  timespec left{.tv_sec = 1, .tv_nsec = 0};  // counted down by the kernel
  long ready = -EINTR;
  while (ready == -EINTR) ready = thr_raw_syscall(SYS_ppoll, &line, 1, &left, nullptr);
  return ready > 0;
}

bool thr_reap_keeper(const THR_KEEPER& keeper) {
  if (keeper.process == 0) return true;
  const timespec a_millisecond{.tv_sec = 0, .tv_nsec = 1'000'000};
  long ended = 0;
  for (int i = 0; i < 1000 && (ended == 0 || ended == -EINTR); ++i) {
    if (i > 0) thr_raw_syscall(SYS_nanosleep, &a_millisecond, nullptr);
    ended = thr_raw_syscall(SYS_wait4, keeper.process, nullptr, __WALL | WNOHANG, nullptr);
  }
  if (ended == 0) return false;
  thr_free_room(keeper.room);
  return true;
}
