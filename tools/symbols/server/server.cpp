#include "tools/symbols/server/server.h"

namespace symbols {

namespace {

using namespace std::chrono_literals;

constexpr auto longest_turn = 2s;
constexpr auto time_for_first_client = 10s;

}  // namespace

bool SERVER::serve(DESCRIPTOR socket) {
  if (!add_client(std::move(socket))) return false;
  run_while_connected();
  return true;
}

void SERVER::serve(LISTENER& listener) {
  m_listener = &listener;
  m_loop.watch(listener.number(), *this, EPOLLIN);
  const auto start = KNOWN_MODULE::CLOCK::now();
  while (!m_was_asked && KNOWN_MODULE::CLOCK::now() - start < time_for_first_client) turn();
  run_while_connected();
  // Who found the socket before it was removed is still served.
  listener.remove();
  ready(EPOLLIN);
  run_while_connected();
}

void SERVER::run_while_connected() {
  while (!m_clients.empty()) turn();
}

void SERVER::turn() {
  const auto now = KNOWN_MODULE::CLOCK::now();
  if (now >= m_next_sweep) {
    m_store.sweep();
    m_next_sweep = now + longest_turn;
  }
  m_loop.turn(longest_turn);
  m_store.start_waiting();
}

void SERVER::ready(std::uint32_t) {
  DESCRIPTOR socket;
  while ((socket = m_listener->accept()).is_open()) add_client(std::move(socket));
  if (errno == EMFILE || errno == ENFILE) {
    m_loop.change(m_listener->number(), *this, 0);
    m_is_full = true;
  }
}

bool SERVER::add_client(DESCRIPTOR socket) {
  if (!is_of_same_user(socket.number())) return false;
  auto client = std::make_unique<CLIENT>(m_loop, m_store, std::move(socket), [this](CLIENT& gone) {
    m_was_asked = m_was_asked || gone.has_asked();
    m_clients.erase(&gone);
    if (m_is_full) m_loop.change(m_listener->number(), *this, EPOLLIN);
    m_is_full = false;
  });
  m_clients.emplace(client.get(), std::move(client));
  return true;
}

}  // namespace symbols
