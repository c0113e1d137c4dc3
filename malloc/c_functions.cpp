// The C library's functions.
#include <malloc.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "malloc/block_size.h"
#include "malloc/forwarding.h"

#define EXPORTED extern "C" [[gnu::visibility("default")]]

namespace {

using SIZED = void*(std::size_t) noexcept;
using SIZED_TWICE = void*(std::size_t, std::size_t) noexcept;
using POSIX_MEMALIGN = MEM_NEXT<int(void**, std::size_t, std::size_t) noexcept, "posix_memalign">;

std::size_t page_size() { return static_cast<std::size_t>(getpagesize()); }

template <class NEXT, class REQUESTED, class... ARGUMENTS>
[[gnu::always_inline]] inline void* allocate(std::size_t alignment, REQUESTED requested,
                                             ARGUMENTS... arguments) {
  return mem_allocate<NEXT, MEM_NEW_HANDLER::BY_US>(alignment, requested, arguments...);
}

// A frame more than the others have: so has the allocator whose hooks these are like.
[[gnu::noinline]] int posix_memalign_with_attention(void const* caller, void** block,
                                                    std::size_t alignment, std::size_t size) {
  int result = ENOMEM;  // where the early blocks are used up
  void* const given = mem_allocate_with_attention<POSIX_MEMALIGN, MEM_NEW_HANDLER::BY_US>(
      // Any other than a multiple of a pointer's size is refused.
      caller, alignment % sizeof(void*) == 0 ? alignment : 0, size, [&]() -> void* {
        void* next_block = nullptr;
        result = POSIX_MEMALIGN::call(&next_block, alignment, size);
        return result == 0 ? next_block : nullptr;
      });
  if (given != nullptr) result = 0;
  if (result == 0) *block = given;
  return mem_with_frame_kept(result);
}

}  // namespace

EXPORTED void* malloc(std::size_t size) noexcept {
  return allocate<MEM_NEXT<SIZED, "malloc">>(mem_default_alignment, size, size);
}

EXPORTED void* calloc(std::size_t count, std::size_t size) noexcept {
  return allocate<MEM_NEXT<SIZED_TWICE, "calloc">>(mem_default_alignment, MEM_PRODUCT{count, size},
                                                   count, size);
}

EXPORTED void* realloc(void* block, std::size_t size) noexcept {
  return mem_reallocate<MEM_NEXT<void*(void*, std::size_t) noexcept, "realloc">>(block, size, size);
}

EXPORTED void* reallocarray(void* block, std::size_t count, std::size_t size) noexcept {
  return mem_reallocate<MEM_NEXT<void*(void*, std::size_t, std::size_t) noexcept, "reallocarray">>(
      block, MEM_PRODUCT{count, size}, count, size);
}

EXPORTED void free(void* block) noexcept {
  mem_release<MEM_NEXT<void(void*) noexcept, "free">>(block);
}

EXPORTED int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
  if (mem_needs_no_attention()) [[likely]]
    return POSIX_MEMALIGN::call(block, alignment, size);
  return mem_with_frame_kept(
      posix_memalign_with_attention(__builtin_return_address(0), block, alignment, size));
}

EXPORTED void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return allocate<MEM_NEXT<SIZED_TWICE, "aligned_alloc">>(alignment, size, alignment, size);
}

EXPORTED void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return allocate<MEM_NEXT<SIZED_TWICE, "memalign">>(alignment, size, alignment, size);
}

EXPORTED void* valloc(std::size_t size) noexcept {
  return allocate<MEM_NEXT<SIZED, "valloc">>(page_size(), size, size);
}

EXPORTED void* pvalloc(std::size_t size) noexcept {
  return allocate<MEM_NEXT<SIZED, "pvalloc">>(page_size(), size, size);
}

EXPORTED std::size_t malloc_usable_size(void* block) noexcept { return mem_block_size(block); }

// By names of their own, for who wants to know whether a hook is called by them: those above may be
// another library's.
EXPORTED [[gnu::alias("realloc"), gnu::copy(realloc)]] void* tuk_mem_malloc_realloc(
    void*, std::size_t) noexcept;
EXPORTED [[gnu::alias("reallocarray"), gnu::copy(reallocarray)]] void* tuk_mem_malloc_reallocarray(
    void*, std::size_t, std::size_t) noexcept;
EXPORTED [[gnu::alias("calloc"),
           gnu::copy(calloc)]] void* tuk_mem_malloc_calloc(std::size_t, std::size_t) noexcept;
