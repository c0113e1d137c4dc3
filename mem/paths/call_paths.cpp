#include "mem/paths/call_paths.h"

#include <mutex>
#include <new>

#include "mem/base/static_storage.h"
#include "mem/paths/call_paths_lock.h"
#include "mem/records/site_map.h"
#include "mem/state/tracker_visit.h"

constinit std::atomic<MEM_CALL_PATHS*> mem_call_paths = nullptr;
constinit std::atomic<std::uint32_t> mem_call_paths_epoch{1};
constinit std::atomic<std::uint64_t> mem_blocks_beyond_call_paths{0};

// Apart from the data beside it, which every event reads.
alignas(64) constinit MEM_CALL_PATHS_LOCK mem_call_paths_lock;

namespace {

constinit MEM_STATIC_STORAGE<MEM_CALL_PATHS> storage;

// The peaks of the last flush, by the paths' numbers. Guarded by the lock.
struct PEAK {
  std::int64_t bytes;
  std::int32_t blocks;
};
using PEAKS = std::vector<PEAK, MEM_BOOKKEEPING_ALLOCATOR<PEAK>>;
constinit MEM_STATIC_STORAGE<PEAKS> flushed_storage;
constinit PEAKS* flushed = nullptr;

PEAK flushed_peak(std::size_t number) {
  return flushed == nullptr || number > flushed->size() ? PEAK{} : (*flushed)[number - 1];
}

MEM_CALL_PATHS& all_paths() {
  if (MEM_CALL_PATHS* const paths = mem_call_paths.load(std::memory_order_acquire)) [[likely]]
    return *paths;
  const std::lock_guard creating(mem_call_paths_lock);
  if (mem_call_paths == nullptr) mem_call_paths = storage.construct();
  return *mem_call_paths;
}

template <class VISIT>
void for_each_path(VISIT visit) {
  std::uint32_t number = 0;
  if (MEM_CALL_PATHS* const all = mem_call_paths)
    all->paths().for_each([&](MEM_CALL_PATH& path) { visit(++number, path); });
}

void new_epoch() { mem_call_paths_epoch.fetch_add(1); }

// The paths stay, for the peaks that a flush has kept; their sites are others.
void forget_figures() {
  const std::lock_guard changing(mem_call_paths_lock);
  MEM_CALL_PATHS* const all = mem_call_paths;
  for_each_path([&](std::uint32_t number, MEM_CALL_PATH& path) {
    const std::uint32_t node = path.node;
    const std::uint32_t bin = path.bin;
    new (&path) MEM_CALL_PATH{nullptr, node, bin};
    if (flushed != nullptr && number <= flushed->size() && all->nodes()[node].is_removed)
      (*flushed)[number - 1] = {};
  });
  mem_blocks_beyond_call_paths = 0;
  new_epoch();
}

void free_paths() {
  MEM_CALL_PATHS* all = mem_call_paths.exchange(nullptr);
  mem_destroy(all);
  mem_destroy(flushed);
  new_epoch();
}

void abandon_paths() {
  MEM_CALL_PATHS* all = mem_call_paths;
  mem_abandon(all);
  mem_call_paths = all;
  mem_abandon(flushed);
  mem_call_paths_lock.abandon();
  mem_blocks_beyond_call_paths = 0;
  new_epoch();
}

}  // namespace

namespace {

// A path that nobody has come by since a reset is its site's all the same, for the peak that a
// flush has kept: of the record that has the address now. Hold mem_trace_lock.
MEM_ADDRESS_TRACKER const* site_now(std::uint32_t node, std::uint32_t bin) {
  MEM_CALL_PATHS& all = *mem_call_paths;
  if (all.nodes()[node].is_removed) return nullptr;
  if ((bin & MEM_CALL_PATH::is_of_catch_all) != 0) return mem_find_site(nullptr);
  return mem_find_site(
      reinterpret_cast<void const*>(all.frames().behind_call(all.nodes()[node].frame)));
}

}  // namespace

MEM_CALL_PATH* mem_call_path_of(const MEM_PATH_KEY& key) {
  MEM_CALL_PATH* path = nullptr;
  try {
    path = all_paths().find_or_add(key);
  } catch (const std::bad_alloc&) {  // the site is charged all the same
  }
  if (path == nullptr) [[unlikely]]
    mem_blocks_beyond_call_paths.fetch_add(1, std::memory_order_relaxed);
  return path;
}

void mem_remove_call_paths(std::uintptr_t begin, std::uintptr_t end) {
  MEM_CALL_PATHS* const all = mem_call_paths;
  if (all == nullptr) return;
  const std::lock_guard removing(mem_call_paths_lock);
  all->remove_module(begin, end);
  new_epoch();
}

void mem_keep_current_call_paths_as_peak() {
  for_each_path([](std::uint32_t, MEM_CALL_PATH& path) {
    path.peak_bytes = path.current_bytes;
    path.peak_blocks = path.current_blocks;
  });
}

void mem_flush_call_path_peaks() {
  MEM_CALL_PATHS* const all = mem_call_paths;
  if (all == nullptr) return;
  const std::lock_guard changing(mem_call_paths_lock);
  if (flushed == nullptr) flushed = flushed_storage.construct();
  flushed->clear();
  flushed->reserve(all->paths().count());
  for_each_path([](std::uint32_t, const MEM_CALL_PATH& path) {
    flushed->push_back({path.peak_bytes, path.peak_blocks});
  });
}

void mem_restore_call_path_peaks() {
  for_each_path([](std::uint32_t number, MEM_CALL_PATH& path) {
    const PEAK peak = flushed_peak(number);
    path.peak_bytes = peak.bytes;
    path.peak_blocks = peak.blocks;
  });
}

MEM_CALL_PATH_FIGURES MEM_CALL_PATH_FIGURES::now() {
  MEM_CALL_PATH_FIGURES figures;
  const MEM_TRACKER_VISIT_ALONE visit;
  MEM_CALL_PATHS* const all = mem_call_paths;
  figures.beyond_limit = mem_blocks_beyond_call_paths;
  if (!visit || all == nullptr) return figures;
  figures.modules = all->frames().modules().count();
  figures.frames = all->frames().frames().count();
  figures.nodes = all->nodes().count();
  figures.rows.reserve(all->paths().count());
  const std::lock_guard trace(mem_trace_lock);
  for_each_path([&](std::uint32_t, const MEM_CALL_PATH& path) {
    MEM_ADDRESS_TRACKER const* site = path.site;
    if (site == nullptr) site = site_now(path.node, path.bin);
    figures.rows.push_back({site, path.node, path.bin & ~MEM_CALL_PATH::is_of_catch_all,
                            path.current_bytes, path.peak_bytes, path.cumulative_bytes,
                            path.current_blocks, path.peak_blocks, path.cumulative_blocks,
                            path.temporary_blocks});
  });
  return figures;
}

void MEM_CALL_PATH_FIGURES::show_flushed_peak() {
  for (std::size_t row = 0; row < rows.size(); ++row) {
    const PEAK peak = flushed_peak(row + 1);
    rows[row].peak_bytes = peak.bytes;
    rows[row].peak_blocks = peak.blocks;
  }
}

constinit const MEM_PART mem_call_paths_part(MEM_CREATE{[](MEM_TRACKING_GRANULARITY) {
                                               new_epoch();
                                             }},  // the first path makes the table
                                             MEM_RESET{forget_figures}, MEM_FREE{free_paths},
                                             MEM_ABANDON{abandon_paths});
