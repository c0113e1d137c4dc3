#include "platform/thr_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

// A child with any of these would be profiled itself, and start children of its own.
constexpr std::string_view profiling_variables[] = {"LD_PRELOAD=", "KORVANE_MEM_",
                                                    "MEM_LEAK_TRACKING_IN_VX_MODE="};

constexpr int first_free_descriptor = STDERR_FILENO + 1;

class PIPE_PAIR {
 public:
  PIPE_PAIR() = default;
  PIPE_PAIR(const PIPE_PAIR&) = delete;
  PIPE_PAIR& operator=(const PIPE_PAIR&) = delete;
  ~PIPE_PAIR() {
    thr_process_close_pipe(m_ends[0]);
    thr_process_close_pipe(m_ends[1]);
  }

  bool open() {
    return pipe2(m_ends.data(), O_CLOEXEC) == 0 && move_up(m_ends[0]) && move_up(m_ends[1]);
  }
  int read_end() const { return m_ends[0]; }
  int write_end() const { return m_ends[1]; }
  int release(int end) { return std::exchange(m_ends[static_cast<std::size_t>(end)], -1); }

 private:
  // Away from 0 to 2, which a host may have closed: the child's dup2 calls would trip over them.
  static bool move_up(int& end) {
    if (end >= first_free_descriptor) return true;
    const int moved = fcntl(end, F_DUPFD_CLOEXEC, first_free_descriptor);
    close(end);
    end = moved;
    return moved >= 0;
  }

  std::array<int, 2> m_ends{-1, -1};
};

