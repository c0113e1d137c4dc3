// The library's own printf: a character-class and state table machine.
#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <cwchar>

#include "include/tuk_mem.h"
#include "mem/text/conversion.h"
#include "mem/text/format_table.h"
#include "mem/text/number_text.h"
#include "mem/text/output_stage.h"

namespace {

constexpr std::string_view __nullstring = "(null)";
constexpr std::wstring_view __wnullstring = L"(null)";

constexpr char lower_digits[] = "0123456789abcdef";
constexpr char upper_digits[] = "0123456789ABCDEF";

constexpr int pointer_digits = 2 * sizeof(void*);
constexpr int default_double_precision = 6;

struct COUNTED_STRING {
  std::uint16_t length;  // bytes
  std::uint16_t capacity;
  const char* text;
};

constexpr std::uint32_t flag_of(char c) {
  switch (c) {
    case ' ':
      return FORMAT_SIGN_SPACE;
    case '#':
      return FORMAT_ALTERNATE;
    case '+':
      return FORMAT_SIGN;
    case '-':
      return FORMAT_LEFT;
    default:
      return FORMAT_LEAD_ZERO;
  }
}

// `number` with one more digit, kept within the range of int.
int extended(int number, char digit) {
  const std::int64_t longer = std::int64_t{number} * 10 + (digit - '0');
  return static_cast<int>(std::clamp<std::int64_t>(longer, INT_MIN, INT_MAX));
}

// wctomb without the shift state that it keeps for all threads; -1 when `c` has no multi-byte form.
int multi_byte_form(wchar_t c, FORMAT_BUFFER& buffer) {
  std::mbstate_t state{};
  return static_cast<int>(std::wcrtomb(buffer.data(), c, &state));
}

class FORMATTER {
 public:
  FORMATTER(std::string& out, va_list args) : m_stage(out) { va_copy(m_args, args); }
  FORMATTER(const FORMATTER&) = delete;
  FORMATTER& operator=(const FORMATTER&) = delete;
  ~FORMATTER() { va_end(m_args); }

  int run(const char* format) {
    m_next = format;
    while (*m_next != '\0' && m_stage.count() >= 0) {
      const char c = *m_next++;
      m_state = next_format_state(m_state, c);
      (this->*actions[static_cast<std::size_t>(m_state)])(c);
    }
    m_stage.flush();
    return m_stage.count();
  }

 private:
  void put_literal(char c) { m_stage.put(c); }
  void start_conversion(char) { m_conversion = {}; }
  void add_flag(char c) { m_conversion.set(flag_of(c)); }
  void extend_width(char c);
  void start_precision(char) { m_conversion.precision = 0; }
  void extend_precision(char c);
  void add_size(char c);
  void convert(char c);

  bool take_if_next(std::string_view text);
  void make_text(char c);
  void make_signed_integer();
  void make_unsigned_integer(unsigned base, const char* digits = lower_digits);
  void make_hexadecimal(const char* digits, std::string_view prefix);
  void make_integer(std::uint64_t value, unsigned base, const char* digits);
  void make_pointer();
  void make_character();
  void make_string();
  void make_counted_string();
  void make_double(bool general);
  void store_count();
  void default_to_wide();
  void set_sign_prefix();
  void put_conversion();
  void put_wide_text();

  using ACTION = void (FORMATTER::*)(char c);
  static constexpr std::array<ACTION, format_state_count> actions = {
      &FORMATTER::put_literal,  &FORMATTER::start_conversion, &FORMATTER::add_flag,
      &FORMATTER::extend_width, &FORMATTER::start_precision,  &FORMATTER::extend_precision,
      &FORMATTER::add_size,     &FORMATTER::convert};

