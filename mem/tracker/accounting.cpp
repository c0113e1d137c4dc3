#include "mem/tracker/accounting.h"

#include <algorithm>
#include <mutex>
#include <optional>

#include "mem/base/host_thread.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/host/message.h"
#include "mem/manager/statistics.h"
#include "mem/paths/path_stack.h"
#include "mem/records/block_bins.h"
#include "mem/records/call_path.h"
#include "mem/records/counters.h"
#include "mem/records/live_blocks.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/settings/call_path_settings.h"
#include "mem/stack/site_walk.h"
#include "mem/stack/unwinder.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/granularity.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_state.h"
#include "mem/timeline/module_timeline.h"
#include "mem/tracker/event_count.h"
#include "mem/tracker/peaks.h"
#include "mem/tracker/sampling.h"

namespace {

// A larger block never counts as freed by the wrong thread: the allocator's thread caches, which
// the figure is about, don't hold it.
constexpr std::size_t largest_mismatched_block = 8128;

// Timeline indexes between two debug lines.
constexpr std::uint64_t reported_indexes = 8;

// Less room for bytes is not worth the claim.
constexpr std::int64_t least_room = 512;

std::int64_t total_now() {
  const MEM_INSIDE_AS_MOUSE mouse;
  return mem_current_bytes;
}

[[gnu::cold, gnu::noinline]] void advance_timeline_index() {
  const MEM_CANCELLATION_HELD not_cancelled;
  const std::uint64_t index = mem_estimated_timeline_idx.fetch_add(1);
  if (index % reported_indexes != 0) return;
  const std::int64_t total = total_now();
  mem_tracker_debug("Memory tracking: at timeline index %llu with total memory %lld",
                    static_cast<unsigned long long>(index), static_cast<long long>(total));
}

// Inside the tracker's lock, as all that a reset forgets in the same moment.
void add_to_total(std::int64_t bytes) {
  MEM_THREAD_LINE& line = mem_thread_line();
  if (!mem_current_bytes.add_in_room(line, bytes)) [[unlikely]]
    mem_current_bytes.add(line, bytes, mem_next_peak() - 1, least_room);
}

void charge_module(MEM_ADDRESS_TRACKER& site, std::size_t requested, std::size_t allocated) {
  const std::lock_guard modules(mem_module_tracker_lock);
  mem_charge_block(mem_module_of(site), requested, allocated);
}

void credit_module(MEM_ADDRESS_TRACKER& site, std::size_t allocated) {
  const std::lock_guard modules(mem_module_tracker_lock);
  mem_credit_block(mem_module_of(site), allocated);
}

void charge_bins(void const* ptr, std::int64_t bytes) {
  const MEM_BLOCK_BINS bins = {MEM_USER_MEMORY_TRACKER::get_current_pbin_id(),
                               MEM_USER_MEMORY_TRACKER::get_most_recently_opened_pb_tag(),
                               mem_reset_count};
  if (!mem_remember_block_bins(ptr, bins)) [[unlikely]] {  // its release would not be credited
    ++mem_abandoned_events;
    return;
  }
  mem_pbin_tracker->allocate(bytes, bins.bin);
  mem_pbin_tag_tracker->allocate(bytes, bins.tag);
}

bool is_of_this_reset(const std::optional<MEM_BLOCK_BINS>& bins) {
  return bins && bins->reset_count == mem_reset_count;
}

// A block that was never charged to a bin is skipped. Of one from before a reset, the tag's charge
// is forgotten, while the bin still has it.
void credit_bins(const std::optional<MEM_BLOCK_BINS>& bins, std::int64_t bytes) {
  if (!bins) return;
  mem_pbin_tracker->release(bytes, bins->bin);
  if (is_of_this_reset(bins)) mem_pbin_tag_tracker->release(bytes, bins->tag);
}

void mark_bins_as_peak() {
  mem_pbin_tracker->mark_as_peak();
  mem_pbin_tag_tracker->mark_as_peak();
}

bool is_mismatched(const MEM_BLOCK_ORIGIN& origin, std::uint32_t granularity,
                   std::size_t allocated) {
  return (granularity & MEM_TRACK_PER_FILELINE) != 0 && allocated <= largest_mismatched_block &&
         origin.thread != std::this_thread::get_id();
}

// Freed by its thread before that has allocated another one.
bool is_temporary(const MEM_BLOCK_ORIGIN& origin, void const* ptr) {
  if (mem_last_block != ptr || origin.thread != std::this_thread::get_id()) return false;
  mem_last_block = nullptr;
  return true;
}

// A block nobody remembers (from before tracking, or of an untracked thread) is credited to the
// catch-all site, whose current figures can fall below zero.
MEM_ADDRESS_TRACKER& credit_site(const MEM_BLOCK_ORIGIN& origin, void const* ptr,
                                 std::uint32_t granularity, std::size_t allocated) {
  MEM_ADDRESS_TRACKER* const known = origin.owner.site();
  MEM_ADDRESS_TRACKER& site = known != nullptr ? *known : mem_catch_all_site();
  if ((granularity & MEM_MASK_CHARGE_SITE) != 0) {
    MEM_CALL_PATH* const path = origin.owner.path();
    const MEM_RECORD_GUARDED guarded(site);
    mem_credit_block(site, allocated);
    if (path != nullptr) path->credit(allocated, is_temporary(origin, ptr));
    if (known != nullptr && is_mismatched(origin, granularity, allocated))
      site.cumulative_mismatched_bytes += allocated;
  }
  return site;
}

// One allocation, as the levels are charged with it.
struct ALLOCATION {
  void const* block;
  std::size_t requested;
  std::size_t allocated;
  std::uint32_t granularity;
  bool sample;

