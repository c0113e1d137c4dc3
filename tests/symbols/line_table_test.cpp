// Line tables of every version, written here by whatever means there are, against a plain model.
#include "tools/symbols/core/line_table.h"

#include <dwarf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>

namespace {

using symbols::LINE_TABLE;
using RANDOM = std::independent_bits_engine<std::mt19937, 32, std::uint32_t>;

template <class VALUE>
std::string word(VALUE value) {
  return {reinterpret_cast<char const*>(&value), sizeof value};
}

std::string byte(int value) { return std::string(1, static_cast<char>(value)); }

// As long as it is asked to be: linkers pad.
std::string uleb(std::uint64_t value, std::size_t size = 1) {
  std::string text;
  for (; value >= 0x80 || text.size() + 1 < size; value >>= 7)
    text += byte(static_cast<int>(value & 0x7f) | 0x80);
  return text + byte(static_cast<int>(value));
}

std::string sleb(std::int64_t value) {
  std::string text;
  for (; value < -0x40 || value >= 0x40; value >>= 7)
    text += byte(static_cast<int>(value & 0x7f) | 0x80);
  return text + byte(static_cast<int>(value & 0x7f));
}

std::string text(const std::string& name) { return name + '\0'; }

constexpr int line_base = -3, line_range = 12, opcode_base = 14;

struct FORM {
  int version;
  bool is_64_bit;
  unsigned instruction_size;
};

std::string line_table(const FORM& form, const std::string& names, const std::string& program) {
  const auto sized = [&](const std::string& bytes, bool with_mark) {
    if (!form.is_64_bit) return word(static_cast<std::uint32_t>(bytes.size())) + bytes;
    return (with_mark ? word(UINT32_MAX) : "") + word(std::uint64_t{bytes.size()}) + bytes;
  };
  std::string head = byte(static_cast<int>(form.instruction_size));
  if (form.version >= 4) head += byte(1);
  head += byte(1) + byte(line_base) + byte(line_range) + byte(opcode_base);
  for (const int operands : {0, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0, 1, 2}) head += byte(operands);
  return sized(word(static_cast<std::uint16_t>(form.version)) +
                   (form.version == 5 ? byte(8) + byte(0) : "") + sized(head + names, false) +
                   program,
               true);
}

struct ROW {
  std::uint64_t address;
  std::uint32_t line;
  std::uint32_t file;
};

// Rows in the order in which a compiler wrote them; the end is behind all of them.
struct SEQUENCE {
  std::vector<ROW> rows;
  std::uint64_t end;
};

class WRITER {
 public:
  WRITER(RANDOM& random, const FORM& form) : m_random(random), m_form(form) {}

  std::string program_of(const SEQUENCE& sequence) {
    m_row = {0, 1, 1};
    std::string program;
    for (const ROW& row : sequence.rows) {
      if (row.file != m_row.file) program += byte(DW_LNS_set_file) + uleb(row.file);
      program += nothing_of_interest() + to_address(row.address) + with_line(row);
      m_row = row;
    }
    return program + to_address(sequence.end) + extended(byte(DW_LNE_end_sequence));
  }

 private:
  static std::string extended(const std::string& operands) {
    return byte(0) + uleb(operands.size(), operands.size() % 3) + operands;
  }

  std::string nothing_of_interest() {
    switch (m_random() % 8) {
      case 0:
        return byte(DW_LNS_negate_stmt) + byte(DW_LNS_set_basic_block);
      case 1:
        return byte(DW_LNS_set_column) + uleb(m_random());
      case 2:
        return extended(byte(DW_LNE_set_discriminator) + uleb(m_random()));
      case 3:
        return byte(opcode_base - 1) + uleb(m_random()) + uleb(7);  // unknown, of two operands
      default:
        return {};
    }
  }

  std::string to_address(std::uint64_t address) {
    if (address == m_row.address) return {};
    const std::uint64_t step = address - m_row.address;
    constexpr std::uint64_t const_add = (255 - opcode_base) / line_range;
    switch (m_row.address == 0 || address < m_row.address ? 9 : m_random() % 4) {
      case 0:
        if (step < 0x10000)
          return byte(DW_LNS_fixed_advance_pc) + word(static_cast<std::uint16_t>(step));
        [[fallthrough]];
      case 1:
        if (step % m_form.instruction_size == 0)
          return byte(DW_LNS_advance_pc) + uleb(step / m_form.instruction_size);
        [[fallthrough]];
      case 2:
        if (step == const_add * m_form.instruction_size) return byte(DW_LNS_const_add_pc);
        [[fallthrough]];
      default:
        return extended(byte(DW_LNE_set_address) + word(address));
    }
  }

  std::string with_line(const ROW& row) {
    const std::int64_t step = std::int64_t{row.line} - m_row.line;
    if (step >= line_base && step < line_base + line_range && m_random() % 2 == 0)
      return byte(opcode_base + static_cast<int>(step) - line_base);
    return byte(DW_LNS_advance_line) + sleb(step) + byte(DW_LNS_copy);
  }