  FORMAT_OUTPUT_STAGE m_stage;
  va_list m_args;
  const char* m_next = nullptr;
  FORMAT_STATE m_state = FORMAT_STATE::normal;
  FORMAT_CONVERSION m_conversion;
  FORMAT_BUFFER m_buffer;  // what the text of the conversion points into
};

// Width, precision and size.

void FORMATTER::extend_width(char c) {
  int& width = m_conversion.width;
  if (c != '*') {
    width = extended(width, c);
    return;
  }
  width = va_arg(m_args, int);
  if (width >= 0) return;
  m_conversion.set(FORMAT_LEFT);
  width = width == INT_MIN ? INT_MAX : -width;
}

void FORMATTER::extend_precision(char c) {
  int& precision = m_conversion.precision;
  precision = c == '*' ? std::max(va_arg(m_args, int), -1) : extended(precision, c);
}

bool FORMATTER::take_if_next(std::string_view text) {
  if (std::strncmp(m_next, text.data(), text.size()) != 0) return false;
  m_next += text.size();
  return true;
}

void FORMATTER::add_size(char c) {
  switch (c) {
    case 'I':
      if (take_if_next("64")) {
        m_conversion.set(FORMAT_64_BIT);
      } else {
        m_state = FORMAT_STATE::normal;
        put_literal(c);
      }
      break;
    case 'l':
      m_conversion.set(take_if_next("l") ? FORMAT_64_BIT : FORMAT_LONG);
      break;
    case 'h':
      m_conversion.set(FORMAT_SHORT);
      break;
    case 'w':
      m_conversion.set(FORMAT_WIDE);
      break;
    default:  // F, L and N say nothing here
      break;
  }
}

// The conversions.

void FORMATTER::convert(char c) {
  make_text(c);
  if (!m_conversion.no_output) put_conversion();
}

void FORMATTER::make_text(char c) {
  switch (c) {
    case 'd':
    case 'i':
      return make_signed_integer();
    case 'u':
      return make_unsigned_integer(10);
    case 'o':
      if (m_conversion.has(FORMAT_ALTERNATE)) m_conversion.set(FORMAT_FORCE_OCTAL);
      return make_unsigned_integer(8);
    case 'x':
      return make_hexadecimal(lower_digits, "0x");
    case 'X':
      return make_hexadecimal(upper_digits, "0X");
    case 'p':
      return make_pointer();
    case 'C':
      default_to_wide();
      return make_character();
    case 'c':
      return make_character();
    case 'S':
      default_to_wide();
      return make_string();
    case 's':
      return make_string();
    case 'Z':
      return make_counted_string();
    case 'e':
    case 'E':
    case 'f':
      return make_double(false);
    case 'g':
    case 'G':
      return make_double(true);
    case 'n':
      return store_count();
    default:
      m_conversion.no_output = true;
  }
}

void FORMATTER::make_signed_integer() {
  std::int64_t value = 0;
  if (m_conversion.has(FORMAT_64_BIT | FORMAT_LONG))
    value = va_arg(m_args, std::int64_t);
  else if (m_conversion.has(FORMAT_SHORT))
    value = static_cast<short>(va_arg(m_args, int));
  else
    value = va_arg(m_args, int);
  m_conversion.set(FORMAT_SIGNED);
  if (value < 0) m_conversion.set(FORMAT_NEGATIVE);
  const auto bits = static_cast<std::uint64_t>(value);
  make_integer(value < 0 ? 0 - bits : bits, 10, lower_digits);
}

void FORMATTER::make_unsigned_integer(unsigned base, const char* digits) {
  std::uint64_t value = 0;
  if (m_conversion.has(FORMAT_64_BIT | FORMAT_LONG))
    value = va_arg(m_args, std::uint64_t);
  else if (m_conversion.has(FORMAT_SHORT))
    value = static_cast<unsigned short>(va_arg(m_args, unsigned));
  else
    value = va_arg(m_args, unsigned);
  make_integer(value, base, digits);
}

void FORMATTER::make_hexadecimal(const char* digits, std::string_view prefix) {
  if (m_conversion.has(FORMAT_ALTERNATE)) m_conversion.prefix = prefix;
  make_unsigned_integer(16, digits);
}

void FORMATTER::make_pointer() {
  m_conversion.precision = pointer_digits;
  m_conversion.set(FORMAT_64_BIT);
  make_hexadecimal(upper_digits, "0X");
}

void FORMATTER::make_integer(std::uint64_t value, unsigned base, const char* digits) {
  std::int64_t least_digits = 1;
  if (m_conversion.precision >= 0) {
    m_conversion.clear(FORMAT_LEAD_ZERO);
    least_digits = m_conversion.precision;
  }
  m_conversion.narrow = format_integer(value, base, digits, m_buffer);
  const auto length = static_cast<std::int64_t>(m_conversion.narrow.size());
  m_conversion.zeros = std::max<std::int64_t>(least_digits - length, 0);
  if (m_conversion.has(FORMAT_FORCE_OCTAL) && m_conversion.zeros == 0) m_conversion.zeros = 1;
}

void FORMATTER::make_character() {
  int length = 1;
  if (m_conversion.has(FORMAT_LONG | FORMAT_WIDE))
    length = multi_byte_form(static_cast<wchar_t>(va_arg(m_args, std::wint_t)), m_buffer);
  else
    m_buffer[0] = static_cast<char>(va_arg(m_args, int));
  m_conversion.no_output = length < 0;
  if (length > 0) m_conversion.narrow = {m_buffer.data(), static_cast<std::size_t>(length)};
}

void FORMATTER::make_string() {
  const auto longest =
      static_cast<std::size_t>(m_conversion.precision < 0 ? INT_MAX : m_conversion.precision);
  if (m_conversion.has(FORMAT_LONG | FORMAT_WIDE)) {
    const auto* text = va_arg(m_args, const wchar_t*);
    m_conversion.wide = text == nullptr ? __wnullstring.substr(0, longest)
                                        : std::wstring_view(text, wcsnlen(text, longest));
  } else {
    const auto* text = va_arg(m_args, const char*);
    m_conversion.narrow = text == nullptr ? __nullstring.substr(0, longest)
                                          : std::string_view(text, strnlen(text, longest));
  }
}

void FORMATTER::make_counted_string() {
  const auto* record = va_arg(m_args, const COUNTED_STRING*);
  if (record == nullptr || record->text == nullptr) {
    m_conversion.narrow = __nullstring;
  } else if (m_conversion.has(FORMAT_WIDE)) {
    m_conversion.wide = {reinterpret_cast<const wchar_t*>(record->text),
                         record->length / sizeof(wchar_t)};
  } else {
    m_conversion.narrow = {record->text, record->length};
  }
}

void FORMATTER::make_double(bool general) {
  int precision = m_conversion.precision < 0 ? default_double_precision : m_conversion.precision;
  if (general && precision == 0) precision = 1;
  m_conversion.narrow = format_double(va_arg(m_args, double), precision, m_buffer);

  const bool alternate = m_conversion.has(FORMAT_ALTERNATE);
  if (alternate && precision == 0) _cfltcvt_tab[FORMAT_HOOK_FORCE_DECIMAL_POINT](m_buffer.data());
  if (general && !alternate) _cfltcvt_tab[FORMAT_HOOK_CROP_ZEROS](m_buffer.data());

  m_conversion.set(FORMAT_SIGNED);
  if (!m_conversion.narrow.starts_with('-')) return;
  m_conversion.set(FORMAT_NEGATIVE);
  m_conversion.narrow.remove_prefix(1);
}

void FORMATTER::store_count() {
  void* const target = va_arg(m_args, void*);
  const int count = m_stage.count();
  if (m_conversion.has(FORMAT_64_BIT | FORMAT_LONG))
    *static_cast<std::int64_t*>(target) = count;
  else if (m_conversion.has(FORMAT_SHORT))
    *static_cast<short*>(target) = static_cast<short>(count);
  else
    *static_cast<int*>(target) = count;
  m_conversion.no_output = true;
}

void FORMATTER::default_to_wide() {
  if (!m_conversion.has(FORMAT_SHORT | FORMAT_LONG | FORMAT_WIDE)) m_conversion.set(FORMAT_WIDE);
}

// Output.

void FORMATTER::set_sign_prefix() {
  if (m_conversion.has(FORMAT_NEGATIVE))
    m_conversion.prefix = "-";
  else if (m_conversion.has(FORMAT_SIGN))
    m_conversion.prefix = "+";
  else if (m_conversion.has(FORMAT_SIGN_SPACE))
    m_conversion.prefix = " ";
}

void FORMATTER::put_conversion() {
  if (m_conversion.has(FORMAT_SIGNED)) set_sign_prefix();
  const std::int64_t padding = m_conversion.padding();
  const bool left = m_conversion.has(FORMAT_LEFT);
  const bool lead_zero = m_conversion.has(FORMAT_LEAD_ZERO);
  if (!left && !lead_zero) m_stage.put_repeated(' ', padding);
  m_stage.put(m_conversion.prefix);
  if (lead_zero && !left) m_stage.put_repeated('0', padding);
  m_stage.put_repeated('0', m_conversion.zeros);
  m_stage.put(m_conversion.narrow);
  put_wide_text();
  if (left) m_stage.put_repeated(' ', padding);
}

void FORMATTER::put_wide_text() {
  for (const wchar_t c : m_conversion.wide) {
    const int length = multi_byte_form(c, m_buffer);
    if (length < 0) return;
    m_stage.put({m_buffer.data(), static_cast<std::size_t>(length)});
  }
}

}  // namespace

int stl_output(std::string* out, const char* format, va_list args) {
  if (*format == '\0') return 0;
  return FORMATTER(*out, args).run(format);
}