  bool has(std::uint32_t bits) const { return (granularity & bits) != 0; }
};

void charge_levels(const ALLOCATION& event, MEM_ADDRESS_TRACKER& site, MEM_BLOCK_OWNER owner) {
  mem_remember_block(event.block, owner, event.has(MEM_MASK_NOTE_THREAD));
  if (!event.has(MEM_TRACK_PER_LIBRARY)) return;
  charge_module(site, event.requested, event.allocated);
  if (event.sample) mem_module_timeline->capture();
}

void charge_site(const ALLOCATION& event, MEM_ADDRESS_TRACKER& site) {
  if (event.has(MEM_MASK_CHARGE_SITE)) {
    const MEM_RECORD_GUARDED guarded(site);
    mem_charge_block(site, event.requested, event.allocated);
  }
  charge_levels(event, site, &site);
}

void charge_path(const ALLOCATION& event, MEM_ADDRESS_TRACKER& site, MEM_CALL_PATH& path) {
  {
    const MEM_RECORD_GUARDED guarded(site);
    mem_charge_block(site, event.requested, event.allocated);
    path.charge(event.allocated);
  }
  mem_last_block = event.block;
  charge_levels(event, site, &path);
}

void charge_beside_site(const ALLOCATION& event) {
  const auto bytes = static_cast<std::int64_t>(event.allocated);
  if (event.has(MEM_TRACK_PER_BIN_DETAILED)) {
    charge_bins(event.block, bytes);
    if (event.sample) mem_pbin_tag_snapshots->capture();
  }
  if (event.has(MEM_MASK_TOTAL)) add_to_total(bytes);
}

// What became of an event: MORE_FRAMES are wanted where the frames at hand are all looked through.
enum class CHARGED { YES, MORE_FRAMES, TRACKING_HAS_ENDED };

// Charges a block to the site that the frames lead to, and with it to all that is charged inside
// the tracker's lock.
CHARGED charge_in_lock(const ALLOCATION& event, const MEM_FRAMES& frames) {
  const MEM_INSIDE_AS_MOUSE mouse;
  if (mem_tbb_tracking_ended) return CHARGED::TRACKING_HAS_ENDED;
  MEM_ADDRESS_TRACKER* site = mem_site_of(frames);
  if (mem_tbb_tracking_ended) return CHARGED::TRACKING_HAS_ENDED;
  if (site == nullptr) return CHARGED::MORE_FRAMES;
  charge_site(event, *site);
  charge_beside_site(event);
  return CHARGED::YES;
}

void charge_without_path(const ALLOCATION& event, MEM_ADDRESS_TRACKER& site) {
  mem_last_block = nullptr;
  charge_site(event, site);
}

// The site of a whole stack, and its frame, which is the innermost one for the catch-all.
// `for_good` where the next stack like it need not be looked at again. Null where tracking has
// ended.
MEM_ADDRESS_TRACKER* site_of(MEM_WHOLE_STACK& stack, int& frame, bool& for_good) {
  const int last =
      std::max(0, stack.innermost() + 1 - mem_short_trace_depth - mem_deep_trace_depth);
  for_good = true;
  for (frame = stack.innermost(); frame >= last; --frame) {
    if (stack.is_looked_through(frame)) continue;
    void const* address = stack.return_address(frame);
    if (MEM_ADDRESS_TRACKER* const site = mem_site_of({&address, 1, false})) return site;
    if (mem_tbb_tracking_ended) return nullptr;
    for_good = false;
  }
  frame = stack.innermost();
  return mem_site_of({nullptr, 0, true});
}

CHARGED charge_found_path(const ALLOCATION& event, MEM_PATH_STACK& stack, std::uint32_t bin) {
  int frame = 0;
  bool for_good = false;
  MEM_ADDRESS_TRACKER* const site = site_of(stack.frames(), frame, for_good);
  if (site == nullptr) return CHARGED::TRACKING_HAS_ENDED;
  if (stack.has_more_of(frame)) return CHARGED::MORE_FRAMES;
  MEM_CALL_PATH* const path = frame < 0 ? nullptr : stack.find_path(frame, *site, bin, for_good);
  if (path != nullptr) [[likely]]
    charge_path(event, *site, *path);
  else
    charge_without_path(event, *site);
  return CHARGED::YES;
}

CHARGED charge_path_in_lock(const ALLOCATION& event, MEM_PATH_STACK& stack, std::uint32_t bin) {
  const MEM_INSIDE_AS_MOUSE mouse;
  if (mem_tbb_tracking_ended) return CHARGED::TRACKING_HAS_ENDED;
  if (MEM_CALL_PATH* const path = stack.same_path(bin)) [[likely]] {
    charge_path(event, *path->site.load(std::memory_order_relaxed), *path);
  } else if (stack.is_to_be_walked()) {
    return CHARGED::MORE_FRAMES;
  } else {
    const CHARGED charged = charge_found_path(event, stack, bin);
    if (charged != CHARGED::YES) return charged;
  }
  charge_beside_site(event);
  return CHARGED::YES;
}

CHARGED charge_without_site(const ALLOCATION& event) {
  const MEM_INSIDE_AS_MOUSE mouse;
  if (mem_tbb_tracking_ended) return CHARGED::TRACKING_HAS_ENDED;
  charge_beside_site(event);
  return CHARGED::YES;
}

// What a release finds of its block. Where records were reset, a block that is in the total is
// known by either record: the kinds in force may have changed since it was charged.
struct KNOWN_BLOCK {
  MEM_BLOCK_ORIGIN origin{};
  std::optional<MEM_BLOCK_BINS> bins{};
  bool in_total = true;

