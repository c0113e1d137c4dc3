#include "mem/stack/unknown_for_now.h"

#include <time.h>

#include <array>
#include <cstdint>

constinit std::chrono::milliseconds mem_unknown_address_rest = std::chrono::seconds(1);

namespace {

using MILLISECONDS = std::chrono::milliseconds;

// An address may be noted in the life of one tracker and looked for in the next, where it is as
// unknown.
struct PLACE {
  void const* address;
  MILLISECONDS noted;
};
constexpr int place_bits = 10;
constinit std::array<PLACE, 1U << place_bits> places{};

// The last address that took the place of one that rested. While it rests itself, all do: there are
// more of them than places, each would be asked for at every event, and what is wanting, as
// processes are, is wanting for all.
constinit PLACE one_too_many{};

PLACE& place_of(void const* address) {
  const auto spread = reinterpret_cast<std::uintptr_t>(address) * 0x9E3779B97F4A7C15ULL;
  return places[spread >> (64 - place_bits)];
}

MILLISECONDS now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return std::chrono::duration_cast<MILLISECONDS>(std::chrono::seconds(time.tv_sec) +
                                                  std::chrono::nanoseconds(time.tv_nsec));
}

bool rests(const PLACE& place) {
  return place.address != nullptr && now() - place.noted < mem_unknown_address_rest;
}

}  // namespace

bool mem_is_unknown_for_now(void const* address) {
  const PLACE& place = place_of(address);
  return (place.address == address && rests(place)) || rests(one_too_many);
}

void mem_note_unknown_for_now(void const* address) {
  PLACE& place = place_of(address);
  const bool takes_anothers = place.address != address && rests(place);
  place = {address, now()};
  if (takes_anothers) one_too_many = place;
}
