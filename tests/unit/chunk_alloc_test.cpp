// The arena against a plain model: pieces are aligned, zeroed, and nobody else's.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "include/tuk_mem.h"

namespace {

constexpr std::size_t chunk_size = 32768;

struct PIECE {
  unsigned char* address;
  std::size_t size;
  unsigned char fill;

  bool holds(unsigned char value) const {
    return std::all_of(address, address + size, [=](unsigned char byte) { return byte == value; });
  }
};

class ARENA {
 public:
  ARENA() = default;
  ARENA(const ARENA&) = delete;
  ARENA& operator=(const ARENA&) = delete;
  ~ARENA() { chunks.chunk_free_memory(); }

  char* take(std::size_t size, std::size_t alignment = 1) {
    return static_cast<char*>(chunks.chunk_malloc(size, alignment));
  }

  MEM_UTILS_CHUNK_ALLOC chunks;
};

int warnings = 0;

bool count_warning(const char*, const char* format, va_list) {
  if (std::strstr(format, "WARNING: More than %d chunk allocations have failed") != nullptr)
    ++warnings;
  return true;
}

TEST(ChunkAllocator, PiecesAreAlignedZeroedAndApart) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  ARENA arena;
  for (int round = 0; round < 3; ++round) {
    std::vector<PIECE> pieces;
    for (int i = 0; i < 3000; ++i) {
      const std::size_t alignment = std::size_t{1} << random() % 5;
      const std::size_t size = random() % (i % 50 == 0 ? 2 * chunk_size : 400);
      auto* const address = static_cast<unsigned char*>(arena.chunks.chunk_malloc(size, alignment));
      ASSERT_NE(address, nullptr) << size;
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(address) % alignment, 0U) << size;
      pieces.push_back({address, size, static_cast<unsigned char>(1 + random() % 255)});
      ASSERT_TRUE(pieces.back().holds(0)) << size;
      std::memset(address, pieces.back().fill, size);
    }
    for (const PIECE& piece : pieces) ASSERT_TRUE(piece.holds(piece.fill)) << piece.size;
    arena.chunks.chunk_free_memory();
  }
}

TEST(ChunkAllocator, AlignsBeyondMallocWithinAChunkAndOutsideOfChunks) {
  constexpr std::size_t page = 4096;
  ARENA arena;
  arena.take(1);
  for (const std::size_t size : {std::size_t{8}, chunk_size, chunk_size + 1})
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(arena.take(size, page)) % page, 0U) << size;
}

TEST(ChunkAllocator, KeepsAChunkWithUsefulRoom) {
  struct ROW {
    std::size_t remaining;
    unsigned threshold;
    bool kept;
  };
  constexpr ROW rows[] = {{100, 100, true}, {99, 100, false}, {99, 99, true}, {0, 0, true}};
  for (const ROW& row : rows) {
    ARENA arena;
    arena.take(0);
    char* const first = arena.take(chunk_size - row.remaining);
    arena.chunks.set_fragment_threshold(row.threshold);
    char* const second = arena.take(row.remaining + 1);
    arena.chunks.set_fragment_threshold(0);
    char* const third = arena.take(0);
    EXPECT_EQ(third, row.kept ? first + chunk_size - row.remaining : second + row.remaining + 1)
        << row.remaining << " bytes left, threshold " << row.threshold;
  }
}

TEST(ChunkAllocator, ReportsEveryLargePieceFromThe501stOn) {
  mem_set_msg_local_vdebug_callback(count_warning);
  ARENA arena;
  for (int i = 0; i < 600; ++i) arena.take(chunk_size);
  for (int i = 0; i < 500; ++i) arena.take(chunk_size + 1);
  EXPECT_EQ(warnings, 0);
  arena.take(chunk_size + 1);
  arena.take(10 * chunk_size);
  arena.take(1);
  EXPECT_EQ(warnings, 2);
  arena.chunks.chunk_free_memory();
  arena.take(chunk_size + 1);
  EXPECT_EQ(warnings, 2) << "freeing everything starts the count afresh";
}

TEST(ChunkAllocator, FillsAChunkToTheLastByte) {
  ARENA arena;
  char* const whole = arena.take(chunk_size);
  EXPECT_EQ(arena.take(0), whole + chunk_size) << "no byte left, and the chunk still in use";
  char* const next = arena.take(1);
  EXPECT_EQ(arena.take(1), next + 1);
}

TEST(ChunkAllocatorWithoutChunking, HandsOutOrdinaryBlocks) {
  setenv("mem_utils_no_chunk_allocation", "on", 1);
  MEM_UTILS_CHUNK_ALLOC chunks;
  EXPECT_FALSE(chunks.chunk_allocation_is_enabled());
  for (const std::size_t size : {std::size_t{0}, std::size_t{24}, chunk_size + 1}) {
    auto* const block = static_cast<unsigned char*>(chunks.chunk_malloc(size, 16));
    const std::size_t least = std::max<std::size_t>(size, 8);
    EXPECT_GE(malloc_usable_size(block), least);
    EXPECT_TRUE((PIECE{block, least, 0}.holds(0))) << size;
    chunks.chunk_free_memory();  // frees nothing of it
    std::memset(block, 1, least);
    chunks.chunk_delete_when_chunking_disabled(block);
  }
  setenv("mem_utils_no_chunk_allocation", "off", 1);
  EXPECT_FALSE(MEM_UTILS_CHUNK_ALLOC().chunk_allocation_is_enabled()) << "read once per process";
}

}  // namespace
