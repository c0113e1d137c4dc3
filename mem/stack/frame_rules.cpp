#include "mem/stack/frame_rules.h"

#include <strings.h>

#include <algorithm>
#include <string_view>

#include "mem/stack/user_filters.h"

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

bool any_prefix_matches(const MEM_USER_FILTERS& prefixes, std::string_view text) {
  return std::any_of(prefixes.begin(), prefixes.end(),
                     [&](const auto& prefix) { return starts_with(text, prefix); });
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

bool function_or_path_is_rejected(std::string_view function, std::string_view path) {
  return any_matches(library_function_rules, function) || any_matches(path_rules, path) ||
         any_matches(function_rules, function) ||
         any_prefix_matches(*mem_user_filters_functions, function);
}

// A path without a directory is kept, whatever its name.
bool file_is_rejected(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return false;
  const std::string_view basename = path.substr(slash + 1);
  return any_matches(file_rules, basename) || any_prefix_matches(*mem_user_filters_files, basename);
}

}  // namespace

bool mem_module_is_rejected(char const* module_name) {
  return any_matches(module_rules, module_name) ||
         any_prefix_matches(*mem_user_filters_modules, module_name);
}

bool mem_frame_is_rejected(const MEM_ADDRESS_INFO& frame) {
  return function_or_path_is_rejected(frame.function_name_buffer, frame.file_name_buffer) ||
         file_is_rejected(frame.file_name_buffer);
}
