#include "mem/symbolizer/addr2line_tool.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "mem/base/check.h"
#include "mem/symbolizer/deadline.h"
#include "mem/symbolizer/tool_start.h"
#include "platform/raw_syscall.h"
#include "platform/thr_runtime.h"

std::chrono::milliseconds MEM_ADDR2LINE_TOOL::most_time = std::chrono::seconds(10);
constinit std::atomic<int> MEM_ADDR2LINE_TOOL::silent_in_a_row = 0;

namespace {

using CLOCK = std::chrono::steady_clock;
using STATE = MEM_MODULE_FILE::STATE;

MEM_BOOKKEEPING_STRING command_for(char const* options, char const* path) {
  MEM_BOOKKEEPING_STRING command("addr2line ");
  command.append(options).append(" -e ").append(mem_command_word(path));
  return command;
}

}  // namespace

bool MEM_ADDR2LINE_TOOL::is_of_this_process() const { return m_owner == thr_getpid(); }

MEM_TOOL_OUTCOME MEM_ADDR2LINE_TOOL::ask(std::uintptr_t file_address, int usecs, char* buffer,
                                         std::size_t size) {
  // In a child that no fork handler has told us of, the pipes are shared with its parent.
  if (is_running() && !is_of_this_process()) return {MEM_TOOL_OUTCOME::unknown_for_now, nullptr};
  char request[64];
  const int length = std::snprintf(request, sizeof request, "%lx\n", file_address);
  const std::string_view text(request, static_cast<std::size_t>(length));
  EXCHANGE result = EXCHANGE::lost;
  for (int attempt = 0; attempt < 2 && result == EXCHANGE::lost; ++attempt) {
    if (!is_running()) {
      const MEM_TOOL_OUTCOME started = start(usecs);
      if (started.kind != MEM_TOOL_OUTCOME::answered) return started;
    }
    MEM_ANSWER_TEXT answer(buffer, size);
    result = exchange(text, usecs, answer);
    if (result == EXCHANGE::lost) end_child();
    if (result == EXCHANGE::complete) answer.finish();
  }
  if (result != EXCHANGE::complete) {
    std::fill_n(buffer, size, '\0');
    return failed(result);
  }
  silent_in_a_row = 0;
  m_has_read_file = true;
  return {MEM_TOOL_OUTCOME::answered, nullptr};
}

// The file is compared once the child has opened it, so that it can't be another one.
MEM_TOOL_OUTCOME MEM_ADDR2LINE_TOOL::start(int usecs) {
  if (m_file.tool_failures() >= most_failures || silent_in_a_row >= most_silent_in_a_row)
    return {MEM_TOOL_OUTCOME::unknown, nullptr};
  THR_PIPE error = -1;
  errno = 0;
  m_process = thr_process_create(command_for(m_options, m_file.absolute_path()).c_str(), ".",
                                 &m_output, &error, &m_input, 0);
  if (!is_running()) return could_not_start(errno);
  thr_process_close_pipe(error);
  mem_check(static_cast<long>(m_process) > 0, "((long) m_pid) > 0", MEM_SOURCE::addr2line_inlining);
  m_owner = thr_getpid();

  const EXCHANGE probed = probe(usecs);
  if (probed != EXCHANGE::complete) return failed(probed);
  if (m_file.state() == STATE::usable) return {MEM_TOOL_OUTCOME::answered, nullptr};
  end_child();
  return {MEM_TOOL_OUTCOME::unknown, nullptr};
}

