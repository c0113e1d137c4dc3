#include "mem/base/own_stack.h"

#include <sys/mman.h>
#include <ucontext.h>

#include <cstddef>
#include <cstdint>

namespace {

constexpr std::size_t stack_size = std::size_t{256} * 1024;
constexpr std::size_t guard_size = std::size_t{16} * 1024;

struct CALL {
  void (*work)(void* argument);
  void* argument;
};

[[maybe_unused]] void run(unsigned high, unsigned low) {
  const auto* const call = reinterpret_cast<CALL*>(std::uint64_t{high} << 32 | low);
  call->work(call->argument);
}

// The mapping is never written where it is not used: it costs pages for what the work needs.
class STACK {
 public:
  STACK()
      : m_start(mmap(nullptr, guard_size + stack_size, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0)) {
    if (exists()) mprotect(m_start, guard_size, PROT_NONE);
  }
  STACK(const STACK&) = delete;
  STACK& operator=(const STACK&) = delete;
  ~STACK() {
    if (exists()) munmap(m_start, guard_size + stack_size);
  }
  bool exists() const { return m_start != MAP_FAILED; }
  char* lowest() const { return static_cast<char*>(m_start) + guard_size; }

 private:
  void* m_start;
};

}  // namespace

bool mem_run_on_own_stack(void (*work)(void* argument), void* argument) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  work(argument);  // the sanitizers know a thread by its one stack
  return true;
#else
  const STACK stack;
  if (!stack.exists()) return false;
  ucontext_t host;
  ucontext_t own;
  CALL call = {work, argument};
  getcontext(&own);
  own.uc_stack.ss_sp = stack.lowest();
  own.uc_stack.ss_size = stack_size;
  own.uc_link = &host;
  const auto address = reinterpret_cast<std::uint64_t>(&call);
  makecontext(&own, reinterpret_cast<void (*)()>(run), 2, static_cast<unsigned>(address >> 32),
              static_cast<unsigned>(address));
  return swapcontext(&host, &own) == 0;
#endif
}
