// A host with tools running that ends, waits for children, or takes descriptors, in every way.
#include <dlfcn.h>
#include <fcntl.h>
#include <fenv.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <thread>
#include <utility>
#include <vector>

#include "tests/integration/programs/run_scenario.h"
#include "tests/support/processes.h"

namespace {

// Everything else of the test that runs here: the tools.
int tools() { return static_cast<int>(processes_in(std::filesystem::current_path()).size()); }

void say(char const* what, int count) {
  std::printf("%s %d\n", what, count);
  std::fflush(stdout);
}

void start_tools() {
  give(take(100));
  say("tools run:", tools() > 0 ? 1 : 0);
}

// A call site of its own for every caller.
[[gnu::always_inline]] inline void allocate_anew() {
  void* volatile block = std::malloc(200);
  std::free(block);
}

void count_later() {
  sleep(1);
  say("tools left:", tools());
}

void execute() {
  for (char const* variable : {"LD_PRELOAD", "KORVANE_MEM_PROFILE_PER_FILELINE"})
    unsetenv(variable);
  execl("/proc/self/exe", "guest", "count_later", nullptr);
}

void leave_a_child() {
  if (fork() == 0) {
    if (chdir("/") != 0) _exit(1);
    std::fclose(stdout);
    sleep(5);
    _exit(0);
  }
  _exit(0);
}

template <void (*END)()>
void end() {
  start_tools();
  END();
}

volatile std::sig_atomic_t signals = 0;
void count_signal(int) { signals = signals + 1; }

void count_children() {
  int children = 0;
  while (wait(nullptr) > 0) ++children;
  say("children:", children);
}

// Also for a tool that dies.
void wait_for_all(void (*on_child)(int) = count_signal) {
  std::signal(SIGCHLD, on_child);
  start_tools();
  for (const int tool : processes_in(std::filesystem::current_path())) kill(tool, SIGKILL);
  allocate_anew();
  count_children();
  say("signals:", signals);
}

void wait_as_subreaper() {
  prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
  wait_for_all();
}

void wait_for_another_host() {
  prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
  if (fork() == 0) execl("/proc/self/exe", "guest", "return", nullptr);
  count_children();
}

// Like a daemon: closes what it does not know, and fills the table with its own.
void take_descriptors() {
  start_tools();
  for (int number = 3; number < 1024; ++number) close(number);
  int opened = 0;
  for (int number = 3; number < 1024; ++number)
    opened += open("own", O_RDWR | O_CREAT, 0600) == number ? 1 : 0;
  allocate_anew();
  int lost = 0;
  for (int number = 3; number < 1024; ++number) {
    struct stat own {};
    lost += fstat(number, &own) != 0 || own.st_size != 0 ? 1 : 0;
  }
  say("opened:", opened);
  say("lost or written to:", lost);
}

void start_without_descriptors() {
  for (const int number : {0, 1, 2}) close(number);
  allocate_anew();
  int in_place = 0;
  for (const int number : {0, 1, 2})
    in_place += open("out", O_RDWR | O_CREAT, 0600) == number ? 1 : 0;
  allocate_anew();
  dprintf(1, "in place: %d\n", in_place);
}

// To the end of the process, reports included.
void trap_floating_point() {
  feclearexcept(FE_ALL_EXCEPT);
  feenableexcept(FE_ALL_EXCEPT);
  for (int site = 0; site < 2; ++site) allocate_anew();
  say("raised:", fetestexcept(FE_ALL_EXCEPT));
}

void forbid_children() {
  constexpr auto number = static_cast<std::uint32_t>(offsetof(seccomp_data, nr));
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 3, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_vfork, 2, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_pipe2, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
  };
  const sock_fprog program{std::size(rules), rules};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  say("forbidden:", prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0));
  for (const int tool : processes_in(std::filesystem::current_path())) kill(tool, SIGKILL);
  allocate_anew();
}

// The constructor of the module waits for a thread that allocates.
void load_a_module_that_waits() {
  alarm(20);
  say("loaded:", dlopen(PROGRAMS_DIRECTORY "/libwaiting_module.so", RTLD_NOW) != nullptr ? 1 : 0);
}

template <int... SITES>
void meet_sites(std::integer_sequence<int, SITES...>) {
  const auto meet = []<int SITE>(std::integral_constant<int, SITE>) {
    allocate_anew();
    usleep(2000);
    asm volatile("" : : "i"(SITE));
  };
  (meet(std::integral_constant<int, SITES>()), ...);
}

// While each meets call sites that nobody has asked for, all tools die twice.
void lose_tools_among_threads() {
  start_tools();
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number)
    threads.emplace_back([] { meet_sites(std::make_integer_sequence<int, 100>()); });
  for (int times = 0; times < 2; ++times) {
    usleep(60000);
    for (const int tool : processes_in(std::filesystem::current_path())) kill(tool, SIGKILL);
  }
  for (std::thread& thread : threads) thread.join();
  say("threads:", static_cast<int>(threads.size()));
}

constexpr SCENARIO scenarios[] = {
    {"return", start_tools},
    {"_exit", end<[] { _exit(6); }>},
    {"quick_exit", end<[] { std::quick_exit(5); }>},
    {"exit_in_a_thread", end<[] { std::thread([] { std::exit(7); }).join(); }>},
    {"pthread_exit", end<[] { pthread_exit(nullptr); }>},
    {"throw", end<[] { throw "nobody catches this"; }>},
    {"SEGV", end<[] { std::raise(SIGSEGV); }>},
    {"TERM", end<[] { std::raise(SIGTERM); }>},
    {"KILL", end<[] { std::raise(SIGKILL); }>},
    {"exec", end<execute>},
    {"count_later", count_later},
    {"leave_a_child", end<leave_a_child>},
    {"wait_with_a_handler", [] { wait_for_all(); }},
    {"wait_as_subreaper", wait_as_subreaper},
    {"wait_ignoring_children", [] { wait_for_all(SIG_IGN); }},
    {"wait_for_another_host", wait_for_another_host},
    {"take_descriptors", take_descriptors},
    {"start_without_descriptors", start_without_descriptors},
    {"trap_floating_point", trap_floating_point},
    {"forbid_children", forbid_children},
    {"load_a_module_that_waits", load_a_module_that_waits},
    {"lose_tools_among_threads", lose_tools_among_threads},
};

}  // namespace

int main(int count, char** arguments) { return run_scenario(scenarios, count, arguments); }
