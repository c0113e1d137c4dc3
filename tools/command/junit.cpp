#include "tools/command/junit.h"

#include <fmt/core.h>

#include <algorithm>

#include "tools/command/text.h"

namespace command {

namespace {

// As xml_text, line by line: a table stays one.
std::string xml_lines(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    result.append(xml_text(text.substr(0, end))).append("\n");
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return result;
}

}  // namespace

std::string junit_of(const std::string& run, const std::vector<CHECK_RESULT>& results) {
  const auto failures = std::count_if(results.begin(), results.end(),
                                      [](const CHECK_RESULT& result) { return result.is_broken; });
  std::string text = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<testsuite name=\"tuk-mem check {}\" tests=\"{}\" failures=\"{}\">\n",
      xml_text(run), results.size(), failures);
  for (const CHECK_RESULT& result : results) {
    text +=
        fmt::format("  <testcase classname=\"tuk-mem\" name=\"{}\"", xml_text(result.case_name));
    if (result.is_broken)
      text += fmt::format(">\n    <failure message=\"{}\">\n{}</failure>\n  </testcase>\n",
                          xml_text(result.sentence), xml_lines(result.rows));
    else
      text += "/>\n";
  }
  return text + "</testsuite>\n";
}

}  // namespace command
