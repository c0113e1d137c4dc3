// Where each word occurs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class WORD_INDEX {
 public:
  WORD_INDEX() = default;
  WORD_INDEX(const WORD_INDEX&) = delete;
  WORD_INDEX& operator=(const WORD_INDEX&) = delete;
  ~WORD_INDEX();

  /// Enters every word of a line.
  void add_line(std::uint32_t number, std::string_view text);

  std::size_t words() const { return m_first.size(); }
  std::size_t occurrences() const { return m_occurrences; }
  /// The most frequent words with their number of occurrences.
  std::vector<std::pair<std::string, std::size_t>> most_frequent(std::size_t count) const;

 private:
  struct OCCURRENCE {
    std::uint32_t line;
    OCCURRENCE* next;
  };
  void add_word(std::uint32_t number, const std::string& word);

  std::map<std::string, OCCURRENCE*> m_first;
  std::size_t m_occurrences = 0;
};
