#include "tools/symbols/server/worker_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <new>

#include "tools/symbols/core/answer.h"
#include "tools/symbols/core/module.h"

namespace symbols {

namespace {

using REFUSAL = MEM_SYMBOL_PROTOCOL::REFUSAL;

// Of the processor, not by the clock: the machine may be busy, and waiting costs nothing. Ends the
// process by SIGPROF.
constexpr int seconds_for_first_answer = 10;
constexpr int seconds_for_answer = 2;

// A sanitizer's own memory is more than any limit.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool is_sanitized = true;
#else
constexpr bool is_sanitized = false;
#endif

void allow_seconds(int seconds) {
  const itimerval timer{.it_interval = {}, .it_value = {.tv_sec = seconds, .tv_usec = 0}};
  setitimer(ITIMER_PROF, &timer, nullptr);
}

// The two descriptors at the first numbers behind the standard ones, and nothing else.
struct PLACED {
  int socket = STDERR_FILENO + 1;
  int module = STDERR_FILENO + 2;
};
PLACED place_descriptors(int socket, int module) {
  const PLACED placed;
  const int high_socket = fcntl(socket, F_DUPFD, placed.module + 1);
  const int high_module = fcntl(module, F_DUPFD, placed.module + 1);
  const int nowhere = ::open("/dev/null", O_RDWR);
  if (dup2(high_socket, placed.socket) < 0 || dup2(high_module, placed.module) < 0 ||
      dup2(nowhere, STDIN_FILENO) < 0)
    _exit(EXIT_FAILURE);
  close_range(static_cast<unsigned>(placed.module) + 1, ~0U, 0);
  return placed;
}

void limit_process(std::uint64_t memory) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const rlimit no_core{.rlim_cur = 0, .rlim_max = 0};
  setrlimit(RLIMIT_CORE, &no_core);
  const rlimit data{.rlim_cur = memory, .rlim_max = memory};
  if (!is_sanitized) setrlimit(RLIMIT_DATA, &data);
}

void answer(int socket, MODULE& module, std::uint64_t address) {
  std::string message(reinterpret_cast<char const*>(&address), sizeof address);
  message += encoded(module.look_up(address));
  if (send(socket, message.data(), message.size(), MSG_NOSIGNAL) < 0) _exit(EXIT_FAILURE);
}

void refuse(int socket, REFUSAL::REASON reason) {
  const REFUSAL refusal{.reason = reason};
  send(socket, &refusal, sizeof refusal, MSG_NOSIGNAL);
}

void serve(const PLACED& placed, const WORKER::JOB& job) {
  std::unique_ptr<MODULE> module;
  std::array<std::uint64_t, WORKER::most_asked> addresses;
  int seconds = seconds_for_first_answer;
  while (true) {
    const ssize_t size = recv(placed.socket, addresses.data(), sizeof addresses, 0);
    if (size <= 0) return;
    for (std::size_t i = 0; i < static_cast<std::size_t>(size) / sizeof addresses[0]; ++i) {
      allow_seconds(seconds);
      if (!module) module = MODULE::open(placed.module, job.path, job.depth);
      if (!module) return refuse(placed.socket, REFUSAL::unreadable);
      answer(placed.socket, *module, addresses[i]);
      seconds = seconds_for_answer;
    }
  }
}

}  // namespace

void run_worker(int socket, const WORKER::JOB& job) {
  limit_process(job.memory);
  const PLACED placed = place_descriptors(socket, job.descriptor);
  try {
    serve(placed, job);
  } catch (const std::bad_alloc&) {
    refuse(placed.socket, REFUSAL::for_now);
  }
  _exit(EXIT_SUCCESS);
}

}  // namespace symbols
