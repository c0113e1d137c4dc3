// stl_output: what each conversion gives, and that it agrees with the C library where both mean
// the same.
#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <string_view>

#include "include/tuk_mem.h"
#include "mem/text/format_table.h"
#include "tests/support/argument_list.h"

namespace {

struct COUNTED_STRING {
  std::uint16_t length;
  std::uint16_t capacity;
  const void* text;
};

struct RESULT {
  std::string text;
  int count;
};

RESULT output(const char* format, const ARGUMENT_LIST& arguments) {
  RESULT result{};
  result.count =
      arguments.pass_to([&](va_list args) { return stl_output(&result.text, format, args); });
  return result;
}

struct ROW {
  const char* format;
  ARGUMENT_LIST arguments;
  std::string_view expected;
};

void expect_rows(std::initializer_list<ROW> rows) {
  for (const ROW& row : rows) {
    const RESULT result = output(row.format, row.arguments);
    EXPECT_EQ(result.text, row.expected) << row.format;
    EXPECT_EQ(result.count, static_cast<int>(row.expected.size())) << row.format;
  }
}

const void* const null = nullptr;

TEST(FormatTable, HoldsClassesBelowAndStatesAbove) {
  struct ENTRY {
    std::size_t index;
    int value;
  };
  constexpr ENTRY entries[] = {
      {' ' - ' ', 0x06},
      {'%' - ' ', 0x01},
      {'*' - ' ', 0x03},
      {'.' - ' ', 0x02},
      {'0' - ' ', 0x04},
      {'x' - ' ', 0x08},
      {'(' - ' ', 0x10},  // 1 * 8 + 0: a per-cent sign in
                          // text
      {'/' - ' ', 0x10},  // 1 * 8 + 7: a per-cent sign after a conversion
      {'1' - ' ', 0x45},  // 2 * 8 + 1: a dot after the per-cent sign
      {'I' - ' ', 0x37},  // 5 * 8 + 1: a digit after the per-cent sign
      {'d' - ' ', 0x78},  // 8 * 8 + 4: a conversion after the dot
  };
  ASSERT_EQ(__lookuptable.size(), 89U);
  for (const ENTRY& entry : entries)
    EXPECT_EQ(__lookuptable[entry.index], entry.value) << "index " << entry.index;
  EXPECT_EQ(format_class_of('y'), FORMAT_CLASS::other);
  EXPECT_EQ(format_class_of('\xE4'), FORMAT_CLASS::other);
}

TEST(Format, Integers) {
  constexpr std::int64_t big = 0x123456789ABCDEF0;
  expect_rows({
      {"%d%i", {42, -42}, "42-42"},
      {"%d", {std::numeric_limits<int>::min()}, "-2147483648"},
      {"%ld", {std::numeric_limits<std::int64_t>::min()}, "-9223372036854775808"},
      {"%lld %I64d %lx",
       {big, -big, big},
       "1311768467463790320 -1311768467463790320 123456789abcdef0"},
      {"%d %x", {big, big}, "-1698898192 9abcdef0"},
      {"%hd %hu %hx", {0x18000, 0x18001, 0x1FFFF}, "-32768 32769 ffff"},
      {"%u", {-1}, "4294967295"},
      {"%-5d|%05d|% d|%+d|%+u", {42, -42, 7, 7, 7}, "42   |-0042| 7|+7|7"},
      {"%8.3d|%-8.3d|%08.3d|%+.0d", {5, 5, 5, 0}, "     005|005     |     005|+"},
      {"%.0d|%.d|%#.0o|%#o|%#o|%#.4o", {0, 0, 0, 0, 8, 8}, "||0|0|010|0010"},
      {"%#x %#X %#010x %#6x %#x", {255, 255, 255, 1, 0}, "0xff 0XFF 0x000000ff    0x1 0x0"},
      {"%*d|%*d|%.*d|%.*d", {4, 1, -4, 1, 3, 1, -1, 1}, "   1|1   |001|1"},
      {"%*2d", {1, 5}, "           5"},  // 1, then the digit 2: 12
      {"%p", {std::uintptr_t{0xABCDEF}}, "0000000000ABCDEF"},
      {"%#20p|%020p|%.3p",
       {null, null, null},
       "  0X0000000000000000|    0000000000000000|0000000000000000"},
  });
}

TEST(Format, Doubles) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  expect_rows({
      {"%5.2f|%e|%E|%g|%G",
       {3.14159, 1234.5, 1234.5, 1.5, 1e-3},
       " 3.14|1234.500000|1234.500000|1.500000|0.001000"},
      {"%f|%f|%f|%f", {0.0, -0.0, 0.05, -1e-10}, "0.000000|-0.000000|0.050000|-0.000000"},
      {"%.0f|%#.0f|%.0f|%.0g|%.0G", {3.7, 3.7, 0.4, 0.26, 0.26}, "4.|4.|0.|0.3|0.3"},
      {"%.30f", {0.5}, "0.50000000000000000"},
      {"%+.1f|% .1f|%08.2f|%-8.2f|", {1.0, 1.0, -1.5, -1.5}, "+1.0| 1.0|-0001.50|-1.50   |"},
      {"%.1f", {1e22}, "10000000000000000000000.0"},
      {"%f|%f|%.2f", {infinity, -infinity, std::nan("")}, "0.inf|0.-inf|0.nan"},
  });
  EXPECT_EQ(output("%.40f", {-std::numeric_limits<double>::max()}).text.size(), 1 + 309 + 1 + 17U);
}

