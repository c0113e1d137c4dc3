#include "tools/symbols/core/line_table.h"

#include <dwarf.h>

#include <algorithm>
#include <iterator>

#include "tools/symbols/core/byte_reader.h"

namespace symbols {

struct LINE_TABLE::HEADER {
  std::uint16_t version = 0;
  std::size_t offset_size = 4;
  std::uint8_t instruction_size = 1;
  std::uint32_t line_base = 0;  // signed; added as what it is modulo the numbers there are
  std::uint8_t line_range = 0;
  std::uint8_t opcode_base = 0;
  std::string_view operand_counts;
  std::string_view program;
};

namespace {

constexpr std::size_t usual_bytes_of_row = 4;  // of a program

std::string_view string_at(std::string_view section, std::uint64_t offset) {
  if (offset >= section.size()) return {};
  return BYTE_READER(section.substr(offset)).take_string();
}

// One field of a directory or file, of version 5.
struct FIELD {
  std::uint64_t content;
  std::uint64_t form;
};

struct VALUE {
  std::string_view text;
  std::uint64_t number = 0;
};

VALUE take_value(BYTE_READER& reader, std::uint64_t form, const LINE_SECTIONS& sections,
                 std::size_t offset_size) {
  switch (form) {
    case DW_FORM_string:
      return {.text = reader.take_string()};
    case DW_FORM_line_strp:
      return {.text = string_at(sections.line_strings, reader.take_unsigned(offset_size))};
    case DW_FORM_strp:
      return {.text = string_at(sections.strings, reader.take_unsigned(offset_size))};
    case DW_FORM_udata:
      return {.text = {}, .number = reader.take_uleb()};
    case DW_FORM_data1:
      return {.text = {}, .number = reader.take_unsigned(1)};
    case DW_FORM_data2:
      return {.text = {}, .number = reader.take_unsigned(2)};
    case DW_FORM_data4:
      return {.text = {}, .number = reader.take_unsigned(4)};
    case DW_FORM_data8:
      return {.text = {}, .number = reader.take_unsigned(8)};
    case DW_FORM_data16:
      return {.text = reader.take_bytes(16)};
    case DW_FORM_block:
      return {.text = reader.take_bytes(reader.take_uleb())};
    default:
      reader.take_bytes(reader.left() + 1);  // its size is not known: fails
      return {};
  }
}

std::vector<FIELD> take_fields(BYTE_READER& reader) {
  std::vector<FIELD> fields(reader.take<std::uint8_t>());
  for (FIELD& field : fields) {
    field.content = reader.take_uleb();
    field.form = reader.take_uleb();
  }
  return fields;
}

bool is_absolute(std::string_view path) { return path.starts_with('/'); }

}  // namespace

// The rows that a table's program makes.
class LINE_TABLE::PROGRAM {
 public:
  PROGRAM(LINE_TABLE& table, const HEADER& header) : m_table(table), m_header(header) {}

  void run() {
    BYTE_READER reader(m_header.program);
    m_table.m_rows.reserve(m_header.program.size() / usual_bytes_of_row);
    while (!reader.at_end()) step(reader);
  }

 private:
  void step(BYTE_READER& reader) {
    const auto opcode = reader.take<std::uint8_t>();
    if (opcode >= m_header.opcode_base) {
      const int special = opcode - m_header.opcode_base;
      advance(static_cast<unsigned>(special / m_header.line_range));
      m_line += m_header.line_base + static_cast<std::uint32_t>(special % m_header.line_range);
      add_row();
    } else if (opcode == 0) {
      extended_step(reader);
    } else {
      standard_step(opcode, reader);
    }
  }

