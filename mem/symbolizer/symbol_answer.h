// Reading what a symbol server sends. It is believed nothing: what does not fit is told, and never
// read beyond.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"

using MEM_SYMBOL_BYTES = std::vector<char, MEM_BOOKKEEPING_ALLOCATOR<char>>;

/// An answer as it came.
struct MEM_SYMBOL_MESSAGE {
  std::uint32_t kind = 0;
  std::uint32_t number = 0;
  MEM_SYMBOL_BYTES payload;

  /// A payload of one 4-byte number, which `opened` and `refused` are.
  std::optional<std::uint32_t> as_number() const;
};

/// Puts answers together from the pieces that a stream comes in. May throw std::bad_alloc.
class MEM_SYMBOL_STREAM {
 public:
  /// Room for the next piece, of which taken() then says how much has come.
  std::span<char> room();
  void taken(std::size_t count) { m_filled += count; }

  enum class FOUND { answer, more_is_needed, damaged };
  /// Takes the first answer that is complete. After `damaged` nothing can be read any more.
  FOUND next(MEM_SYMBOL_MESSAGE& answer);

 private:
  void drop(std::size_t count);

  MEM_SYMBOL_BYTES m_bytes;
  std::size_t m_begin = 0;   // of what is not taken yet
  std::size_t m_filled = 0;  // to here, bytes have come
};

/// The frames of the addresses in an answer's payload, one after another.
class MEM_SYMBOL_ANSWERS {
 public:
  explicit MEM_SYMBOL_ANSWERS(std::string_view payload) : m_rest(payload) {}

  /// Cuts off what is said of one address; none when it does not fit.
  std::optional<std::string_view> next();
  bool is_at_end() const { return m_rest.empty(); }

 private:
  std::string_view m_rest;
};

/// What MEM_SYMBOL_ANSWERS cut off, into records: as mem_parse_inlined_answer does.
void mem_parse_symbol_answer(std::string_view frames, MEM_ADDRESS_INFO& info,
                             std::vector<MEM_ADDRESS_INFO>& inlined);
