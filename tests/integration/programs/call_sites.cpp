// Allocates through every function, from C++, C and a shared library, in plain and inlined
// functions, on this thread and others, gives some of it back, and prints its books.
#include <cstdlib>
#include <new>
#include <thread>

#include "tests/integration/programs/books.h"

extern "C" void allocate_in_c();
extern "C" void* allocate_in_shared_library(std::size_t size);

namespace {

void allocate_by_operator_new() {
  NOTE(operator new(1000), 1000);
  NOTE(operator new[](1100), 1100);
  NOTE(operator new(1200, std::nothrow), 1200);
  NOTE(operator new[](1300, std::nothrow), 1300);
  NOTE(operator new(1400, std::align_val_t(64)), told(1400, 64));
  NOTE(operator new[](1500, std::align_val_t(64)), told(1500, 64));
  NOTE(operator new(1600, std::align_val_t(128), std::nothrow), told(1600, 128));
  NOTE(operator new[](1700, std::align_val_t(128), std::nothrow), told(1700, 128));
}

[[gnu::always_inline]] inline void* inlined_allocation() { return NOTE(std::malloc(2000), 2000); }

// Three blocks live at once at most, one at the end.
void grow_and_shrink() {
  void* live[3] = {};
  for (std::size_t round = 0; round < 11; ++round) {
    void*& block = live[round % 3];
    if (block != nullptr) note_release(block, 0);
    std::free(block);
    block = nullptr;
    if (round < 9) block = NOTE(std::malloc(10 * (round + 1)), 10 * (round + 1));
  }
}

void release_on_another_thread() {
  void* blocks[] = {NOTE(std::malloc(8128), 8128), NOTE(std::malloc(8000), 8000),
                    NOTE(std::malloc(8129), 8129), NOTE(std::malloc(1), 1),
                    NOTE(std::malloc(3000000), 3000000)};
  std::thread([&] {
    for (void* block : blocks) {
      note_release(block, 1);
      std::free(block);
    }
  }).join();
}

}  // namespace

int main() {
  allocate_in_c();
  allocate_by_operator_new();
  for (int i = 0; i < 6; ++i) inlined_allocation();
  grow_and_shrink();
  release_on_another_thread();
  for (std::size_t i = 1; i <= 4; ++i)
    note_block("shared_sites.cpp", 5, allocate_in_shared_library(i * 1000), i * 1000);
  print_books();
}