// Whether the child knows the end mark. Of one that does not, nothing of this answer must reach the
// first address: it has time to finish.
MEM_ADDR2LINE_TOOL::EXCHANGE MEM_ADDR2LINE_TOOL::probe(int usecs) {
  constexpr int while_a_line_comes = 1'000'000;
  constexpr int while_more_comes = 100'000;
  const DEADLINE deadline = CLOCK::now() + most_time;
  char buffer[64];
  MEM_ANSWER_TEXT answer(buffer, sizeof buffer);
  m_marks_ends = m_has_read_file = false;
  EXCHANGE result = send(mem_end_mark_request);
  if (result == EXCHANGE::complete) result = read_piece(deadline, answer);
  while (result == EXCHANGE::complete && answer.lines() < 2 &&
         wait_for_output(CLOCK::now() + std::chrono::microseconds(while_a_line_comes)) > 0)
    result = read_piece(deadline, answer);
  m_marks_ends = answer.is_end_mark();
  if (result != EXCHANGE::complete || m_marks_ends) return result;
  return collect_rest(std::max(usecs, while_more_comes), deadline, answer);
}

MEM_TOOL_OUTCOME MEM_ADDR2LINE_TOOL::could_not_start(int error) {
  m_process = -1;
  if (mem_is_shortage(error))
    return {MEM_TOOL_OUTCOME::unknown_for_now,
            m_file.is_first(MEM_MODULE_FILE::shortage)
                ? "can't be started, for want of processes, descriptors or memory: addresses of it "
                  "stay unknown for now"
                : nullptr};
  while (m_file.count_tool_failure() < most_failures) {  // no use in trying again
  }
  return {MEM_TOOL_OUTCOME::unknown, "can't be started: addresses of it stay unknown"};
}

MEM_TOOL_OUTCOME MEM_ADDR2LINE_TOOL::failed(EXCHANGE exchange) {
  end_child();
  if (exchange == EXCHANGE::lost)
    return {MEM_TOOL_OUTCOME::unknown_for_now,
            m_file.is_first(MEM_MODULE_FILE::shortage)
                ? "loses its descriptors to the host: addresses of it stay unknown for now"
                : nullptr};
  const bool was_last = m_file.count_tool_failure() >= most_failures;
  const bool is_silent = exchange == EXCHANGE::silent;
  if (is_silent && ++silent_in_a_row >= most_silent_in_a_row)
    return {MEM_TOOL_OUTCOME::unknown,
            "gives no answer, as others before: new addresses of all modules stay unknown"};
  if (was_last)
    return {MEM_TOOL_OUTCOME::unknown,
            is_silent ? "gives no answer again: new addresses of it stay unknown"
                      : "has ended again: new addresses of it stay unknown"};
  return {MEM_TOOL_OUTCOME::unknown_for_now,
          is_silent ? "gives no answer: it is given up and started again"
                    : "has ended: it is started again"};
}

MEM_ADDR2LINE_TOOL::EXCHANGE MEM_ADDR2LINE_TOOL::exchange(std::string_view request, int usecs,
                                                          MEM_ANSWER_TEXT& answer) {
  const bool may_take_longer = !m_has_read_file && silent_in_a_row == 0;
  const DEADLINE deadline = CLOCK::now() + (may_take_longer ? 3 * most_time : most_time);
  if (!m_marks_ends) drop_stale_output();
  char text[64];
  char* end = std::copy(request.begin(), request.end(), text);
  if (m_marks_ends) end = std::copy(mem_end_mark_request.begin(), mem_end_mark_request.end(), end);
  const EXCHANGE sent = send({text, end});
  return sent == EXCHANGE::complete ? collect(usecs, deadline, answer) : sent;
}

MEM_ADDR2LINE_TOOL::EXCHANGE MEM_ADDR2LINE_TOOL::send(std::string_view request) {
  if (thr_process_write(m_input, request.data(), request.size(), nullptr))
    return EXCHANGE::complete;
  return thr_process_has_pipe(m_input) ? EXCHANGE::ended : EXCHANGE::lost;
}

bool MEM_ADDR2LINE_TOOL::is_whole(const MEM_ANSWER_TEXT& answer) const {
  if (m_marks_ends) return answer.has_end_mark();
  return m_ending == ENDING::two_lines ? answer.lines() >= 2 : answer.ends_a_line();
}

