// The lines of the files that the host has read.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

/// Keeps every line as a block of its own, so that what it holds is easy to count.
class LINE_STORE {
 public:
  using LINE = std::unique_ptr<char[]>;

  /// Appends the lines of a file. False when it cannot be read.
  bool read(const std::string& path);

  const std::vector<LINE>& lines() const { return m_lines; }
  /// Bytes asked for to hold the lines.
  std::size_t requested_bytes() const { return m_requested_bytes; }
  /// Gives all lines away; the caller's thread frees them.
  std::vector<LINE> take() { return std::move(m_lines); }

 private:
  void append(const std::string& text);

  std::vector<LINE> m_lines;
  std::size_t m_requested_bytes = 0;
};
