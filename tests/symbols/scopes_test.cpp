// From addresses to scopes, against the plainest way to find them.
#include "tools/symbols/core/scopes.h"

#include <dwarf.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <random>

namespace {

using symbols::RANGE_MAP, symbols::SCOPES;

TEST(RangeMap, KnowsTheSmallestRangeOfEachAddress) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  constexpr std::uint64_t end = 64;
  for (int round = 0; round < 5000; ++round) {
    RANGE_MAP map;
    std::optional<std::uint32_t> expected[end];
    std::uint64_t sizes[end] = {};
    for (std::uint32_t value = 0; value < random() % 12; ++value) {
      const std::uint64_t low = random() % end;
      const std::uint64_t high = random() % end;  // may lie before
      map.add(low, high, value);
      for (std::uint64_t at = low; low != 0 && at < high; ++at) {
        if (expected[at] && sizes[at] < high - low) continue;
        expected[at] = value;
        sizes[at] = high - low;
      }
    }
    map.finish();
    std::optional<std::uint32_t> pieces[end];
    map.for_each([&](std::uint64_t low, std::uint64_t high, std::uint32_t value) {
      for (; low < high; ++low) {
        ASSERT_FALSE(pieces[low]) << "twice";
        pieces[low] = value;
      }
    });
    std::optional<std::uint32_t> last;
    for (std::uint64_t at = 0; at < end; ++at) {
      if (expected[at]) last = expected[at];
      ASSERT_EQ(map.find(at), expected[at]) << at;
      ASSERT_EQ(map.find_here_or_before(at), last) << at;
      ASSERT_EQ(pieces[at], expected[at]) << at;
    }
  }
}

struct FILE_WITH_DEBUG_INFORMATION {
  int file = open(FILE_WITH_SCOPES, O_RDONLY | O_CLOEXEC);
  Dwarf* dwarf = dwarf_begin(file, DWARF_C_READ);
  ~FILE_WITH_DEBUG_INFORMATION() {
    dwarf_end(dwarf);
    close(file);
  }
};

// From the innermost outward, as libdw finds them: the DIEs of functions with code, by offset. What
// it tells of an address leads from an inlined function to where that is written, so it is asked
// once more for what is around the innermost one.
std::vector<Dwarf_Off> scopes_of_libdw(Dwarf_Die& unit, Dwarf_Addr address) {
  std::vector<Dwarf_Off> found;
  Dwarf_Die* innermost = nullptr;
  Dwarf_Die* around = nullptr;
  if (dwarf_getscopes(&unit, address, &innermost) > 0) {
    const int count = dwarf_getscopes_die(innermost, &around);
    for (int i = 0; i < count; ++i)
      if (const int tag = dwarf_tag(&around[i]);
          tag == DW_TAG_inlined_subroutine || tag == DW_TAG_subprogram)
        found.push_back(dwarf_dieoffset(&around[i]));
  }
  std::free(innermost);
  std::free(around);
  return found;
}

// Asked function by function, or of the whole unit at once: the same, as libdw says.
TEST(Scopes, AreThoseOfLibdwHoweverTheyAreRead) {
  const FILE_WITH_DEBUG_INFORMATION file;
  ASSERT_NE(file.dwarf, nullptr);
  std::mt19937 random(1);
  Dwarf_CU* cu = nullptr;
  Dwarf_Die unit;
  std::size_t compared = 0;
  std::size_t inlined = 0;
  while (compared < 300 &&
         dwarf_get_units(file.dwarf, cu, &cu, nullptr, nullptr, &unit, nullptr) == 0) {
    SCOPES single(unit);
    SCOPES whole(unit);
    std::vector<std::uint64_t> addresses;
    whole.whole_map(unit).for_each([&](std::uint64_t low, std::uint64_t high, std::uint32_t) {
      if (low < 4096) return;  // of functions that the linker has thrown away
      addresses.insert(addresses.end(), {low, low + (high - low) / 2, high - 1, high});
    });
    std::shuffle(addresses.begin(), addresses.end(), random);
    addresses.resize(std::min<std::size_t>(addresses.size(), 25));
    for (const std::uint64_t address : addresses) {
      const auto chain = [&](SCOPES& scopes) {
        std::vector<Dwarf_Off> offsets;
        for (auto at = scopes.find(unit, address).value_or(SCOPES::none); at != SCOPES::none;
             at = scopes[at].outer)
          offsets.push_back(dwarf_dieoffset(&unit) + scopes[at].die);
        return offsets;
      };
      const std::vector<Dwarf_Off> expected = scopes_of_libdw(unit, address);
      ASSERT_EQ(chain(single), expected) << std::hex << address;
      ASSERT_EQ(chain(whole), expected) << std::hex << address;
      ++compared;
      inlined += expected.size() > 1 ? 1U : 0U;
    }
  }
  EXPECT_GT(compared, 200U);
  EXPECT_GT(inlined, compared / 4);
}

}  // namespace
