#include "mem/base/reserve.h"

#include <sys/mman.h>

#include <atomic>
#include <bit>
#include <cstdint>
#include <mutex>

#include "mem/base/bookkeeping.h"
#include "mem/base/spin_lock.h"

namespace {

// For what does not grow with the number of records.
constexpr std::size_t least_bytes = std::size_t{1} << 20;

constinit std::atomic<std::size_t> wanted = least_bytes;
constinit std::atomic<std::size_t> mapped = 0;

constinit MEM_SPIN_LOCK<MEM_LOCK_ORDER::RESERVE> lock;
// The rest is guarded by the lock.
constinit unsigned char* room = nullptr;
constinit std::size_t used = 0;   // from the front
constinit std::size_t taken = 0;  // pieces that have not been given back

bool is_open() { return mem_pools == MEM_POOLS::WITH_RESERVE; }

void* map(std::size_t bytes) {
  constexpr int access = PROT_READ | PROT_WRITE;
  if (room == nullptr) return mmap(nullptr, bytes, access, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return mremap(room, mapped, bytes, MREMAP_MAYMOVE);
}

// Nothing is written to it until memory has run out: till then it takes addresses, no pages.
[[gnu::cold, gnu::noinline]] void grow() {
  const std::lock_guard guard(lock);
  const std::size_t bytes = std::bit_ceil(wanted.load());
  if (is_open() || bytes <= mapped) return;
  void* const grown = map(bytes);
  if (grown == MAP_FAILED) return;
  room = static_cast<unsigned char*>(grown);
  mapped = bytes;
}

void create(MEM_TRACKING_GRANULARITY granularity) {
  if (granularity != MEM_TRACK_NONE) grow();
}

void free() {
  const std::lock_guard guard(lock);
  if (is_open() || room == nullptr) return;
  munmap(room, mapped);
  room = nullptr;
  mapped = 0;
}

// The mapping stays: the child has a copy of no page of it.
void abandon() {
  lock.abandon();
  room = nullptr;
  mapped = 0;
}

}  // namespace

void mem_add_to_reserve(std::size_t bytes) {
  if (wanted.fetch_add(bytes) + bytes > mapped) [[unlikely]]
    grow();
}

void mem_open_reserve() {
  MEM_POOLS in_use = MEM_POOLS::IN_USE;
  const std::lock_guard guard(lock);
  mem_pools.compare_exchange_strong(in_use, MEM_POOLS::WITH_RESERVE);
}

void* mem_take_from_reserve(std::size_t bytes, std::size_t alignment) {
  const std::lock_guard guard(lock);
  const std::size_t begin = (used + alignment - 1) & ~(alignment - 1);
  if (begin > mapped || bytes > mapped - begin) return nullptr;
  used = begin + bytes;
  ++taken;
  return room + begin;
}

// Reports take what they need, and give all of it back before the next one.
bool mem_give_back_to_reserve(void* memory) {
  const std::lock_guard guard(lock);
  if (reinterpret_cast<std::uintptr_t>(memory) - reinterpret_cast<std::uintptr_t>(room) >= mapped)
    return false;
  if (--taken == 0) used = 0;
  return true;
}

constinit const MEM_PART mem_reserve_part(MEM_CREATE{create},
                                          MEM_RESET{mem_nothing},  // grown is grown
                                          MEM_FREE{free}, MEM_ABANDON{abandon});