  RANDOM& m_random;
  const FORM& m_form;
  ROW m_row{};
};

// The last row at or before the address, of the sequence that begins last among those around it.
std::optional<ROW> row_at(const std::vector<SEQUENCE>& sequences, std::uint64_t address) {
  std::optional<ROW> found;
  std::uint64_t low = 0;
  for (const SEQUENCE& sequence : sequences) {
    std::vector<ROW> rows = sequence.rows;
    std::stable_sort(rows.begin(), rows.end(),
                     [](const ROW& a, const ROW& b) { return a.address < b.address; });
    const std::uint64_t begin = rows.front().address;
    if (begin == 0 || address < begin || address >= sequence.end || begin < low) continue;
    low = begin;
    for (const ROW& row : rows)
      if (row.address <= address) found = row;
  }
  return found;
}

TEST(LineTable, HasTheRowsThatWereWritten) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  RANDOM random(seed);
  for (int round = 0; round < 600; ++round) {
    const FORM form{2 + round % 4, round % 3 == 0, round % 5 == 0 ? 4U : 1U};
    WRITER writer(random, form);
    std::vector<SEQUENCE> sequences;
    std::string program;
    for (unsigned count = random() % 6; count > 0; --count) {
      // Some of what the linker has thrown away, at 0; some lie in others.
      std::uint64_t address = random() % 5 == 0 ? 0 : 1 + random() % 400;
      std::uint32_t line = 1 + random() % 90000;
      SEQUENCE& sequence = sequences.emplace_back();
      for (unsigned rows = 1 + random() % 12; rows > 0; --rows) {
        sequence.rows.push_back({address, line, static_cast<std::uint32_t>(1 + random() % 3)});
        address += random() % 4 == 0 ? 20 * form.instruction_size : random() % 30;
        line = random() % 4 == 0 ? 1 + random() % 90000 : line + random() % 9;
      }
      if (random() % 4 == 0 && sequence.rows.front().address != 0)
        std::swap(sequence.rows.front(), sequence.rows.back());
      sequence.end = address + 1;
      program += writer.program_of(sequence);
    }
    const std::string names = form.version == 5 ? std::string(4, '\0') : std::string(2, '\0');
    const std::string before(random() % 3, 'x');  // of another table
    const std::string lines = before + line_table(form, names, program);
    const LINE_TABLE table({lines, {}, {}}, before.size(), "");
    for (std::uint64_t address = 0; address < 900; ++address) {
      const auto expected = row_at(sequences, address);
      const LINE_TABLE::ROW* const found = table.find(address);
      ASSERT_EQ(found != nullptr, expected.has_value()) << address << " in round " << round;
      if (!expected) continue;
      ASSERT_EQ(std::tie(found->address, found->line, found->file),
                std::tie(expected->address, expected->line, expected->file))
          << address << " in round " << round;
    }
    // One that is cut gives what it gives; nothing is read behind it.
    const std::string cut(lines.data(),
                          lines.size() - 1 - random() % (lines.size() - before.size()));
    LINE_TABLE({cut, {}, {}}, before.size(), "").find(5);
  }
}

std::string field(int content, int form) {
  return uleb(static_cast<unsigned>(content)) + uleb(static_cast<unsigned>(form));
}

TEST(LineTable, TellsWholePathsAsFarAsItKnowsThem) {
  using namespace std::string_literals;
  const std::string line_strings = "?\0line dir\0/line/file\0"s, strings = "??\0str"s;
  const std::string old_names = text("rel") + text("/abs") + text("") + text("a.c") + uleb(0) +
                                uleb(9, 4) + uleb(300) + text("b.c") + uleb(1) + uleb(0) + uleb(0) +
                                text("c.c") + uleb(2) + uleb(0) + uleb(0) + text("/d.c") + uleb(1) +
                                uleb(0) + uleb(0) + text("e.c") + uleb(8) + uleb(0) + uleb(0) +
                                text("");
  const std::string defined =
      byte(0) + uleb(8) + byte(DW_LNE_define_file) + text("f.c") + uleb(2) + uleb(0) + uleb(0);
  const std::vector<std::string> old_files = {"",     "/cwd/a.c", "/cwd/rel/b.c", "/abs/c.c",
                                              "/d.c", "/cwd/e.c", "/abs/f.c",     ""};
  for (const int version : {2, 3, 4})
    for (const bool is_64_bit : {false, true}) {
      const std::string lines = line_table({version, is_64_bit, 1}, old_names, defined);
      const LINE_TABLE table({lines, {}, {}}, 0, "/cwd");
      for (std::uint64_t file = 0; file < old_files.size(); ++file)
        EXPECT_EQ(table.file_name(file), old_files[file]) << version << " " << file;
      EXPECT_EQ(LINE_TABLE({lines, {}, {}}, 0, "").file_name(2), "rel/b.c");
    }
  for (const bool is_64_bit : {false, true}) {
    const auto at = [&](std::uint32_t offset) {
      return is_64_bit ? word(std::uint64_t{offset}) : word(offset);
    };
    std::string names = byte(1) + field(DW_LNCT_path, DW_FORM_line_strp) + uleb(3);
    for (const std::uint32_t directory : {2, 11, 99}) names.append(at(directory));
    names.append(byte(4))
        .append(field(DW_LNCT_path, DW_FORM_strp))
        .append(field(DW_LNCT_MD5, DW_FORM_data16))
        .append(field(DW_LNCT_directory_index, DW_FORM_data2))
        .append(field(DW_LNCT_size, DW_FORM_block))
        .append(uleb(3));
    for (const auto& [name, directory, block] :
         {std::tuple(0U, 0, "abc"), std::tuple(1U, 1, ""), std::tuple(4U, 7, "")})
      names.append(at(name))
          .append(16, 'm')
          .append(word(static_cast<std::uint16_t>(directory)))
          .append(uleb(std::strlen(block)))
          .append(block);
    const std::string lines = line_table({5, is_64_bit, 1}, names, "");
    const LINE_TABLE table({lines, line_strings, strings}, 0, "/cwd");
    EXPECT_EQ(table.file_name(0), "/cwd/line dir/??");
    EXPECT_EQ(table.file_name(1), "/line/file/?");
    EXPECT_EQ(table.file_name(2), "/cwd/") << "a name without an end is none";
    EXPECT_EQ(table.file_name(3), "");
  }
}

}  // namespace
