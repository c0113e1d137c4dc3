#include "mem/unwind/cfi_entry.h"

#include <dlfcn.h>

#include <cstddef>
#include <cstring>

#include "mem/unwind/cfi_reader.h"

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

bool read_augmentation(MEM_CFI_READER& reader, char const* augmentation, MEM_CFI_COMMON& common) {
  for (; *augmentation != '\0'; ++augmentation) {
    switch (*augmentation) {
      case 'R':
        common.pointer_encoding = reader.take<unsigned char>();
        break;
      case 'P': {
        const std::size_t size = size_of(reader.take<unsigned char>());
        if (size == 0) return false;
        reader.skip(size);
        break;
      }
      case 'L':
        reader.skip(1);
        break;
      default:  // 'S' among them: a signal frame
        return false;
    }
  }
  return true;
}

bool read_common(unsigned char const* entry, MEM_CFI_COMMON& common) {
  MEM_CFI_READER reader(entry);
  const auto length = reader.take<std::uint32_t>();
  common.end = reader.at() + length;
  if (length == 0 || length == 0xFFFFFFFF || reader.take<std::uint32_t>() != 0) return false;
  const auto version = reader.take<unsigned char>();
  auto const* augmentation = reinterpret_cast<char const*>(reader.at());
  reader.skip(std::strlen(augmentation) + 1);
  if (version != 1 && version != 3) return false;
  common.code_alignment = reader.take_uleb128();
  common.data_alignment = reader.take_sleb128();
  const std::uint64_t column = version == 1 ? reader.take<unsigned char>() : reader.take_uleb128();
  if (column != mem_return_address_column) return false;
  common.has_augmentation_size = *augmentation == 'z';
  if (!common.has_augmentation_size) {
    common.begin = reader.at();
    return *augmentation == '\0';
  }
  const std::uint64_t size = reader.take_uleb128();
  common.begin = reader.at() + size;
  return read_augmentation(reader, augmentation + 1, common);
}

bool read_description(unsigned char const* entry, std::uint64_t pc,
                      MEM_CFI_DESCRIPTION& description) {
  MEM_CFI_READER reader(entry);
  const auto length = reader.take<std::uint32_t>();
  if (length == 0 || length == 0xFFFFFFFF) return false;
  description.end = reader.at() + length;
  unsigned char const* const link = reader.at();
  const auto distance = reader.take<std::uint32_t>();
  if (distance == 0 || !read_common(link - distance, description.common)) return false;
  const unsigned char encoding = description.common.pointer_encoding;
  if (size_of(encoding) == 0 || (encoding & 0xE0) != 0) return false;
  const auto position = reinterpret_cast<std::uint64_t>(reader.at());
  description.function = take_number(reader, encoding);
  if ((encoding & is_relative_to_itself) != 0) description.function += position;
  const std::uint64_t size = take_number(reader, encoding & format_mask);
  if (description.common.has_augmentation_size) {
    const std::uint64_t augmentation_size = reader.take_uleb128();
    reader.skip(augmentation_size);
  }
  description.begin = reader.at();
  return pc - description.function < size;
}

// The description of the last function that begins at `pc` or before, by the sorted table behind
// the header. Null when there is no such table.
unsigned char const* find_description(std::uint64_t pc) {
  struct ROW {
    std::int32_t function;
    std::int32_t description;
  };
  dl_find_object object;
  if (_dl_find_object(reinterpret_cast<void*>(pc), &object) != 0) return nullptr;
  auto const* const header = static_cast<unsigned char const*>(object.dlfo_eh_frame);
  if (header == nullptr || header[0] != 1 || header[2] != 0x03 || header[3] != table_of_offsets)
    return nullptr;
  MEM_CFI_READER reader(header + 4);
  reader.skip(size_of(header[1]));
  const auto count = reader.take<std::uint32_t>();
  const auto row = [table = reader.at()](std::size_t index) {
    return MEM_CFI_READER(table + index * sizeof(ROW)).take<ROW>();
  };
  const auto wanted = static_cast<std::int64_t>(pc - reinterpret_cast<std::uint64_t>(header));
  std::size_t first = 0;  // among rows [first, last) is the one after the wanted
  std::size_t last = count;
  while (first < last) {
    const std::size_t middle = first + (last - first) / 2;
    if (row(middle).function <= wanted)
      first = middle + 1;
    else
      last = middle;
  }
  return first == 0 ? nullptr : header + row(first - 1).description;
}

}  // namespace

bool MEM_CFI_DESCRIPTION::find(std::uint64_t pc) {
  unsigned char const* const entry = find_description(pc);
  return entry != nullptr && read_description(entry, pc, *this);
}
