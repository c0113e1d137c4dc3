// One module's addr2line: a child that reads addresses of the module's file and answers each.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "mem/symbolizer/answer_text.h"
#include "mem/symbolizer/module_file.h"
#include "platform/thr_process.h"

/// What became of a request.
struct MEM_TOOL_OUTCOME {
  enum KIND {
    answered,
    unknown,          ///< asking again will not help
    unknown_for_now,  ///< it may
  };
  KIND kind;
  char const* trouble;  ///< to be said, once no lock is held; null for none
};

/// Not thread-safe: its owner lets one request in at a time. The child is started with the first
/// request, and again when it is gone: when the host has taken its descriptors away as often as
/// that happens, when it died or fell silent a few times in all.
class MEM_ADDR2LINE_TOOL {
 public:
  /// How the end of an answer is told of a child that does not know the end mark.
  enum class ENDING { two_lines, silence };

  /// For "addr2line <options> -e <path>", the path's blanks and backslashes behind backslashes.
  MEM_ADDR2LINE_TOOL(char const* options, ENDING ending, MEM_MODULE_FILE& file)
      : m_options(options), m_ending(ending), m_file(file) {}
  MEM_ADDR2LINE_TOOL(const MEM_ADDR2LINE_TOOL&) = delete;
  MEM_ADDR2LINE_TOOL& operator=(const MEM_ADDR2LINE_TOOL&) = delete;
  /// Closes both pipes, ends the child and waits for it.
  ~MEM_ADDR2LINE_TOOL() { end_child(); }

  /// Asks for an address of the file and stores the whole answer, cut to the buffer and terminated.
  /// `buffer` comes zeroed and stays so without an answer. `usecs` is how long silence lasts.
  MEM_TOOL_OUTCOME ask(std::uintptr_t file_address, int usecs, char* buffer, std::size_t size);

  /// Closes both pipes without ending the child: in a process made by fork it is the parent's.
  void abandon();

  /// How long a child may take for an answer; three times that for its first, for which it reads
  /// the file, unless the last one fell silent.
  static std::chrono::milliseconds most_time;
  /// How many children may die or fall silent over one file before no further is started for it.
  static constexpr int most_failures = 3;
  /// How many fell silent in a row, over all files: a program of the tool's name that never answers
  /// is not to cost each file its time. At the limit no further is started at all.
  static std::atomic<int> silent_in_a_row;
  static constexpr int most_silent_in_a_row = 2 * most_failures;

 private:
  using DEADLINE = std::chrono::steady_clock::time_point;
  enum class EXCHANGE { complete, lost, ended, silent };

  bool is_running() const { return m_process > 0; }
  bool is_of_this_process() const;
  MEM_TOOL_OUTCOME start(int usecs);
  MEM_TOOL_OUTCOME failed(EXCHANGE exchange);
  MEM_TOOL_OUTCOME could_not_start(int error);
  EXCHANGE probe(int usecs);
  EXCHANGE exchange(std::string_view request, int usecs, MEM_ANSWER_TEXT& answer);
  EXCHANGE send(std::string_view request);
  EXCHANGE collect(int usecs, DEADLINE deadline, MEM_ANSWER_TEXT& answer);
  EXCHANGE collect_rest(int usecs, DEADLINE deadline, MEM_ANSWER_TEXT& answer);
  EXCHANGE read_piece(DEADLINE deadline, MEM_ANSWER_TEXT& answer);
  bool is_whole(const MEM_ANSWER_TEXT& answer) const;
  int wait_for_output(DEADLINE deadline) const;
  void drop_stale_output();
  void end_child();

  char const* m_options;
  ENDING m_ending;
  MEM_MODULE_FILE& m_file;
  bool m_marks_ends = false;
  bool m_has_read_file = false;
  long m_owner = 0;  // the process whose child it is
  THR_PROCESS m_process = -1;
  THR_PIPE m_input = -1;   // the child's; written
  THR_PIPE m_output = -1;  // the child's; read
};
