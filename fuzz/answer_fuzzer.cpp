// What a symbol server might send: the same answers are found however the stream is cut, and a
// payload is read to its end or found not to fit.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "mem/symbolizer/symbol_answer.h"
#include "mem/symbolizer/symbol_protocol.h"

namespace {

using namespace MEM_SYMBOL_PROTOCOL;

void expect(bool holds) {
  if (!holds) std::abort();
}

void expect_terminated(const MEM_ADDRESS_INFO& info) {
  expect(std::memchr(info.function_name_buffer, 0, sizeof info.function_name_buffer) != nullptr);
  expect(std::memchr(info.file_name_buffer, 0, sizeof info.file_name_buffer) != nullptr);
  expect(info.line >= 0);
}

void read_payload(std::string_view payload) {
  MEM_SYMBOL_ANSWERS parts(payload);
  while (const auto frames = parts.next()) {
    MEM_ADDRESS_INFO info{};
    std::vector<MEM_ADDRESS_INFO> inlined;
    mem_parse_symbol_answer(*frames, info, inlined);
    expect(inlined.size() < most_frames);
    expect_terminated(info);
    std::for_each(inlined.begin(), inlined.end(), expect_terminated);
  }
}

// The kinds, numbers and payloads of a stream that comes in pieces of this size, and how it ends.
std::string answers_in(std::string_view stream, std::size_t piece) {
  using FOUND = MEM_SYMBOL_STREAM::FOUND;
  MEM_SYMBOL_STREAM reader;
  std::string all;
  FOUND found = FOUND::more_is_needed;
  while (found != FOUND::damaged && !stream.empty()) {
    const std::size_t count = std::min({piece, stream.size(), reader.room().size()});
    stream.copy(reader.room().data(), count);
    stream.remove_prefix(count);
    reader.taken(count);
    MEM_SYMBOL_MESSAGE answer;
    while ((found = reader.next(answer)) == FOUND::answer) {
      all += std::to_string(answer.kind) + ' ' + std::to_string(answer.number) + ' ';
      all.append(answer.payload.begin(), answer.payload.end());
      read_payload({answer.payload.data(), answer.payload.size()});
    }
  }
  return all + (found == FOUND::damaged ? "damaged" : "");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string input(reinterpret_cast<char const*>(data) + 1, size - 1);
  read_payload(input);
  const HEADER header{magic, answers, 1, static_cast<std::uint32_t>(input.size())};
  const std::string framed = std::string(reinterpret_cast<char const*>(&header), sizeof header);
  for (const std::string& stream : {input, framed + input + input})
    expect(answers_in(stream, std::size_t{1} + *data) == answers_in(stream, stream.size() + 1));
  return 0;
}