  void standard_step(std::uint8_t opcode, BYTE_READER& reader) {
    switch (opcode) {
      case DW_LNS_copy:
        return add_row();
      case DW_LNS_advance_pc:
        return advance(reader.take_uleb());
      case DW_LNS_advance_line:
        m_line += static_cast<std::uint32_t>(reader.take_sleb());
        return;
      case DW_LNS_set_file:
        m_file = static_cast<std::uint32_t>(reader.take_uleb());
        return;
      case DW_LNS_const_add_pc:
        return advance((255U - m_header.opcode_base) / m_header.line_range);
      case DW_LNS_fixed_advance_pc:
        m_address += reader.take<std::uint16_t>();
        return;
      default:
        for (auto i = static_cast<unsigned char>(m_header.operand_counts[opcode - 1U]); i > 0; --i)
          reader.take_uleb();
    }
  }

  void extended_step(BYTE_READER& reader) {
    BYTE_READER operands(reader.take_bytes(reader.take_uleb()));
    switch (operands.take<std::uint8_t>()) {
      case DW_LNE_end_sequence:
        m_table.add_sequence(m_first, m_address);
        *this = PROGRAM(m_table, m_header);
        return;
      case DW_LNE_set_address:
        m_address = operands.take_unsigned(operands.left());
        return;
      case DW_LNE_define_file: {
        const std::string_view name = operands.take_string();
        m_table.m_files.push_back({.name = name, .directory = operands.take_uleb()});
        return;
      }
      default:
        return;
    }
  }

  void advance(std::uint64_t operations) { m_address += operations * m_header.instruction_size; }
  void add_row() { m_table.m_rows.push_back({m_address, m_line, m_file}); }

  PROGRAM& operator=(const PROGRAM& other) {
    m_address = other.m_address;
    m_line = other.m_line;
    m_file = other.m_file;
    m_first = other.m_first;
    return *this;
  }

