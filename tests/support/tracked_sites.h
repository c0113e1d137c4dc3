// Allocation sites on the stand-in allocator, under a symbolizer that says what the test wants.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <utility>

#include "include/tuk_mem.h"
#include "tests/support/scripted_symbolizer.h"
#include "tests/support/stand_in_allocator.h"

/// An allocation site of its own for every number.
template <int SITE>
[[gnu::noipa]] void* allocate_at(std::size_t size) {
  void* block = STAND_IN::allocate(size);
  asm volatile("" : : "i"(SITE));  // no tail call: the frame has to stay
  return block;
}

/// The first 32 of them.
inline constexpr auto sites_at = []<int... SITE>(std::integer_sequence<int, SITE...>) {
  return std::array{&allocate_at<SITE>...};
}
(std::make_integer_sequence<int, 32>());

inline MEM_TRACKING_GRANULARITY bits(int value) {
  return static_cast<MEM_TRACKING_GRANULARITY>(value);
}

/// Nothing is tracked when a test begins.
class TRACKER : public testing::Test {
 protected:
  TRACKER() {
    m_symbolizer.frames_at = [](void const*) {
      return SCRIPTED_SYMBOLIZER::FRAMES{frame(site_module, "f", "/f.cpp")};
    };
  }
  ~TRACKER() override { mem_disable_tracking(bits(127)); }

  // The module in which this thread's next new site lies.
  static inline thread_local char const* site_module = "alpha";
  SCRIPTED_SYMBOLIZER m_symbolizer;
};
