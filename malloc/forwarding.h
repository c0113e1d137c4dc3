// What every function that allocates or releases does. Between its caller and a hook stand two
// frames: its own and the one of its path with attention, whatever the level of optimisation.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "malloc/attention.h"
#include "malloc/block_size.h"
#include "malloc/early_blocks.h"
#include "malloc/forwarded_call.h"
#include "malloc/hook_list.h"
#include "malloc/new_handler.h"
#include "malloc/next_definition.h"

/// Alignment of a block that nobody asked one for.
inline constexpr std::size_t mem_default_alignment = alignof(std::max_align_t);

/// Who calls the new-handler where there is no memory: the next definition, as operator new, or, if
/// somebody wants it called by malloc, this library.
enum class MEM_NEW_HANDLER { BY_NEXT, BY_US };

/// `result` of a call that is then no tail call: the caller's frame stays on the stack.
template <class RESULT>
[[gnu::always_inline]] inline RESULT mem_with_frame_kept(RESULT result) {
  asm volatile("" : "+r"(result));
  return result;
}

/// Bytes of an array, multiplied only where somebody asks; more than there can be where the product
/// has no room.
struct MEM_PRODUCT {
  std::size_t count;
  std::size_t size;
  operator std::size_t() const {
    std::size_t product;
    return __builtin_mul_overflow(count, size, &product) ? SIZE_MAX : product;
  }
};

/// Whether a request that has failed lacked memory. No room that anybody makes helps one that
/// nobody can meet, and a new-handler may take it for the end.
inline bool mem_can_be_met(std::size_t alignment, std::size_t requested) {
  return std::has_single_bit(alignment) && alignment <= PTRDIFF_MAX && requested <= PTRDIFF_MAX;
}

/// Calls `forward`, which gives a block or null, and the hooks. `caller`: where it returns to.
template <class NEXT, MEM_NEW_HANDLER NEW_HANDLER, class FORWARD>
[[gnu::noinline]] void* mem_allocate_with_attention(void const* caller, std::size_t alignment,
                                                    std::size_t requested, FORWARD forward) {
  if (mem_is_called_by_the_search()) return mem_early_block(alignment, requested);
  MEM_FORWARDED_CALL call(__builtin_dwarf_cfa(), caller, nullptr);
  void* block = forward();
  while (block == nullptr && NEW_HANDLER == MEM_NEW_HANDLER::BY_US && call.is_outermost() &&
         mem_can_be_met(alignment, requested) && mem_new_handler_made_room())
    block = forward();
  if (call.gives(block, requested, NEXT::is_the_allocators()))
    mem_tell_of_new_block(block, requested);
  return block;
}

template <class NEXT, MEM_NEW_HANDLER NEW_HANDLER, class REQUESTED, class... ARGUMENTS>
[[gnu::always_inline]] inline void* mem_allocate(std::size_t alignment, REQUESTED requested,
                                                 ARGUMENTS... arguments) {
  if (mem_needs_no_attention()) [[likely]]
    return NEXT::call(arguments...);
  return mem_with_frame_kept(mem_allocate_with_attention<NEXT, NEW_HANDLER>(
      __builtin_return_address(0), alignment, requested, [=] { return NEXT::call(arguments...); }));
}

/// The hooks hear of the former block's end before it comes, so that a thread that is given its
/// address next is told of later; and of a block that stays since there is no memory for another,
/// as of a new one.
template <class NEXT, class... ARGUMENTS>
[[gnu::noinline]] void* mem_reallocate_with_attention(void* former, std::size_t requested,
                                                      ARGUMENTS... arguments) {
  if (mem_is_early_block(former)) return mem_move_early_block(former, requested);
  if (mem_is_called_by_the_search()) return mem_early_block(mem_default_alignment, requested);
  const bool is_the_allocators = NEXT::is_the_allocators();
  void* const released = is_the_allocators ? former : nullptr;
  if (released != nullptr && mem_release_is_news(released)) mem_tell_of_release(released);
  MEM_FORWARDED_CALL call(__builtin_dwarf_cfa(), nullptr, released);
  void* block = NEXT::call(former, arguments...);
  while (block == nullptr && requested != 0 && call.is_outermost() &&
         mem_can_be_met(mem_default_alignment, requested) && mem_new_handler_made_room())
    block = NEXT::call(former, arguments...);
  void* live = block;
  if (block == nullptr && requested != 0 && is_the_allocators) {
    live = former;
    requested = mem_block_size(former);
  }
  if (call.gives(live, requested, is_the_allocators)) mem_tell_of_new_block(live, requested);
  return block;
}

template <class NEXT, class REQUESTED, class... ARGUMENTS>
[[gnu::always_inline]] inline void* mem_reallocate(void* former, REQUESTED requested,
                                                   ARGUMENTS... arguments) {
  if (mem_needs_no_attention()) [[likely]]
    return NEXT::call(former, arguments...);
  return mem_with_frame_kept(mem_reallocate_with_attention<NEXT>(former, requested, arguments...));
}

template <class NEXT, class... ARGUMENTS>
[[gnu::noinline]] void mem_release_with_attention(void* block, ARGUMENTS... arguments) {
  if (mem_is_early_block(block)) return mem_release_early_block(block);
  if (mem_is_called_by_the_search()) return;
  if (block == nullptr || !NEXT::is_the_allocators()) return NEXT::call(block, arguments...);
  if (mem_release_is_news(block)) mem_tell_of_release(block);
  const MEM_FORWARDED_CALL call(__builtin_dwarf_cfa(), nullptr, block);
  NEXT::call(block, arguments...);
}

template <class NEXT, class... ARGUMENTS>
[[gnu::always_inline]] inline void mem_release(void* block, ARGUMENTS... arguments) {
  if (mem_needs_no_attention()) [[likely]]
    return NEXT::call(block, arguments...);
  mem_release_with_attention<NEXT>(block, arguments...);
}
