#include "tools/command/units.h"

#include <fmt/core.h>

#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string_view>

namespace command {

namespace {

constexpr std::string_view units = "KMGTPE";

std::string_view without_blanks(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

// 0 for what is no unit.
double value_of_unit(std::string_view unit) {
  if (unit.empty() || unit == "B") return 1;
  const char letter = unit.front() == 'k' ? 'K' : unit.front();
  const std::size_t power = units.find(letter);
  const std::string_view rest = unit.substr(1);
  if (power == std::string_view::npos || !(rest.empty() || rest == "B" || rest == "iB")) return 0;
  return std::pow(rest == "B" ? 1000.0 : 1024.0, static_cast<double>(power + 1));
}

}  // namespace

std::string human(std::int64_t number) {
  constexpr double step = 1024;
  double value = static_cast<double>(number);
  if (std::fabs(value) < step) return fmt::format("{}", number);
  std::size_t unit = 0;
  for (value /= step; std::fabs(value) >= 999.5 && unit + 1 < units.size(); value /= step) ++unit;
  const int digits = std::fabs(value) < 9.995 ? 2 : std::fabs(value) < 99.95 ? 1 : 0;
  return fmt::format("{:.{}f}{}", value, digits, units[unit]);
}

std::string human_change(std::int64_t number) {
  return fmt::format("{}{}", number > 0 ? "+" : "", human(number));
}

std::int64_t parse_size(const std::string& text) {
  const std::string_view trimmed = without_blanks(text);
  double number = 0;
  const char* const behind = trimmed.data() + trimmed.size();
  const auto [end, error] = std::from_chars(trimmed.data(), behind, number);
  const double unit = value_of_unit(without_blanks({end, static_cast<std::size_t>(behind - end)}));
  const double size = number * unit;
  constexpr double largest = 9.2e18;
  if (error != std::errc() || unit == 0 || !(size >= 0 && size < largest))
    throw std::runtime_error(fmt::format("\"{}\" is no size, as 200M or 1.5G is", text));
  return static_cast<std::int64_t>(size);
}

}  // namespace command
