#include "mem/modules/module_watch.h"

#include <dlfcn.h>
#include <sched.h>
#include <sys/auxv.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

#include "mem/modules/readable_memory.h"

namespace {

// What tells a module from any other one, at the same place too.
struct MODULE {
  std::uintptr_t begin;
  std::uintptr_t end;
  void const* link_map;
  void const* unwind_tables;

  bool operator==(const MODULE&) const = default;

  // Without a lock, also of the loader.
  static std::optional<MODULE> at(std::uintptr_t address) {
    dl_find_object found;
    if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0) return std::nullopt;
    return MODULE{reinterpret_cast<std::uintptr_t>(found.dlfo_map_start),
                  reinterpret_cast<std::uintptr_t>(found.dlfo_map_end), found.dlfo_link_map,
                  found.dlfo_eh_frame};
  }
};

// A module's headers lie on its first page, with its build id.
std::uint64_t stamp_of(const MODULE& module) {
  using WORD = std::uint64_t;
  if (!mem_is_readable(module.begin, mem_page_size)) return 0;
  auto const* const words = reinterpret_cast<WORD const*>(module.begin);
  WORD stamp = 0;
  for (std::size_t index = 0; index < mem_page_size / sizeof(WORD); ++index)
    stamp = (stamp ^ words[index]) * 0x9E3779B97F4A7C15ULL;
  return stamp;
}

struct WATCHED {
  MODULE module;
  std::uint64_t stamp;

  bool is_gone(MEM_MODULE_LOOK look) const {
    const std::optional<MODULE> now = MODULE::at(module.begin);
    return now != module || (look == MEM_MODULE_LOOK::MISSED && stamp_of(*now) != stamp);
  }
};

// Room for one watched module. Its state is a count with what it stands for in the low bits: who
// has seen a state and can still exchange it knows that the module is the one it has read.
class PLACE {
 public:
  using STATE = std::uint64_t;

  // The watched module, none in a place that is empty or changing.
  std::optional<WATCHED> read(STATE& state) const {
    state = m_state.load();
    if ((state & kinds) != used) return std::nullopt;
    const WATCHED watched{{m_begin, m_end, m_link_map, m_unwind_tables}, m_stamp};
    if (m_state.load() != state) return std::nullopt;
    return watched;
  }

  // Fills an empty place; the state it has then. False when it is not empty.
  bool fill(const WATCHED& watched, STATE& state) {
    state = m_state.load();
    if ((state & kinds) != empty || !m_state.compare_exchange_strong(state, state + changing))
      return false;
    m_begin = watched.module.begin;
    m_end = watched.module.end;
    m_link_map = watched.module.link_map;
    m_unwind_tables = watched.module.unwind_tables;
    m_stamp = watched.stamp;
    state += used;
    m_state = state;
    return true;
  }

  // For whoever succeeds, the place is changing until it is emptied.
  bool take(STATE state) { return m_state.compare_exchange_strong(state, state - used + changing); }
  void empty_taken(STATE state) { m_state = state - used + next_count; }

 private:
  static constexpr STATE empty = 0, changing = 1, used = 2, kinds = 3, next_count = 4;

  std::atomic<STATE> m_state{empty};
  std::atomic<std::uintptr_t> m_begin{0};
  std::atomic<std::uintptr_t> m_end{0};
  std::atomic<void const*> m_link_map{nullptr};
  std::atomic<void const*> m_unwind_tables{nullptr};
  std::atomic<std::uint64_t> m_stamp{0};
};

constinit std::array<PLACE, 4096> places{};
constinit std::atomic<std::size_t> places_used{0};  // no place behind them was ever filled
constinit std::atomic<int> retirements{0};          // that are going on

constinit const r_debug nothing_loaded{};

// By the executable's dynamic section. The symbol _r_debug may be an executable's copy, which the
// loader does not keep up to date.
r_debug const* find_loader_state() {
  const std::optional<MODULE> executable = MODULE::at(getauxval(AT_ENTRY));
  if (!executable) return &_r_debug;
  auto const* entry = static_cast<link_map const*>(executable->link_map)->l_ld;
  while (entry->d_tag != DT_NULL && entry->d_tag != DT_DEBUG) ++entry;
  auto const* const state = reinterpret_cast<r_debug const*>(entry->d_un.d_ptr);
  return entry->d_tag == DT_DEBUG && state != nullptr ? state : &_r_debug;
}

bool is_watched(const MODULE& module) {
  return std::any_of(places.begin(), places.begin() + places_used.load(), [&](const PLACE& place) {
    PLACE::STATE state = 0;
    const std::optional<WATCHED> watched = place.read(state);
    return watched && watched->module == module;
  });
}

// Whoever removes the module looks at the places afterwards. If that was before this one was
// filled, the module is seen to be gone here.
bool watch(const WATCHED& watched, std::uintptr_t address) {
  for (std::size_t index = 0; index < places.size(); ++index) {
    PLACE::STATE state = 0;
    if (!places[index].fill(watched, state)) continue;
    std::size_t used = places_used;
    while (used <= index && !places_used.compare_exchange_weak(used, index + 1)) {
    }
    if (MODULE::at(address) == watched.module) return true;
    if (places[index].take(state)) places[index].empty_taken(state);
    return false;
  }
  return false;
}

}  // namespace

constinit std::atomic<r_debug const*> mem_loader_state{&nothing_loaded};

bool mem_watch_module_of(std::uintptr_t address) {
  const std::optional<MODULE> module = MODULE::at(address);
  if (!module) return false;
  if (mem_loader_state.load() == &nothing_loaded) mem_loader_state = find_loader_state();
  return is_watched(*module) || watch({*module, stamp_of(*module)}, address);
}

void mem_retire_removed_modules(MEM_MODULE_LOOK look,
                                void (*retired)(std::uintptr_t begin, std::uintptr_t end)) {
  ++retirements;
  for (std::size_t index = 0; index < places_used.load(); ++index) {
    PLACE::STATE state = 0;
    const std::optional<WATCHED> watched = places[index].read(state);
    if (!watched || !watched->is_gone(look) || !places[index].take(state)) continue;
    retired(watched->module.begin, watched->module.end);
    places[index].empty_taken(state);
  }
  --retirements;
  while (retirements.load() != 0) sched_yield();
}

bool mem_loader_is_removing_anywhere() {
  auto const* state =
      reinterpret_cast<r_debug_extended const*>(mem_loader_state.load(std::memory_order_relaxed));
  while (state != nullptr) {
    if (__atomic_load_n(&state->base.r_state, __ATOMIC_RELAXED) == r_debug::RT_DELETE) return true;
    state = state->base.r_version > 1 ? state->r_next : nullptr;
  }
  return false;
}
