#include "platform/err_unwinder.h"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>

#include "mem/unwind/stack_walk.h"

namespace {

// The deepest walk is 50 frames behind 5 + 11 skipped ones; the rest is room for hosts that raise
// the ignore depth.
constexpr int most_frames = 256;

// A walk that begins with capture's own frame, exactly one, and is then copied from beyond the
// skipped ones.
struct WALK {
  void* frames[most_frames];
  int count = 0;

  static int depth(int max_frames, int skip) {
    return static_cast<int>(std::clamp(static_cast<long>(max_frames) + std::max(skip, 0), 0L,
                                       static_cast<long>(most_frames)));
  }

  int copy_beyond(int skip, void const** buffer, int max_frames) const {
    const int first = std::clamp(skip, 0, most_frames);
    const int kept = std::clamp(count - first, 0, std::max(max_frames, 0));
    std::copy_n(frames + first, kept, buffer);
    return kept;
  }
};

using C_LIBRARY_BACKTRACE = int (*)(void**, int);

// Other libraries export a `backtrace` too; only a lookup in the C library's own handle is sure to
// give the C library's.
C_LIBRARY_BACKTRACE find_c_library_backtrace() {
  void* c_library = dlopen("libc.so.6", RTLD_NOLOAD | RTLD_NOW);
  return c_library == nullptr
             ? nullptr
             : reinterpret_cast<C_LIBRARY_BACKTRACE>(dlsym(c_library, "backtrace"));
}

C_LIBRARY_BACKTRACE c_library_backtrace = nullptr;
std::atomic<ERR_UNWINDER_TESTER::REPORT> tester_report{nullptr};
std::atomic<bool> fde_cache_enabled{false};

// An instruction of the function that calls this.
[[gnu::always_inline]] inline void const* own_instruction() {
  void const* instruction;
  asm("lea 0(%%rip), %0" : "=r"(instruction));
  return instruction;
}

// By remembered rules.
class EH_FRAME_UNWINDER final : public ERR_UNWINDER {
 public:
  char const* name() const override { return "eh_frame_internal"; }

  [[gnu::noinline]] int capture(void const** buffer, int max_frames, int skip, int) override {
    const MEM_UNWIND_FRAME caller = mem_caller_of(__builtin_frame_address(0));
    if (skip > 0) [[likely]]
      return mem_walk_stack(caller, skip - 1, buffer, std::max(max_frames, 0));
    if (max_frames <= 0) return 0;
    buffer[0] = own_instruction();
    return 1 + mem_walk_stack(caller, 0, buffer + 1, max_frames - 1);
  }
};

class BACKTRACE_UNWINDER final : public ERR_UNWINDER {
 public:
  char const* name() const override { return "backtrace"; }

  [[gnu::noinline]] int capture(void const** buffer, int max_frames, int skip, int) override {
    WALK walk;
    walk.count = c_library_backtrace(walk.frames, WALK::depth(max_frames, skip));
    return walk.copy_beyond(skip, buffer, max_frames);
  }
};

class TESTER_UNWINDER final : public ERR_UNWINDER {
 public:
  char const* name() const override { return "tester"; }

  [[gnu::noinline]] int capture(void const** buffer, int max_frames, int skip, int) override {
    WALK first;
    WALK second;
    const MEM_UNWIND_FRAME caller = mem_caller_of(__builtin_frame_address(0));
    auto** const frames = const_cast<void const**>(first.frames);
    frames[0] = own_instruction();
    first.count = 1 + mem_walk_stack(caller, 0, frames + 1, most_frames - 1);
    second.count = c_library_backtrace(second.frames, most_frames);
    report_difference(first, second);
    return first.copy_beyond(skip, buffer, max_frames);
  }

 private:
  // Frame 0 is capture itself, and differs always.
  static void report_difference(const WALK& first, const WALK& second) {
    const int common = std::min(first.count, second.count);
    int same = std::min(1, common);
    while (same < common && first.frames[same] == second.frames[same]) ++same;
    if (same == common && first.count == second.count) return;
    if (auto* report = tester_report.load()) report(first.count, second.count, same);
  }
};

void warm_up(ERR_UNWINDER& unwinder) {
  void const* frames[most_frames];
  unwinder.capture(frames, most_frames, 0, 0);
}

// Null when the C library has no backtrace.
template <class UNWINDER>
ERR_UNWINDER* warm_instance() {
  // Never destroyed: allocations of other modules' destructors are still walked at exit.
  alignas(UNWINDER) static unsigned char room[sizeof(UNWINDER)];
  static UNWINDER* const unwinder = [] {
    auto* const instance = new (room) UNWINDER;
    warm_up(*instance);
    return instance;
  }();
  return unwinder;
}

template <class UNWINDER>
ERR_UNWINDER* warm_c_library_instance() {
  if (c_library_backtrace == nullptr) c_library_backtrace = find_c_library_backtrace();
  return c_library_backtrace == nullptr ? nullptr : warm_instance<UNWINDER>();
}

struct UNWINDER_ROW {
  char const* name;
  ERR_UNWINDER* (*get)();
};

// What asks only for the next frames may leave out the captures of this one.
ERR_UNWINDER* instance_of_walks() {
  ERR_UNWINDER* const unwinder = warm_instance<EH_FRAME_UNWINDER>();
  mem_unwinder_of_walks = unwinder;
  return unwinder;
}

constexpr UNWINDER_ROW unwinders[] = {
    {"eh_frame_internal", instance_of_walks},
    {"backtrace", warm_c_library_instance<BACKTRACE_UNWINDER>},
    {"tester", warm_c_library_instance<TESTER_UNWINDER>},
};

}  // namespace

ERR_UNWINDER* ERR_UNWINDER::get_unwinder(char const* name) {
  for (const UNWINDER_ROW& row : unwinders)
    if (name != nullptr && std::strcmp(name, row.name) == 0) return row.get();
  return nullptr;
}

void ERR__Unwind_Find_FDE_CACHE::enable(bool on) { fde_cache_enabled = on; }
bool ERR__Unwind_Find_FDE_CACHE::is_enabled() { return fde_cache_enabled; }

void ERR_UNWINDER_TESTER::set_report(REPORT report) { tester_report = report; }
