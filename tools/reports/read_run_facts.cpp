// The run file.
#include "tools/reports/cells.h"
#include "tools/reports/read_report.h"

namespace reports {

namespace {

// \t, \n and \\ as what they stand for.
std::string unescaped(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      result += text[i];
      continue;
    }
    const char c = text[++i];
    result += c == 't' ? '\t' : c == 'n' ? '\n' : c;
  }
  return result;
}

// The field before the next blank; empty when there is none.
std::string_view next_field(std::string_view& value) {
  const std::size_t end = value.find(' ');
  if (end == std::string_view::npos) return {};
  const std::string_view field = value.substr(0, end);
  value.remove_prefix(end + 1);
  return field;
}

RUN_FACTS::SETTING setting_of(LINE_READER& lines, std::string_view value) {
  const std::string_view name = next_field(value);
  const std::string_view source = next_field(value);
  if (name.empty() || source.empty()) lines.fail("a setting has a name, a source and a value");
  return {std::string(name), std::string(source), unescaped(value)};
}

RUN_FACTS::MODULE module_of(LINE_READER& lines, std::string_view value) {
  ROW_READER numbers(lines, 1, 0, ROW_READER::END::FILE);
  const std::string_view address = next_field(value);
  const std::string_view size = next_field(value);
  const std::string_view build_id = next_field(value);
  const std::string_view has_lines = next_field(value);
  if (has_lines.empty())
    lines.fail("a module has an address, a size, a build id, lines and a path");
  RUN_FACTS::MODULE module;
  module.address = numbers.address(address);
  module.size = static_cast<std::uint64_t>(numbers.number(size));
  module.build_id = build_id == "-" ? "" : build_id;
  module.lines = has_lines;
  module.path = unescaped(value);
  return module;
}

// Of the library that wrote the reports. A newer minor version only adds to them.
void check_version(LINE_READER& lines, std::string_view version) {
  if (!version.starts_with("1."))
    lines.fail("the reports are of version " + quoted(version) +
               ", and only those of major version 1 are known here");
}

void read_line(LINE_READER& lines, std::string_view line, RUN_FACTS& facts) {
  const std::size_t tab = line.find('\t');
  if (tab == std::string_view::npos || tab == 0)
    lines.fail("a key, a tab and a value are expected here");
  const std::string_view key = line.substr(0, tab);
  const std::string_view value = line.substr(tab + 1);
  if (key == "version") check_version(lines, value);
  if (key == "argument")
    facts.arguments.push_back(unescaped(value));
  else if (key == "setting")
    facts.settings.push_back(setting_of(lines, value));
  else if (key == "module")
    facts.modules.push_back(module_of(lines, value));
  else
    facts.values.insert_or_assign(std::string(key), unescaped(value));
}

}  // namespace

void read_run_facts(LINE_READER& lines, std::string_view first_line, PROCESS& process, TEXTS&) {
  RUN_FACTS& facts = process.facts.emplace();
  read_line(lines, first_line, facts);
  while (const auto line = lines.next()) read_line(lines, *line, facts);
  for (char const* const key : {"pid", "ended", "allocator", "events_not_accounted"})
    if (!facts.values.contains(key))
      lines.fail(std::string("the file ends here, without a line \"") + key + "\"");
}

}  // namespace reports
