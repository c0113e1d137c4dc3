// The files that the library writes.
#pragma once

#include <atomic>
#include <climits>
#include <cstdint>
#include <initializer_list>
#include <string_view>

/// The path of a file in the report directory, else its name in the current one. Cut where it is
/// longer than any path may be: opening it fails.
class MEM_OUTPUT_PATH {
 public:
  /// The name, in parts. A slash in it leads to another directory, which has to be there.
  MEM_OUTPUT_PATH(std::initializer_list<std::string_view> name);
  /// In `directory`, which is the report directory or lies in it, or neither.
  MEM_OUTPUT_PATH(char const* directory, bool is_in_report_directory,
                  std::initializer_list<std::string_view> name);
  char const* c_str() const { return m_text; }
  /// The name without what stands before its last slash.
  std::string_view name() const;
  bool is_in_report_directory() const { return m_is_in_report_directory; }

 private:
  bool m_is_in_report_directory;
  char m_text[PATH_MAX + 1];
};

/// Opens a path in which no link is, where the kernel can tell: else whose last part is none. The
/// kernel's answer. For signal handlers too.
long mem_open_without_links(int at, char const* path, int flags);

/// A file being written, closed on exec. In the report directory it is made with mode 0600; no link
/// is followed to it, and one that is there already has to be a plain file of this user's with no
/// other name. In the current directory it is as any program makes it.
///
/// Nothing raises a signal, is a cancellation point or changes errno. Any number of threads may
/// write, each piece whole.
class MEM_OUTPUT_FILE {
 public:
  enum class OPEN {
    EMPTIED,
    NEW,  ///< appended to; trouble if it is there
    OLD   ///< appended to; trouble if it is not
  };
  /// Where the descriptor stands: one that stays open for long is moved out of the host's way.
  enum class STAY { SHORT, LONG };

  MEM_OUTPUT_FILE(const MEM_OUTPUT_PATH& path, OPEN how, STAY stay = STAY::SHORT);
  MEM_OUTPUT_FILE(const MEM_OUTPUT_FILE&) = delete;
  MEM_OUTPUT_FILE& operator=(const MEM_OUTPUT_FILE&) = delete;
  ~MEM_OUTPUT_FILE() { close(); }

  bool is_open() const { return m_descriptor >= 0; }
  /// True when all of it is written. A host may have closed the descriptor, and opened a file of
  /// its own there: that one is left alone.
  bool write(std::string_view text);
  /// The last writes may fail only now.
  void close();

  /// Why it can't be written whole, in words that stay; null while nothing is known against it.
  char const* trouble() const { return m_trouble; }
  /// Where its writer gives up.
  void set_trouble(char const* words) { m_trouble = words; }
  /// Says on standard error, once in the file's life, that it can't be written, or is incomplete;
  /// nothing where all went well.
  void say_trouble();

 private:
  char const* open(OPEN how, STAY stay);
  void move_out_of_the_way(STAY stay);
  bool is_ours() const;

  MEM_OUTPUT_PATH m_path;
  int m_descriptor = -1;
  std::uint64_t m_device = 0;
  std::uint64_t m_inode = 0;
  bool m_was_open = false;
  std::atomic<char const*> m_trouble = nullptr;  // in words
  std::atomic<bool> m_was_said = false;
};
