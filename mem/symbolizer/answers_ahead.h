// What a symbol server has told of addresses that were not asked for yet.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "mem/base/spin_lock.h"
#include "mem/symbolizer/symbol_answer.h"

class MEM_MODULE_FILE;

/// The last few of such answers. Long ones are not kept: they are asked for again. Any thread.
class MEM_ANSWERS_AHEAD {
 public:
  static MEM_ANSWERS_AHEAD singleton_instance;

  /// Keeps what MEM_SYMBOL_ANSWERS cut off for an address of the file.
  void keep(const MEM_MODULE_FILE& file, std::uint64_t address, std::string_view frames);
  /// Hands it over, and keeps it no longer. False when it is not there. May throw std::bad_alloc.
  bool take(const MEM_MODULE_FILE& file, std::uint64_t address, MEM_SYMBOL_BYTES& frames);
  /// Forgets all, in a child made by fork.
  void abandon();

 private:
  struct ANSWER {
    const MEM_MODULE_FILE* file = nullptr;  // null where there is none
    std::uint64_t address = 0;
    std::size_t size = 0;
    char frames[1000]{};
  };

  MEM_STATIC_SPIN_MUTEX m_lock;
  std::size_t m_next = 0;  // the oldest, under the lock like all answers
  std::array<ANSWER, 64> m_answers{};
};