TEST(Format, TextsAndCharacters) {
  constexpr char text[] = "narrow";
  constexpr wchar_t wide[] = L"wide";
  const COUNTED_STRING counted{3, 6, text};
  const COUNTED_STRING counted_wide{2 * sizeof(wchar_t), 0, wide};
  const COUNTED_STRING counted_nothing{5, 5, nullptr};
  expect_rows({
      {"%s|%8s|%-8s|%08s|%.3s",
       {text, text, text, text, text},
       "narrow|  narrow|narrow  |00narrow|nar"},
      {"%s|%.3s|%ls|%.3S", {null, null, null, null}, "(null)|(nu|(null)|(nu"},
      {"%ls|%ws|%S|%6.2S|%-6lS|", {wide, wide, wide, wide, wide}, "wide|wide|wide|    wi|wide  |"},
      {"%hS|%hs|%lls", {text, text, text}, "narrow|narrow|narrow"},
      {"%c|%3c|%-3c|%lc|%wc|%C|%hC", {'a', 'b', 'c', L'd', L'e', L'f', 'g'}, "a|  b|c  |d|e|f|g"},
      {"%c", {'\0'}, {"\0", 1}},
      {"%Z|%5Z|%wZ|%Z|%8wZ",
       {&counted, &counted, &counted_wide, null, &counted_nothing},
       "nar|  nar|wi|(null)|  (null)"},
  });
}

TEST(Format, WideCharactersBecomeMultiByte) {
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  constexpr wchar_t no_character = 0xD800;
  const std::array<wchar_t, 4> broken = {L'a', no_character, L'b', L'\0'};
  expect_rows({
      // Padding counts the characters of a text, and the bytes of a single one.
      {"%4ls|%4lc", {L"\u00E4\u20AC", L'\u20AC'}, "  \u00E4\u20AC| \u20AC"},
      {"%ls|%lc|%4lc|", {broken.data(), no_character, no_character}, "a|||"},
  });
}

TEST(Format, WhatIsNoConversionIsText) {
  expect_rows({
      {"", {}, ""},
      {"a%%b%%%d%%", {1}, "a%b%1%"},
      {"%I32d|%Id|%5I3", {}, "I32d|Id|I3"},
      {"%y|%5!|%-k|%5*d|%+.*.d", {3}, "y|!|k|*d|.d"},
      {"%Fd %Ld %Nd|%B|%5B|", {1, 2, 3}, "1 2 3|||"},
      {"end%-5.3", {}, "end"},
      {"\xE4%d\xFF",
       {1},
       "\xE4"
       "1\xFF"},
  });
}

TEST(Format, StoresTheCountSoFar) {
  std::array<std::int64_t, 5> counts;
  counts.fill(-1);
  expect_rows({{"ab%nc%hn%5d%ln%lln%I64n!",
                {&counts[0], &counts[1], 7, &counts[2], &counts[3], &counts[4]},
                "abc    7!"}});
  constexpr std::int64_t untouched = -1;
  EXPECT_EQ(counts[0], (untouched & ~std::int64_t{0xFFFFFFFF}) | 2);
  EXPECT_EQ(counts[1], (untouched & ~std::int64_t{0xFFFF}) | 3);
  EXPECT_EQ(counts[2], 8);
  EXPECT_EQ(counts[3], 8);
  EXPECT_EQ(counts[4], 8);
}

TEST(Format, AppendsTextsLongerThanItsStage) {
  const std::string text(1500, 'x');
  std::string out = "before ";
  const ARGUMENT_LIST arguments = {text.c_str(), 700, 1, 1300, 2};
  const int count =
      arguments.pass_to([&](va_list args) { return stl_output(&out, "%s|%*d|%.*d", args); });
  EXPECT_EQ(out,
            "before " + text + "|" + std::string(699, ' ') + "1|" + std::string(1299, '0') + "2");
  EXPECT_EQ(count, static_cast<int>(out.size()) - 7);
}

