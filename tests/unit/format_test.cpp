// stl_output: what each conversion gives, and that it agrees with the C library where both mean
// the same.
#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <cmath>
#include <limits>

#include "include/tuk_mem.h"
#include "mem/text/format_table.h"
#include "tests/support/argument_list.h"

namespace {

struct COUNTED_STRING {
  std::uint16_t length;
  std::uint16_t capacity;
  const void* text;
};

struct ROW {
  std::string format;
  ARGUMENT_LIST arguments;
  std::string expected;
};

void expect_output(const ROW& row) {
  std::string text;
  const int count = row.arguments.pass_to(
      [&](va_list args) { return stl_output(&text, row.format.c_str(), args); });
  EXPECT_EQ(text, row.expected) << row.format;
  EXPECT_EQ(count, static_cast<int>(row.expected.size())) << row.format;
}

const void* const null = nullptr;
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr std::int64_t big = 0x123456789ABCDEF0;
constexpr char text[] = "narrow";
constexpr wchar_t wide[] = L"wide";
constexpr wchar_t no_character = 0xD800;
constexpr wchar_t broken[] = {L'a', no_character, L'b', L'\0'};
constexpr COUNTED_STRING counted{3, 6, text};
constexpr COUNTED_STRING counted_wide{2 * sizeof(wchar_t), 0, wide};
constexpr COUNTED_STRING counted_nothing{5, 5, nullptr};
const std::string long_text(1500, 'x'), zeros(1299, '0');

const ROW rows[] = {
    {"%lld %I64d", {big, -big}, "1311768467463790320 -1311768467463790320"},
    {"%.0d|%.d|%#.0o|%#o|%#o|%#.4o", {0, 0, 0, 0, 8, 8}, "||0|0|010|0010"},
    {"%#x %#X %#010x %#6x %#x", {255, 255, 255, 1, 0}, "0xff 0XFF 0x000000ff    0x1 0x0"},
    {"%*2d", {1, 5}, "           5"},  // 1, then the digit 2: 12
    {"%p|%.3p", {0xABCDEF, null}, "0000000000ABCDEF|0000000000000000"},
    {"%#20p|%020p", {null, null}, "  0X0000000000000000|    0000000000000000"},
    {"%5.2f|%e|%E", {3.14159, 1234.5, 1234.5}, " 3.14|1234.500000|1234.500000"},
    {"%g|%G", {1.5, 1e-3}, "1.500000|0.001000"},
    {"%f|%f|%f|%f", {0.0, -0.0, 0.05, -1e-10}, "0.000000|-0.000000|0.050000|-0.000000"},
    {"%.0f|%#.0f|%.0f|%.0g|%.0G", {3.7, 3.7, 0.4, 0.26, 0.26}, "4.|4.|0.|0.3|0.3"},
    {"%.30f|%.1f", {0.5, 1e22}, "0.50000000000000000|10000000000000000000000.0"},
    {"%+.1f|% .1f|%08.2f|%-8.2f|", {1.0, 1.0, -1.5, -1.5}, "+1.0| 1.0|-0001.50|-1.50   |"},
    {"%f|%f|%.2f", {infinity, -infinity, std::nan("")}, "0.inf|0.-inf|0.nan"},
    {"%08s|%.3s", {text, text}, "00narrow|nar"},
    {"%s|%.3s|%ls|%.3S", {null, null, null, null}, "(null)|(nu|(null)|(nu"},
    {"%ls|%ws|%S|%6.2S|%-6lS|", {wide, wide, wide, wide, wide}, "wide|wide|wide|    wi|wide  |"},
    {"%c|%3c|%-3c|%lc|%wc|%C|%hC", {'a', 'b', 'c', L'd', L'e', L'f', 'g'}, "a|  b|c  |d|e|f|g"},
    {"%c", {'\0'}, std::string(1, '\0')},
    {"%Z|%5Z|%wZ", {&counted, &counted, &counted_wide}, "nar|  nar|wi"},
    {"%Z|%8wZ", {null, &counted_nothing}, "(null)|  (null)"},
    // Padding counts the characters of a text, and the bytes of a single one.
    {"%4ls|%4lc", {L"\u00E4\u20AC", L'\u20AC'}, "  \u00E4\u20AC| \u20AC"},
    {"%ls|%lc|%4lc|", {broken, no_character, no_character}, "a|||"},
    {"%I32d|%Id|%5I3", {}, "I32d|Id|I3"},
    {"%y|%5!|%-k|%5*d|%+.*.d", {3}, "y|!|k|*d|.d"},
    {"%Fd %Ld %Nd|%B|%5B|", {1, 2, 3}, "1 2 3|||"},
    {"%d|\xE4|\xFF", {1}, "1|\xE4|\xFF"},
    {"end%-5.3", {}, "end"},
    {"%s|%.1300d", {long_text.c_str(), 2}, long_text + "|" + zeros + "2"},
};

// Low four bits: the character's class; high four: the next state of class index / 8 in state
// index % 8.
static_assert(__lookuptable.size() == 89 && __lookuptable[' ' - ' '] == 0x06 &&
              __lookuptable['%' - ' '] == 0x01 && __lookuptable['(' - ' '] == 0x10 &&
              __lookuptable['1' - ' '] == 0x45 && __lookuptable['d' - ' '] == 0x78 &&
              __lookuptable['x' - ' '] == 0x08);

TEST(Format, GivesWhatTheTableSays) {
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  for (const ROW& row : rows) expect_output(row);
}

TEST(Format, StoresTheCountSoFar) {
  std::array<std::int64_t, 4> counts;
  counts.fill(-1);
  expect_output(
      {"ab%nc%hn%5d%ln%I64n!", {&counts[0], &counts[1], 7, &counts[2], &counts[3]}, "abc    7!"});
  constexpr std::array<std::int64_t, 4> expected = {-1LL << 32 | 2, -1LL << 16 | 3, 8, 8};
  EXPECT_EQ(counts, expected);
}

TEST(Format, OfTheCLibraryHasNoLimitOfLength) {
  std::string out;
  MEM_DETAIL::stl_raw_sprintf(&out, "%s%.1e", std::string(8192, ' ').c_str(), 1234.5);
  EXPECT_EQ(out, std::string(8192, ' ') + "1.2e+03");
}

// Every conversion that means the same in both, with every set of the flags that do, in every field
// of these, of every one of these numbers. A text has no length.
TEST(Format, AgreesWithTheCLibrary) {
  constexpr std::pair<char, std::string_view> kinds[] = {{'d', "-+ 0"}, {'i', "-+ 0"}, {'u', "-0"},
                                                         {'x', "-0"},   {'X', "-0"},   {'o', "#-0"},
                                                         {'s', "-"},    {'c', "-"}};
  constexpr std::pair<std::string_view, int> fields[] = {
      {"", 0}, {"7", 0}, {"*", -30}, {".0", 0}, {".3", 0}, {"2.19", 0}, {"21.*", 12}, {"9.*", -1}};
  const std::uint64_t numbers[] = {0, 1, 0x41, 0x7F, 0x80, 0x8000, 0x80000000, 0xFEDCBA9876543210};
  for (const auto& [conversion, flags] : kinds)
    for (unsigned set = 0; set < 1U << flags.size(); ++set)
      for (const auto& [field, star] : fields)
        for (const std::string_view length : {"", "h", "l", "ll"})
          for (const std::uint64_t number : numbers) {
            if (conversion == 'c' && (field.find('.') != field.npos || number % 256 == 0)) continue;
            ROW row{"a%%%", {}, ""};
            for (std::size_t flag = 0; flag < flags.size(); ++flag)
              if ((set >> flag & 1) != 0) row.format += flags[flag];
            row.format.append(field);
            if (conversion != 's' && conversion != 'c') row.format.append(length);
            row.format += conversion;
            if (field.ends_with('*')) row.arguments.add(star);
            if (conversion == 's')
              row.arguments.add("a text of twenty-four...");
            else
              row.arguments.add(number);
            char expected[100];
            row.arguments.pass_to([&](va_list args) {
              return std::vsnprintf(expected, sizeof expected, row.format.c_str(), args);
            });
            row.expected = expected;
            expect_output(row);
          }
}

}  // namespace
