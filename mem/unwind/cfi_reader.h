// Reading numbers from a section of call frame information.
#pragma once

#include <cstdint>
#include <cstring>

/// Trusts what it reads: the loader has mapped it, and the linker has made it.
class MEM_CFI_READER {
 public:
  explicit MEM_CFI_READER(unsigned char const* at) : m_at(at) {}

  unsigned char const* at() const { return m_at; }
  void skip(std::uint64_t bytes) { m_at += bytes; }

  template <class NUMBER>
  NUMBER take() {
    NUMBER number;
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
  unsigned char const* m_at;
};