// The C library's own printf, where the two agree.

class GENERATOR {
 public:
  explicit GENERATOR(unsigned seed) : m_random(seed) {}

  std::string format;
  ARGUMENT_LIST arguments;

  void make() {
    format.clear();
    arguments = {};
    for (int parts = pick(1, 4); parts > 0; --parts) {
      format += one_of({"", "a", "%%", " text ", "\n"});
      add_conversion();
    }
  }

 private:
  int pick(int least, int most) {
    return std::uniform_int_distribution<int>(least, most)(m_random);
  }
  bool chance(int percent) { return pick(1, 100) <= percent; }
  const char* one_of(std::initializer_list<const char*> choices) {
    return *(choices.begin() + pick(0, static_cast<int>(choices.size()) - 1));
  }

  std::uint64_t number() {
    constexpr std::array<std::uint64_t, 9> edges = {
        1, 7, 8, 255, 0x7FFF, 0x8000, 0x7FFFFFFF, 0x80000000, 0x7FFFFFFFFFFFFFFF};
    if (chance(20)) return 0;
    const std::uint64_t value = chance(40)
                                    ? edges[static_cast<std::size_t>(pick(0, edges.size() - 1))]
                                    : m_random() >> pick(0, 63);
    return chance(30) ? 0 - value : value;
  }

  void add_number_of(int least, int most) {
    const int value = pick(least, most);
    if (chance(30)) {
      format += '*';
      arguments.add(value);
    } else if (value >= 0) {
      format += std::to_string(value);
    }
  }

  void add_conversion() {
    const char conversion = *one_of({"d", "i", "u", "x", "X", "o", "c", "s"});
    const bool is_signed = conversion == 'd' || conversion == 'i';
    const bool is_text = conversion == 'c' || conversion == 's';
    const bool may_be_alternate = conversion == 'x' || conversion == 'X' || conversion == 'o';
    const bool alternate = may_be_alternate && chance(30);
    format += '%';
    if (alternate) format += '#';
    if (chance(25)) format += '-';
    if (is_signed && chance(25)) format += '+';
    if (is_signed && chance(25)) format += ' ';
    if (!is_text && chance(25)) format += '0';
    if (chance(50)) add_number_of(-40, 40);
    if (conversion != 'c' && chance(50)) {
      format += '.';
      add_number_of(-5, 30);
    }
    if (is_text) {
      add_text_argument(conversion);
    } else {
      std::uint64_t value = number();
      // Only here is a prefix put before 0.
      if (alternate && conversion != 'o') value |= 1;
      format += one_of({"", "", "h", "l", "ll"});
      arguments.add(value);
    }
    format += conversion;
  }

  void add_text_argument(char conversion) {
    if (conversion == 'c')
      arguments.add(pick(1, 255));
    else
      arguments.add(one_of({"", "x", "some text", "a text longer than every width there is here"}));
  }

  std::mt19937_64 m_random;
};

TEST(Format, AgreesWithTheCLibrary) {
  const unsigned seed = std::random_device{}();
  GENERATOR generated(seed);
  for (int i = 0; i < 50000; ++i) {
    generated.make();
    std::array<char, 1024> expected;
    const int length = generated.arguments.pass_to([&](va_list args) {
      return std::vsnprintf(expected.data(), expected.size(), generated.format.c_str(), args);
    });
    const RESULT result = output(generated.format.c_str(), generated.arguments);
    ASSERT_EQ(result.text, expected.data())
        << generated.format << ", pair " << i << ", seed " << seed;
    ASSERT_EQ(result.count, length) << generated.format << ", pair " << i << ", seed " << seed;
  }
}

TEST(StlSprintf, ReplacesTheTextWhateverItsLength) {
  for (const int length : {0, 1, 8191, 8192, 100000}) {
    std::string out = "before";
    MEM_DETAIL::stl_raw_sprintf(&out, "%*s%.1e", length, "", 1234.5);
    EXPECT_EQ(out, std::string(static_cast<std::size_t>(length), ' ') + "1.2e+03") << length;
  }
}

TEST(StlSprintf, LeavesTheTextWhenTheCLibraryReportsAnError) {
  std::string out = "before";
  MEM_DETAIL::stl_raw_sprintf(&out, "%lc", std::wint_t{0x110000});
  EXPECT_EQ(out, "before");
  const ARGUMENT_LIST none;
  none.pass_to([&](va_list args) {
    void (*const unchecked)(std::string*, const char*, va_list) = stl_vsprintf;
    unchecked(nullptr, "text", args);
    unchecked(&out, nullptr, args);
    return 0;
  });
  EXPECT_EQ(out, "before");
}

}  // namespace
