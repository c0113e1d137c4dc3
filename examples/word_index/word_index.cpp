#include "word_index/word_index.h"

#include <algorithm>
#include <cctype>

namespace {

bool is_letter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }

}  // namespace

WORD_INDEX::~WORD_INDEX() {
  for (auto& [word, first] : m_first)
    while (first != nullptr) delete std::exchange(first, first->next);
}

void WORD_INDEX::add_line(std::uint32_t number, std::string_view text) {
  std::string word;
  for (const char c : text) {
    if (is_letter(c)) {
      word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    } else if (!word.empty()) {
      add_word(number, word);
      word.clear();
    }
  }
  if (!word.empty()) add_word(number, word);
}

void WORD_INDEX::add_word(std::uint32_t number, const std::string& word) {
  OCCURRENCE*& first = m_first[word];
  first = new OCCURRENCE{number, first};
  ++m_occurrences;
}

std::vector<std::pair<std::string, std::size_t>> WORD_INDEX::most_frequent(
    std::size_t count) const {
  std::vector<std::pair<std::string, std::size_t>> counted;
  for (const auto& [word, first] : m_first) {
    std::size_t occurrences = 0;
    for (const OCCURRENCE* one = first; one != nullptr; one = one->next) ++occurrences;
    counted.emplace_back(word, occurrences);
  }
  std::sort(counted.begin(), counted.end(),
            [](const auto& a, const auto& b) { return a.second > b.second; });
  counted.resize(std::min(count, counted.size()));
  return counted;
}
