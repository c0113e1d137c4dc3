// Prints the SETTINGS section of the manual page libtuk_mem(7): the table of settings, as the
// library has it.
#include <cstdio>
#include <string>
#include <string_view>

#include "mem/host/settings_table.h"

namespace {

// A minus is itself and no hyphen, so that names can be copied; a period at a line's begin no
// request.
std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '-' || c == '\\' || (c == '.' && result.empty())) result += c == '.' ? "\\&" : "\\";
    result += c;
  }
  return result;
}

// The pages of docs/ that are named in the text are not beside the manual.
std::string without_links(std::string_view effect) {
  constexpr std::string_view link = ", see [";
  std::string result(effect);
  if (const auto begin = result.find(link); begin != std::string::npos)
    result.erase(begin, result.find(')', begin) + 1 - begin);
  return result;
}

// `name` in the effect's text is set in bold.
std::string paragraph(std::string_view effect) {
  std::string result = escaped(without_links(effect));
  for (bool opens = true;; opens = !opens) {
    const auto tick = result.find('`');
    if (tick == std::string::npos) return result;
    result.replace(tick, 1, opens ? "\\fB" : "\\fR");
  }
}

bool is_of(const MEM_SETTING& setting, MEM_SETTING::SOURCE source) {
  return setting.source == source;
}

void print_names(const MEM_SETTINGS_ROW& row) {
  std::string names;
  for (const auto source : {MEM_SETTING::ENVIRONMENT, MEM_SETTING::SETTINGS_FILE})
    for (const MEM_SETTING& setting : row.settings)
      if (is_of(setting, source))
        names += (names.empty() ? "\\fB" : ", \\fB") + escaped(setting.name) + "\\fR";
  std::printf(".TP\n%s\n", names.c_str());
}

void print_row(const MEM_SETTINGS_ROW& row) {
  print_names(row);
  std::printf("%s", paragraph(row.effect).c_str());
  if (*row.default_value != '\0') std::printf(" (default: %s)", escaped(row.default_value).c_str());
  std::printf(".\n");
}

}  // namespace

int main() {
  std::printf(".SH SETTINGS\n");
  for (const MEM_SETTINGS_ROW& row : mem_settings) print_row(row);
}
