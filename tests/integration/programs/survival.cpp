// A host that makes the profiler's life hard. Every scenario ends with a block of 4096 bytes that
// take_last() allocated, so that a report shows tracking to have survived.
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "include/tuk_mem.h"
#include "platform/thr_thread.h"
#include "tests/integration/programs/run_scenario.h"

namespace {

void take_last() { take(4096); }

void churn(int rounds) {
  for (int i = 0; i < rounds; ++i) give(take(static_cast<std::size_t>(16 + i % 500)));
}

// Four threads allocate all the while; each child lives on, allocates, calls everything and exits.
void fork_under_load() {
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      while (!done) churn(100);
    });
  std::filesystem::create_directory("child");
  int failures = 0;
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      if (chdir("child") != 0) _exit(3);
      alarm(20);  // a hang is a failure
      churn(1000);
      std::uint64_t bytes = 0;
      mem_open_profile_bin("b", "t");
      mem_close_profile_bin("t", &bytes, &bytes, &bytes);
      mem_set_timeline_label("child");
      mem_tbb_tracking_flush_peak();
      mem_reset_tracking_entries();
      mem_enable_tracking(MEM_TRACK_ALL);
      std::exit(mem_tracking_is_enabled(MEM_TRACK_PER_FILELINE) ? 4 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) ++failures;
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
  std::printf("%d children failed\n", failures);
  take_last();
}

struct ALLOCATES_AT_THREAD_END {
  ~ALLOCATES_AT_THREAD_END() { give(take(333)); }
  void* block = take(222);
};
thread_local ALLOCATES_AT_THREAD_END at_thread_end;

void end_threads_late() {
  std::thread([] { give(at_thread_end.block); }).join();
  std::thread([] {
    for (;;) churn(1000);
  }).detach();
  take_last();
}

// Through the host's thread library, which gives each thread spare memory: it goes however the
// thread ends, and is nobody's block.
void end_threads_in_every_way() {
  constexpr THR_FUNCTION functions[] = {
      [](void*) -> void* { return nullptr; },
      [](void*) -> void* { pthread_exit(nullptr); },
      [](void*) -> void* {
        for (;;) pause();
      },
  };
  for (const THR_FUNCTION function : functions) {
    pthread_t thread;
    if (thr_thread_create(&thread, function, nullptr) != 0) std::_Exit(3);
    if (function == functions[2]) pthread_cancel(thread);
    thr_thread_join(thread, nullptr);
  }
  take_last();
}

// A module that starts the library after its last user was gone.
void start_again_after_the_end() {
  take_last();
  --MEM_INITIALIZER::s_init_counter;
  { const MEM_INITIALIZER last("LAST"); }
  const MEM_INITIALIZER late("LATE");
  pthread_t thread;
  thr_thread_create(
      &thread, [](void* text) { return text; }, nullptr);
  thr_thread_join(thread, nullptr);
}

void load_and_unload() {
  std::vector<void*> modules;
  for (const std::string name : {"./libcopy0.so", "./libcopy1.so", "./libcopy2.so"}) {
    modules.push_back(load_copy(name));
    if (name == "./libcopy1.so") std::filesystem::remove(name);
    for (const std::size_t size : {100U, 200U}) give(allocate_in(modules.back(), size));
  }
  for (void* module : modules) dlclose(module);
  take_last();
}

// Signals interrupt every system call of the tracker, and the host reaps its tools.
void interrupt() {
  std::signal(SIGALRM, [](int) {
    const int kept = errno;
    waitpid(-1, nullptr, WNOHANG);
    errno = kept;
  });
  const itimerval every{{0, 500}, {0, 500}};
  setitimer(ITIMER_REAL, &every, nullptr);
  load_and_unload();
  churn(200000);
}

constexpr SCENARIO scenarios[] = {
    {"fork_under_load", fork_under_load},
    {"end_threads_late", end_threads_late},
    {"end_threads_in_every_way", end_threads_in_every_way},
    {"start_again_after_the_end", start_again_after_the_end},
    {"load_and_unload", load_and_unload},
    {"interrupt", interrupt},
    {"just_end", take_last},
    {"quick_exit", [] { take_last(), std::quick_exit(5); }},
    {"exit_at_once", [] { take_last(), _exit(6); }},
    {"exit_in_a_thread", [] { std::thread([] { take_last(), std::exit(7); }).join(); }},
    {"throw_out", [] { take_last(), throw std::runtime_error("nobody catches this"); }},
};

}  // namespace

int main(int count, char** arguments) { return run_scenario(scenarios, count, arguments); }
