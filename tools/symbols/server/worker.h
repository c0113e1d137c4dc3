// A process that reads one module.
#pragma once

#include <sys/types.h>

#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "mem/symbolizer/symbol_protocol.h"
#include "tools/symbols/core/module.h"
#include "tools/symbols/server/loop.h"

namespace symbols {

/// What a worker is told to.
class WORKER_OWNER {
 public:
  /// An address that was asked for. The bytes are as an answer holds them.
  virtual void answered(std::uint64_t address, std::string_view bytes) = 0;
  /// It can't read the module, or not now. It is to be destroyed.
  virtual void worker_refuses(MEM_SYMBOL_PROTOCOL::REFUSAL::REASON reason) = 0;
  /// Its process is gone, or says what none of ours does. It is to be destroyed.
  virtual void worker_ended() = 0;

 protected:
  ~WORKER_OWNER() = default;
};

/// Libraries that read debug information believe it: a damaged file may crash them, or keep them
/// busy for ever. So each module has a process of its own, with limits, which costs less than a
/// thread that could neither be ended nor be trusted any more.
class WORKER : public WATCHER {
 public:
  struct JOB {
    int descriptor;  ///< of the module's file; stays the owner's
    const std::string& path;
    std::uint64_t memory;  ///< bytes it may allocate
    DEPTH depth;
  };
  /// Null when the system has no room for a process.
  static std::unique_ptr<WORKER> start(LOOP& loop, WORKER_OWNER& owner, const JOB& job);
  ~WORKER() override;

  /// Addresses it has not answered yet, in order.
  const std::deque<std::uint64_t>& asked() const { return m_asked; }
  static constexpr std::size_t most_asked = 64;
  void ask(std::span<const std::uint64_t> addresses);

  /// Waits a moment for those that have been destroyed, so that whoever waits for this process
  /// learns what they cost.
  static void await_ended();

  /// Its memory that no other process shares, in bytes.
  std::uint64_t private_memory() const;

  void ready(std::uint32_t events) override;

 private:
  WORKER(LOOP& loop, WORKER_OWNER& owner, DESCRIPTOR socket, pid_t process);

  LOOP& m_loop;
  WORKER_OWNER& m_owner;
  DESCRIPTOR m_socket;
  pid_t m_process;
  std::deque<std::uint64_t> m_asked;
};

/// Bytes of a process's memory that belong to no file and to no other process.
std::uint64_t private_memory_of(pid_t process);

}  // namespace symbols
