// Several threads that do the same.
#pragma once

#include <functional>
#include <thread>
#include <vector>

/// Each gets its number, from 0. They are joined where the result goes.
inline std::vector<std::jthread> start_threads(unsigned count,
                                               const std::function<void(unsigned number)>& work) {
  std::vector<std::jthread> threads;
  for (unsigned number = 0; number < count; ++number) threads.emplace_back(work, number);
  return threads;
}
