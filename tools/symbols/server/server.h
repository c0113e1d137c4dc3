// Everybody who is connected, until nobody is.
#pragma once

#include <memory>
#include <unordered_map>

#include "tools/symbols/server/client.h"
#include "tools/symbols/server/listener.h"
#include "tools/symbols/server/loop.h"
#include "tools/symbols/server/module_store.h"

namespace symbols {

class SERVER : private WATCHER {
 public:
  explicit SERVER(std::uint64_t memory_limit) : m_store(m_loop, memory_limit) {}

  /// One client, and no other. False when it is another user's.
  bool serve(DESCRIPTOR socket);
  /// All who come, until the last has gone; while none has asked anything, for some seconds.
  void serve(LISTENER& listener);

 private:
  void ready(std::uint32_t events) override;
  bool add_client(DESCRIPTOR socket);
  void run_while_connected();
  void turn();

  LOOP m_loop;
  MODULE_STORE m_store;
  std::unordered_map<const CLIENT*, std::unique_ptr<CLIENT>> m_clients;
  LISTENER* m_listener = nullptr;
  bool m_was_asked = false;
  KNOWN_MODULE::CLOCK::time_point m_next_sweep{};
  bool m_is_full = false;  // no descriptor for another client: looked at again when one has gone
};

}  // namespace symbols
