// A host that makes the profiler's life hard. Every scenario ends with a block of 4096 bytes that
// take_last() allocated, so that a report shows tracking to have survived.
#include <thread>

#include "include/tuk_mem.h"
#include "platform/thr_thread.h"
#include "tests/integration/programs/run_scenario.h"

namespace {

void take_last() { take(4096); }

// The child lives on, allocates, asks to be tracked, and exits.
void fork_a_child() {
  std::filesystem::create_directory("child");
  const int status = status_of_child([] {
    if (chdir("child") != 0) _exit(3);
    give(take(1000));
    mem_tbb_tracking_flush_peak();
    mem_reset_tracking_entries();
    mem_enable_tracking(MEM_TRACK_ALL);
    std::exit(mem_tracking_is_enabled(MEM_TRACK_PER_FILELINE) ? 4 : 0);
  });
  std::printf("the child ended with %d\n", status);
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
    for (std::size_t size = 0;; ++size) give(take(1 + size % 500));
  }).detach();
  take_last();
}

void run_thread(THR_FUNCTION function, bool cancelled = false) {
  pthread_t thread;
  if (thr_thread_create(&thread, function, nullptr) != 0) std::_Exit(3);
  if (cancelled) pthread_cancel(thread);
  thr_thread_join(thread, nullptr);
}

// Through the host's thread library, which gives each thread spare memory: it goes however the
// thread ends, and is nobody's block.
void end_threads_in_every_way() {
  run_thread([](void*) -> void* { return nullptr; });
  run_thread([](void*) -> void* { pthread_exit(nullptr); });
  run_thread(
      [](void*) -> void* {
        for (;;) pause();
      },
      true);
  take_last();
}

// A module that starts the library after its last user was gone.
void start_again_after_the_end() {
  take_last();
  --MEM_INITIALIZER::s_init_counter;
  { const MEM_INITIALIZER last("LAST"); }
  const MEM_INITIALIZER late("LATE");
  run_thread([](void* text) { return text; });
}

// Calls `allocate` from a frame of the build's size, which has no debug information.
using TAKE_IN_PLUGIN = void* (*)(void* (*allocate)(std::size_t), std::size_t size);

struct PLUGIN {
  void* module;
  TAKE_IN_PLUGIN take;
};
PLUGIN load_plugin(int frame_size) {
  std::filesystem::copy_file(PLUGINS_DIRECTORY "/libplugin_" + std::to_string(frame_size) + ".so",
                             "plugin.so", std::filesystem::copy_options::overwrite_existing);
  void* const module = dlopen("./plugin.so", RTLD_NOW);
  return {module, reinterpret_cast<TAKE_IN_PLUGIN>(dlsym(module, "take_in_plugin"))};
}

template <int SIZE>
[[gnu::noipa]] void* take_by(const PLUGIN& plugin) {
  void* volatile block = plugin.take(std::malloc, SIZE);  // no tail call
  return block;
}

// Rebuilt with other frame sizes and loaded again at the same place: unloaded by a thread that is
// tracked, by one that is blocked, and while nobody is.
void reload_plugins() {
  int at_same_place = 0;
  const auto reload = [&](int first_size, int rebuilt_size, auto before_unloading,
                          auto afterwards) {
    const PLUGIN first = load_plugin(first_size);
    give(take_by<1000>(first));
    before_unloading();
    dlclose(first.module);
    const PLUGIN rebuilt = load_plugin(rebuilt_size);
    afterwards();
    at_same_place += rebuilt.take == first.take;
    give(take_by<2000>(rebuilt));
    dlclose(rebuilt.module);
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

constexpr SCENARIO scenarios[] = {
    {"just_end", take_last},
    {"fork_a_child", fork_a_child},
    {"end_threads_late", end_threads_late},
    {"end_threads_in_every_way", end_threads_in_every_way},
    {"start_again_after_the_end", start_again_after_the_end},
    {"reload_plugins", reload_plugins},
    {"replace_module", replace_module},
};

}  // namespace

int main(int count, char** arguments) { return run_scenario(scenarios, count, arguments); }
