// One conversion of stl_output: what the format asked for, and the text it came to.
#pragma once

#include <cstdint>
#include <string_view>

enum FORMAT_FLAG : std::uint32_t {
  FORMAT_SIGN = 1 << 0,         ///< +
  FORMAT_SIGN_SPACE = 1 << 1,   ///< blank
  FORMAT_LEFT = 1 << 2,         ///< -
  FORMAT_LEAD_ZERO = 1 << 3,    ///< 0
  FORMAT_ALTERNATE = 1 << 4,    ///< #
  FORMAT_LONG = 1 << 5,         ///< l
  FORMAT_SHORT = 1 << 6,        ///< h
  FORMAT_WIDE = 1 << 7,         ///< w, and what C and S are by themselves
  FORMAT_64_BIT = 1 << 8,       ///< ll, I64
  FORMAT_SIGNED = 1 << 9,       ///< has a sign to show
  FORMAT_NEGATIVE = 1 << 10,    ///< and that is a minus
  FORMAT_FORCE_OCTAL = 1 << 11  ///< starts with a 0
};

struct FORMAT_CONVERSION {
  std::uint32_t flags = 0;
  int width = 0;
  int precision = -1;  ///< negative: not given
  std::string_view prefix;
  // The text: zeros, then either of the others.
  std::int64_t zeros = 0;
  std::string_view narrow;
  std::wstring_view wide;
  bool no_output = false;

  bool has(std::uint32_t any_of) const { return (flags & any_of) != 0; }
  void set(std::uint32_t flag) { flags |= flag; }
  void clear(std::uint32_t flag) { flags &= ~flag; }

  std::int64_t padding() const {
    return width - zeros - static_cast<std::int64_t>(prefix.size() + narrow.size() + wide.size());
  }
};
