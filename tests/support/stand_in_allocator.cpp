#include "tests/support/stand_in_allocator.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace {

using NEW_HOOK = void (*)(const void*, std::size_t);
using DELETE_HOOK = void (*)(const void*);

constexpr std::size_t header_size = 16;
constexpr std::uint64_t owned_mark = 0x5741'4e44'494e'2121;

struct HEADER {
  std::uint64_t mark;
  std::uint64_t size;
};
static_assert(sizeof(HEADER) == header_size);

template <class HOOK>
struct HOOKS {
  std::array<std::atomic<HOOK>, 7> slots{};

  bool replace(HOOK former, HOOK next) {
    for (auto& slot : slots) {
      HOOK expected = former;
      if (slot.compare_exchange_strong(expected, next)) return true;
    }
    return false;
  }
  // Inlined in every build: it must not add a frame between the allocator's two and the hook.
  template <class... ARGUMENTS>
  [[gnu::always_inline]] void call(ARGUMENTS... arguments) {
    for (auto& slot : slots)
      if (const HOOK hook = slot.load()) hook(arguments...);
  }
};

constinit HOOKS<NEW_HOOK> new_hooks;
constinit HOOKS<DELETE_HOOK> delete_hooks;
constinit double release_rate = 1.0;

HEADER* header_of(const void* block) {
  return reinterpret_cast<HEADER*>(const_cast<char*>(static_cast<const char*>(block)) -
                                   header_size);
}

// The second of the allocator's two frames.
[[gnu::noinline]] void* finish(HEADER* header, std::size_t size) {
  header->mark = owned_mark;
  header->size = STAND_IN::rounded(size);
  void* block = header + 1;
  new_hooks.call(static_cast<const void*>(block), size);
  asm volatile("" ::: "memory");  // no tail call: the frame has to stay
  return block;
}

}  // namespace

[[gnu::noinline]] void* STAND_IN::allocate(std::size_t size) {
  void* block = finish(static_cast<HEADER*>(std::calloc(1, header_size + rounded(size))), size);
  asm volatile("" ::: "memory");
  return block;
}

void STAND_IN::release(void* block) {
  delete_hooks.call(static_cast<const void*>(block));
  header_of(block)->mark = 0;
  std::free(header_of(block));
}

extern "C" {
int MallocHook_AddNewHook(NEW_HOOK hook) { return new_hooks.replace(nullptr, hook) ? 1 : 0; }
int MallocHook_RemoveNewHook(NEW_HOOK hook) { return new_hooks.replace(hook, nullptr) ? 1 : 0; }
int MallocHook_AddDeleteHook(DELETE_HOOK hook) {
  return delete_hooks.replace(nullptr, hook) ? 1 : 0;
}
int MallocHook_RemoveDeleteHook(DELETE_HOOK hook) {
  return delete_hooks.replace(hook, nullptr) ? 1 : 0;
}
int tc_set_new_mode(int) { return 0; }
std::size_t tc_malloc_size(void* block) { return header_of(block)->size; }
int MallocExtension_GetOwnership(const void*) { return 1; }
double MallocExtension_GetMemoryReleaseRate() { return release_rate; }
void MallocExtension_SetMemoryReleaseRate(double rate) { release_rate = rate; }
}
