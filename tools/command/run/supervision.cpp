#include "tools/command/run/supervision.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "tools/command/failure.h"

namespace command {

namespace {

constexpr std::initializer_list<int> watched = {SIGCHLD, SIGTERM, SIGINT,  SIGQUIT, SIGHUP,
                                                SIGUSR1, SIGUSR2, SIGALRM, SIGTSTP, SIGCONT};

timespec time_of(std::chrono::milliseconds period) {
  return {period.count() / 1000, (period.count() % 1000) * 1000000};
}

std::string read_all(int descriptor) {
  std::string text;
  std::array<char, 4096> piece;
  for (ssize_t count = 0; (count = read(descriptor, piece.data(), piece.size())) > 0;)
    text.append(piece.data(), static_cast<std::size_t>(count));
  return text;
}

void write_all(int descriptor, char const* text, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t count = write(descriptor, text + done, size - done);
    if (count < 0) throw FAILURE(FAILURE::own, "the program's process ended before its start");
    done += static_cast<std::size_t>(count);
  }
}

std::vector<char*> pointers_to(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

// Texts that end in zeros, one behind the other.
std::vector<char*> pointers_into(std::string& texts) {
  std::vector<char*> result;
  for (std::size_t begin = 0; begin < texts.size(); begin = texts.find('\0', begin) + 1)
    result.push_back(&texts[begin]);
  result.push_back(nullptr);
  return result;
}

}  // namespace

SUPERVISION::SUPERVISION() {
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  sigaction(SIGCHLD, &usual, &m_former_child_action);
  sigemptyset(&m_watched);
  for (const int signal : watched) sigaddset(&m_watched, signal);
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) sigaddset(&m_watched, signal);
  sigprocmask(SIG_BLOCK, &m_watched, &m_former);
}

SUPERVISION::~SUPERVISION() {
  sigaction(SIGCHLD, &m_former_child_action, nullptr);
  sigprocmask(SIG_SETMASK, &m_former, nullptr);
}

pid_t SUPERVISION::fork_child(const std::string& path, const std::vector<std::string>& command) {
  m_path = path;
  if (pipe2(m_go.data(), O_CLOEXEC) != 0 || pipe2(m_trouble.data(), O_CLOEXEC) != 0)
    throw FAILURE(FAILURE::own, fmt::format("no pipe: {}", std::strerror(errno)));
  m_child = fork();
  if (m_child < 0) throw FAILURE(FAILURE::own, fmt::format("no process: {}", std::strerror(errno)));
  if (m_child == 0) become(path, command);
  close(m_go[0]);
  close(m_trouble[1]);
  return m_child;
}

void SUPERVISION::become(const std::string& path, const std::vector<std::string>& command) {
  close(m_go[1]);
  close(m_trouble[0]);
  std::string environment = read_all(m_go[0]);
  if (environment.empty()) _exit(FAILURE::own);  // whoever would say has ended
  sigaction(SIGCHLD, &m_former_child_action, nullptr);
  sigprocmask(SIG_SETMASK, &m_former, nullptr);
  execvpe(path.c_str(), pointers_to(command).data(), pointers_into(environment).data());
  const int trouble = errno;
  (void)!write(m_trouble[1], &trouble, sizeof trouble);
  _exit(FAILURE::not_runnable);
}

void SUPERVISION::release(const std::vector<std::string>& environment) {
  for (const std::string& entry : environment) write_all(m_go[1], entry.c_str(), entry.size() + 1);
  close(m_go[1]);
  int trouble = 0;
  const bool failed = read(m_trouble[0], &trouble, sizeof trouble) == sizeof trouble;
  close(m_trouble[0]);
  if (!failed) return;
  waitpid(m_child, nullptr, 0);
  throw FAILURE(trouble == ENOENT ? FAILURE::not_found : FAILURE::not_runnable,
                fmt::format("{}: {}", m_path, std::strerror(trouble)));
}

// What the terminal sends went to the child as well.
void SUPERVISION::pass_on(const siginfo_t& signal,
                          const std::function<void()>& before_termination) const {
  const bool is_of_terminal = signal.si_code == SI_KERNEL;
  switch (signal.si_signo) {
    case SIGCHLD:
      return;
    case SIGTSTP:
      if (!is_of_terminal) kill(m_child, SIGTSTP);
      raise(SIGSTOP);
      return;
    case SIGTERM:
      before_termination();
      [[fallthrough]];
    default:
      if (!is_of_terminal) kill(m_child, signal.si_signo);
  }
}

int SUPERVISION::wait_for_end(std::chrono::milliseconds period, const std::function<void()>& look,
                              const std::function<void()>& before_termination) {
  for (int status = 0;;) {
    const pid_t ended = waitpid(m_child, &status, WNOHANG);
    if (ended == m_child) return status;
    if (ended < 0 && errno != EINTR) throw FAILURE(FAILURE::own, std::strerror(errno));
    siginfo_t signal{};
    const timespec time = time_of(period);
    const int number = period.count() == 0 ? sigwaitinfo(&m_watched, &signal)
                                           : sigtimedwait(&m_watched, &signal, &time);
    if (number > 0)
      pass_on(signal, before_termination);
    else if (errno == EAGAIN)
      look();
  }
}

void end_like(int status) {
  if (!WIFSIGNALED(status)) std::exit(WEXITSTATUS(status));
  const int signal = WTERMSIG(status);
  const rlimit no_core{};
  setrlimit(RLIMIT_CORE, &no_core);  // the program's own is the one to look at
  ::signal(signal, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  std::fflush(nullptr);
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
  raise(signal);
  std::exit(128 + signal);
}

}  // namespace command
