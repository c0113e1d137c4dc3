#include "tools/command/page.h"

#include <stdexcept>
#include <string_view>

#include "tools/command/output.h"
#include "tools/command/page_data.h"
#include "tools/command/page_template.h"

namespace command {

namespace {

// Nothing in it can end the script element that holds it, or be taken for another encoding.
std::string text_inside_script(const JSON& data) {
  constexpr int compact = -1;
  constexpr bool ascii_alone = true;
  const std::string text = data.dump(compact, ' ', ascii_alone, JSON::error_handler_t::replace);
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    if (c == '<')
      escaped += "\\u003c";
    else
      escaped += c;
  }
  return escaped;
}

void write(const JSON& data, const std::string& file_name) {
  OUTPUT out(file_name);
  if (out.is_standard_output() && out.width() > 0)
    throw std::runtime_error("a page is nothing for a terminal: name a file, with -o FILE");
  out.write(page_before_data);
  out.write(text_inside_script(data));
  out.write(page_behind_data);
  out.close();
}

}  // namespace

void write_page(const reports::RUN& run, const std::string& file_name) {
  write(page_data_of(run), file_name);
}

void write_differences_page(const reports::RUN& before, const reports::RUN& after,
                            const std::string& file_name) {
  write(page_data_of(before, after), file_name);
}

}  // namespace command
