// The symbol server that this process asks: found or started when it is wanted, and tried once more
// when it is lost.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <span>

#include "mem/base/spin_lock.h"
#include "mem/symbolizer/symbol_connection.h"

/// Any thread, holding no lock.
class MEM_SYMBOL_CLIENT {
 public:
  static MEM_SYMBOL_CLIENT singleton_instance;

  enum class OUTCOME {
    answered,
    unknown,    ///< asking again will not help
    for_now,    ///< it may
    no_server,  ///< nor will there be one: ask somebody else
  };
  /// Asks as MEM_SYMBOL_CONNECTION::look_up does, of the server at the socket that
  /// KORVANE_MEM_SYMBOL_SERVER names, or else of one that is started for this process. One that has
  /// ended, or gives no answer that can be understood, is replaced once; the next one is the last.
  /// One whose socket the host takes away is replaced as often as that happens. May throw
  /// std::bad_alloc.
  OUTCOME look_up(MEM_MODULE_FILE& file, std::span<const std::uint64_t> addresses,
                  MEM_SYMBOL_BYTES& payload);

  /// Takes leave of the server. A later question finds one again.
  void clear();
  /// Lets go of it, in a child made by fork.
  void abandon();

 private:
  using CLOCK = std::chrono::steady_clock;
  using CONNECTION = std::shared_ptr<MEM_SYMBOL_CONNECTION>;
  enum class TROUBLE : unsigned char { none, for_now, for_good };

  using HOLDER_MEMORY = MEM_BOOKKEEPING_ALLOCATOR<CONNECTION>;
  class END_OF_CONNECTING;

  CONNECTION usable_connection(TROUBLE& trouble);
  bool find_or_begin_to_connect(CONNECTION& known);
  CONNECTION connect(TROUBLE& trouble);
  int find_server(THR_CONNECTION& socket);
  void replace_current(CONNECTION* fresh);
  TROUBLE could_not_connect(int error);
  void settle_end(MEM_SYMBOL_CONNECTION& connection);
  bool has_given_up() const { return m_failures >= most_failures; }

  static constexpr int most_failures = 2;

  MEM_STATIC_SPIN_MUTEX m_lock;
  CONNECTION* m_current = nullptr;    // under the lock
  CLOCK::rep m_connecting_since = 0;  // under the lock; 0 while nobody is at it
  std::atomic<int> m_failures{0};
  std::atomic<bool> m_shortage_is_said{false};
  std::atomic<bool> m_refusal_is_said{false};
  std::atomic<bool> m_refusal_for_now_is_said{false};
};
