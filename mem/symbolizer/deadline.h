// Waiting for no longer than to a moment.
#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>

/// What is left until then, none when it has passed.
inline timespec mem_time_until(std::chrono::steady_clock::time_point moment) {
  using CLOCK = std::chrono::steady_clock;
  const auto left = std::max(CLOCK::duration::zero(), moment - CLOCK::now());
  const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
  return {.tv_sec = seconds.count(), .tv_nsec = std::chrono::nanoseconds(left - seconds).count()};
}
