// The leak reports.
#include <charconv>
#include <optional>
#include <string>

#include "tools/reports/cells.h"
#include "tools/reports/read_report.h"

namespace reports {

namespace {

// Takes `text` off the front of a line, up to `end` and with it; fails where that is not there.
class SENTENCE {
 public:
  SENTENCE(LINE_READER& lines, std::string_view text) : SENTENCE(lines, text, lines.number()) {}
  /// One that begins in that line.
  SENTENCE(LINE_READER& lines, std::string_view text, std::size_t number)
      : m_lines(lines), m_rest(text), m_number(number) {}

  std::string_view up_to(std::string_view end) {
    const std::size_t found = m_rest.find(end);
    if (found == std::string_view::npos) fail();
    return take(found, end.size());
  }
  std::string_view rest() const { return m_rest; }

  std::int64_t number(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) fail();
    return value;
  }
  [[noreturn]] void fail() { m_lines.fail(m_number, "this is no line of a leak report"); }

 private:
  std::string_view take(std::size_t size, std::size_t separator) {
    const std::string_view part = m_rest.substr(0, size);
    m_rest.remove_prefix(size + separator);
    return part;
  }

  LINE_READER& m_lines;
  std::string_view m_rest;
  std::size_t m_number;
};

struct PLACE {
  std::string_view file;
  std::uint32_t line;
  std::string_view function;
};

// "FILE:LINE FUNCTION": the first colon behind which a number and a blank stand.
std::optional<PLACE> place_in(std::string_view text) {
  for (std::size_t colon = text.find(':'); colon != std::string_view::npos;
       colon = text.find(':', colon + 1)) {
    std::uint32_t line = 0;
    const char* const behind = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data() + colon + 1, behind, line);
    if (error != std::errc() || end == behind || *end != ' ') continue;
    return PLACE{text.substr(0, colon), line,
                 std::string_view(end + 1, static_cast<std::size_t>(behind - end - 1))};
  }
  return std::nullopt;
}

constexpr std::string_view before_place = " object(s) allocated at ";
constexpr std::string_view last = "Total leaked bytes: ";

bool is_whole(std::string_view line) {
  const std::size_t place = line.find(before_place);
  return place != std::string_view::npos && place_in(line.substr(place + before_place.size()));
}

// A line, and those behind it where the name of a module or file has line breaks.
std::string whole_line(LINE_READER& lines, std::string_view first) {
  std::string line(first);
  while (!is_whole(line) && line.size() <= LINE_READER::longest_line) {
    const auto next = lines.next();
    if (!next || next->starts_with(last)) break;
    line.append("\n").append(*next);
  }
  return line;
}

SITE read_site(LINE_READER& lines, std::string_view first, TEXTS& texts) {
  const std::size_t number = lines.number();
  const std::string line = whole_line(lines, first);
  SENTENCE sentence(lines, line, number);
  SITE site;
  const std::string_view module = sentence.up_to(" leaked ");
  site.is_catch_all = module == "OTHER";
  site.module = texts.keep(site.is_catch_all ? std::string_view() : module);
  site.figures[CURRENT_BYTES] = sentence.number(sentence.up_to(" bytes in "));
  site.figures[CURRENT_BLOCKS] = sentence.number(sentence.up_to(before_place));
  const auto place = place_in(sentence.rest());
  if (!place) sentence.fail();
  site.file = texts.keep(place->file);
  site.line = place->line;
  site.function = texts.keep(place->function);
  return site;
}

}  // namespace

void read_leaks(LINE_READER& lines, std::string_view, PROCESS& process, TEXTS& texts) {
  process.leaks.emplace().known.set(CURRENT_BYTES).set(CURRENT_BLOCKS);
  std::int64_t sum = 0;
  while (const auto line = lines.next()) {
    if (line->empty()) continue;
    if (line->starts_with(last)) {
      SENTENCE sentence(lines, line->substr(last.size()));
      if (sentence.number(sentence.rest()) != sum)
        lines.fail("the total is not the sum of the lines, which is " + std::to_string(sum));
      return;
    }
    process.leaks->rows.push_back(read_site(lines, *line, texts));
    sum = wrapping_sum(sum, process.leaks->rows.back().figures[CURRENT_BYTES]);
  }
  lines.fail("the report ends here, without its total");
}

void read_leak_summaries(LINE_READER& lines, std::string_view, PROCESS& process, TEXTS&) {
  constexpr std::string_view title = " memory leak summary";
  while (const auto line = lines.next()) {
    if (line->empty() || line->starts_with("=====")) continue;
    if (!line->ends_with(title)) lines.fail("the title of a summary is expected here");
    LEAK_SUMMARY summary{std::string(line->substr(0, line->size() - title.size())), 0, 0};
    lines.next();
    const auto figure = [&](std::string_view name) {
      const auto text = lines.next();
      SENTENCE sentence(lines, text.value_or(""));
      if (!sentence.up_to(name).empty()) sentence.fail();
      return sentence.number(sentence.rest());
    };
    summary.leaked_bytes = figure("Leaked bytes:");
    summary.peak_bytes = figure("Peak bytes on heap:");
    process.leak_summaries.push_back(summary);
  }
}

}  // namespace reports