  KNOWN_BLOCK(void const* ptr, std::uint32_t granularity) {
    const bool was_reset = mem_reset_count != 0;
    if ((granularity & MEM_MASK_FIND_SITE) != 0 || was_reset) origin = mem_take_block(ptr);
    if ((granularity & MEM_TRACK_PER_BIN_DETAILED) != 0 || was_reset)
      bins = mem_take_block_bins(ptr);
    in_total = !was_reset || origin.owner.site() != nullptr || is_of_this_reset(bins);
  }
};

// Credits a block everywhere inside the tracker's lock. Whether tracking goes on.
bool credit_in_lock(void const* ptr, std::size_t allocated, std::uint32_t granularity, bool peak,
                    bool sample) {
  const auto bytes = static_cast<std::int64_t>(allocated);
  const MEM_INSIDE_AS_MOUSE mouse;
  if (mem_tbb_tracking_ended) return false;
  const KNOWN_BLOCK block(ptr, granularity);
  if ((granularity & MEM_MASK_FIND_SITE) != 0) {
    MEM_ADDRESS_TRACKER& site = credit_site(block.origin, ptr, granularity, allocated);
    if ((granularity & MEM_TRACK_PER_LIBRARY) != 0) {
      credit_module(site, allocated);
      if (sample) mem_module_timeline->capture();
    }
  }
  if ((granularity & MEM_TRACK_PER_BIN_DETAILED) != 0) {
    if (peak) mark_bins_as_peak();
    if (sample) mem_pbin_tag_snapshots->capture();
    credit_bins(block.bins, bytes);
  }
  if ((granularity & MEM_MASK_TOTAL) != 0 && block.in_total)
    mem_current_bytes.subtract(mem_thread_line(), bytes);
  return true;
}

// Outside the tracker's lock, where the registries may end.
std::uint32_t current_bin() {
  const MEM_USER_MEMORY_TRACKER::IN_USE in_use;
  return MEM_USER_MEMORY_TRACKER::get_current_pbin_id();
}

// A capture begins with this function's frame, one before those that a walk of mem_track_alloc's
// caller begins with.
[[gnu::noinline]] CHARGED charge_with_path(const ALLOCATION& event,
                                           const MEM_UNWIND_FRAME& caller) {
  const MEM_OWN_PATH_STACK stack;
  if (!stack) {
    ++mem_blocks_beyond_call_paths;
    MEM_SITE_WALK walk(caller);
    CHARGED charged = CHARGED::MORE_FRAMES;
    while (charged == CHARGED::MORE_FRAMES) charged = charge_in_lock(event, walk.next());
    return charged;
  }
  const std::uint32_t bin = mem_call_paths_per_bin ? current_bin() : 0;
  if (mem_unwinder_walks_itself()) [[likely]] {
    CHARGED charged = CHARGED::MORE_FRAMES;
    while (charged == CHARGED::MORE_FRAMES) {
      stack->walk(caller, MEM_STACK_TRACE_IGNORE_DEPTH - 2, bin);
      charged = charge_path_in_lock(event, *stack, bin);
    }
    return charged;
  }
  const int wanted = mem_call_path_depth + mem_short_trace_depth + mem_deep_trace_depth;
  stack->take_capture(mem_tbb_unwinder->capture(stack->capture_buffer(), wanted,
                                                MEM_STACK_TRACE_IGNORE_DEPTH + 1, 0));
  return charge_path_in_lock(event, *stack, bin);
}

void finish_event(std::uint32_t granularity, bool sample, bool accounted) {
  if (!sample) [[likely]]
    return;
  mem_capture_companions(granularity);
  if (accounted && (granularity & MEM_MASK_TOTAL) != 0) advance_timeline_index();
}

}  // namespace

