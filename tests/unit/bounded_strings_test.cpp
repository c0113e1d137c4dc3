// Bounded copies: what is written, and what the results tell of cuts.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

#include "include/tuk_mem.h"

namespace {

constexpr std::size_t no_limit = SIZE_MAX;

struct APPEND_ROW {
  const char* dst;
  const char* src;
  std::size_t count;
  std::size_t size;
  const char* after;
  std::size_t result;
};

constexpr APPEND_ROW appends[] = {
    {"ab", "cde", no_limit, 8, "abcde", 5}, {"ab", "cde", no_limit, 6, "abcde", 5},
    {"ab", "cde", no_limit, 5, "abcd", 5},  {"ab", "cde", no_limit, 3, "ab", 5},
    {"ab", "cde", 2, 8, "abcd", 5},         {"ab", "cde", 0, 8, "ab", 5},
    {"ab", "", no_limit, 8, "ab", 2},       {"abcdef", "x", no_limit, 4, "abc", 4},
    {"ab", "cde", no_limit, 1, "", 3},      {"ab", "cde", no_limit, 0, "", 3},
};

TEST(BoundedStrings, AppendingKeepsWithinTheBufferAndCountsTheWholeText) {
  for (const APPEND_ROW& row : appends) {
    SCOPED_TRACE(testing::Message() << row.dst << " + " << row.src << ", count " << row.count
                                    << ", size " << row.size);
    std::array<char, 16> buffer;
    buffer.fill('#');
    stl_strlcpy(buffer.data(), row.dst, buffer.size());
    EXPECT_EQ(stl_strlncat(buffer.data(), row.src, row.count, row.size), row.result);
    EXPECT_STREQ(buffer.data(), row.after);
    if (row.count != no_limit) continue;
    stl_strlcpy(buffer.data(), row.dst, buffer.size());
    EXPECT_EQ(stl_strlcat(buffer.data(), row.src, row.size), row.result);
    EXPECT_STREQ(buffer.data(), row.after);
  }
}

TEST(BoundedStrings, CopyingCutsAndTerminatesAlsoWithoutRoom) {
  struct ROW {
    const char* src;
    std::size_t size;
    std::string_view after;  // the whole buffer
  };
  constexpr ROW rows[] = {{"abc", 5, {"abc\0#", 5}}, {"abc", 4, {"abc\0#", 5}},
                          {"abc", 3, {"ab\0##", 5}}, {"abc", 1, {"\0####", 5}},
                          {"abc", 0, {"\0####", 5}}, {"", 4, {"\0####", 5}}};
  for (const ROW& row : rows) {
    std::string buffer(5, '#');
    EXPECT_EQ(stl_strlcpy(buffer.data(), row.src, row.size), std::string_view(row.src).size());
    EXPECT_EQ(buffer, row.after) << row.src << " into " << row.size;
  }
}

TEST(BoundedStrings, CaseConversionTouchesAsciiLettersOnly) {
  std::string text = "@AZ[`az{ 09 \xC3\xA4\xC3\x84";
  EXPECT_EQ(&stl_toupper(text), &text);
  EXPECT_EQ(text, "@AZ[`AZ{ 09 \xC3\xA4\xC3\x84");
  EXPECT_EQ(&stl_tolower(text), &text);
  EXPECT_EQ(text, "@az[`az{ 09 \xC3\xA4\xC3\x84");
}

}  // namespace
