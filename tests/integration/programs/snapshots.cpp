// A host whose reports are written while it runs.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cfenv>
#include <csignal>
#include <cstring>
#include <thread>
#include <utility>

#include "include/tuk_mem.h"
#include "tests/integration/programs/run_scenario.h"

namespace {

std::atomic<long> begun = 0, done = 0;

[[noreturn]] void churn(bool* leaves_some) {
  for (std::size_t size = 0;; ++size) {
    ++begun;
    void* const block = take(16 + size % 500);
    ++done;
    if (size % 64 != 0 || !*leaves_some) give(block);
  }
}

// The books of each snapshot: how many blocks its site has had at least, and at most.
void among_threads() {
  static bool leaves_some = true;
  for (int thread = 0; thread < 8; ++thread) std::thread(churn, &leaves_some).detach();
  for (int snapshot = 0; snapshot < 4; ++snapshot) {
    usleep(20'000);
    const long least = done;
    mem_write_report_snapshot();
    std::printf("%ld %ld\n", least, begun.load());
  }
}

void take_one_by_signal() {
  std::raise(SIGUSR1);
  give(take(10));
}

// What an event may change of its thread, as one number each.
std::array<long, 8> state_of_thread() {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  int cancellation = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &cancellation);
  const int free_descriptor = dup(2);
  close(free_descriptor);
  return {errno,        fegetround(),    feenableexcept(0),           fetestexcept(FE_ALL_EXCEPT),
          cancellation, free_descriptor, sigismember(&mask, SIGUSR1), sigismember(&mask, SIGINT)};
}

void on_unusual_threads() {
  take_one_by_signal();
  std::fesetround(FE_UPWARD);
  std::feclearexcept(FE_ALL_EXCEPT);
  feenableexcept(FE_INEXACT);
  errno = EDOM;
  const auto before = state_of_thread();
  take_one_by_signal();
  const auto after = state_of_thread();
  fedisableexcept(FE_INEXACT);
  std::fesetround(FE_TONEAREST);
  std::printf("kept: %d\n", before == after);
  // The smallest stack there is, and one that holds the stream's lock.
  pthread_attr_t smallest;
  pthread_attr_init(&smallest);
  pthread_attr_setstacksize(&smallest, PTHREAD_STACK_MIN);
  pthread_t thread;
  flockfile(stdout);
  flockfile(stderr);
  const auto work = [](void*) -> void* {
    take_one_by_signal();
    return nullptr;
  };
  if (pthread_create(&thread, &smallest, work, nullptr) != 0) std::_Exit(3);
  pthread_join(thread, nullptr);
  take_one_by_signal();
  // A handler that allocates, on a stack of its own.
  alignas(16) static char stack[16384];
  const stack_t own = {stack, 0, sizeof stack};
  sigaltstack(&own, nullptr);
  struct sigaction action {};
  action.sa_handler = [](int) { take_one_by_signal(); };
  action.sa_flags = SA_ONSTACK;
  sigaction(SIGUSR2, &action, nullptr);
  std::raise(SIGUSR2);
}

// Whether there is such a file, without an event.
bool is_there(const char* format, int number) {
  char name[64];
  std::snprintf(name, sizeof name, format, number);
  struct stat file {};
  return stat(name, &file) == 0;
}

bool is_requested() { return is_there("reports/snapshot.%d.requested", getpid()); }

void while_idle() {
  give(take(10));
  std::raise(SIGUSR1);
  const bool before = is_requested();
  give(take(10));
  std::printf("requested: %d, then %d\n", before, is_requested());
  for (const auto fork_child : {fork, _Fork})
    std::printf("the child ended with %d\n", status_of_child(
                                                 [] {
                                                   take_one_by_signal();
                                                   std::quick_exit(7);
                                                 },
                                                 fork_child));
}

// The books of each snapshot: the block whose event wrote it is the last one. A start that takes an
// interval has one before the first.
void until_killed() {
  int snapshots = 0;
  for (int blocks = 0; blocks < 20'000 && snapshots < 2; ++blocks) {
    for (; is_there("reports/snapshot-%04d", snapshots + 1); ++snapshots)
      std::printf("%d\n", blocks);
    take(100);
    usleep(1000);
  }
  std::fflush(stdout);
  std::raise(SIGKILL);
}

void into_no_directory() {
  mem_set_tbb_exe_string("no/where");
  take_one_by_signal();
}

// Enough for one file at a time: some reports are two.
void with_one_descriptor() {
  const int next = dup(2);
  close(next);
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlim_t former = std::exchange(limit.rlim_cur, next + 1);
  setrlimit(RLIMIT_NOFILE, &limit);
  take_one_by_signal();
  limit.rlim_cur = former;
  setrlimit(RLIMIT_NOFILE, &limit);
}

void take_over() {
  std::signal(SIGUSR1, [](int) {});
  take_one_by_signal();
}

// Each of three generations holds another block, and the children release their parent's.
void fork_children() {
  void* const inherited = take(1000);
  std::printf("the child ended with %d\n", status_of_child([=] {
                give(inherited);
                take(2000);
                status_of_child([] {
                  take(3000);
                  mem_write_report_snapshot();
                });
                std::exit(5);
              }));
}

// Among threads that are anywhere in the library.
void fork_among_threads() {
  static bool leaves_none = false;
  for (int thread = 0; thread < 4; ++thread) std::thread(churn, &leaves_none).detach();
  int whole = 0;
  for (int i = 0; i < 50; ++i) {
    const int status = status_of_child([] {
      take(3000);
      std::exit(5);
    });
    whole += status == 5 ? 1 : 0;
  }
  std::printf("whole: %d\n", whole);
}

constexpr SCENARIO scenarios[] = {
    {"among_threads", among_threads},
    {"on_unusual_threads", on_unusual_threads},
    {"into_no_directory", into_no_directory},
    {"with_one_descriptor", with_one_descriptor},
    {"while_idle", while_idle},
    {"until_killed", until_killed},
    {"take_over", take_over},
    {"take_one_by_signal", take_one_by_signal},
    {"fork_children", fork_children},
    {"fork_among_threads", fork_among_threads},
};

}  // namespace

int main(int count, char** arguments) { return run_scenario(scenarios, count, arguments); }
