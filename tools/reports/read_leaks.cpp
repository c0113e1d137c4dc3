// The leak reports.
#include <charconv>

#include "tools/reports/cells.h"
#include "tools/reports/read_report.h"

namespace reports {

namespace {

// Takes `text` off the front of a line, up to `end` and with it; fails where that is not there.
class SENTENCE {
 public:
  SENTENCE(LINE_READER& lines, std::string_view text) : m_lines(lines), m_rest(text) {}

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
  [[noreturn]] void fail() { m_lines.fail("this is no line of a leak report"); }

 private:
  std::string_view take(std::size_t size, std::size_t separator) {
    const std::string_view part = m_rest.substr(0, size);
    m_rest.remove_prefix(size + separator);
    return part;
  }

  LINE_READER& m_lines;
  std::string_view m_rest;
};

// "FILE:LINE FUNCTION": the first colon behind which a number and a blank stand.
void read_place(SENTENCE& sentence, std::string_view place, SITE& site, TEXTS& texts) {
  for (std::size_t colon = place.find(':'); colon != std::string_view::npos;
       colon = place.find(':', colon + 1)) {
    std::uint32_t line = 0;
    const char* const behind = place.data() + place.size();
    const auto [end, error] = std::from_chars(place.data() + colon + 1, behind, line);
    if (error != std::errc() || end == behind || *end != ' ') continue;
    site.file = texts.keep(place.substr(0, colon));
    site.line = line;
    site.function =
        texts.keep(std::string_view(end + 1, static_cast<std::size_t>(behind - end - 1)));
    return;
  }
  sentence.fail();
}

SITE read_site(LINE_READER& lines, std::string_view line, TEXTS& texts) {
  SENTENCE sentence(lines, line);
  SITE site;
  const std::string_view module = sentence.up_to(" leaked ");
  site.is_catch_all = module == "OTHER";
  site.module = texts.keep(site.is_catch_all ? std::string_view() : module);
  site.figures[CURRENT_BYTES] = sentence.number(sentence.up_to(" bytes in "));
  site.figures[CURRENT_BLOCKS] = sentence.number(sentence.up_to(" object(s) allocated at "));
  read_place(sentence, sentence.rest(), site, texts);
  return site;
}

}  // namespace

void read_leaks(LINE_READER& lines, std::string_view, PROCESS& process, TEXTS& texts) {
  constexpr std::string_view last = "Total leaked bytes: ";
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
