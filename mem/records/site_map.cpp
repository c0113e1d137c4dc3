#include "mem/records/site_map.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>
#include <mutex>
#include <string_view>
#include <tuple>
#include <utility>

#include "mem/base/static_storage.h"
#include "mem/records/inherited_verdicts.h"

constinit MEM_ADDRESS_TRACKER_MAP* mem_address_tracker_map = nullptr;
constinit MEM_RETIRED_SITES* mem_retired_sites = nullptr;

// Apart from the data beside it, which every event reads.
alignas(64) constinit MEM_TRACE_LOCK mem_trace_lock;

struct MEM_SITE_RECORDS {
  MEM_ADDRESS_TRACKER_MAP map;
  MEM_RETIRED_SITES retired;
  std::atomic<int> holders{1};  // the tracker is one of them
};

namespace {

// What the map was asked for of late, one record a place. The map divides twice for a lookup and
// follows three pointers. Written under mem_trace_lock, read by every event without.
using SITE = MEM_ADDRESS_TRACKER_MAP::value_type;
using PLACE = std::atomic<SITE*>;
constexpr int place_bits = 12;
constinit std::array<PLACE, 1U << place_bits> recently_found{};
constinit std::atomic<MEM_ADDRESS_TRACKER*> catch_all = nullptr;

void forget_recently_found() {
  for (PLACE& place : recently_found) place.store(nullptr, std::memory_order_relaxed);
  catch_all = nullptr;
}

// The records in use: those of mem_address_tracker_map.
constinit MEM_SITE_RECORDS* current_records = nullptr;

PLACE& place_of(void const* address) {
  const auto spread = reinterpret_cast<std::uintptr_t>(address) * 0x9E3779B97F4A7C15ULL;
  return recently_found[spread >> (64 - place_bits)];
}

[[gnu::noinline]] MEM_ADDRESS_TRACKER* find_in_map(void const* address) {
  const auto found = mem_address_tracker_map->find(address);
  if (found == mem_address_tracker_map->end()) return nullptr;
  place_of(address).store(&*found, std::memory_order_release);
  return &found->second;
}

// A copy of the record's counters and who it is, and what sets of modules or files take beside it.
constexpr std::size_t report_bytes_per_site = sizeof(MEMORY_TRACKER_BASE) + 64;

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
    forget_recently_found();
    former = std::exchange(current_records, next);
    mem_address_tracker_map = next == nullptr ? nullptr : &next->map;
    mem_retired_sites = next == nullptr ? nullptr : &next->retired;
  }
  let_go_of(former);
}

bool say_the_same(const MEM_ADDRESS_TRACKER& a, const MEM_ADDRESS_TRACKER& b) {
  const auto key = [](const MEM_ADDRESS_TRACKER& verdict) {
    const MEM_ADDRESS_INFO& info = verdict.address_info;
    return std::make_tuple(verdict.filtered, info.line, std::string_view(info.module_name_buffer),
                           std::string_view(info.file_name_buffer),
                           std::string_view(info.function_name_buffer));
  };
  return key(a) == key(b);
}

// Without it a host that loads and unloads one plug-in for ever would collect records for ever.
bool bring_back_retired(const MEM_ADDRESS_TRACKER& verdict, void const* address) {
  const auto [first, last] = mem_retired_sites->equal_range(address);
  const auto same = std::find_if(
      first, last, [&](const auto& retired) { return say_the_same(retired.second, verdict); });
  if (same == last) return false;
  same->second.address_info = verdict.address_info;
  mem_address_tracker_map->reserve(mem_address_tracker_map->size() + 1);
  mem_address_tracker_map->insert(mem_retired_sites->extract(same));
  return true;
}

void begin_anew() { replace_records(make_records()); }

void abandon() {
  forget_recently_found();
  mem_inherit_verdicts(mem_trace_lock.is_taken() ? nullptr : mem_address_tracker_map);
  mem_trace_lock.abandon();
  mem_abandon(current_records);
  if (current_records != nullptr) return;
  mem_address_tracker_map = nullptr;
  mem_retired_sites = nullptr;
}

}  // namespace

MEM_SITES_HELD::MEM_SITES_HELD() : m_records(current_records) {
  if (m_records != nullptr) ++m_records->holders;
}

MEM_SITES_HELD::~MEM_SITES_HELD() { let_go_of(m_records); }

constinit const MEM_PART mem_site_map_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { begin_anew(); }}, MEM_RESET{begin_anew},
    MEM_FREE{[] { replace_records(nullptr); }}, MEM_ABANDON{abandon});

MEM_ADDRESS_TRACKER* mem_recent_site(void const* address) {
  SITE* const site = place_of(address).load(std::memory_order_acquire);
  return site != nullptr && site->first == address ? &site->second : nullptr;
}

MEM_ADDRESS_TRACKER* mem_find_site(void const* address) {
  MEM_ADDRESS_TRACKER* const recent = mem_recent_site(address);
  return recent != nullptr ? recent : find_in_map(address);
}

MEM_ADDRESS_TRACKER& mem_insert_site(void const* address, const MEM_ADDRESS_TRACKER& verdict) {
  const auto found = mem_address_tracker_map->find(address);
  if (found != mem_address_tracker_map->end()) return found->second;
  if (bring_back_retired(verdict, address)) return mem_address_tracker_map->find(address)->second;
  mem_add_to_reserve(report_bytes_per_site);
  return mem_address_tracker_map->emplace(address, verdict).first->second;
}

// The room is there before a record leaves the map: without it the record would be lost on the way.
void mem_retire_sites(std::uintptr_t begin, std::uintptr_t end) {
  forget_recently_found();
  mem_forget_inherited_verdicts();
  for (auto site = mem_address_tracker_map->begin(); site != mem_address_tracker_map->end();) {
    const auto next = std::next(site);
    if (reinterpret_cast<std::uintptr_t>(site->first) - begin < end - begin) {
      mem_retired_sites->reserve(mem_retired_sites->size() + 1);
      // A text of the module itself.
      site->second.address_info.symbol_name = nullptr;
      mem_retired_sites->insert(mem_address_tracker_map->extract(site));
    }
    site = next;
  }
}

MEM_ADDRESS_TRACKER& mem_catch_all_site() {
  if (MEM_ADDRESS_TRACKER* const known = catch_all.load(std::memory_order_acquire)) [[likely]]
    return *known;
  return mem_catch_all_site(std::unique_lock(mem_trace_lock));
}

MEM_ADDRESS_TRACKER& mem_catch_all_site(const std::unique_lock<MEM_TRACE_LOCK>&) {
  MEM_ADDRESS_TRACKER& site = (*mem_address_tracker_map)[nullptr];
  catch_all.store(&site, std::memory_order_release);
  return site;
}
