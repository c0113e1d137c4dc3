#include "tests/stress/blocks.h"
#include "tests/support/scripted_symbolizer.h"
#include "tests/support/stand_in_allocator.h"

void* allocate_block(std::size_t size) { return STAND_IN::allocate(size); }
void release_block(void* block) { STAND_IN::release(block); }

// The thread sanitizer does not know the tools' kind of child, which shares the memory of its host,
// and takes what the child does for the thread's.
void prepare_process() {
  static auto* const symbolizer = new SCRIPTED_SYMBOLIZER;
  symbolizer->frames_at = [](void const*) {
    return SCRIPTED_SYMBOLIZER::FRAMES{frame("ends", "requester", "/f.cpp")};
  };
}
