// Tracked blocks: of the real allocator, or of the stand-in where a sanitizer has its own.
#pragma once

#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__

#include "tests/support/scripted_symbolizer.h"
#include "tests/support/stand_in_allocator.h"

inline void* allocate_block(std::size_t size) { return STAND_IN::allocate(size); }
inline void release_block(void* block) { STAND_IN::release(block); }

// The thread sanitizer does not know the tools' kind of child, which shares the memory of its host,
// and takes what the child does for the thread's.
inline void prepare_process() {
  static auto* const symbolizer = new SCRIPTED_SYMBOLIZER;
  symbolizer->frames_at = [](void const*) {
    return SCRIPTED_SYMBOLIZER::FRAMES{frame("ends", "requester", "/f.cpp")};
  };
}

#else

#include <cstdlib>

[[gnu::noinline]] inline void* allocate_block(std::size_t size) { return std::malloc(size); }
inline void release_block(void* block) { std::free(block); }
inline void prepare_process() {}

#endif
