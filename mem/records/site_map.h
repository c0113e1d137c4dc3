// The records of all allocation sites, by code address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <unordered_map>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/base/spin_lock.h"

/// Memory for the nodes of the site map. A node holds a link and the key, 16 bytes, then the
/// record: begun 48 bytes into a cache line, it has all counters that an event writes on one line,
/// and what a lookup reads on others. Two threads at one site hand over a line less each time: on
/// the churn benchmark a sixth of the time.
template <class NODE>
class MEM_SITE_ALLOCATOR {
 public:
  using value_type = NODE;

  MEM_SITE_ALLOCATOR() = default;
  template <class OTHER>
  explicit(false) MEM_SITE_ALLOCATOR(const MEM_SITE_ALLOCATOR<OTHER>&) {}

  NODE* allocate(std::size_t count) {
    return reinterpret_cast<NODE*>(LINES().allocate(lines(count))->bytes + node_offset);
  }
  void deallocate(NODE* nodes, std::size_t count) {
    auto* const bytes = reinterpret_cast<unsigned char*>(nodes) - node_offset;
    LINES().deallocate(reinterpret_cast<LINE*>(bytes), lines(count));
  }
  bool operator==(const MEM_SITE_ALLOCATOR&) const = default;

 private:
  static constexpr std::size_t node_offset = 48;
  struct alignas(64) LINE {
    unsigned char bytes[64];
  };
  using LINES = MEM_CACHE_ALIGNED_ALLOCATOR<LINE>;

  static std::size_t lines(std::size_t count) {
    // NOLINTNEXTLINE(bugprone-sizeof-expression): the map's buckets are pointers.
    const std::size_t bytes = node_offset + count * sizeof(NODE);
    return (bytes + sizeof(LINE) - 1) / sizeof(LINE);
  }
};

using MEM_ADDRESS_TRACKER_MAP =
    std::unordered_map<void const*, MEM_ADDRESS_TRACKER, std::hash<void const*>,
                       std::equal_to<void const*>,
                       MEM_SITE_ALLOCATOR<std::pair<void const* const, MEM_ADDRESS_TRACKER>>>;

/// Every code address seen on a captured stack, also the filtered ones. The null address is the
/// catch-all: what no site could be found for. A record leaves the map when the loader removes its
/// module, and is retired then: it stays while tracking runs, so pointers to it stay valid. From
/// initialisation to cleanup.
extern MEM_ADDRESS_TRACKER_MAP* mem_address_tracker_map;

/// The records of modules that are gone: several of an address that several modules had. From and
/// until the same moments. Its nodes are those of the map above.
using MEM_RETIRED_SITES =
    std::unordered_multimap<void const*, MEM_ADDRESS_TRACKER, std::hash<void const*>,
                            std::equal_to<void const*>, MEM_ADDRESS_TRACKER_MAP::allocator_type>;
extern MEM_RETIRED_SITES* mem_retired_sites;

/// A reset or the cleanup lets go of all records at once. Whoever still reads their texts holds
/// them by one of these: the last holder frees them. Taken and given back without a lock.
class MEM_SITES_HELD {
 public:
  /// Holds the records that are there now, or none. Hold mem_trace_lock.
  MEM_SITES_HELD();
  MEM_SITES_HELD(const MEM_SITES_HELD&) = delete;
  MEM_SITES_HELD& operator=(const MEM_SITES_HELD&) = delete;
  ~MEM_SITES_HELD();

 private:
  struct MEM_SITE_RECORDS* m_records;
};

extern const MEM_PART mem_site_map_part;

/// Guards the site map and what its records say of their addresses. Their figures have guards of
/// their own (counters.h), and an event that finds its site among the recent ones does without it.
using MEM_TRACE_LOCK = MEM_SPIN_LOCK<MEM_LOCK_ORDER::SITES>;
extern MEM_TRACE_LOCK mem_trace_lock;

/// The record of an address that is among those looked for of late; null when it is not, or
/// unknown. Inside the tracker's lock, with no other.
MEM_ADDRESS_TRACKER* mem_recent_site(void const* address);

/// The record of an address, null when the address is unknown. Hold mem_trace_lock.
MEM_ADDRESS_TRACKER* mem_find_site(void const* address);

/// The record of an address that had none: with this verdict, or as it was retired with the same
/// one, when the same module is back at its place. Another thread may have been faster: the first
/// insertion wins. Hold mem_trace_lock. May throw std::bad_alloc.
MEM_ADDRESS_TRACKER& mem_insert_site(void const* address, const MEM_ADDRESS_TRACKER& verdict);

/// Retires all records of [begin, end), where a module was that the loader has removed. Hold
/// mem_trace_lock. May throw std::bad_alloc, between two records.
void mem_retire_sites(std::uintptr_t begin, std::uintptr_t end);

/// Calls `visit` with every record and its address, the retired ones too. Hold mem_trace_lock.
template <class VISIT>
void mem_for_each_site(VISIT visit) {
  for (auto& [address, site] : *mem_address_tracker_map) visit(address, site);
  for (auto& [address, site] : *mem_retired_sites) visit(address, site);
}

/// The catch-all record, created when it is not there. Inside the tracker's lock; takes
/// mem_trace_lock to create it, or is called with it held.
MEM_ADDRESS_TRACKER& mem_catch_all_site();
MEM_ADDRESS_TRACKER& mem_catch_all_site(const std::unique_lock<MEM_TRACE_LOCK>& held);

inline bool mem_is_catch_all(const MEM_ADDRESS_TRACKER& site) {
  return site.address_info.address == nullptr;
}
