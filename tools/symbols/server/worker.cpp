#include "tools/symbols/server/worker.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "tools/symbols/core/answer.h"
#include "tools/symbols/server/worker_process.h"

namespace symbols {

namespace {

// Killed, and not known to have ended.
std::vector<pid_t>& ending() {
  static std::vector<pid_t> processes;
  return processes;
}

void reap_ended() {
  std::erase_if(ending(), [](pid_t process) { return waitpid(process, nullptr, WNOHANG) != 0; });
}

}  // namespace

std::unique_ptr<WORKER> WORKER::start(LOOP& loop, WORKER_OWNER& owner, const JOB& job) {
  reap_ended();
  int pair[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0) return nullptr;
  DESCRIPTOR ours(pair[0]);
  const DESCRIPTOR theirs(pair[1]);
  // It may write several of its longest messages before it is read from.
  const int room = 4 * static_cast<int>(longest_message);
  setsockopt(theirs.number(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
  const pid_t process = fork();
  if (process == 0) run_worker(theirs.number(), job);
  if (process < 0) return nullptr;
  std::unique_ptr<WORKER> worker(new WORKER(loop, owner, std::move(ours), process));
  if (!loop.watch(worker->m_socket.number(), *worker, EPOLLIN)) return nullptr;
  return worker;
}

WORKER::WORKER(LOOP& loop, WORKER_OWNER& owner, DESCRIPTOR socket, pid_t process)
    : m_loop(loop), m_owner(owner), m_socket(std::move(socket)), m_process(process) {}

// Its end is not waited for: on a busy machine that takes longer than an answer.
WORKER::~WORKER() {
  m_loop.forget(m_socket.number(), *this);
  kill(m_process, SIGKILL);
  ending().push_back(m_process);
  reap_ended();
}

void WORKER::await_ended() {
  using namespace std::chrono_literals;
  const auto deadline = std::chrono::steady_clock::now() + 100ms;
  for (; !ending().empty() && std::chrono::steady_clock::now() < deadline; reap_ended())
    std::this_thread::sleep_for(1ms);
}

// Within what the socket takes at once: the worker has read all before it is asked again.
void WORKER::ask(std::span<const std::uint64_t> addresses) {
  m_asked.insert(m_asked.end(), addresses.begin(), addresses.end());
  send(m_socket.number(), addresses.data(), addresses.size_bytes(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void WORKER::ready(std::uint32_t) {
  static char message[longest_message];
  const ssize_t size = recv(m_socket.number(), message, sizeof message, MSG_DONTWAIT);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
  using REFUSAL = MEM_SYMBOL_PROTOCOL::REFUSAL;
  REFUSAL refusal{};
  if (size == sizeof refusal) {
    std::memcpy(&refusal, message, sizeof refusal);
    return m_owner.worker_refuses(refusal.reason == REFUSAL::unreadable ? REFUSAL::unreadable
                                                                        : REFUSAL::for_now);
  }
  std::uint64_t address = 0;
  if (size < static_cast<ssize_t>(sizeof address) || m_asked.empty()) return m_owner.worker_ended();
  std::memcpy(&address, message, sizeof address);
  const std::string_view bytes(message + sizeof address,
                               static_cast<std::size_t>(size) - sizeof address);
  if (address != m_asked.front() || !is_whole_answer(bytes)) return m_owner.worker_ended();
  m_asked.pop_front();
  m_owner.answered(address, bytes);
}

std::uint64_t WORKER::private_memory() const { return private_memory_of(m_process); }

std::uint64_t private_memory_of(pid_t process) {
  char path[32];
  std::snprintf(path, sizeof path, "/proc/%d/statm", process);
  const DESCRIPTOR file(::open(path, O_RDONLY | O_CLOEXEC));
  char text[128] = "";
  if (!file.is_open() || read(file.number(), text, sizeof text - 1) <= 0) return 0;
  unsigned long long total = 0;
  unsigned long long resident = 0;
  unsigned long long of_files = 0;
  if (std::sscanf(text, "%llu %llu %llu", &total, &resident, &of_files) != 3) return 0;
  return (resident - of_files) * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace symbols
