// Texts of the page's data, each once.
#pragma once

#include <string_view>
#include <unordered_map>
#include <utility>

#include "tools/command/run_json.h"

namespace command {

/// Numbers for texts, in the order in which they come. The texts stay with whoever gives them.
class PAGE_TEXTS {
 public:
  std::size_t number(std::string_view text) {
    const auto [found, is_new] = m_numbers.emplace(text, m_numbers.size());
    if (is_new) m_texts.push_back(text);
    return found->second;
  }
  JSON json() && { return std::move(m_texts); }

 private:
  std::unordered_map<std::string_view, std::size_t> m_numbers;
  JSON m_texts = JSON::array();
};

}  // namespace command
