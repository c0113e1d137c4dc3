# Puts the bundled script and style into the page, and the page into a source: HTML, PARTS, OUTPUT.
file(READ ${HTML} page)
file(READ ${PARTS}/style.css style)
file(READ ${PARTS}/main.js script)
string(FIND "${page}" "@DATA@" data_at)
string(SUBSTRING "${page}" 0 ${data_at} before)
math(EXPR behind_at "${data_at} + 6")
string(SUBSTRING "${page}" ${behind_at} -1 behind)
string(REPLACE "@STYLE@" "${style}" before "${before}")
string(REPLACE "@SCRIPT@" "${script}" behind "${behind}")
file(WRITE ${OUTPUT} "#include \"tools/command/page_template.h\"\n
namespace command {\n
const std::string_view page_before_data = R\"page_text(${before})page_text\";\n
const std::string_view page_behind_data = R\"page_text(${behind})page_text\";\n
}  // namespace command\n")
