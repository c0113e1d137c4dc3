#include "mem/state/thread_line.h"

#include <cerrno>

#include "platform/raw_syscall.h"

constinit std::array<MEM_THREAD_LINE, 1 + mem_most_own_lines> mem_thread_lines{};
constinit thread_local MEM_THREAD_LINE* mem_own_line = nullptr;

namespace {

using THREAD_ID = std::int32_t;
constexpr THREAD_ID nobody = 0;

// The owner's id, below the number of owners so far: ids come again, and while one thread finds an
// owner gone, another one with the same id may come to the line.
using OWNER_WORD = std::uint64_t;
using OWNER = std::atomic<OWNER_WORD>;
constinit std::array<OWNER, mem_most_own_lines> owners{};

// A process that shares the memory for a while, as a child made by vfork does, runs with the
// thread's own variables and other thread ids. What it claimed would be taken from the thread.
constinit std::atomic<std::int32_t> own_process{0};

bool is_in_own_process() {
  const auto process = static_cast<std::int32_t>(thr_raw_syscall(SYS_getpid));
  std::int32_t known = 0;
  return process > 0 &&  // a filter of system calls may forbid to ask
         (own_process.compare_exchange_strong(known, process) || known == process);
}

// Raised before a line is first written.
constinit std::atomic<std::size_t> used_lines{1};

bool is_gone(THREAD_ID thread) {
  return thr_raw_syscall(SYS_tgkill, thr_raw_syscall(SYS_getpid), thread, 0) == -ESRCH;
}

constexpr int id_bits = 32;
THREAD_ID id_of(OWNER_WORD owner) { return static_cast<THREAD_ID>(owner); }
OWNER_WORD next_owner(OWNER_WORD former, THREAD_ID thread) {
  return (((former >> id_bits) + 1) << id_bits) | static_cast<std::uint32_t>(thread);
}

template <class MAY_TAKE>
OWNER* take_one(THREAD_ID thread, MAY_TAKE may_take) {
  for (OWNER& owner : owners) {
    OWNER_WORD former = owner;
    if (may_take(id_of(former)) &&
        owner.compare_exchange_strong(former, next_owner(former, thread)))
      return &owner;
  }
  return nullptr;
}

MEM_THREAD_LINE& line_of(const OWNER& owner) {
  const auto number = static_cast<std::size_t>(&owner - owners.data()) + 1;
  std::size_t used = used_lines;
  while (used <= number && !used_lines.compare_exchange_weak(used, number + 1)) {
  }
  return mem_thread_lines[number];
}

}  // namespace

[[gnu::cold, gnu::noinline]] MEM_THREAD_LINE& mem_claim_thread_line() {
  if (!is_in_own_process()) return mem_thread_lines[0];
  const auto thread = static_cast<THREAD_ID>(thr_raw_syscall(SYS_gettid));
  if (thread <= nobody) return mem_thread_lines[0];
  // A line of this id already is an earlier thread's, which is gone.
  OWNER* owner = take_one(thread, [=](THREAD_ID former) { return former == thread; });
  if (owner == nullptr) owner = take_one(thread, [](THREAD_ID former) { return former == nobody; });
  if (owner == nullptr) owner = take_one(thread, is_gone);
  mem_own_line = owner == nullptr ? mem_thread_lines.data() : &line_of(*owner);
  return *mem_own_line;
}

std::span<MEM_THREAD_LINE> mem_used_thread_lines() { return {mem_thread_lines.data(), used_lines}; }

void mem_abandon_thread_lines() {
  own_process = 0;
  for (OWNER& owner : owners) owner = nobody;
  for (MEM_THREAD_LINE& line : mem_used_thread_lines()) line.mouse = 0;
  mem_own_line = nullptr;
}