  LINE_TABLE& m_table;
  const HEADER& m_header;
  std::uint64_t m_address = 0;
  std::uint32_t m_line = 1;
  std::uint32_t m_file = 1;
  std::uint32_t m_first = static_cast<std::uint32_t>(m_table.m_rows.size());
};

LINE_TABLE::LINE_TABLE(const LINE_SECTIONS& sections, std::uint64_t offset, std::string directory)
    : m_directory(std::move(directory)) {
  if (offset >= sections.lines.size()) return;
  BYTE_READER reader(sections.lines.substr(offset));
  HEADER header;
  if (!read_header(reader, sections, header)) return;
  PROGRAM(*this, header).run();
  finish();
}

bool LINE_TABLE::read_header(BYTE_READER& reader, const LINE_SECTIONS& sections, HEADER& header) {
  std::uint64_t size = reader.take<std::uint32_t>();
  if (size == UINT32_MAX) {
    size = reader.take<std::uint64_t>();
    header.offset_size = 8;
  }
  BYTE_READER table(reader.take_bytes(size));
  header.version = table.take<std::uint16_t>();
  if (header.version < 2 || header.version > 5) return false;
  if (header.version == 5) table.take_bytes(2);  // sizes of an address and a segment
  BYTE_READER rest(table.take_bytes(table.take_unsigned(header.offset_size)));
  header.program = table.take_bytes(table.left());
  header.instruction_size = rest.take<std::uint8_t>();
  if (header.version >= 4) rest.take_bytes(1);  // operations an instruction
  rest.take_bytes(1);                           // whether rows are statements
  header.line_base = static_cast<std::uint32_t>(std::int32_t{rest.take<std::int8_t>()});
  header.line_range = rest.take<std::uint8_t>();
  header.opcode_base = rest.take<std::uint8_t>();
  if (header.line_range == 0 || header.opcode_base == 0) return false;
  header.operand_counts = rest.take_bytes(header.opcode_base - 1U);
  if (rest.failed() || table.failed()) return false;
  m_counts_from_zero = header.version == 5;
  if (header.version == 5) {
    read_names(rest, sections, header);
  } else {
    read_old_names(rest);
  }
  return true;
}

void LINE_TABLE::read_old_names(BYTE_READER& reader) {
  while (!reader.failed()) {
    const std::string_view directory = reader.take_string();
    if (directory.empty()) break;
    m_directories.push_back(directory);
  }
  while (!reader.failed()) {
    const std::string_view name = reader.take_string();
    if (name.empty()) break;
    m_files.push_back({.name = name, .directory = reader.take_uleb()});
    reader.take_uleb();  // time
    reader.take_uleb();  // size
  }
}

void LINE_TABLE::read_names(BYTE_READER& reader, const LINE_SECTIONS& sections,
                            const HEADER& header) {
  const auto take_entries = [&](const auto& add) {
    const std::vector<FIELD> fields = take_fields(reader);
    std::uint64_t count = reader.take_uleb();
    if (fields.empty()) return;  // entries without a byte would have no end
    for (; count > 0 && !reader.failed(); --count) {
      SOURCE_FILE entry{};
      for (const FIELD& field : fields) {
        const VALUE value = take_value(reader, field.form, sections, header.offset_size);
        if (field.content == DW_LNCT_path) entry.name = value.text;
        if (field.content == DW_LNCT_directory_index) entry.directory = value.number;
      }
      if (!reader.failed()) add(entry);
    }
  };
  take_entries([&](const SOURCE_FILE& entry) { m_directories.push_back(entry.name); });
  take_entries([&](const SOURCE_FILE& entry) { m_files.push_back(entry); });
}

void LINE_TABLE::add_sequence(std::uint32_t first, std::uint64_t end_address) {
  const auto begin = m_rows.begin() + first;
  const auto is_before = [](const ROW& a, const ROW& b) { return a.address < b.address; };
  if (!std::is_sorted(begin, m_rows.end(), is_before))
    std::stable_sort(begin, m_rows.end(), is_before);
  // What the linker has thrown away lies at 0.
  if (begin == m_rows.end() || begin->address == 0 || begin->address >= end_address) {
    m_rows.erase(begin, m_rows.end());
    return;
  }
  m_sequences.push_back({.low = begin->address,
                         .high = end_address,
                         .highest_so_far = 0,
                         .first = first,
                         .end = static_cast<std::uint32_t>(m_rows.size())});
}

void LINE_TABLE::finish() {
  std::stable_sort(m_sequences.begin(), m_sequences.end(),
                   [](const SEQUENCE& a, const SEQUENCE& b) { return a.low < b.low; });
  std::uint64_t highest = 0;
  for (SEQUENCE& sequence : m_sequences)
    sequence.highest_so_far = highest = std::max(highest, sequence.high);
}

const LINE_TABLE::ROW* LINE_TABLE::find(std::uint64_t address) const {
  auto sequence =
      std::partition_point(m_sequences.begin(), m_sequences.end(),
                           [&](const SEQUENCE& candidate) { return candidate.low <= address; });
  while (sequence != m_sequences.begin()) {
    --sequence;
    if (sequence->high > address) {
      const auto behind =
          std::partition_point(m_rows.begin() + sequence->first, m_rows.begin() + sequence->end,
                               [&](const ROW& row) { return row.address <= address; });
      return &*std::prev(behind);
    }
    if (sequence->highest_so_far <= address) break;
  }
  return nullptr;
}

std::string LINE_TABLE::file_name(std::uint64_t number) const {
  const std::uint64_t index = m_counts_from_zero ? number : number - 1;
  if (index >= m_files.size()) return {};
  const SOURCE_FILE& file = m_files[index];
  if (is_absolute(file.name)) return std::string(file.name);
  const std::uint64_t at = m_counts_from_zero ? file.directory : file.directory - 1;
  const std::string_view directory =
      at < m_directories.size() ? m_directories[at] : std::string_view();
  std::string path;
  if (!is_absolute(directory) && !m_directory.empty()) path = m_directory + "/";
  if (!directory.empty()) path.append(directory).append("/");
  return path.append(file.name);
}

std::size_t LINE_TABLE::bytes() const {
  return m_rows.size() * sizeof(ROW) + m_sequences.capacity() * sizeof(SEQUENCE) +
         m_files.capacity() * sizeof(SOURCE_FILE) +
         m_directories.capacity() * sizeof(std::string_view);
}

}  // namespace symbols
