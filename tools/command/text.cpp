#include "tools/command/text.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>

namespace command {

namespace {

constexpr std::string_view replacement = "\xef\xbf\xbd";

bool continues(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

// Bytes of the character that the text begins with; 0 when it is none.
std::size_t size_of_first(std::string_view text) {
  struct FORM {
    std::size_t size;
    std::uint32_t least;
    unsigned char mask, bits;
  };
  constexpr FORM forms[] = {
      {1, 0, 0x80, 0x00}, {2, 0x80, 0xe0, 0xc0}, {3, 0x800, 0xf0, 0xe0}, {4, 0x10000, 0xf8, 0xf0}};
  const auto first = static_cast<unsigned char>(text.front());
  for (const FORM& form : forms) {
    if ((first & form.mask) != form.bits) continue;
    if (text.size() < form.size) return 0;
    std::uint32_t character = first & static_cast<unsigned char>(~form.mask);
    for (std::size_t i = 1; i < form.size; ++i) {
      if (!continues(text[i])) return 0;
      character = character << 6 | (static_cast<unsigned char>(text[i]) & 0x3fU);
    }
    const bool is_surrogate = character >= 0xd800 && character <= 0xdfff;
    return character >= form.least && character <= 0x10ffff && !is_surrogate ? form.size : 0;
  }
  return 0;
}

// Hands over one character after another.
template <class TAKE>
void for_each_character(std::string_view text, TAKE take) {
  while (!text.empty()) {
    const std::size_t size = size_of_first(text);
    take(size == 0 ? replacement : text.substr(0, size));
    text.remove_prefix(std::max<std::size_t>(size, 1));
  }
}

// What follows would be shown in another order: U+202A to U+202E, U+2066 to U+2069.
bool turns_direction(std::string_view character) {
  const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(character[index]); };
  if (character.size() != 3 || byte(0) != 0xe2) return false;
  return (byte(1) == 0x80 && byte(2) >= 0xaa && byte(2) <= 0xae) ||
         (byte(1) == 0x81 && byte(2) >= 0xa6 && byte(2) <= 0xa9);
}

bool is_control(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  // Those of one byte, and the second set, which terminals obey too.
  return first < 0x20 || first == 0x7f ||
         (first == 0xc2 && static_cast<unsigned char>(character[1]) < 0xa0) ||
         turns_direction(character);
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  for_each_character(text, [&](std::string_view character) {
    if (!is_control(character))
      result += character;
    else if (character == "\t" || character == "\n")
      result += character == "\t" ? "\\t" : "\\n";
    else
      for (const char c : character)
        result += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
  });
  return result;
}

std::string valid_utf8(std::string_view text) {
  std::string result;
  for_each_character(text, [&](std::string_view character) { result += character; });
  return result;
}

std::string csv_cell(std::string_view text) {
  if (text.find_first_of("\",\r\n") == std::string_view::npos) return std::string(text);
  std::string result = "\"";
  for (const char c : text) result.append(c == '"' ? 2 : 1, c);
  return result + '"';
}

std::string xml_text(std::string_view text) {
  std::string result;
  for (const char c : printable(text)) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::size_t width_of(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return !continues(c); }));
}

std::string shortened(std::string_view text, std::size_t width) {
  constexpr std::string_view mark = "...";
  if (width_of(text) <= width) return std::string(text);
  std::string result;
  for (std::size_t kept = 0; kept + mark.size() < width; ++kept) {
    const std::size_t size = std::max<std::size_t>(size_of_first(text), 1);
    result += text.substr(0, size);
    text.remove_prefix(size);
  }
  return result.append(mark);
}

std::string_view base_name(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace command
