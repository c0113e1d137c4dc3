#include "mem/unwind/cfi_entry.h"

#include <dlfcn.h>

#include <cstddef>

#include "mem/modules/readable_memory.h"

// The tables are those of the Linux Standard Base (.eh_frame_hdr and .eh_frame).
namespace {

// How a pointer is written: a format in the low four bits, what it is relative to above.
constexpr unsigned char format_mask = 0x0F;
constexpr unsigned char is_relative_to_itself = 0x10;
constexpr unsigned char aligned_pointer = 0x50;
constexpr unsigned char table_of_offsets = 0x3B;  // relative to the header, signed 32 bits

// Bytes that a pointer of this format takes; 0 for one that is not written with a fixed size, or
// only at an aligned place.
std::size_t size_of(unsigned char encoding) {
  if (encoding == aligned_pointer) return 0;
  switch (encoding & format_mask) {
    case 0x00:  // native
    case 0x04:  // unsigned 64 bits
    case 0x0C:  // signed 64 bits
      return 8;
    case 0x03:  // unsigned 32 bits
    case 0x0B:  // signed 32 bits
      return 4;
    default:
      return 0;
  }
}

std::uint64_t take_number(MEM_CFI_READER& reader, unsigned char encoding) {
  if (size_of(encoding) == 8) return reader.take<std::uint64_t>();
  const bool is_signed = (encoding & 0x08) != 0;
  return is_signed ? static_cast<std::uint64_t>(reader.take<std::int32_t>())
                   : reader.take<std::uint32_t>();
}

// False at a letter that is not known here.
bool read_augmentation(MEM_CFI_READER& letters, MEM_CFI_READER& data, MEM_CFI_COMMON& common) {
  while (const auto letter = letters.take<char>()) {
    switch (letter) {
      case 'R':
        common.pointer_encoding = data.take<unsigned char>();
        break;
      case 'P': {
        const std::size_t size = size_of(data.take<unsigned char>());
        if (size == 0) return false;
        data.skip(size);
        break;
      }
      case 'L':
        data.skip(1);
        break;
      case 'S':
        common.is_signal_frame = true;
        break;
      default:
        return false;
    }
  }
  return !letters.has_failed() && !data.has_failed();
}

// The text up to its zero byte, which the reader then stands behind.
MEM_CFI_READER take_text(MEM_CFI_READER& reader) {
  MEM_CFI_READER to_zero = reader;
  while (to_zero.take<char>() != '\0') {
  }
  return reader.take_stretch(static_cast<std::uint64_t>(to_zero.at() - reader.at()));
}

// A longer one is a damaged one.
constexpr std::uint32_t longest_entry = 1U << 20;

// An entry without its length, which comes first.
MEM_CFI_READER entry_at(MEM_CFI_MEMORY& memory, std::uintptr_t address) {
  const auto length = memory.read(address, sizeof(std::uint32_t)).take<std::uint32_t>();
  if (length == 0 || length > longest_entry) return MEM_CFI_READER::failed();
  return memory.read(address + sizeof(std::uint32_t), length);
}

bool read_common(MEM_CFI_READER reader, MEM_CFI_COMMON& common) {
  if (reader.take<std::uint32_t>() != 0) return false;
  const auto version = reader.take<unsigned char>();
  if (version != 1 && version != 3) return false;
  MEM_CFI_READER augmentation = take_text(reader);
  common.code_alignment = reader.take_uleb128();
  common.data_alignment = reader.take_sleb128();
  const std::uint64_t column = version == 1 ? reader.take<unsigned char>() : reader.take_uleb128();
  if (reader.has_failed() || column != mem_return_address_column) return false;
  const auto first_letter = augmentation.take<char>();
  common.has_augmentation_size = first_letter == 'z';
  MEM_CFI_READER data;
  if (common.has_augmentation_size) data = reader.take_stretch(reader.take_uleb128());
  common.instructions = reader;
  return first_letter == '\0' ||
         (common.has_augmentation_size && read_augmentation(augmentation, data, common));
}

bool read_description(MEM_CFI_MEMORY& memory, std::uintptr_t entry, std::uint64_t pc,
                      MEM_CFI_DESCRIPTION& description) {
  MEM_CFI_READER reader = entry_at(memory, entry);
  const std::uintptr_t link = entry + sizeof(std::uint32_t);
  const auto distance = reader.take<std::uint32_t>();
  if (distance == 0 || !read_common(entry_at(memory, link - distance), description.common))
    return false;
  const unsigned char encoding = description.common.pointer_encoding;
  if (size_of(encoding) == 0 || (encoding & 0xE0) != 0) return false;
  const auto position = reinterpret_cast<std::uint64_t>(reader.at());
  description.function = take_number(reader, encoding);
  if ((encoding & is_relative_to_itself) != 0) description.function += position;
  const std::uint64_t size = take_number(reader, encoding & format_mask);
  if (description.common.has_augmentation_size) reader.skip(reader.take_uleb128());
  description.instructions = reader;
  return !reader.has_failed() && pc - description.function < size;
}

// The description of the last function that begins at `pc` or before, by the sorted table behind
// the header. 0 when there is no such table.
std::uintptr_t find_description(MEM_CFI_MEMORY& memory, std::uint64_t pc) {
  struct HEADER {
    unsigned char version;
    unsigned char section_encoding;
    unsigned char count_encoding;
    unsigned char table_encoding;
  };
  struct ROW {
    std::int32_t function;
    std::int32_t description;
  };
  const std::uintptr_t base = memory.header();
  const auto header = memory.read(base, sizeof(HEADER)).take<HEADER>();
  if (header.version != 1 || header.count_encoding != 0x03 ||
      header.table_encoding != table_of_offsets)
    return 0;
  const std::uintptr_t count_at = base + sizeof(HEADER) + size_of(header.section_encoding);
  const auto count = memory.read(count_at, sizeof(std::uint32_t)).take<std::uint32_t>();
  const auto row = [&, table = count_at + sizeof(std::uint32_t)](std::size_t index) {
    return memory.read(table + index * sizeof(ROW), sizeof(ROW)).take<ROW>();
  };
  const auto wanted = static_cast<std::int64_t>(pc - base);
  std::size_t first = 0;  // among rows [first, last) is the one after the wanted
  std::size_t last = count;
  while (first < last) {
    const std::size_t middle = first + (last - first) / 2;
    if (row(middle).function <= wanted)
      first = middle + 1;
    else
      last = middle;
  }
  return first == 0 ? 0 : base + static_cast<std::uintptr_t>(row(first - 1).description);
}

}  // namespace

