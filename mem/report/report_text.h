// The text of a report on its way to a file or a stream.
#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <iosfwd>
#include <string_view>

/// What takes the text of a report, in whole pieces.
class MEM_TEXT_SINK {
 public:
  virtual void write(std::string_view piece) = 0;
  virtual void flush() {}

 protected:
  ~MEM_TEXT_SINK() = default;
};

/// A stream of the host's. What it throws passes on.
class MEM_STREAM_SINK final : public MEM_TEXT_SINK {
 public:
  explicit MEM_STREAM_SINK(std::ostream& stream) : m_stream(stream) {}
  void write(std::string_view piece) override;
  void flush() override;

 private:
  std::ostream& m_stream;
};

/// Formats by itself: neither a stream's locale and flags nor those of the process change a report,
/// and a report changes none of them. Allocates nothing. Hold no lock of the library while writing.
class MEM_REPORT_TEXT {
 public:
  explicit MEM_REPORT_TEXT(MEM_TEXT_SINK& out) : m_out(out) {}
  MEM_REPORT_TEXT(const MEM_REPORT_TEXT&) = delete;
  MEM_REPORT_TEXT& operator=(const MEM_REPORT_TEXT&) = delete;

  MEM_REPORT_TEXT& operator<<(std::string_view text);
  MEM_REPORT_TEXT& operator<<(char const* text) { return *this << std::string_view(text); }
  MEM_REPORT_TEXT& operator<<(char c) { return *this << std::string_view(&c, 1); }
  /// In decimal.
  template <std::integral NUMBER>
  MEM_REPORT_TEXT& operator<<(NUMBER number) {
    char digits[24];
    return append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
  }
  /// As a stream's default format prints it: six significant digits.
  MEM_REPORT_TEXT& operator<<(double number);
  /// As a stream prints a pointer: hexadecimal behind 0x, "0" for null.
  MEM_REPORT_TEXT& operator<<(void const* address);

  /// With so many digits after the point.
  MEM_REPORT_TEXT& fixed(double number, int digits);

  /// Hands everything over, and flushes the sink.
  void flush();

 private:
  MEM_REPORT_TEXT& append(char const* begin, char const* end) {
    return *this << std::string_view(begin, static_cast<std::size_t>(end - begin));
  }
  void hand_over();

  MEM_TEXT_SINK& m_out;
  std::array<char, 4096> m_buffer;
  std::size_t m_size = 0;
};
