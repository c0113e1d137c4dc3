#include "mem/symbolizer/plain_answer.h"

#include <cstring>
#include <string_view>

#include "mem/symbolizer/leading_number.h"
#include "mem/symbolizer/text_field.h"

// Splits at the first colon.
bool mem_parse_plain_answer(char const* text, MEM_ADDRESS_INFO& info) {
  if (*text == '\0' || *text == '?') return false;
  char const* end_of_function = std::strchr(text, '\n');
  if (end_of_function == nullptr) return false;
  mem_set_text_field(info.function_name_buffer, {text, end_of_function});

  const std::string_view rest(end_of_function + 1);
  const std::string_view location = rest.substr(0, rest.find('\n'));
  const std::size_t colon = location.find(':');
  info.file_name_buffer[0] = '\0';
  info.line = 0;
  if (colon == std::string_view::npos || location.front() == '?') return true;
  mem_set_text_field(info.file_name_buffer, location.substr(0, colon));
  info.line = mem_leading_number(location.substr(colon + 1));
  return true;
}
