// Names of the profiled program, which may hold anything, as each kind of output takes them.
#pragma once

#include <string>
#include <string_view>

namespace command {

/// For a terminal: control characters, and those that turn the direction of text, as \t, \n or
/// \x1b, what is no UTF-8 as U+FFFD.
std::string printable(std::string_view text);
/// For a format that takes UTF-8 only: what is none as U+FFFD.
std::string valid_utf8(std::string_view text);
/// A cell of a CSV file, quoted where it has to be.
std::string csv_cell(std::string_view text);
/// Between the tags and in the attributes of XML.
std::string xml_text(std::string_view text);

/// Characters of valid UTF-8.
std::size_t width_of(std::string_view text);
/// At most `width` characters; what is left out shows as "...".
std::string shortened(std::string_view text, std::size_t width);

/// Behind the last slash.
std::string_view base_name(std::string_view path);

}  // namespace command
