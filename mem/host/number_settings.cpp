// Numbers among the settings: what is one, and what is said of what is none.
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "mem/base/error_line.h"
#include "mem/host/callbacks.h"
#include "mem/host/environment.h"
#include "mem/host/settings.h"
#include "mem/host/settings_in_force.h"

namespace {

// What a number of each type may be, as a user is told.
const char* allowed(MEM_SETTING_TYPE type) {
  switch (type) {
    case MEM_SETTING_TYPE::UNSIGNED:
      return "a decimal number from 1 to 9223372036854775807";
    case MEM_SETTING_TYPE::UNSIGNED_OR_NONE:
      return "a decimal number from 0 to 9223372036854775807";
    case MEM_SETTING_TYPE::HEX:
      return "a hexadecimal number from -80000000 to 7fffffff";
    case MEM_SETTING_TYPE::INTEGER:
      return "a decimal number from 0 to 2147483647";
    default:
      return "a decimal number from -2147483648 to 2147483647";
  }
}

// What `holds` now, unless that is for the caller to say.
void report(const MEM_SETTING& setting, const char* text, std::optional<long long> holds) {
  char now[32] = "";
  if (holds) std::snprintf(now, sizeof now, ": %lld holds", *holds);
  mem_say_error_line("MEM: %s is \"%.200s\", which is not %s%s", setting.name, text,
                     allowed(setting.type), now);
}

bool is_unsigned(MEM_SETTING_TYPE type) {
  return type == MEM_SETTING_TYPE::UNSIGNED || type == MEM_SETTING_TYPE::UNSIGNED_OR_NONE;
}

// The numbers divide signed ones, and a period of 0 has no meaning.
bool is_usable(std::uint64_t number, MEM_SETTING_TYPE type) {
  return number <= INT64_MAX && (number > 0 || type == MEM_SETTING_TYPE::UNSIGNED_OR_NONE);
}

// The digits that a text begins with; 0 when there are none or too many. `whole`: nothing follows.
std::uint64_t leading_number(const char* text, bool& whole) {
  std::uint64_t number = 0;
  const char* const end = text + std::strlen(text);
  const auto parsed = std::from_chars(text, end, number);
  whole = parsed.ec == std::errc() && parsed.ptr == end;
  return parsed.ec == std::errc() ? number : 0;
}

// What a name sets; nothing where it sets none, and what was set before still `holds`.
using NUMBER = std::optional<std::uint64_t>;

NUMBER from_environment(const MEM_SETTING& setting, std::uint64_t holds) {
  const char* const text = mem_environment_value(setting.name);
  if (text == nullptr || *text == '\0') return {};
  bool whole = false;
  const std::uint64_t number = leading_number(text, whole);
  const bool counts = is_usable(number, setting.type) && (whole || number > 0);
  if (counts) holds = number;
  if (!whole || !counts) report(setting, text, static_cast<long long>(holds));
  return counts ? NUMBER(number) : NUMBER();
}

// Whether the text is nothing but a number: the standard conversions skip blanks in front of one
// and leave off behind it.
bool is_number(std::string_view text, MEM_SETTING_TYPE type) {
  const bool hexadecimal = type == MEM_SETTING_TYPE::HEX;
  if (!is_unsigned(type) && (text.starts_with('-') || text.starts_with('+'))) text.remove_prefix(1);
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

NUMBER from_settings_file(const MEM_SETTING& setting, std::uint64_t holds) {
  const std::string text = mem_cfg_get_value(setting.name);
  if (text.empty()) return {};
  const std::uint64_t number =
      converted(setting, text, [](const std::string& digits) { return std::stoull(digits); });
  if (is_usable(number, setting.type)) return number;
  report(setting, text.c_str(), static_cast<long long>(holds));
  return {};
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
  const char* const text = mem_environment_value(setting.name);
  const bool is_host = mem_host_callbacks.cfg_get_int_value != nullptr;
  const bool is_set = is_host || (text != nullptr && *text != '\0');
  mem_note_setting(name.row(), is_set ? &setting : nullptr, std::to_string(number));
  if (is_host || !is_set) return number;
  bool whole = false;
  if (leading_number(text, whole) > INT_MAX || !whole) report(setting, text, number);
  return number;
}

std::uint64_t mem_setting_unsigned(const MEM_SETTINGS_ROW& row) {
  auto holds = static_cast<std::uint64_t>(mem_default_number(row));
  const MEM_SETTING* set_by = nullptr;
  for (const MEM_SETTING& setting : row.settings) {
    NUMBER set;
    if (setting.source == MEM_SETTING::ENVIRONMENT) set = from_environment(setting, holds);
    if (setting.source == MEM_SETTING::SETTINGS_FILE) set = from_settings_file(setting, holds);
    if (!set) continue;
    holds = *set;
    set_by = &setting;
  }
  mem_note_setting(row, set_by, std::to_string(holds));
  return holds;
}

std::optional<int> mem_setting_signed(const MEM_SETTINGS_ROW& row) {
  std::optional<int> holds;
  mem_note_setting(row, nullptr, row.default_value);
  for (const MEM_SETTING& setting : row.settings) {
    if (setting.source == MEM_SETTING::NONE) continue;
    const std::string text = mem_cfg_get_value(setting.name);
    if (text.empty()) continue;
    holds = from_settings_file(setting, text);
    mem_note_setting(row, &setting, text);
  }
  return holds;
}
