#include "mem/stack/unknown_for_now.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "mem/symbolizer/loaded_module.h"

constinit std::chrono::milliseconds mem_unknown_address_rest = std::chrono::seconds(1);

namespace {

using MILLISECONDS = std::chrono::milliseconds;

// A module may be noted in the life of one tracker and looked for in the next, where it is as
// unknown. One that comes to the place of another that has gone rests a second for it.
struct RESTING {
  void const* module;
  MILLISECONDS since;
  std::size_t count;                     // of addresses that were noted since then
  std::array<void const*, 8> addresses;  // the first of them; where there are more, all rest

  bool has(void const* address) const {
    if (count > addresses.size()) return true;
    const auto end = addresses.begin() + static_cast<std::ptrdiff_t>(count);
    return std::find(addresses.begin(), end, address) != end;
  }
  void add(void const* address) {
    if (count < addresses.size()) addresses[count] = address;
    if (count <= addresses.size()) ++count;
  }
};
constinit std::array<RESTING, 256> resting{};
constinit std::size_t used = 0;  // of these, from the first on

// When a module found no place. For as long as one rests all do: what is wanting, as processes are,
// is wanting for all.
constinit MILLISECONDS one_too_many{};

void const* module_of(void const* address) {
  MEM_LOADED_MODULE module;
  return module.find(address) ? module.start : nullptr;
}

MILLISECONDS now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return std::chrono::duration_cast<MILLISECONDS>(std::chrono::seconds(time.tv_sec) +
                                                  std::chrono::nanoseconds(time.tv_nsec));
}

bool is_recent(MILLISECONDS since, MILLISECONDS time) {
  return since.count() != 0 && time - since < mem_unknown_address_rest;
}

template <class CONDITION>
RESTING* find(CONDITION holds) {
  const auto end = resting.begin() + static_cast<std::ptrdiff_t>(used);
  const auto found = std::find_if(resting.begin(), end, holds);
  return found == end ? nullptr : &*found;
}

RESTING* place_for(void const* module, MILLISECONDS time) {
  if (RESTING* own = find([&](const RESTING& other) { return other.module == module; })) return own;
  if (used < resting.size()) return &resting[used++];
  return find([&](const RESTING& other) { return !is_recent(other.since, time); });
}

}  // namespace

bool mem_is_unknown_for_now(void const* address) {
  if (used == 0) return false;
  void const* const module = module_of(address);
  const MILLISECONDS time = now();
  return is_recent(one_too_many, time) ||
         find([&](const RESTING& other) {
           return other.module == module && is_recent(other.since, time) && other.has(address);
         }) != nullptr;
}

void mem_note_unknown_for_now(void const* address) {
  void const* const module = module_of(address);
  const MILLISECONDS time = now();
  RESTING* const place = place_for(module, time);
  if (place == nullptr) {
    one_too_many = time;
    return;
  }
  if (place->module != module || !is_recent(place->since, time)) *place = {module, time, 0, {}};
  place->add(address);
}
