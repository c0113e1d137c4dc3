#include "tools/symbols/server/loop.h"

namespace symbols {

LOOP::LOOP() : m_epoll(epoll_create1(EPOLL_CLOEXEC)) {}

bool LOOP::watch(int descriptor, WATCHER& watcher, std::uint32_t events) {
  epoll_event event{.events = events, .data = {.ptr = &watcher}};
  return epoll_ctl(m_epoll.number(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void LOOP::change(int descriptor, WATCHER& watcher, std::uint32_t events) {
  epoll_event event{.events = events, .data = {.ptr = &watcher}};
  epoll_ctl(m_epoll.number(), EPOLL_CTL_MOD, descriptor, &event);
}

void LOOP::forget(int descriptor, const WATCHER& watcher) {
  epoll_ctl(m_epoll.number(), EPOLL_CTL_DEL, descriptor, nullptr);
  for (epoll_event& event : m_waiting)
    if (event.data.ptr == &watcher) event.data.ptr = nullptr;
}

void LOOP::turn(std::chrono::milliseconds longest) {
  const int count = epoll_wait(m_epoll.number(), m_events.data(), static_cast<int>(m_events.size()),
                               static_cast<int>(longest.count()));
  if (count <= 0) return;
  m_waiting = {m_events.data(), static_cast<std::size_t>(count)};
  for (const epoll_event& event : m_waiting)
    if (event.data.ptr != nullptr) static_cast<WATCHER*>(event.data.ptr)->ready(event.events);
  m_waiting = {};
}

}  // namespace symbols