MEM_ADDR2LINE_TOOL::EXCHANGE MEM_ADDR2LINE_TOOL::collect(int usecs, DEADLINE deadline,
                                                         MEM_ANSWER_TEXT& answer) {
  while (!is_whole(answer))
    if (const EXCHANGE piece = read_piece(deadline, answer); piece != EXCHANGE::complete)
      return piece;
  if (m_marks_ends || m_ending == ENDING::two_lines) return EXCHANGE::complete;
  return collect_rest(usecs, deadline, answer);
}

// Without end marks, what follows within `usecs` still belongs to the answer. A child that dies
// meanwhile has said what it had to say.
MEM_ADDR2LINE_TOOL::EXCHANGE MEM_ADDR2LINE_TOOL::collect_rest(int usecs, DEADLINE deadline,
                                                              MEM_ANSWER_TEXT& answer) {
  const auto silence = [&] { return CLOCK::now() + std::chrono::microseconds(usecs); };
  while (wait_for_output(silence()) > 0) {
    if (CLOCK::now() > deadline) return EXCHANGE::silent;
    const EXCHANGE piece = read_piece(deadline, answer);
    if (piece != EXCHANGE::complete) break;
  }
  return EXCHANGE::complete;
}

MEM_ADDR2LINE_TOOL::EXCHANGE MEM_ADDR2LINE_TOOL::read_piece(DEADLINE deadline,
                                                            MEM_ANSWER_TEXT& answer) {
  char piece[1024];  // small: the stack is the host's, maybe a fiber's
  std::size_t count = 0;
  const int ready = wait_for_output(deadline);
  if (ready == 0) return EXCHANGE::silent;
  if (ready < 0 || !thr_process_read(m_output, piece, sizeof piece, &count))
    return thr_process_has_pipe(m_output) ? EXCHANGE::ended : EXCHANGE::lost;
  if (count == 0) return EXCHANGE::ended;
  answer.take({piece, count});
  return EXCHANGE::complete;
}

// As select answers: 1 when there is something to read, the end of the child's output too, 0 when
// there is not, negative when that can't be told. By poll: in a host with more than 1024 open files
// a descriptor may be beyond an fd_set. A signal does not shorten the wait.
int MEM_ADDR2LINE_TOOL::wait_for_output(DEADLINE deadline) const {
  if (!thr_process_has_pipe(m_output)) return -1;
  pollfd output{.fd = m_output, .events = POLLIN, .revents = 0};
  int ready = 0;
  do {
    timespec left = mem_time_until(deadline);
    ready = static_cast<int>(thr_raw_syscall(SYS_ppoll, &output, 1, &left, nullptr));
  } while (ready == -EINTR);
  if (ready <= 0) return ready;
  mem_check(ready == 1,
            "select reporting that more than one FD can be read from when at most one expected",
            MEM_SOURCE::addr2line_inlining);
  mem_check(output.revents != 0, "FD_ISSET ( fd_in, &fds )", MEM_SOURCE::addr2line_inlining);
  return (output.revents & POLLNVAL) != 0 ? -1 : ready;
}

// What came too late for its own request.
void MEM_ADDR2LINE_TOOL::drop_stale_output() {
  char dropped[1024];
  std::size_t count = 0;
  while (wait_for_output(DEADLINE()) > 0 &&
         thr_process_read(m_output, dropped, sizeof dropped, &count) && count > 0) {
  }
}

void MEM_ADDR2LINE_TOOL::end_child() {
  const THR_PROCESS child = m_process;
  const bool is_ours = is_running() && is_of_this_process();
  abandon();
  if (!is_ours) return;
  thr_process_terminate(child, THR_PROCESS_TERMINATE);
  thr_process_wait(child, nullptr, 0);
}

void MEM_ADDR2LINE_TOOL::abandon() {
  thr_process_close_pipe(m_output);
  thr_process_close_pipe(m_input);
  m_output = m_input = -1;
  m_process = -1;
}
