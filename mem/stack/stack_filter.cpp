#include "mem/stack/stack_filter.h"

#include <array>
#include <span>
#include <string>
#include <vector>

#include "mem/base/check.h"
#include "mem/base/host_thread.h"
#include "mem/host/message.h"
#include "mem/host/settings.h"
#include "mem/modules/module_watch.h"
#include "mem/records/inherited_verdicts.h"
#include "mem/records/site_map.h"
#include "mem/settings/tuning.h"
#include "mem/stack/frame_rules.h"
#include "mem/stack/site_walk.h"
#include "mem/stack/unknown_for_now.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/tracker_state.h"
#include "mem/symbolizer/symbolizer_factory.h"
#include "mem/symbolizer/text_field.h"

constinit MEM_SYMBOLIZER* mem_tbb_symbolizer = nullptr;
constinit std::atomic<bool> mem_want_tbb_filters_file = false;

namespace {

void select_symbolizer(MEM_TRACKING_GRANULARITY granularity) {
  std::string name = mem_setting_text("mem_symbolizer");
  if (name.empty()) name = "default";
  mem_tbb_symbolizer = MEM_SYMBOLIZER_FACTORY::get_symbolizer(name.c_str());
  if (mem_tbb_symbolizer == nullptr) {
    mem_tbb_symbolizer = MEM_SYMBOLIZER_FACTORY::get_default_symbolizer();
    mem_check(mem_tbb_symbolizer != nullptr, "mem_tbb_symbolizer");
    mem_msg_vdebug("Couldn't find symbolizer \"%s\".  Using default symbolizer \"%s\"\n",
                   name.c_str(), mem_tbb_symbolizer->get_name());
  }
  if (granularity != MEM_TRACK_NONE)
    mem_msg_vdebug("Using symbolizer %s", mem_tbb_symbolizer->get_name());
}

bool is_empty(char const* text) { return *text == '\0'; }

// The main frame is of use with a function and a file; a missing file may be allowed.
bool main_frame_is_usable(MEM_ADDRESS_INFO& info) {
  if (mem_allow_no_fileline_info && is_empty(info.file_name_buffer))
    mem_set_text_field(info.file_name_buffer, "Unknown");
  return !is_empty(info.function_name_buffer) && !is_empty(info.file_name_buffer);
}

bool inlined_frame_is_kept(const MEM_ADDRESS_INFO& frame) {
  return !is_empty(frame.function_name_buffer) && !is_empty(frame.file_name_buffer) &&
         !mem_frame_is_rejected(frame);
}

// What an address stands for, and how long that holds: `info` describes the frame that is kept,
// unless the address is filtered.
struct VERDICT {
  MEM_ADDRESS_INFO info{};
  bool filtered = true;
  MEM_SYMBOL_ANSWER holds = MEM_SYMBOL_ANSWER::for_good;
  bool was_asked = false;  // a symbolizer was, rather than the module alone decided
};

bool keep_one_of(MEM_ADDRESS_INFO& info, const std::vector<MEM_ADDRESS_INFO>& inlined) {
  if (main_frame_is_usable(info) && !mem_frame_is_rejected(info)) return true;
  for (const MEM_ADDRESS_INFO& frame : inlined) {
    if (!inlined_frame_is_kept(frame)) continue;
    info = frame;
    return true;
  }
  return false;
}

void judge(void const* address, std::span<void const* const> further, VERDICT& verdict) {
  mem_check(mem_tbb_symbolizer != nullptr, "symbolizer");
  MEM_ADDRESS_INFO& info = verdict.info;
  mem_tbb_symbolizer->get_module_info(address, info);
  if (mem_module_is_rejected(info.module_name_buffer)) return;
  std::vector<MEM_ADDRESS_INFO> inlined;
  verdict.was_asked = true;
  verdict.holds = mem_tbb_symbolizer->ask_looking_ahead(address, info, inlined, further);
  verdict.filtered = !keep_one_of(info, inlined);
}

[[gnu::cold, gnu::noinline]] void classify(void const* address,
                                           std::span<void const* const> further, VERDICT& verdict) {
  const MEM_CANCELLATION_HELD not_cancelled;
  // Walkers other than our own don't.
  mem_watch_module_of(reinterpret_cast<std::uintptr_t>(address));
  verdict.info.address = address;
  judge(address, further, verdict);
  if (verdict.filtered) mem_want_tbb_filters_file = true;
}

// Those that nothing is known of, up to the one where a walk would end.
std::span<void const*> unknown_of(std::span<void const*> frames) {
  std::size_t count = 0;
  for (void const* const frame : frames) {
    const MEM_ADDRESS_TRACKER* const record = mem_find_site(frame);
    if (record != nullptr && !record->filtered) break;
    if (record == nullptr) frames[count++] = frame;
  }
  return frames.first(count);
}

// The unknown frames that a walk would come by next. Without the locks while it walks.
std::span<void const*> look_ahead(MEM_SITE_WALK& walk, std::span<void const*> room,
                                  std::unique_lock<MEM_TRACE_LOCK>& lock) {
  std::size_t count = 0;
  lock.unlock();
  {
    const MEM_MOUSE_STEPPED_OUT stepped_out;
    count = static_cast<std::size_t>(walk.look_ahead(room));
  }
  lock.lock();
  return mem_tbb_tracking_ended ? std::span<void const*>() : unknown_of(room.first(count));
}

// The record of an address that was unknown a moment ago; null when it is unknown for now, or
// tracking has ended.
[[gnu::cold, gnu::noinline]] MEM_ADDRESS_TRACKER* classify_and_insert(
    void const* address, std::unique_lock<MEM_TRACE_LOCK>& lock, MEM_SITE_WALK* walk) {
  if (mem_is_unknown_for_now(address)) return nullptr;
  const MEM_FLOATING_POINT_KEPT host_floating_point;  // hash maps compute their load factors
  MEM_ADDRESS_TRACKER record{};
  if (MEM_ADDRESS_TRACKER const* const parents = mem_inherited_verdict(address)) {
    record.address_info = parents->address_info;
    record.filtered = parents->filtered;
    return &mem_insert_site(address, record);
  }
  constexpr std::size_t most_further = 16;
  std::array<void const*, most_further> room;
  std::span<void const*> further;
  if (walk != nullptr && walk->has_asked()) further = look_ahead(*walk, room, lock);
  if (mem_tbb_tracking_ended) return nullptr;
  lock.unlock();
  VERDICT verdict;
  {
    const MEM_MOUSE_STEPPED_OUT stepped_out;
    classify(address, further, verdict);
  }
  if (walk != nullptr && verdict.was_asked) walk->note_asked();
  lock.lock();
  if (mem_tbb_tracking_ended) return nullptr;
  if (verdict.holds == MEM_SYMBOL_ANSWER::for_now) {
    mem_note_unknown_for_now(address);
    return nullptr;
  }
  record.address_info = verdict.info;
  record.filtered = verdict.filtered;
  return &mem_insert_site(address, record);
}

}  // namespace

MEM_ADDRESS_TRACKER* mem_filter_stack_trace(void const** frames, int count,
                                            std::unique_lock<MEM_TRACE_LOCK>& lock,
                                            MEM_SITE_WALK* walk) {
  mem_check(mem_tbb_tracker_is_inited(), "mem_tbb_tracker_is_inited()");
  for (int frame = 0; frame < count; ++frame) {
    MEM_ADDRESS_TRACKER* record = mem_find_site(frames[frame]);
    if (record == nullptr) [[unlikely]] {
      record = classify_and_insert(frames[frame], lock, walk);
      if (mem_tbb_tracking_ended) return nullptr;
    }
    if (record != nullptr && !record->filtered) return record;
  }
  return &mem_catch_all_site(lock);
}

constinit const MEM_PART mem_symbolizer_part(
    MEM_CREATE{select_symbolizer},
    MEM_RESET{mem_nothing},  // what an address stands for stays the same
    // Allocations of other modules' destructors may have started tools since the exit began.
    MEM_FREE{MEM_SYMBOLIZER_FACTORY::end_all_tools},
    MEM_ABANDON{MEM_SYMBOLIZER_FACTORY::abandon_all_tools},
    MEM_FOLLOW{mem_nothing});  // the same one, with tools of its own