class SPAWN_SETUP {
 public:
  SPAWN_SETUP() {
    posix_spawn_file_actions_init(&m_actions);
    posix_spawnattr_init(&m_attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&m_attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&m_attributes, &signals);
    posix_spawnattr_setpgroup(&m_attributes, 0);
    posix_spawnattr_setflags(
        &m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  SPAWN_SETUP(const SPAWN_SETUP&) = delete;
  SPAWN_SETUP& operator=(const SPAWN_SETUP&) = delete;
  ~SPAWN_SETUP() {
    posix_spawnattr_destroy(&m_attributes);
    posix_spawn_file_actions_destroy(&m_actions);
  }

  void connect(int descriptor, int as) {
    posix_spawn_file_actions_adddup2(&m_actions, descriptor, as);
  }
  void discard(int as) {
    posix_spawn_file_actions_addopen(&m_actions, as, "/dev/null", O_WRONLY, 0);
  }
  void run_in(char const* directory) {
    posix_spawn_file_actions_addchdir_np(&m_actions, directory);
    posix_spawn_file_actions_addclosefrom_np(&m_actions, first_free_descriptor);
  }
  pid_t start(std::vector<char*>& arguments, std::vector<char*>& environment) {
    pid_t process = -1;
    const int error = posix_spawnp(&process, arguments[0], &m_actions, &m_attributes,
                                   arguments.data(), environment.data());
    if (error == 0) return process;
    return error == ENOMEM || error == EAGAIN ? -1 : start_child_that_ends();
  }

 private:
  // A program that can't be run ends its child at once, as after a fork of one's own: whoever
  // starts it has to cope with a child that ends anyway.
  static pid_t start_child_that_ends() {
    constexpr int not_found = 127;
    // Nothing but _exit runs in it. NOLINTNEXTLINE(clang-analyzer-security.insecureAPI.vfork)
    const pid_t process = vfork();
    if (process == 0) _exit(not_found);
    return process;
  }

  posix_spawn_file_actions_t m_actions;
  posix_spawnattr_t m_attributes;
};

// Replaces the blanks of `text` by terminators and returns the words, null last.
std::vector<char*> split_at_blanks(std::string& text) {
  std::vector<char*> words;
  char before = ' ';
  for (char& c : text) {
    const char here = c;
    if (here == ' ')
      c = '\0';
    else if (before == ' ')
      words.push_back(&c);
    before = here;
  }
  words.push_back(nullptr);
  return words;
}

bool would_profile(std::string_view variable) {
  return std::any_of(
      std::begin(profiling_variables), std::end(profiling_variables),
      [&](std::string_view name) { return variable.substr(0, name.size()) == name; });
}

std::vector<char*> environment_without_profiling() {
  std::vector<char*> kept;
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable)
    if (!would_profile(*variable)) kept.push_back(*variable);
  kept.push_back(nullptr);
  return kept;
}

// Keeps a write to a broken pipe from raising SIGPIPE in the host. The signal is raised on the
// writing thread, so holding it back there and taking it off again is enough.
class SIGPIPE_HELD {
 public:
  SIGPIPE_HELD() {
    sigemptyset(&m_sigpipe);
    sigaddset(&m_sigpipe, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    m_pending_before = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &m_sigpipe, &m_former_mask);
  }
  SIGPIPE_HELD(const SIGPIPE_HELD&) = delete;
  SIGPIPE_HELD& operator=(const SIGPIPE_HELD&) = delete;
  ~SIGPIPE_HELD() {
    const int error = errno;
    if (!m_pending_before) {
      const timespec at_once{};
      while (sigtimedwait(&m_sigpipe, nullptr, &at_once) < 0 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &m_former_mask, nullptr);
    errno = error;
  }

 private:
  sigset_t m_sigpipe;
  sigset_t m_former_mask;
  bool m_pending_before;
};

bool is_running_child(pid_t process) {
  siginfo_t state{};
  return waitid(P_PID, static_cast<id_t>(process), &state, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         state.si_pid == 0;
}

}  // namespace

THR_PROCESS thr_process_create(char const* command, char const* directory, THR_PIPE* output,
                               THR_PIPE* error, THR_PIPE* input, int flags) {
  *output = *error = *input = -1;
  const bool read_errors = (flags & THR_PROCESS_READ_ERRORS) != 0;
  std::string words(command);
  std::vector<char*> arguments = split_at_blanks(words);
  PIPE_PAIR in;
  PIPE_PAIR out;
  PIPE_PAIR err;
  if (arguments[0] == nullptr || !in.open() || !out.open() || (read_errors && !err.open()))
    return -1;

  SPAWN_SETUP setup;
  setup.connect(in.read_end(), STDIN_FILENO);
  setup.connect(out.write_end(), STDOUT_FILENO);
  if (read_errors)
    setup.connect(err.write_end(), STDERR_FILENO);
  else
    setup.discard(STDERR_FILENO);
  setup.run_in(directory);
  std::vector<char*> environment = environment_without_profiling();
  const pid_t process = setup.start(arguments, environment);
  if (process <= 0) return -1;

  *input = in.release(1);
  *output = out.release(0);
  if (read_errors) *error = err.release(0);
  return process;
}

bool thr_process_read(THR_PIPE pipe, char* buffer, std::size_t length, std::size_t* count) {
  *count = 0;
  if (length > static_cast<std::size_t>(PTRDIFF_MAX)) return false;
  ssize_t got = -1;
  do {
    got = read(pipe, buffer, length);
  } while (got < 0 && errno == EINTR);
  if (got < 0) return false;
  *count = static_cast<std::size_t>(got);
  return true;
}

bool thr_process_write(THR_PIPE pipe, char const* text, std::size_t length, std::size_t* count) {
  const SIGPIPE_HELD held;
  std::size_t written = 0;
  while (written < length) {
    const ssize_t put = write(pipe, text + written, length - written);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) break;
    written += static_cast<std::size_t>(put);
  }
  if (count != nullptr) *count = written;
  return written == length;
}

void thr_process_close_pipe(THR_PIPE pipe) {
  if (pipe >= 0) close(pipe);
}

void thr_process_terminate(THR_PROCESS process, unsigned long how) {
  const auto child = static_cast<pid_t>(process);
  if (how == THR_PROCESS_TERMINATE && child > 0 && is_running_child(child)) kill(child, SIGTERM);
}

bool thr_process_wait(THR_PROCESS process, int* status, int) {
  if (process <= 0) return false;
  pid_t ended = -1;
  do {
    ended = waitpid(static_cast<pid_t>(process), status, 0);
  } while (ended < 0 && errno == EINTR);
  return ended > 0;
}
