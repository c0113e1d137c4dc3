// Frames as the bytes of an answer, at the limits of the protocol.
#include "tools/symbols/core/answer.h"

#include <gtest/gtest.h>

#include "mem/symbolizer/symbol_protocol.h"

namespace {

using namespace symbols;
using MEM_SYMBOL_PROTOCOL::most_frames;

std::size_t size_of(const FRAME& frame) {
  return sizeof(MEM_SYMBOL_PROTOCOL::FRAME) + frame.function.size() + frame.file.size();
}

TEST(Answer, KeepsTheInnermostFramesThatFit) {
  const FRAME small{"f", "/a.c", 7};
  const FRAME large{std::string(20000, 'f'), std::string(20000, '/'), 1};
  const std::tuple<const FRAME*, std::size_t, std::size_t> rows[] = {
      {&small, 1, 1},
      {&small, most_frames, most_frames},
      {&small, most_frames + 1, most_frames},
      {&large, 2, 2},
      {&large, 3, 2}};
  for (const auto& [frame, given, kept] : rows) {
    const std::string answer = encoded(std::vector<FRAME>(given, *frame));
    EXPECT_TRUE(is_whole_answer(answer));
    EXPECT_LE(answer.size(), most_bytes_of_answer);
    EXPECT_EQ(decoded(answer).size(), kept);
  }
  const std::vector<FRAME> frames = {small, {"inner", "", 0}, {"", "/b.c", 9}};
  const std::string answer = encoded(frames);
  std::size_t bytes = sizeof(std::uint32_t);
  for (std::size_t kept = 0; kept <= frames.size(); ++kept) {
    const std::size_t next = kept < frames.size() ? size_of(frames[kept]) : 1;
    for (const std::size_t most : {bytes, bytes + next - 1}) {
      const std::string shorter = first_frames(answer, most);
      ASSERT_TRUE(is_whole_answer(shorter)) << most;
      const auto found = decoded(shorter);
      ASSERT_EQ(found.size(), std::max<std::size_t>(kept, 1)) << most;
      for (std::size_t i = 0; i < kept; ++i)
        EXPECT_EQ(std::tie(found[i].function, found[i].file, found[i].line),
                  std::tie(frames[i].function, frames[i].file, frames[i].line));
      EXPECT_EQ(shorter == encoded_unknown(), kept == 0);
    }
    bytes += next;
  }
}

TEST(Answer, ThatIsNotWholeIsNone) {
  const std::string answer = encoded(std::vector<FRAME>{{"f", "/a.c", 7}, {"g", "", 0}});
  for (std::size_t size = 0; size < answer.size(); ++size)
    EXPECT_FALSE(is_whole_answer(answer.substr(0, size))) << size;
  EXPECT_FALSE(is_whole_answer(answer + "x"));
  EXPECT_FALSE(is_whole_answer(std::string(4, '\0'))) << "one frame at least";
  std::string huge = answer;
  huge.replace(8, 8, std::string(8, '\xff'));
  EXPECT_FALSE(is_whole_answer(huge)) << "lengths whose sum has no room in a word";
}

}  // namespace