MEM_CFI_READER MEM_CFI_MEMORY::read(std::uintptr_t at, std::uint64_t bytes) {
  if (at < m_begin || at > m_end || bytes > m_end - at) return MEM_CFI_READER::failed();
  const bool is_known =
      mem_page_of(at) == m_readable_page && mem_page_of(at + bytes) == m_readable_page;
  if (!is_known && !mem_is_readable(at, bytes)) return MEM_CFI_READER::failed();
  m_readable_page = mem_page_of(at);
  auto const* const begin = reinterpret_cast<unsigned char const*>(at);
  return {begin, begin + bytes};
}

bool MEM_CFI_DESCRIPTION::find_in(MEM_CFI_MEMORY memory, std::uint64_t pc) {
  const std::uintptr_t entry = find_description(memory, pc);
  return entry != 0 && read_description(memory, entry, pc, *this);
}

bool MEM_CFI_DESCRIPTION::find(std::uint64_t pc) {
  dl_find_object module;
  if (_dl_find_object(reinterpret_cast<void*>(pc), &module) != 0) return false;
  const auto address = [](void const* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer);
  };
  return module.dlfo_eh_frame != nullptr &&
         find_in({address(module.dlfo_map_start), address(module.dlfo_map_end),
                  address(module.dlfo_eh_frame)},
                 pc);
}
