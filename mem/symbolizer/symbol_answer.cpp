#include "mem/symbolizer/symbol_answer.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <type_traits>

#include "mem/symbolizer/symbol_protocol.h"
#include "mem/symbolizer/text_field.h"

using namespace MEM_SYMBOL_PROTOCOL;

namespace {

// An object that bytes may be copied into, off the front of a text.
template <class OBJECT>
bool cut(std::string_view& text, OBJECT& object) {
  static_assert(std::is_trivially_copyable_v<OBJECT>);
  if (text.size() < sizeof object) return false;
  std::memcpy(&object, text.data(), sizeof object);
  text.remove_prefix(sizeof object);
  return true;
}

bool cut_text(std::string_view& text, std::size_t length, std::string_view& part) {
  if (text.size() < length) return false;
  part = text.substr(0, length);
  text.remove_prefix(length);
  return true;
}

struct FRAME_TEXTS {
  std::uint32_t line = 0;
  std::string_view function;
  std::string_view file;
};

bool cut_frame(std::string_view& text, FRAME_TEXTS& frame) {
  FRAME head;
  if (!cut(text, head)) return false;
  frame.line = head.line;
  return cut_text(text, head.function, frame.function) && cut_text(text, head.file, frame.file);
}

// A question mark is what tools say instead of a name.
bool is_unknown(std::string_view text) { return text.empty() || text.front() == '?'; }

void set_source(const FRAME_TEXTS& frame, MEM_ADDRESS_INFO& info) {
  mem_set_text_field(info.function_name_buffer,
                     is_unknown(frame.function) ? std::string_view() : frame.function);
  mem_set_text_field(info.file_name_buffer,
                     is_unknown(frame.file) ? std::string_view() : frame.file);
  info.line = is_unknown(frame.file) || frame.line > INT_MAX ? 0 : static_cast<int>(frame.line);
}

bool is_known_kind(std::uint32_t kind) {
  return kind == opened || kind == answers || kind == refused;
}

}  // namespace

std::optional<std::uint32_t> MEM_SYMBOL_MESSAGE::as_number() const {
  std::string_view text(payload.data(), payload.size());
  std::uint32_t result = 0;
  if (!cut(text, result) || !text.empty()) return std::nullopt;
  return result;
}

std::span<char> MEM_SYMBOL_STREAM::room() {
  constexpr std::size_t piece = 16384;
  drop(m_begin);
  if (m_bytes.size() < m_filled + piece) m_bytes.resize(m_filled + piece);
  return std::span(m_bytes).subspan(m_filled);
}

// A large answer's room is not kept.
void MEM_SYMBOL_STREAM::drop(std::size_t count) {
  constexpr std::size_t kept = 65536;
  std::copy(m_bytes.begin() + static_cast<std::ptrdiff_t>(count),
            m_bytes.begin() + static_cast<std::ptrdiff_t>(m_filled), m_bytes.begin());
  m_filled -= count;
  m_begin -= count;
  if (m_filled == 0 && m_bytes.size() > kept) MEM_SYMBOL_BYTES().swap(m_bytes);
}

MEM_SYMBOL_STREAM::FOUND MEM_SYMBOL_STREAM::next(MEM_SYMBOL_MESSAGE& answer) {
  std::string_view rest(m_bytes.data() + m_begin, m_filled - m_begin);
  HEADER header;
  if (!cut(rest, header)) return FOUND::more_is_needed;
  if (header.magic != magic || !is_known_kind(header.kind) || header.payload > most_payload)
    return FOUND::damaged;
  if (rest.size() < header.payload) return FOUND::more_is_needed;
  answer.kind = header.kind;
  answer.number = header.number;
  answer.payload.assign(rest.begin(), rest.begin() + header.payload);
  m_begin += sizeof header + header.payload;
  return FOUND::answer;
}

std::optional<std::string_view> MEM_SYMBOL_ANSWERS::next() {
  std::string_view rest = m_rest;
  std::uint32_t count = 0;
  if (!cut(rest, count) || count == 0 || count > most_frames) return std::nullopt;
  FRAME_TEXTS frame;
  char const* const begin = rest.data();
  for (std::uint32_t i = 0; i < count; ++i)
    if (!cut_frame(rest, frame)) return std::nullopt;
  m_rest = rest;
  return std::string_view(begin, static_cast<std::size_t>(rest.data() - begin));
}

void mem_parse_symbol_answer(std::string_view frames, MEM_ADDRESS_INFO& info,
                             std::vector<MEM_ADDRESS_INFO>& inlined) {
  inlined.clear();
  FRAME_TEXTS texts;
  if (!cut_frame(frames, texts)) texts = {};
  set_source(texts, info);
  MEM_ADDRESS_INFO frame = info;
  while (cut_frame(frames, texts)) {
    if (is_unknown(texts.function) || is_unknown(texts.file)) continue;
    set_source(texts, frame);
    inlined.push_back(frame);
  }
}
