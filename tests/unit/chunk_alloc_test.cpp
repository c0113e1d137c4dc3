// The arena against a plain model: pieces are aligned, zeroed, and nobody else's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "include/tuk_mem.h"

namespace {

constexpr std::size_t chunk_size = 32768;

TEST(ChunkAllocator, PiecesAreAlignedZeroedAndApart) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  MEM_UTILS_CHUNK_ALLOC chunks;
  for (int round = 0; round < 3; ++round) {
    std::vector<std::string_view> pieces;
    for (std::size_t i = 0; i < 3000; ++i) {
      const std::size_t alignment = std::size_t{1} << random() % 5;
      const std::size_t size = random() % (i % 50 == 0 ? 2 * chunk_size : 400);
      auto* const piece = static_cast<char*>(chunks.chunk_malloc(size, alignment));
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(piece) % alignment, 0U) << size;
      pieces.emplace_back(piece, size);
      ASSERT_EQ(pieces.back().find_first_not_of('\0'), std::string_view::npos) << size;
      std::memset(piece, static_cast<int>(i % 100), size);
    }
    for (std::size_t i = 0; i < pieces.size(); ++i)
      ASSERT_EQ(pieces[i].find_first_not_of(static_cast<char>(i % 100)), std::string_view::npos);
    chunks.chunk_free_memory();
  }
}

TEST(ChunkAllocator, FillsAChunkToTheLastByteAndReportsLargerPiecesFromThe501stOn) {
  static int warnings = 0;
  mem_set_msg_local_vdebug_callback([](const char*, const char* format, va_list) {
    warnings +=
        std::strstr(format, "WARNING: More than %d chunk allocations have failed") != nullptr;
    return true;
  });
  MEM_UTILS_CHUNK_ALLOC chunks;
  const auto take = [&](std::size_t size) {
    return static_cast<char*>(chunks.chunk_malloc(size, 1));
  };
  char* const whole = take(chunk_size);
  EXPECT_EQ(take(0), whole + chunk_size) << "no byte left, and the chunk still in use";
  char* const next = take(1);
  for (int i = 0; i < 500; ++i) take(chunk_size + 1);
  EXPECT_EQ(warnings, 0);
  EXPECT_EQ(take(1), next + 1);
  take(chunk_size + 1);
  EXPECT_EQ(warnings, 1);
  chunks.chunk_free_memory();
}

}  // namespace
