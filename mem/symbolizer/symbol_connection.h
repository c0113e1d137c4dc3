// Questions and answers over one socket to a symbol server, of many threads at once.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "mem/base/bookkeeping.h"
#include "mem/base/signals_held.h"
#include "mem/base/spin_lock.h"
#include "mem/symbolizer/module_file.h"
#include "mem/symbolizer/symbol_answer.h"
#include "platform/thr_connection.h"

/// No lock is held while a thread waits, and no wait relies on another thread to go on: one that is
/// never heard of again, since a signal handler has jumped out of it, costs the others a moment.
class MEM_SYMBOL_CONNECTION {
 public:
  MEM_SYMBOL_CONNECTION();
  MEM_SYMBOL_CONNECTION(const MEM_SYMBOL_CONNECTION&) = delete;
  MEM_SYMBOL_CONNECTION& operator=(const MEM_SYMBOL_CONNECTION&) = delete;
  /// Hangs up; a server of this process's own ends.
  ~MEM_SYMBOL_CONNECTION();

  /// To be connected before anything is asked.
  THR_CONNECTION& socket() { return m_connection; }

  /// Why nothing can be asked any more.
  enum class END {
    none,        ///< it can
    taken_away,  ///< the host has closed the descriptor, or has none to give, or memory is short
    hung_up,     ///< the server has ended
    silent,      ///< it gave no answer in time
    damaged,     ///< it said what can't be understood
  };
  END end() const { return m_end; }
  /// True once after the end.
  bool is_first_to_see_the_end() { return !m_end_is_seen.exchange(true); }

  enum class OUTCOME {
    answered,
    unreadable,  ///< the server can't read the file, and never will
    for_now,     ///< nothing is to be had now
    no_room,     ///< the server says so: it may have some later
    no_answer,   ///< since the connection has ended
  };
  /// Asks about addresses of a file, 64 at most. An answer's payload, held against the number
  /// of addresses, is stored. May throw std::bad_alloc.
  OUTCOME look_up(MEM_MODULE_FILE& file, std::span<const std::uint64_t> addresses,
                  MEM_SYMBOL_BYTES& payload);

  /// Whether this process made it, rather than the one that forked it.
  bool is_of_this_process() const;
  /// Closes the descriptor and leaves the server to the parent, in a child made by fork.
  void abandon();

  /// How long a server may take for an answer.
  static std::chrono::milliseconds most_time;

 private:
  using CLOCK = std::chrono::steady_clock;
  class OPEN_FILE;
  struct KNOWN_MODULE;
  struct QUESTION_IN_FLIGHT;
  using IN_FLIGHT = std::shared_ptr<QUESTION_IN_FLIGHT>;

  OUTCOME module_number(MEM_MODULE_FILE& file, std::uint32_t& number);
  void remember(MEM_MODULE_FILE& file, bool is_readable, std::uint32_t number);
  OUTCOME open_module(MEM_MODULE_FILE& file, std::uint32_t& number);
  OUTCOME ask(std::uint32_t kind, MEM_SYMBOL_BYTES& frame, OPEN_FILE* passed,
              MEM_SYMBOL_MESSAGE& answer);
  long send(const MEM_SIGNALS_HELD&, const MEM_SYMBOL_BYTES& frame, int descriptor);
  OUTCOME conclude_sending(long sent, const MEM_SYMBOL_BYTES& frame, int descriptor,
                           CLOCK::time_point deadline);
  OUTCOME refusal(const MEM_SYMBOL_MESSAGE& answer);
  OUTCOME finish(END why);
  IN_FLIGHT put_in_flight(const MEM_SIGNALS_HELD&);
  void take_off(const IN_FLIGHT& question);
  void await(const IN_FLIGHT& question, CLOCK::time_point deadline);
  bool may_read(bool reads);
  bool wait_for(short events, CLOCK::time_point until);
  void receive(const QUESTION_IN_FLIGHT& own);
  bool receive_piece();
  void hand_over_answers(const QUESTION_IN_FLIGHT& own);
  bool hand_over(MEM_SYMBOL_MESSAGE& answer, const QUESTION_IN_FLIGHT& own);

  THR_CONNECTION m_connection;
  const int m_owner;
  std::atomic<END> m_end{END::none};
  std::atomic<bool> m_end_is_seen{false};
  // Since when a thread has been the one that waits at the socket, in the clock's ticks; 0 for
  // nobody. A hint: two of them do no harm.
  std::atomic<CLOCK::rep> m_reader_since{0};

  tbb::spin_mutex m_lock;  // of all below, and of the stream in both directions
  std::uint32_t m_last_number = 0;
  MEM_SYMBOL_STREAM m_stream;
  std::vector<IN_FLIGHT, MEM_BOOKKEEPING_ALLOCATOR<IN_FLIGHT>> m_in_flight;

  std::atomic<std::size_t> m_number_in_flight{0};       // changed under the lock
  std::atomic<KNOWN_MODULE*> m_newest_module{nullptr};  // nothing is removed from the list
};
