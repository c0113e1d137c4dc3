#include "tests/integration/programs/books.h"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

namespace {

struct SITE {
  long current_bytes, max_bytes, cumulative_bytes, requested_bytes, mismatched_bytes;
  long current_blocks, max_blocks, cumulative_blocks;
};

std::map<std::pair<const char*, int>, SITE> sites;
std::map<void*, SITE*> site_of_block;

}  // namespace

int is_preloaded(const char* part_of_name) {
  const char* const preloaded = std::getenv("LD_PRELOAD");
  return preloaded != nullptr && std::strstr(preloaded, part_of_name) != nullptr;
}

// The allocator that has hooks itself rounds up before it calls them.
std::size_t told(std::size_t requested, std::size_t alignment) {
  return is_preloaded("tcmalloc") ? (requested + alignment - 1) / alignment * alignment : requested;
}

void* note_block(const char* file, int line, void* block, std::size_t requested) {
  SITE& site = sites[{file, line}];
  const auto size = static_cast<long>(malloc_usable_size(block));
  site.current_bytes += size;
  site.max_bytes = std::max(site.max_bytes, site.current_bytes);
  site.cumulative_bytes += size;
  site.requested_bytes += static_cast<long>(requested);
  site.max_blocks = std::max(site.max_blocks, ++site.current_blocks);
  site.cumulative_blocks += 1;
  site_of_block[block] = &site;
  return block;
}

void note_release(void* block, int other_thread) {
  constexpr long largest_mismatched_block = 8128;
  SITE& site = *site_of_block.at(block);
  const auto size = static_cast<long>(malloc_usable_size(block));
  site.current_bytes -= size;
  site.current_blocks -= 1;
  if (other_thread != 0 && size <= largest_mismatched_block) site.mismatched_bytes += size;
}

void print_books() {
  for (const auto& [place, site] : sites)
    std::printf("site\t%s\t%d\t%ld\t%ld\t%ld\t%ld\t%ld\t%ld\t%ld\t%ld\n", place.first, place.second,
                site.current_bytes, site.max_bytes, site.cumulative_bytes, site.requested_bytes,
                site.mismatched_bytes, site.current_blocks, site.max_blocks,
                site.cumulative_blocks);
}
