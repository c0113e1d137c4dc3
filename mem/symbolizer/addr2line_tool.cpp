#include "mem/symbolizer/addr2line_tool.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>

#include "mem/base/check.h"
#include "mem/host/message.h"

namespace {

using CLOCK = std::chrono::steady_clock;

timespec time_left(CLOCK::time_point deadline) {
  const auto left = std::max(CLOCK::duration::zero(), deadline - CLOCK::now());
  const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
  return {.tv_sec = seconds.count(), .tv_nsec = std::chrono::nanoseconds(left - seconds).count()};
}

}  // namespace

MEM_ADDR2LINE_TOOL::MEM_ADDR2LINE_TOOL(char const* options, char const* module_path)
    : m_module_path(module_path) {
  MEM_BOOKKEEPING_STRING command("addr2line ");
  command.append(options).append(" -e ").append(m_module_path);
  THR_PIPE error = -1;
  m_process = thr_process_create(command.c_str(), ".", &m_output, &error, &m_input, 0);
  thr_process_close_pipe(error);
  if (m_process <= 0)
    mem_tracker_debug("unable to start addr2line for %s: its addresses stay unknown", module_path);
}

MEM_ADDR2LINE_TOOL::~MEM_ADDR2LINE_TOOL() { end_child(); }

bool MEM_ADDR2LINE_TOOL::ask(std::uintptr_t file_address) {
  char text[2 * sizeof file_address + 2];
  const int length = std::snprintf(text, sizeof text, "%lx\n", file_address);
  if (is_broken()) return false;
  if (thr_process_write(m_input, text, static_cast<std::size_t>(length), nullptr)) return true;
  give_up("takes no request");
  return false;
}

bool MEM_ADDR2LINE_TOOL::read(char* buffer, std::size_t length, std::size_t& count) {
  count = 0;
  if (is_broken() || !thr_process_read(m_output, buffer, length, &count)) return false;
  if (count == 0 && length > 0) give_up("has ended");
  return true;
}

// By poll: in a host with more than 1024 open files the pipe's number is beyond an fd_set.
int MEM_ADDR2LINE_TOOL::wait_for_output(int usecs) const {
  if (is_broken()) return -1;
  const CLOCK::time_point deadline = CLOCK::now() + std::chrono::microseconds(usecs);
  pollfd output{.fd = m_output, .events = POLLIN, .revents = 0};
  int ready = 0;
  do {
    const timespec left = time_left(deadline);
    ready = ppoll(&output, 1, &left, nullptr);
  } while (ready < 0 && errno == EINTR);
  if (ready <= 0) return ready;
  mem_check(ready == 1,
            "select reporting that more than one FD can be read from when at most one expected",
            MEM_SOURCE::addr2line_inlining);
  mem_check(output.revents != 0, "FD_ISSET ( fd_in, &fds )", MEM_SOURCE::addr2line_inlining);
  return (output.revents & POLLNVAL) != 0 ? -1 : ready;
}

void MEM_ADDR2LINE_TOOL::give_up(char const* reason) {
  mem_tracker_debug("addr2line for %s %s: new addresses of it stay unknown", m_module_path.c_str(),
                    reason);
  end_child();
}

void MEM_ADDR2LINE_TOOL::end_child() {
  const THR_PROCESS child = m_process;
  abandon();
  thr_process_terminate(child, THR_PROCESS_TERMINATE);
  thr_process_wait(child, nullptr, 0);
}

void MEM_ADDR2LINE_TOOL::abandon() {
  thr_process_close_pipe(m_output);
  thr_process_close_pipe(m_input);
  m_output = m_input = -1;
  m_process = -1;
}
