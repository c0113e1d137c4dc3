#include "tools/symbols/core/unnamed_functions.h"

#include <gelf.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "tools/symbols/core/byte_reader.h"
#include "tools/symbols/core/symbol_table.h"

namespace symbols {

namespace {

// A stripped executable may still export a few functions.
constexpr std::uint64_t least_part_described = 16;

template <class VISITOR>
void for_each_section(Dwfl_Module* module, VISITOR&& visit) {
  GElf_Addr bias = 0;
  Elf* const file = dwfl_module_getelf(module, &bias);
  std::size_t names = 0;
  if (file == nullptr || elf_getshdrstrndx(file, &names) != 0) return;
  for (Elf_Scn* section = nullptr; (section = elf_nextscn(file, section)) != nullptr;) {
    GElf_Shdr header;
    if (gelf_getshdr(section, &header) == nullptr) continue;
    header.sh_addr += bias;
    char const* const name = elf_strptr(file, names, header.sh_name);
    visit(section, header, name == nullptr ? "" : name);
  }
}

// The beginnings that .eh_frame_hdr lists for its search, in the one form that linkers write.
std::vector<std::uint64_t> beginnings_of_functions(Dwfl_Module* module) {
  constexpr std::uint32_t usual_form = 0x3b031b01;  // version 1; relative words of 4 bytes
  std::vector<std::uint64_t> beginnings;
  for_each_section(module, [&](Elf_Scn* section, const GElf_Shdr& header, char const* name) {
    if (std::strcmp(name, ".eh_frame_hdr") != 0) return;
    Elf_Data const* const data = elf_rawdata(section, nullptr);
    if (data == nullptr || data->d_buf == nullptr) return;
    BYTE_READER bytes({static_cast<char const*>(data->d_buf), data->d_size});
    if (bytes.take<std::uint32_t>() != usual_form) return;
    bytes.take<std::int32_t>();  // where .eh_frame is
    const auto count = bytes.take<std::uint32_t>();
    for (std::uint32_t i = 0; i < count && !bytes.at_end(); ++i) {
      beginnings.push_back(header.sh_addr + static_cast<std::uint64_t>(bytes.take<std::int32_t>()));
      bytes.take<std::int32_t>();  // its entry
    }
  });
  std::sort(beginnings.begin(), beginnings.end());
  return beginnings;
}

}  // namespace

UNNAMED_FUNCTIONS::UNNAMED_FUNCTIONS(Dwfl_Module* module, const std::string& path,
                                     const SYMBOL_TABLE& symbols)
    : m_file(path.substr(path.rfind('/') + 1)) {
  std::uint64_t bytes = 0;
  for_each_section(module, [&](Elf_Scn*, const GElf_Shdr& header, char const*) {
    if ((header.sh_flags & SHF_EXECINSTR) == 0) return;
    m_code.push_back({header.sh_addr, header.sh_size});
    bytes += header.sh_size;
  });
  m_is_stripped = symbols.described_bytes() < bytes / least_part_described;
  if (m_is_stripped) m_beginnings = beginnings_of_functions(module);
}

std::string UNNAMED_FUNCTIONS::name_at(std::uint64_t address) const {
  const bool is_code = std::any_of(m_code.begin(), m_code.end(), [&](const SECTION& section) {
    return address - section.begin < section.size;
  });
  if (!m_is_stripped || !is_code) return {};
  std::array<char, 32> place;
  std::snprintf(place.data(), place.size(), "+0x%llx",
                static_cast<unsigned long long>(beginning_of(address)));
  return m_file + place.data();
}

// As the table for unwinding tells it, which no program is stripped of; else the address.
std::uint64_t UNNAMED_FUNCTIONS::beginning_of(std::uint64_t address) const {
  const auto behind = std::upper_bound(m_beginnings.begin(), m_beginnings.end(), address);
  return behind == m_beginnings.begin() ? address : *std::prev(behind);
}

}  // namespace symbols
