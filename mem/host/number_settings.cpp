// Numbers among the settings: what is one, and what is said of what is none.
#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "mem/base/standard_error.h"
#include "mem/host/callbacks.h"
#include "mem/host/environment.h"
#include "mem/host/settings.h"

namespace {

// What a number of each type may be, as a user is told.
const char* allowed(MEM_SETTING_TYPE type) {
  switch (type) {
    case MEM_SETTING_TYPE::UNSIGNED:
      return "a decimal number from 1 to 9223372036854775807";
    case MEM_SETTING_TYPE::HEX:
      return "a hexadecimal number from -80000000 to 7fffffff";
    case MEM_SETTING_TYPE::INTEGER:
      return "a decimal number from 0 to 2147483647";
    default:
      return "a decimal number from -2147483648 to 2147483647";
  }
}

bool is_control_character(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }

// One line, whatever the text holds. What `holds` now, unless that is for the caller to say.
void report(const MEM_SETTING& setting, const char* text, std::optional<long long> holds) {
  char line[512];  // with room for the longest name, 200 characters of the text and a number
  int length = std::snprintf(line, sizeof line, "MEM: %s is \"%.200s\", which is not %s",
                             setting.name, text, allowed(setting.type));
  if (holds)
    length += std::snprintf(line + length, sizeof line - static_cast<std::size_t>(length),
                            ": %lld holds", *holds);
  std::replace_if(line, line + length, is_control_character, '?');
  mem_say_on_standard_error({line, static_cast<std::size_t>(length)});
}

// The numbers divide signed ones, and a period of 0 has no meaning.
bool is_usable(std::uint64_t number) { return number > 0 && number <= INT64_MAX; }

// The digits that a text begins with; 0 when there are none or too many. `whole`: nothing follows.
std::uint64_t leading_number(const char* text, bool& whole) {
  std::uint64_t number = 0;
  const char* const end = text + std::strlen(text);
  const auto parsed = std::from_chars(text, end, number);
  whole = parsed.ec == std::errc() && parsed.ptr == end;
  return parsed.ec == std::errc() ? number : 0;
}

std::uint64_t from_environment(const MEM_SETTING& setting, std::uint64_t holds) {
  const char* const text = mem_environment_value(setting.name);
  if (text == nullptr || *text == '\0') return holds;
  bool whole = false;
  const std::uint64_t number = leading_number(text, whole);
  if (is_usable(number)) holds = number;
  if (!whole || !is_usable(number)) report(setting, text, static_cast<long long>(holds));
  return holds;
}

// Whether the text is nothing but a number: the standard conversions skip blanks in front of one
// and leave off behind it.
bool is_number(std::string_view text, MEM_SETTING_TYPE type) {
  const bool hexadecimal = type == MEM_SETTING_TYPE::HEX;
  if (type != MEM_SETTING_TYPE::UNSIGNED && (text.starts_with('-') || text.starts_with('+')))
    text.remove_prefix(1);
  if (hexadecimal && (text.starts_with("0x") || text.starts_with("0X"))) text.remove_prefix(2);
  const char* const digits = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
  return !text.empty() && text.find_first_not_of(digits) == text.npos;
}

// What is no number is converted as an empty text, so that the conversion itself throws.
template <class CONVERT>
auto converted(const MEM_SETTING& setting, const std::string& text, CONVERT convert) {
  try {
    return convert(is_number(text, setting.type) ? text : std::string());
  } catch (const std::logic_error&) {
    report(setting, text.c_str(), {});
    throw;
  }
}

std::uint64_t from_settings_file(const MEM_SETTING& setting, std::uint64_t holds) {
  const std::string text = mem_cfg_get_value(setting.name);
  if (text.empty()) return holds;
  const std::uint64_t number =
      converted(setting, text, [](const std::string& digits) { return std::stoull(digits); });
  if (is_usable(number)) return number;
  report(setting, text.c_str(), static_cast<long long>(holds));
  return holds;
}

int from_settings_file(const MEM_SETTING& setting, const std::string& text) {
  const int base = setting.type == MEM_SETTING_TYPE::HEX ? 16 : 10;
  return converted(setting, text,
                   [base](const std::string& digits) { return std::stoi(digits, nullptr, base); });
}

}  // namespace

// The lookup of an integer is lenient: unless the host answered, the text is looked at once more.
int mem_setting_integer(MEM_NAME_OF_SETTING<MEM_SETTING_TYPE::INTEGER> name) {
  const MEM_SETTING& setting = name.setting();
  const int number = mem_cfg_get_int_value(setting.name, mem_default_number(name.row()));
  if (mem_host_callbacks.cfg_get_int_value != nullptr) return number;
  const char* const text = mem_environment_value(setting.name);
  if (text == nullptr || *text == '\0') return number;
  bool whole = false;
  if (leading_number(text, whole) > INT_MAX || !whole) report(setting, text, number);
  return number;
}

std::uint64_t mem_setting_unsigned(const MEM_SETTINGS_ROW& row) {
  auto holds = static_cast<std::uint64_t>(mem_default_number(row));
  for (const MEM_SETTING& setting : row.settings) {
    if (setting.source == MEM_SETTING::ENVIRONMENT) holds = from_environment(setting, holds);
    if (setting.source == MEM_SETTING::SETTINGS_FILE) holds = from_settings_file(setting, holds);
  }
  return holds;
}

std::optional<int> mem_setting_signed(const MEM_SETTINGS_ROW& row) {
  std::optional<int> holds;
  for (const MEM_SETTING& setting : row.settings) {
    if (setting.source == MEM_SETTING::NONE) continue;
    const std::string text = mem_cfg_get_value(setting.name);
    if (!text.empty()) holds = from_settings_file(setting, text);
  }
  return holds;
}
