// A host that makes the profiler's life hard. Every scenario ends with a block of 4096 bytes that
// take_last() allocated, so that a report shows tracking to have survived.
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <ucontext.h>
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

using TAKE_IN_PLUGIN = void* (*)(void* (*allocate)(std::size_t), std::size_t size);

// A plug-in without debug information: its frames are looked through, for whoever called it.
struct PLUGIN {
  explicit PLUGIN(int frame_size) {
    std::filesystem::copy_file(PLUGINS_DIRECTORY "/libplugin_" + std::to_string(frame_size) + ".so",
                               "plugin.so");
    m_module = dlopen("./plugin.so", RTLD_NOW);
    take = reinterpret_cast<TAKE_IN_PLUGIN>(dlsym(m_module, "take_in_plugin"));
  }
  PLUGIN(const PLUGIN&) = delete;
  PLUGIN& operator=(const PLUGIN&) = delete;
  ~PLUGIN() {
    dlclose(m_module);
    std::filesystem::remove("plugin.so");
  }

  TAKE_IN_PLUGIN take;

 private:
  void* m_module;
};

[[gnu::noipa]] void* take_by_first(const PLUGIN& plugin) {
  void* volatile block = plugin.take(std::malloc, 1000);  // no tail call
  return block;
}
[[gnu::noipa]] void* take_by_rebuilt(const PLUGIN& plugin) {
  void* volatile block = plugin.take(std::malloc, 2000);
  return block;
}

// Rebuilt with other frame sizes and loaded again at the same place: unloaded by a thread that is
// tracked, by one that is blocked, and while nobody is.
void reload_plugins() {
  int at_same_place = 0;
  const auto reload = [&](int first_size, int rebuilt_size, auto before_unloading,
                          auto afterwards) {
    auto* const first = new PLUGIN(first_size);
    auto* const place = first->take;
    give(take_by_first(*first));
    before_unloading();
    delete first;
    const PLUGIN rebuilt(rebuilt_size);
    afterwards();
    if (rebuilt.take == place) ++at_same_place;
    give(take_by_rebuilt(rebuilt));
  };
  const auto nothing = [] {};
  reload(300'000, 200'000, nothing, nothing);
  reload(3000, 2000, nothing, nothing);
  reload(900, 1900, mem_block_thread_tracking, mem_unblock_thread_tracking);
  reload(
      200'000, 300'000, [] { mem_disable_tracking(MEM_TRACK_ALL); },
      [] { mem_enable_tracking(MEM_TRACK_ALL); });
  std::printf("%d at the same place\n", at_same_place);
  take_last();
}

// Another module comes to the place of one that has left blocks behind and a peak.
void replace_module() {
  void* const first = load_copy("./libfirst.so");
  void* const place = dlsym(first, "allocate_in_shared_library");
  give(allocate_in(first, 1 << 20));
  mem_tbb_tracking_flush_peak();
  void* const left_behind = allocate_in(first, 500);
  void* const not_freed = allocate_in(first, 250);
  dlclose(first);
  void* const second = load_copy("./libsecond.so");
  void* const kept = allocate_in(second, 3000);
  std::printf("%d at the same place\n", dlsym(second, "allocate_in_shared_library") == place);
  give(left_behind);
  std::printf("%d left\n", (not_freed != nullptr) + (kept != nullptr));
  take_last();
}

const PLUGIN* plugin_in_use = nullptr;
[[gnu::noipa]] void take_on_fiber() { give(plugin_in_use->take(std::malloc, 1000)); }
[[gnu::noipa]] void take_in_handler(int) { give(plugin_in_use->take(std::malloc, 2000)); }

// Small stacks between pages that can't be read: a fiber's, and one for signal handlers.
void stand_on_other_stacks() {
  const PLUGIN plugin(3000);
  plugin_in_use = &plugin;
  constexpr std::size_t guard = 4096, size = std::size_t{1} << 18;
  const auto map_stack = [] {
    auto* const pages = static_cast<char*>(
        mmap(nullptr, size + 2 * guard, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(pages + guard, size, PROT_READ | PROT_WRITE);
    return stack_t{.ss_sp = pages + guard, .ss_flags = 0, .ss_size = size};
  };
  static ucontext_t fiber, here;
  getcontext(&fiber);
  fiber.uc_stack = map_stack();
  fiber.uc_link = &here;
  makecontext(&fiber, take_on_fiber, 0);
  swapcontext(&here, &fiber);
  const stack_t for_handlers = map_stack();
  sigaltstack(&for_handlers, nullptr);
  struct sigaction action {};
  action.sa_flags = SA_ONSTACK;
  action.sa_handler = take_in_handler;
  sigaction(SIGUSR1, &action, nullptr);
  std::raise(SIGUSR1);
  plugin_in_use = nullptr;
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
    {"reload_plugins", reload_plugins},
    {"replace_module", replace_module},
    {"stand_on_other_stacks", stand_on_other_stacks},
    {"interrupt", interrupt},
    {"just_end", take_last},
    {"quick_exit", [] { take_last(), std::quick_exit(5); }},
    {"exit_at_once", [] { take_last(), _exit(6); }},
    {"exit_in_a_thread", [] { std::thread([] { take_last(), std::exit(7); }).join(); }},
    {"throw_out", [] { take_last(), throw std::runtime_error("nobody catches this"); }},
};

}  // namespace

int main(int count, char** arguments) { return run_scenario(scenarios, count, arguments); }
