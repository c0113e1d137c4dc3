#include "tests/support/stand_in_allocator.h"

#include <array>
#include <atomic>
#include <cstdlib>

namespace {

using NEW_HOOK = void (*)(const void*, std::size_t);
using DELETE_HOOK = void (*)(const void*);

constexpr std::size_t header_size = 16;

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

// The size as the allocator tells it.
std::size_t* header_of(const void* block) {
  return static_cast<std::size_t*>(const_cast<void*>(block)) - header_size / sizeof(std::size_t);
}

// The second of the allocator's two frames.
[[gnu::noinline]] void* finish(void* block, std::size_t size) {
  *header_of(block) = STAND_IN::rounded(size);
  new_hooks.call(static_cast<const void*>(block), size);
  asm volatile("" ::: "memory");  // no tail call: the frame has to stay
  return block;
}

}  // namespace

[[gnu::noinline]] void* STAND_IN::allocate(std::size_t size) {
  auto* memory = static_cast<char*>(std::calloc(1, header_size + rounded(size)));
  void* block = finish(memory + header_size, size);
  asm volatile("" ::: "memory");
  return block;
}

void STAND_IN::release(void* block) {
  delete_hooks.call(static_cast<const void*>(block));
  std::free(header_of(block));
}

extern "C" {
int MallocHook_AddNewHook(NEW_HOOK hook) { return new_hooks.replace(nullptr, hook); }
int MallocHook_RemoveNewHook(NEW_HOOK hook) { return new_hooks.replace(hook, nullptr); }
int MallocHook_AddDeleteHook(DELETE_HOOK hook) { return delete_hooks.replace(nullptr, hook); }
int MallocHook_RemoveDeleteHook(DELETE_HOOK hook) { return delete_hooks.replace(hook, nullptr); }
int tc_set_new_mode(int) { return 0; }
std::size_t tc_malloc_size(void* block) { return *header_of(block); }
int MallocExtension_GetOwnership(const void*) { return 1; }
}
