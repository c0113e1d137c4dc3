// The syntax of stl_output's conversions: which class a character is of, and which state follows.
// This folder relies on include/ and the C library.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

enum class FORMAT_CLASS : std::uint8_t {
  other,
  percent,
  dot,
  star,
  zero,
  digit,
  flag,
  size,
  conversion
};

/// What the character just read is.
enum class FORMAT_STATE : std::uint8_t {
  normal,     ///< text of its own
  percent,    ///< the start of a conversion
  flag,       ///< a flag
  width,      ///< a digit of the width, or its star
  dot,        ///< the dot before the precision
  precision,  ///< a digit of the precision, or its star
  size,       ///< a size prefix
  conversion  ///< the end of a conversion
};

inline constexpr std::size_t format_state_count = 8;

struct FORMAT_CLASS_ROW {
  FORMAT_CLASS character_class;
  std::string_view characters;
  std::array<std::uint8_t, format_state_count> next_state;  // by the state before
};

inline constexpr FORMAT_CLASS_ROW format_classes[] = {
    {FORMAT_CLASS::other, "", {0, 0, 0, 0, 0, 0, 0, 0}},
    {FORMAT_CLASS::percent, "%", {1, 0, 0, 0, 0, 0, 0, 1}},
    {FORMAT_CLASS::dot, ".", {0, 4, 4, 4, 0, 0, 0, 0}},
    {FORMAT_CLASS::star, "*", {0, 3, 3, 0, 5, 0, 0, 0}},
    {FORMAT_CLASS::zero, "0", {0, 2, 2, 3, 5, 5, 0, 0}},
    {FORMAT_CLASS::digit, "123456789", {0, 3, 3, 3, 5, 5, 0, 0}},
    {FORMAT_CLASS::flag, " #+-", {0, 2, 2, 0, 0, 0, 0, 0}},
    {FORMAT_CLASS::size, "FILNhlw", {0, 6, 6, 6, 6, 6, 6, 0}},
    {FORMAT_CLASS::conversion, "BCEGSXZcdefginopsux", {0, 7, 7, 7, 7, 7, 7, 0}},
};

inline constexpr char format_first_character = ' ';
inline constexpr char format_last_character = 'x';
inline constexpr std::size_t format_table_size = format_last_character - format_first_character + 1;

/// Both tables in one: the low four bits of the entry of a character are its class, the high four
/// of entry class * 8 + state are the next state.
consteval std::array<std::uint8_t, format_table_size> make_format_table() {
  std::array<std::uint8_t, format_table_size> table{};
  for (const FORMAT_CLASS_ROW& row : format_classes) {
    const auto index = static_cast<std::size_t>(row.character_class);
    for (const char c : row.characters)
      table[static_cast<std::size_t>(c - format_first_character)] |=
          static_cast<std::uint8_t>(row.character_class);
    for (std::size_t state = 0; state < format_state_count; ++state)
      table[index * format_state_count + state] |=
          static_cast<std::uint8_t>(row.next_state[state] << 4);
  }
  return table;
}

inline constexpr std::array<std::uint8_t, format_table_size> __lookuptable = make_format_table();

static_assert(std::size(format_classes) * format_state_count <= format_table_size);

constexpr FORMAT_CLASS format_class_of(char c) {
  if (c < format_first_character || c > format_last_character) return FORMAT_CLASS::other;
  const auto index = static_cast<std::size_t>(c - format_first_character);
  return static_cast<FORMAT_CLASS>(__lookuptable[index] & 0xF);
}

constexpr FORMAT_STATE next_format_state(FORMAT_STATE state, char c) {
  const std::size_t index = static_cast<std::size_t>(format_class_of(c)) * format_state_count +
                            static_cast<std::size_t>(state);
  return static_cast<FORMAT_STATE>(__lookuptable[index] >> 4);
}
