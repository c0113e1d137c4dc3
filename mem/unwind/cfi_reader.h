// Reading numbers from a section of call frame information.
#pragma once

#include <cstdint>
#include <cstring>

/// Reads from a stretch of memory and never beyond it: what would reach further is zero, and the
/// reader has failed then, at its end, for good.
class MEM_CFI_READER {
 public:
  MEM_CFI_READER() = default;
  MEM_CFI_READER(unsigned char const* begin, unsigned char const* end) : m_at(begin), m_end(end) {}

  /// A reader that has failed.
  static MEM_CFI_READER failed() {
    MEM_CFI_READER reader;
    reader.m_has_failed = true;
    return reader;
  }

  unsigned char const* at() const { return m_at; }
  std::uint64_t remaining() const { return static_cast<std::uint64_t>(m_end - m_at); }
  bool is_at_end() const { return m_at == m_end; }
  bool has_failed() const { return m_has_failed; }

  void skip(std::uint64_t bytes) { take_stretch(bytes); }

  /// Steps over so many bytes, and gives a reader for these.
  MEM_CFI_READER take_stretch(std::uint64_t bytes) {
    if (bytes > remaining()) {
      fail();
      return failed();
    }
    unsigned char const* const begin = m_at;
    m_at += bytes;
    return {begin, m_at};
  }

  template <class NUMBER>
  NUMBER take() {
    NUMBER number{};
    if (sizeof number > remaining()) {
      fail();
      return number;
    }
    std::memcpy(&number, m_at, sizeof number);
    m_at += sizeof number;
    return number;
  }

  std::uint64_t take_uleb128() {
    std::uint64_t number = 0;
    unsigned char byte = 0x80;
    for (unsigned shift = 0; (byte & 0x80) != 0; shift += 7) {
      byte = take<unsigned char>();
      if (shift < 64) number |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
    }
    return number;
  }

  std::int64_t take_sleb128() {
    std::uint64_t number = 0;
    unsigned shift = 0;
    unsigned char byte = 0x80;
    while ((byte & 0x80) != 0) {
      byte = take<unsigned char>();
      if (shift < 64) number |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
      shift += 7;
    }
    if ((byte & 0x40) != 0 && shift < 64) number |= ~std::uint64_t{0} << shift;
    return static_cast<std::int64_t>(number);
  }

 private:
  void fail() {
    m_at = m_end;
    m_has_failed = true;
  }

  unsigned char const* m_at = nullptr;
  unsigned char const* m_end = nullptr;
  bool m_has_failed = false;
};