// The walks begin in this function itself, and nothing here may become a tail call or be inlined
// into the hook: see the ignore depth. A stack is walked outside the tracker's lock: a host's own
// walker may wait for the loader, whose thread may wait for the tracker.
[[gnu::noinline]] void mem_track_alloc(void const* ptr, std::size_t requested,
                                       std::size_t allocated) {
  const std::uint32_t granularity = mem_tracking_granularity;
  const ALLOCATION event = {ptr, requested, allocated, granularity, mem_count_event()};
  CHARGED charged = CHARGED::TRACKING_HAS_ENDED;
  if (event.has(MEM_TRACK_CALL_PATHS)) [[unlikely]] {
    charged = charge_with_path(event, mem_caller_of(__builtin_frame_address(0)));
  } else if (event.has(MEM_MASK_FIND_SITE)) {
    if (mem_unwinder_walks_itself()) [[likely]] {
      MEM_SITE_WALK walk(mem_caller_of(__builtin_frame_address(0)));
      do charged = charge_in_lock(event, walk.next());
      while (charged == CHARGED::MORE_FRAMES);
    } else {
      MEM_CAPTURES captures;
      do {
        const int count =
            mem_tbb_unwinder->capture(captures.frames, captures.wanted, captures.skip, 0);
        charged = charge_in_lock(event, captures.captured(count));
      } while (charged == CHARGED::MORE_FRAMES);
    }
  } else if (event.has(MEM_TRACK_PER_BIN_DETAILED)) {
    charged = charge_without_site(event);
  }
  if (event.has(MEM_MASK_STATISTICS))
    mem_pbin_stats.add_block(static_cast<std::int64_t>(allocated));
  finish_event(granularity, event.sample, charged == CHARGED::YES);
}

[[gnu::noinline]] void mem_track_dealloc(void const* ptr, std::size_t allocated) {
  const std::uint32_t granularity = mem_tracking_granularity;
  // Every timeline holds the moment of every peak.
  const bool peak = (granularity & MEM_MASK_TOTAL) != 0 && mem_check_peak();
  const bool sample = mem_count_event() || peak;
  const bool accounted = (granularity & MEM_MASK_REMEMBER) != 0 &&
                         credit_in_lock(ptr, allocated, granularity, peak, sample);
  if ((granularity & MEM_MASK_STATISTICS) != 0)
    mem_pbin_stats.remove_block(static_cast<std::int64_t>(allocated));
  finish_event(granularity, sample, accounted);
}
