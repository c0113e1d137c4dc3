#include "mem/records/site_map.h"

#include <array>
#include <atomic>
#include <mutex>
#include <utility>

#include "mem/base/static_storage.h"

constinit MEM_ADDRESS_TRACKER_MAP* mem_address_tracker_map = nullptr;

struct MEM_SITE_RECORDS {
  MEM_ADDRESS_TRACKER_MAP map;
  std::atomic<int> holders{1};  // the tracker is one of them
};

namespace {

// What the map was asked for of late, one record a place. The map divides twice for a lookup and
// follows three pointers, under the one lock that every allocation takes.
struct PLACE {
  void const* address;
  MEM_ADDRESS_TRACKER* record;
};
constexpr int place_bits = 12;
constinit std::array<PLACE, 1U << place_bits> recently_found{};

// The records in use: those of mem_address_tracker_map.
constinit MEM_SITE_RECORDS* current_records = nullptr;

PLACE& place_of(void const* address) {
  const auto spread = reinterpret_cast<std::uintptr_t>(address) * 0x9E3779B97F4A7C15ULL;
  return recently_found[spread >> (64 - place_bits)];
}

[[gnu::noinline]] MEM_ADDRESS_TRACKER* find_in_map(void const* address) {
  const auto found = mem_address_tracker_map->find(address);
  if (found == mem_address_tracker_map->end()) return nullptr;
  place_of(address) = {address, &found->second};
  return &found->second;
}

using RECORDS_MEMORY = MEM_BOOKKEEPING_ALLOCATOR<MEM_SITE_RECORDS>;

MEM_SITE_RECORDS* make_records() {
  auto* const records = new (RECORDS_MEMORY().allocate(1)) MEM_SITE_RECORDS;
  records->map.max_load_factor(1.0F);
  return records;
}

void let_go_of(MEM_SITE_RECORDS* records) {
  if (records == nullptr || --records->holders > 0) return;
  records->~MEM_SITE_RECORDS();
  RECORDS_MEMORY().deallocate(records, 1);
}

// From now on `next` are the records, or none are. What the former ones hold is given back with no
// lock held.
void replace_records(MEM_SITE_RECORDS* next) {
  MEM_SITE_RECORDS* former = nullptr;
  {
    const std::lock_guard trace(mem_trace_lock);
    recently_found.fill({});
    former = std::exchange(current_records, next);
    mem_address_tracker_map = next == nullptr ? nullptr : &next->map;
  }
  let_go_of(former);
}

void begin_anew() { replace_records(make_records()); }

void abandon() {
  recently_found.fill({});
  mem_abandon(current_records);
  mem_address_tracker_map = nullptr;
  mem_trace_lock.abandon();
}

}  // namespace

MEM_SITES_HELD::MEM_SITES_HELD() : m_records(current_records) {
  if (m_records != nullptr) ++m_records->holders;
}

MEM_SITES_HELD::~MEM_SITES_HELD() { let_go_of(m_records); }

constinit const MEM_PART mem_site_map_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { begin_anew(); }}, MEM_RESET{begin_anew},
    MEM_FREE{[] { replace_records(nullptr); }}, MEM_ABANDON{abandon});

MEM_ADDRESS_TRACKER* mem_find_site(void const* address) {
  const PLACE& place = place_of(address);
  if (place.address == address && place.record != nullptr) [[likely]]
    return place.record;
  return find_in_map(address);
}

MEM_ADDRESS_TRACKER& mem_catch_all_site() { return (*mem_address_tracker_map)[nullptr]; }
