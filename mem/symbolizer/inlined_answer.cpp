#include "mem/symbolizer/inlined_answer.h"

#include <optional>
#include <string_view>

#include "mem/symbolizer/leading_number.h"
#include "mem/symbolizer/text_field.h"

namespace {

struct LINE_PAIR {
  std::string_view function;
  std::string_view location;
};

bool is_unknown(std::string_view line) { return line.starts_with('?'); }

// Cuts a line off the text; none when it has no line end.
std::optional<std::string_view> cut_line(std::string_view& text) {
  const std::size_t length = text.find('\n');
  if (length == std::string_view::npos) return std::nullopt;
  const std::string_view line = text.substr(0, length);
  text.remove_prefix(length + 1);
  return line;
}

std::optional<LINE_PAIR> cut_pair(std::string_view& text) {
  const auto function = cut_line(text);
  const auto location = function ? cut_line(text) : std::nullopt;
  if (!location) return std::nullopt;
  return LINE_PAIR{*function, *location};
}

void clear_source(MEM_ADDRESS_INFO& info) {
  info.file_name_buffer[0] = info.function_name_buffer[0] = '\0';
  info.line = 0;
}

// Splits at the last colon: a path may have others.
void set_source(const LINE_PAIR& pair, MEM_ADDRESS_INFO& info) {
  if (!is_unknown(pair.function)) mem_set_text_field(info.function_name_buffer, pair.function);
  const std::size_t colon = pair.location.rfind(':');
  if (is_unknown(pair.location) || colon == std::string_view::npos) return;
  mem_set_text_field(info.file_name_buffer, pair.location.substr(0, colon));
  info.line = mem_leading_number(pair.location.substr(colon + 1));
}

}  // namespace

void mem_parse_inlined_answer(char const* text, MEM_ADDRESS_INFO& info,
                              std::vector<MEM_ADDRESS_INFO>& inlined) {
  std::string_view rest(text);
  inlined.clear();
  clear_source(info);
  auto pair = cut_pair(rest);
  if (!pair) return;
  set_source(*pair, info);
  MEM_ADDRESS_INFO frame = info;
  while ((pair = cut_pair(rest))) {
    clear_source(frame);
    set_source(*pair, frame);
    if (frame.function_name_buffer[0] != '\0' && frame.file_name_buffer[0] != '\0')
      inlined.push_back(frame);
  }
}
