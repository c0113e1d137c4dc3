// All modules that were opened, for all clients.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <variant>
#include <vector>

#include "tools/symbols/server/known_module.h"

namespace symbols {

class MODULE_STORE {
 public:
  /// Keeps what it holds, workers included, below so many bytes of memory, as far as nobody waits.
  MODULE_STORE(LOOP& loop, std::uint64_t memory_limit)
      : m_loop(loop), m_memory_limit(memory_limit) {}

  using OPENED = std::variant<std::shared_ptr<KNOWN_MODULE>, MEM_SYMBOL_PROTOCOL::REFUSAL::REASON>;
  /// The module of a file that a client has opened; the same one for the same file.
  OPENED open(DESCRIPTOR file, std::string path);

  LOOP& loop() const { return m_loop; }
  std::uint64_t memory_limit() const { return m_memory_limit; }

  bool has_room_for_worker();
  void wait_for_room(KNOWN_MODULE& module);
  /// From time to time, when there may be room again.
  void start_waiting();
  /// Drops what was used least recently while there is too much; nothing of the module in use.
  void make_room(const KNOWN_MODULE& in_use);
  /// From time to time: ends workers that nobody has needed for long, and those that hang.
  void sweep();

 private:
  using MODULES = std::unordered_map<std::string, std::shared_ptr<KNOWN_MODULE>>;

  std::uint64_t memory_in_use() const;
  bool drop_oldest_worker(const KNOWN_MODULE* in_use);
  bool drop_oldest_answers(const KNOWN_MODULE* in_use);
  bool drop_oldest_module();

  LOOP& m_loop;
  std::uint64_t m_memory_limit;
  MODULES m_modules;                       // by what tells one file from another
  std::vector<KNOWN_MODULE*> m_want_room;  // in order; they have a client, so they stay
};

}  // namespace symbols
