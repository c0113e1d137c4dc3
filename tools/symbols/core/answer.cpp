#include "tools/symbols/core/answer.h"

#include <cstring>

#include "mem/symbolizer/symbol_protocol.h"

namespace symbols {

namespace {

using WIRE_FRAME = MEM_SYMBOL_PROTOCOL::FRAME;

constexpr std::size_t longest_name = 32768;

template <class VALUE>
void append(std::string& bytes, const VALUE& value) {
  bytes.append(reinterpret_cast<char const*>(&value), sizeof value);
}

template <class VALUE>
bool cut(std::string_view& bytes, VALUE& value) {
  if (bytes.size() < sizeof value) return false;
  std::memcpy(&value, bytes.data(), sizeof value);
  bytes.remove_prefix(sizeof value);
  return true;
}

}  // namespace

std::string encoded(std::span<const FRAME> frames) {
  std::uint32_t number = 0;
  std::string bytes(sizeof number, '\0');
  for (const FRAME& frame : frames) {
    const std::string_view function = std::string_view(frame.function).substr(0, longest_name);
    const std::string_view file = std::string_view(frame.file).substr(0, longest_name);
    const std::size_t size = sizeof(WIRE_FRAME) + function.size() + file.size();
    if (number == MEM_SYMBOL_PROTOCOL::most_frames || bytes.size() + size > most_bytes_of_answer)
      break;
    append(bytes, WIRE_FRAME{.line = frame.line,
                             .function = static_cast<std::uint32_t>(function.size()),
                             .file = static_cast<std::uint32_t>(file.size())});
    bytes.append(function).append(file);
    ++number;
  }
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

std::string encoded_unknown() {
  const FRAME unknown;
  return encoded({&unknown, 1});
}

std::string first_frames(const std::string& answer, std::size_t most_bytes) {
  if (answer.size() <= most_bytes) return answer;
  std::string_view rest(answer);
  std::uint32_t number = 0;
  std::uint32_t fitting = 0;
  cut(rest, number);
  WIRE_FRAME frame;
  std::size_t size = sizeof number;
  for (; fitting < number && cut(rest, frame); ++fitting) {
    const std::size_t names = std::size_t{frame.function} + frame.file;
    if (size + sizeof frame + names > most_bytes) break;
    size += sizeof frame + names;
    rest.remove_prefix(names);
  }
  if (fitting == 0) return encoded_unknown();
  std::string shorter = answer.substr(0, size);
  std::memcpy(shorter.data(), &fitting, sizeof fitting);
  return shorter;
}

bool is_whole_answer(std::string_view bytes) {
  std::uint32_t number = 0;
  if (!cut(bytes, number) || number == 0 || number > MEM_SYMBOL_PROTOCOL::most_frames) return false;
  for (; number > 0; --number) {
    WIRE_FRAME frame;
    if (!cut(bytes, frame) || frame.function > longest_name || frame.file > longest_name ||
        bytes.size() < std::size_t{frame.function} + frame.file)
      return false;
    bytes.remove_prefix(std::size_t{frame.function} + frame.file);
  }
  return bytes.empty();
}

std::vector<FRAME> decoded(std::string_view answer) {
  std::vector<FRAME> frames;
  std::uint32_t number = 0;
  cut(answer, number);
  for (WIRE_FRAME frame; number > 0 && cut(answer, frame); --number) {
    const std::string_view file = answer.substr(frame.function);
    frames.push_back({.function = std::string(answer.substr(0, frame.function)),
                      .file = std::string(file.substr(0, frame.file)),
                      .line = frame.line});
    answer.remove_prefix(std::size_t{frame.function} + frame.file);
  }
  return frames;
}

}  // namespace symbols
