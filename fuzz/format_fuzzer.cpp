// stl_output over any format, with arguments that fit it.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <clocale>
#include <cstdlib>
#include <string>
#include <string_view>

#include "include/tuk_mem.h"
#include "mem/text/format_table.h"
#include "tests/support/argument_list.h"

namespace {

constexpr std::size_t longest_format = 200;
constexpr int largest_star = 1200;      // beyond both 512-byte buffers
constexpr std::size_t most_digits = 3;  // in a row: keeps texts within a megabyte

struct COUNTED_STRING {
  std::uint16_t length;
  std::uint16_t capacity;
  const void* text;
};

// What pointers may point at: a text that is terminated for narrow and for wide readers, and is
// as long as a counted string says.
class TARGETS {
 public:
  explicit TARGETS(FuzzedDataProvider& input) {
    const std::size_t length = input.ConsumeIntegralInRange<std::size_t>(0, m_text.size() - 1);
    for (std::size_t i = 0; i < length; ++i) m_text[i] = input.ConsumeIntegral<wchar_t>();
    m_counted.length =
        static_cast<std::uint16_t>(input.ConsumeIntegralInRange<std::size_t>(0, sizeof m_text));
    m_counted.text = input.ConsumeBool() ? m_text.data() : nullptr;
  }

  ARGUMENT for_conversion(char conversion, FuzzedDataProvider& input) {
    switch (conversion) {
      case 'e':
      case 'E':
      case 'f':
      case 'g':
      case 'G':
        return input.ConsumeFloatingPoint<double>();
      case 's':
      case 'S':
        return input.ConsumeBool() ? m_text.data() : nullptr;
      case 'Z':
        return input.ConsumeBool() ? &m_counted : nullptr;
      case 'n':
        return &m_count;
      default:
        return input.ConsumeIntegral<std::uint64_t>();
    }
  }

 private:
  std::array<wchar_t, 300> m_text{};
  COUNTED_STRING m_counted{};
  std::int64_t m_count = 0;
};

bool asks_for_too_much(std::string_view format) {
  std::size_t digits = 0;
  for (const char c : format) {
    digits = c >= '0' && c <= '9' ? digits + 1 : 0;
    if (digits > most_digits) return true;
  }
  return false;
}

ARGUMENT_LIST arguments_for(std::string_view format, TARGETS& targets, FuzzedDataProvider& input) {
  ARGUMENT_LIST arguments;
  FORMAT_STATE state = FORMAT_STATE::normal;
  for (std::size_t i = 0; i < format.size(); ++i) {
    state = next_format_state(state, format[i]);
    if (state == FORMAT_STATE::conversion && format[i] != 'B') {
      arguments.add(targets.for_conversion(format[i], input));
    } else if (state == FORMAT_STATE::size && format[i] == 'I') {
      if (format.substr(i + 1, 2) == "64")
        i += 2;
      else
        state = FORMAT_STATE::normal;
    } else if (format[i] == '*' && state != FORMAT_STATE::normal) {
      arguments.add(input.ConsumeIntegralInRange<int>(-largest_star, largest_star));
    }
  }
  return arguments;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::setlocale(LC_CTYPE, "C.UTF-8");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  std::string format = input.ConsumeRandomLengthString(longest_format);
  format.resize(format.find('\0') == std::string::npos ? format.size() : format.find('\0'));
  if (asks_for_too_much(format)) return 0;

  TARGETS targets(input);
  const ARGUMENT_LIST arguments = arguments_for(format, targets, input);
  std::string out = "before";
  const int count =
      arguments.pass_to([&](va_list args) { return stl_output(&out, format.c_str(), args); });
  if (count < 0 || out.size() != 6 + static_cast<std::size_t>(count) || out.find("before") != 0)
    std::abort();
  return 0;
}
