#include "mem/stack/unknown_for_now.h"

#include <time.h>

#include <array>
#include <cstdint>

constinit std::chrono::milliseconds mem_unknown_address_rest = std::chrono::seconds(1);

namespace {

using MILLISECONDS = std::chrono::milliseconds;

// One address a place: one that lost its place is just asked for earlier. An address may be noted
// in the life of one tracker and looked for in the next, where it is as unknown.
struct PLACE {
  void const* address;
  MILLISECONDS noted;
};
constexpr int place_bits = 10;
constinit std::array<PLACE, 1U << place_bits> places{};

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

}  // namespace

bool mem_is_unknown_for_now(void const* address) {
  const PLACE& place = place_of(address);
  return place.address == address && now() - place.noted < mem_unknown_address_rest;
}

void mem_note_unknown_for_now(void const* address) { place_of(address) = {address, now()}; }
