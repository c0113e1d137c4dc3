// One running addr2line child. It reads addresses of one module's file and answers each.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mem/base/bookkeeping.h"
#include "platform/thr_process.h"

/// Not thread-safe: its owner lets one request in at a time. A tool that could not be started, or
/// whose child has gone, is broken for good: it accepts no request and starts nothing again, so
/// that a missing tool costs one message and no more.
class MEM_ADDR2LINE_TOOL {
 public:
  /// Starts "addr2line <options> -e <module_path>", the path unquoted.
  MEM_ADDR2LINE_TOOL(char const* options, char const* module_path);
  MEM_ADDR2LINE_TOOL(const MEM_ADDR2LINE_TOOL&) = delete;
  MEM_ADDR2LINE_TOOL& operator=(const MEM_ADDR2LINE_TOOL&) = delete;
  /// Closes both pipes, terminates the child and waits for it.
  ~MEM_ADDR2LINE_TOOL();

  /// Lets go of the child without ending it: in a process made by fork it is the parent's.
  void abandon();

  bool is_broken() const { return m_process <= 0; }

  /// Sends an address of the module's file. False breaks the tool.
  bool ask(std::uintptr_t file_address);

  /// Reads a piece of the answer, waiting for its first byte. False at a failed read; the end of
  /// the child's output breaks the tool and gives 0 bytes.
  bool read(char* buffer, std::size_t length, std::size_t& count);

  /// Waits up to `usecs` microseconds, not at all for 0 or less, until there is something to read;
  /// the end of the child's output is. As select answers: 1 when there is, 0 when there is not,
  /// negative when that can't be told, as of a broken tool. A signal does not shorten the wait.
  int wait_for_output(int usecs) const;

 private:
  void give_up(char const* reason);
  void end_child();

  MEM_BOOKKEEPING_STRING m_module_path;
  THR_PROCESS m_process = -1;
  THR_PIPE m_input = -1;   // the child's; written
  THR_PIPE m_output = -1;  // the child's; read
};
