// A host in several scenarios; the first argument picks one.
#include <cstring>

#include "include/tuk_mem.h"
#include "tests/integration/programs/run_scenario.h"

namespace {

// Leaves 3 x 112 + 1 x 1024 bytes behind.
void leak() {
  mem_set_tbb_exe_string("leaky");
  void* volatile blocks[5] = {};
  for (void* volatile& block : blocks) block = std::malloc(100);
  std::free(blocks[0]);
  std::free(blocks[3]);
  void* volatile kept = std::malloc(1000);
  kept = std::malloc(77);
  std::free(kept);
}

// Debian's allocator has the properties, but no function for the release rate.
void ask_the_allocator() {
  namespace EXTENSION = MEM::MALLOC_EXTENSION;
  constexpr char property[] = "generic.current_allocated_bytes";
  std::size_t before = 7;
  const int known = EXTENSION::get_numeric_property(property, &before);
  take(50000000);
  std::size_t after = 7;
  EXTENSION::get_numeric_property(property, &after);
  EXTENSION::release_free_memory();
  EXTENSION::set_memory_release_rate(5.0);
  std::printf("known %d, grown %zu, rate %g\n", known, after - before,
              EXTENSION::get_memory_release_rate());
}

// A new chunk, one piece more, one that leaves the chunk alone, one larger than a chunk.
void fill_new_blocks_with_a_pattern() {
  mem_set_alloc_pattern('P');
  MEM_UTILS_CHUNK_ALLOC chunks;
  const auto filled = [](const void* piece, std::size_t size) {
    return std::memchr(piece, 'P', size) != nullptr;
  };
  std::printf("%d %d", chunks.chunk_allocation_is_enabled(), filled(take(100), 100));
  for (const std::size_t size : {100U, 200U, 32700U, 40000U})
    std::printf(" %d", filled(chunks.chunk_malloc(size, 8), size));
}

// What stands in the middle of a block when the program first, or last, sees it.
void fill_blocks() {
  constexpr std::size_t size = 100;
  mem_set_alloc_pattern('P');
  mem_set_free_pattern('F');
  const auto look = [](void const* block) {
    // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.Assign): what a pattern has left there.
    const char c = static_cast<volatile char const*>(block)[size / 2];
    return c == 0 ? '.' : c;
  };
  void* volatile block = std::malloc(size);
  void* volatile zeros = std::calloc(1, size);
  std::printf("malloc %c, calloc %c, ", look(block), look(zeros));
  block = std::memset(block, 'x', size);
  block = std::realloc(block, size + 1);
  std::printf("kept %c, ", look(block));
  block = std::realloc(block, 1000 * size);
  std::printf("moved %c, ", look(block));
  std::free(block);
  std::printf("released %c\n", look(block));
}

void shut_down_twice() {
  take(1000);
  mem_shutdown_tbb_tracking();
  mem_enable_tracking(MEM_TRACK_PER_FILELINE);
  give(take(5000));
}

// In no order and some twice.
void register_pgo_modules() {
  mem_register_dll_for_pgo("libroute.so", "router, large");
  mem_register_dll_for_pgo("libZoom.so", "viewer");
  mem_register_dll_for_pgo("libroute.so", "");
  mem_register_dll_for_pgo("libroute.so", "router, large");
  mem_register_dll_for_pgo("lib\xC3\xA9.so", "accents");
}

constexpr SCENARIO scenarios[] = {
    {"ask_the_allocator", ask_the_allocator},
    {"fill_new_blocks_with_a_pattern", fill_new_blocks_with_a_pattern},
    {"fill_blocks", fill_blocks},
    {"leak", leak},
    {"register_pgo_modules", register_pgo_modules},
    {"shut_down_twice", shut_down_twice},
    {"start_late", [] { mem_enable_tracking(MEM_TRACK_PER_FILELINE); }},
};

}  // namespace

int main(int count, char** arguments) { return run_scenario(scenarios, count, arguments); }
