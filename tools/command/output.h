// Where results go.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

namespace command {

/// A line on standard error, "tuk-mem: " in front. Never fails: nobody may be there to read it.
void tell(std::string_view sentence);
/// The same without anything in front, and without an end of line.
void tell_as_it_is(std::string_view text);

/// Takes the numbers of standard streams that are closed, so that no file gets one. They still fail
/// when they are used, and a program that is executed finds them closed.
void keep_closed_streams_closed();

/// Nobody reads the pipe any more: a reason to end, not to complain.
struct READER_LEFT {};

/// Standard output, or a file. Trouble throws std::runtime_error with a sentence that names it.
class OUTPUT {
 public:
  OUTPUT() : OUTPUT(std::string()) {}
  /// An empty name, or "-", is standard output.
  explicit OUTPUT(const std::string& file_name);
  OUTPUT(const OUTPUT&) = delete;
  OUTPUT& operator=(const OUTPUT&) = delete;
  ~OUTPUT();

  void write(std::string_view text);
  /// Only then everything is known to be written.
  void close();

  bool is_standard_output() const { return m_file == stdout; }
  /// Columns of the terminal behind it; 0 when there is none.
  std::size_t width() const;

 private:
  [[noreturn]] void fail() const;

  std::string m_name;
  std::FILE* m_file;
};

}  // namespace command
