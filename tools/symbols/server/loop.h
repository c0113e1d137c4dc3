// Waiting for many descriptors with one thread.
#pragma once

#include <sys/epoll.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <span>

#include "tools/symbols/server/descriptor.h"

namespace symbols {

/// Whoever waits for a descriptor. Stays where it is while it is watched.
class WATCHER {
 public:
  virtual ~WATCHER() = default;
  WATCHER(const WATCHER&) = delete;
  WATCHER& operator=(const WATCHER&) = delete;
  virtual void ready(std::uint32_t events) = 0;

 protected:
  WATCHER() = default;
};

class LOOP {
 public:
  LOOP();
  bool watch(int descriptor, WATCHER& watcher, std::uint32_t events);
  void change(int descriptor, WATCHER& watcher, std::uint32_t events);
  /// After this the watcher is not called any more, and may be destroyed unless it is being called.
  void forget(int descriptor, const WATCHER& watcher);

  /// Waits for something to happen, and tells whom it concerns.
  void turn(std::chrono::milliseconds longest);

 private:
  DESCRIPTOR m_epoll;
  std::array<epoll_event, 64> m_events{};
  std::span<epoll_event> m_waiting;  // while they are told
};

}  // namespace symbols
