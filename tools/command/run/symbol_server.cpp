#include "tools/command/run/symbol_server.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>

namespace command {

using namespace std::chrono_literals;

namespace {

constexpr auto step = 5ms;

// Repeats a question until the answer is yes or the time is over.
template <class QUESTION>
bool within(std::chrono::milliseconds time, QUESTION&& question) {
  const auto end = std::chrono::steady_clock::now() + time;
  while (!question()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(step);
  }
  return true;
}

// The user's own, where the system has one; a path that fits into a socket's address.
std::string make_private_directory() {
  constexpr std::size_t longest = sizeof(sockaddr_un::sun_path) - sizeof "/tuk-mem.XXXXXX/socket";
  for (char const* const name : {"XDG_RUNTIME_DIR", "TMPDIR", ""}) {
    char const* const value = *name == '\0' ? "/tmp" : getenv(name);
    if (value == nullptr || *value != '/' || std::strlen(value) > longest) continue;
    std::string path = std::string(value) + "/tuk-mem.XXXXXX";
    if (mkdtemp(path.data()) != nullptr) return path;
  }
  return {};
}

}  // namespace

SYMBOL_SERVER::SYMBOL_SERVER(const std::string& path) {
  if (path.empty()) return;
  m_directory = make_private_directory();
  if (m_directory.empty()) return;
  m_socket = m_directory + "/socket";
  start(path);
  const bool listens =
      within(2s, [&] { return connect() || waitpid(m_pid, nullptr, WNOHANG) == m_pid; });
  if (!listens || m_connection < 0) m_socket.clear();
}

SYMBOL_SERVER::~SYMBOL_SERVER() {
  if (m_connection >= 0) close(m_connection);
  if (m_pid < 0) return;
  const bool has_ended = within(200ms, [&] { return waitpid(m_pid, nullptr, WNOHANG) != 0; });
  if (!has_ended) return;  // others are connected; it removes the directory at its end
  unlink((m_directory + "/socket").c_str());
  rmdir(m_directory.c_str());
}

// In a session of its own: what the terminal sends is meant for the program.
void SYMBOL_SERVER::start(const std::string& path) {
  m_pid = fork();
  if (m_pid != 0) return;
  setsid();
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(nowhere, stream);
  close_range(STDERR_FILENO + 1, ~0U, 0);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  execl(path.c_str(), path.c_str(), "--socket", m_socket.c_str(), "--remove-directory", nullptr);
  _exit(127);
}

bool SYMBOL_SERVER::connect() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  m_socket.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  const int attempt = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (attempt >= 0 &&
      ::connect(attempt, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0)
    m_connection = attempt;
  else if (attempt >= 0)
    close(attempt);
  return m_connection >= 0;
}

}  // namespace command
