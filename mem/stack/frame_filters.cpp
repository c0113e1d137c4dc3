#include "mem/stack/frame_filters.h"

#include <strings.h>

#include <utility>

namespace {

// The rows that name parts of the host are constants of the build.

enum class MATCH { WHOLE, PREFIX, WHOLE_IGNORING_CASE };

struct RULE {
  MATCH match;
  char const* text;
};

bool starts_with(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

bool matches(const RULE& rule, std::string_view text) {
  switch (rule.match) {
    case MATCH::WHOLE:
      return text == rule.text;
    case MATCH::PREFIX:
      return starts_with(text, rule.text);
    case MATCH::WHOLE_IGNORING_CASE:
      return text.size() == std::string_view(rule.text).size() &&
             strncasecmp(text.data(), rule.text, text.size()) == 0;
  }
  return false;
}

template <std::size_t ROWS>
bool any_matches(const RULE (&rules)[ROWS], std::string_view text) {
  return std::any_of(std::begin(rules), std::end(rules),
                     [&](const RULE& rule) { return matches(rule, text); });
}

constexpr RULE module_rules[] = {
    {MATCH::WHOLE, ""},                     // no known module
    {MATCH::PREFIX, "tuk_mem"},             // this library
    {MATCH::PREFIX, "tbb"},                 // oneTBB
    {MATCH::WHOLE_IGNORING_CASE, "ormel"},  // host
    {MATCH::WHOLE_IGNORING_CASE, "lzma"},   // compression
    {MATCH::PREFIX, "stdc++"},              // the C++ library
    {MATCH::WHOLE_IGNORING_CASE, "iomp5"},  // OpenMP
};

constexpr RULE library_function_rules[] = {
    {MATCH::PREFIX, "std::"},
    {MATCH::PREFIX, "void std::"},
};

constexpr RULE path_rules[] = {
    {MATCH::PREFIX, "/opt/zelt_tools"},  // the host's toolchain
};

constexpr RULE function_rules[] = {
    {MATCH::PREFIX, "mem_"},  {MATCH::PREFIX, "MEM_"},    {MATCH::PREFIX, "operator new"},
    {MATCH::PREFIX, "ZIV"},   {MATCH::PREFIX, "boost::"}, {MATCH::PREFIX, "tbb::"},
    {MATCH::PREFIX, "brn::"},
};

constexpr RULE file_rules[] = {
    {MATCH::PREFIX, "orm_"},
    {MATCH::PREFIX, "mem_"},
    {MATCH::PREFIX, "ziv_"},
    {MATCH::WHOLE, "new_allocator.h"},
    {MATCH::WHOLE, "pool_map_glue.h"},
    {MATCH::WHOLE, "fen_tools.cpp"},
    {MATCH::WHOLE, "sarn_mem_bridge.cpp"},
};

std::string_view cut_word(std::string_view& line) {
  constexpr char const* blanks = " \t\n\v\f\r";
  line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(blanks));
  line.remove_prefix(word.size());
  return word;
}

bool is_end(std::string_view word) { return word.empty() || word == "#"; }

constexpr std::pair<std::string_view, MEM_FILTER_LINE::KIND> commands[] = {
    {"filter_module", MEM_FILTER_LINE::MODULE},
    {"filter_file_basename", MEM_FILTER_LINE::FILE_BASENAME},
    {"filter_function", MEM_FILTER_LINE::FUNCTION},
};

}  // namespace

bool mem_rules_reject_module(std::string_view module) { return any_matches(module_rules, module); }

bool mem_rules_reject_frame(std::string_view function, std::string_view path) {
  return any_matches(library_function_rules, function) || any_matches(path_rules, path) ||
         any_matches(function_rules, function) || any_matches(file_rules, mem_file_of_rules(path));
}

std::string_view mem_file_of_rules(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
}

MEM_FILTER_LINE::MEM_FILTER_LINE(std::string_view line) {
  command = cut_word(line);
  if (is_end(command)) return;
  for (const auto& [name, its_kind] : commands)
    if (command == name) kind = its_kind;
  prefix = cut_word(line);
  if (kind == NOTHING)
    fault = UNKNOWN_COMMAND;
  else if (is_end(prefix))
    fault = NO_PREFIX;
  else if (!is_end(cut_word(line)))
    fault = FURTHER_TEXT;
}
