// Bytes of a file that may be damaged: nothing is read beyond their end.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace symbols {

/// After something that is not there, everything is 0 or empty, and `failed` tells.
class BYTE_READER {
 public:
  explicit BYTE_READER(std::string_view bytes) : m_rest(bytes) {}

  bool failed() const { return m_failed; }
  bool at_end() const { return m_rest.empty(); }
  std::size_t left() const { return m_rest.size(); }

  template <class VALUE>
  VALUE take() {
    VALUE value{};
    const std::string_view bytes = take_bytes(sizeof value);
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }
  std::uint64_t take_unsigned(std::size_t size) {
    std::uint64_t value = 0;
    const std::string_view bytes = take_bytes(size);
    if (size <= sizeof value && !bytes.empty()) std::memcpy(&value, bytes.data(), size);
    return value;
  }
  std::string_view take_bytes(std::uint64_t size) {
    if (size > m_rest.size()) return fail();
    const std::string_view bytes = m_rest.substr(0, size);
    m_rest.remove_prefix(size);
    return bytes;
  }
  /// Up to a zero, which is taken too.
  std::string_view take_string() {
    const std::size_t size = m_rest.find('\0');
    if (size == std::string_view::npos) return fail();
    const std::string_view bytes = m_rest.substr(0, size);
    m_rest.remove_prefix(size + 1);
    return bytes;
  }
  std::uint64_t take_uleb() {
    std::uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
      const auto byte = take<std::uint8_t>();
      if (shift < 64) value |= std::uint64_t{byte & 0x7fU} << shift;
      if ((byte & 0x80) == 0) return value;
    }
  }
  std::int64_t take_sleb() {
    std::uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
      const auto byte = take<std::uint8_t>();
      if (shift < 64) value |= std::uint64_t{byte & 0x7fU} << shift;
      if ((byte & 0x80) != 0) continue;
      if ((byte & 0x40) != 0 && shift + 7 < 64) value |= ~std::uint64_t{0} << (shift + 7);
      return static_cast<std::int64_t>(value);
    }
  }

 private:
  std::string_view fail() {
    m_rest = {};
    m_failed = true;
    return {};
  }

  std::string_view m_rest;
  bool m_failed = false;
};

}  // namespace symbols
