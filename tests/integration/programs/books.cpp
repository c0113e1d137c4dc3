#include "tests/integration/programs/books.h"

#include <dlfcn.h>
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

struct SITE {
  const char* file;
  int line;
  long current_bytes, max_bytes, cumulative_bytes, requested_bytes, mismatched_bytes;
  long current_blocks, max_blocks, cumulative_blocks;
};

struct BLOCK {
  void* address;
  SITE* site;
};

SITE sites[100];
BLOCK blocks[20000];

// The size as the allocator tells it.
long allocated_size(void* block) {
  using SIZE = std::size_t (*)(void*);
  static const auto size = reinterpret_cast<SIZE>(dlsym(RTLD_DEFAULT, "tc_malloc_size"));
  return static_cast<long>(size != nullptr ? size(block) : malloc_usable_size(block));
}

SITE& site_at(const char* file, int line) {
  SITE* site = std::find_if(std::begin(sites), std::end(sites), [&](const SITE& one) {
    return one.file == nullptr || (one.line == line && std::strcmp(one.file, file) == 0);
  });
  if (site == std::end(sites)) std::abort();
  site->file = file;
  site->line = line;
  return *site;
}

BLOCK& entry_of(void* address) {
  BLOCK* found = std::find_if(std::begin(blocks), std::end(blocks),
                              [&](const BLOCK& one) { return one.address == address; });
  if (found == std::end(blocks)) std::abort();
  return *found;
}

}  // namespace

void* note_block(const char* file, int line, void* block, std::size_t requested) {
  SITE& site = site_at(file, line);
  const long size = allocated_size(block);
  site.current_bytes += size;
  site.max_bytes = std::max(site.max_bytes, site.current_bytes);
  site.cumulative_bytes += size;
  site.requested_bytes += static_cast<long>(requested);
  site.max_blocks = std::max(site.max_blocks, ++site.current_blocks);
  site.cumulative_blocks += 1;
  entry_of(nullptr) = {block, &site};
  return block;
}

void note_release(void* block, int other_thread) {
  constexpr long largest_mismatched_block = 8128;
  BLOCK& entry = entry_of(block);
  const long size = allocated_size(block);
  entry.site->current_bytes -= size;
  entry.site->current_blocks -= 1;
  if (other_thread != 0 && size <= largest_mismatched_block) entry.site->mismatched_bytes += size;
  entry = {};
}

void print_books() {
  for (const SITE& site : sites)
    if (site.file != nullptr)
      std::printf("site\t%s\t%d\t%ld\t%ld\t%ld\t%ld\t%ld\t%ld\t%ld\t%ld\n", site.file, site.line,
                  site.current_bytes, site.max_bytes, site.cumulative_bytes, site.requested_bytes,
                  site.mismatched_bytes, site.current_blocks, site.max_blocks,
                  site.cumulative_blocks);
  std::fflush(stdout);
}
