#include "platform/thr_process.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <utility>

#include "platform/raw_syscall.h"
#include "platform/thr_command.h"
#include "platform/thr_descriptor.h"
#include "platform/thr_hidden_child.h"
#include "platform/thr_quiet_write.h"
#include "platform/thr_room.h"

namespace {

// A pipe with one end for this process, which is taken, and one for the child.
class PIPE_TO_CHILD {
 public:
  enum OUR_END { reads, writes };

  explicit PIPE_TO_CHILD(OUR_END our_end) : m_our_end(our_end) {}
  PIPE_TO_CHILD(const PIPE_TO_CHILD&) = delete;
  PIPE_TO_CHILD& operator=(const PIPE_TO_CHILD&) = delete;
  ~PIPE_TO_CHILD() {
    thr_process_close_pipe(m_ours);
    if (m_childs >= 0) thr_raw_syscall(SYS_close, m_childs);
  }

  bool open() {
    int ends[2];
    const auto answer = static_cast<int>(thr_raw_syscall(SYS_pipe2, ends, O_CLOEXEC));
    if (answer != 0) {
      errno = -answer;
      return false;
    }
    m_childs = ends[m_our_end == reads ? 1 : 0];
    m_ours = thr_take_descriptor(ends[m_our_end == reads ? 0 : 1]);
    if (m_ours < 0) errno = EMFILE;
    return m_ours >= 0;
  }
  int childs() const { return m_childs; }
  int release_ours() { return std::exchange(m_ours, -1); }

 private:
  OUR_END m_our_end;
  int m_ours = -1;
  int m_childs = -1;
};

// A process is named by our end of its life line: the kernel kills the child when something is
// written there, or when the line closes. So the name can't come to mean another process.
struct RUNNING {
  bool exists = false;
  THR_KEEPER keeper{};
};
constinit std::array<RUNNING, 1024> processes;

RUNNING* running(THR_PROCESS process) {
  if (process <= 0 || process >= static_cast<THR_PROCESS>(processes.size())) return nullptr;
  RUNNING& found = processes[static_cast<std::size_t>(process)];
  return found.exists ? &found : nullptr;
}

}  // namespace

THR_PROCESS thr_process_create(char const* command, char const* directory, THR_PIPE* output,
                               THR_PIPE* error, THR_PIPE* input, int flags) {
  *output = *error = *input = -1;
  const bool read_errors = (flags & THR_PROCESS_READ_ERRORS) != 0;
  PIPE_TO_CHILD in(PIPE_TO_CHILD::writes);
  PIPE_TO_CHILD out(PIPE_TO_CHILD::reads);
  PIPE_TO_CHILD err(PIPE_TO_CHILD::reads);
  PIPE_TO_CHILD life_line(PIPE_TO_CHILD::writes);
  if (!life_line.open() || !in.open() || !out.open() || (read_errors && !err.open())) return -1;

  THR_ROOM room(thr_room_for_command(command) + thr_room_for_start);
  THR_START start{.directory = directory,
                  .input = in.childs(),
                  .output = out.childs(),
                  .errors = err.childs(),
                  .life_line = life_line.childs()};
  THR_KEEPER keeper;
  int trouble = ENOMEM;
  if (room.exists())
    trouble = thr_read_command(command, room, start.command)
                  ? thr_start_hidden_child(start, room, keeper)
                  : ENOENT;
  if (trouble != 0) {
    errno = trouble;
    return -1;
  }
  *input = in.release_ours();
  *output = out.release_ours();
  if (read_errors) *error = err.release_ours();
  const THR_PROCESS process = life_line.release_ours();
  processes[static_cast<std::size_t>(process)] = {.exists = true, .keeper = keeper};
  return process;
}

bool thr_process_has_pipe(THR_PIPE pipe) { return pipe >= 0 && !thr_descriptor_is_lost(pipe); }

bool thr_process_read(THR_PIPE pipe, char* buffer, std::size_t length, std::size_t* count) {
  *count = 0;
  if (length > static_cast<std::size_t>(PTRDIFF_MAX)) return false;
  long got = -EINTR;
  while (got == -EINTR) {
    if (!thr_process_has_pipe(pipe)) return false;
    got = thr_raw_syscall(SYS_read, pipe, buffer, length);
  }
  if (got < 0) return false;
  *count = static_cast<std::size_t>(got);
  return true;
}

bool thr_process_write(THR_PIPE pipe, char const* text, std::size_t length, std::size_t* count) {
  std::size_t written = 0;
  while (written < length && thr_process_has_pipe(pipe)) {
    const iovec rest{.iov_base = const_cast<char*>(text) + written, .iov_len = length - written};
    const long put = thr_quiet_write(pipe, &rest, 1);
    if (put == -EINTR) continue;
    if (put < 0) break;
    written += static_cast<std::size_t>(put);
  }
  if (count != nullptr) *count = written;
  return written == length;
}

void thr_process_close_pipe(THR_PIPE pipe) {
  if (pipe >= 0) thr_give_up_descriptor(pipe);
}

void thr_process_terminate(THR_PROCESS process, unsigned long how) {
  if (how == THR_PROCESS_TERMINATE && running(process) != nullptr)
    thr_process_write(static_cast<THR_PIPE>(process), "", 1, nullptr);
}

bool thr_process_wait(THR_PROCESS process, int* status, int) {
  RUNNING* child = running(process);
  if (child == nullptr) return false;
  const auto life_line = static_cast<int>(process);
  // A lost line has been closed, and the child killed.
  bool ended = thr_descriptor_is_lost(life_line) || thr_await_hang_up(life_line);
  ended = ended && thr_reap_keeper(child->keeper);
  *child = {};
  thr_give_up_descriptor(life_line);
  if (ended && status != nullptr) *status = 0;
  return ended;
}

void thr_process_let_go_in_child() {
  thr_give_up_all_descriptors();
  processes.fill({});
}
