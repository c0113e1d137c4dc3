// Where results go.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

namespace command {

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
