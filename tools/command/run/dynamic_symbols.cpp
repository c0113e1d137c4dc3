#include "tools/command/run/dynamic_symbols.h"

#include <fcntl.h>
#include <gelf.h>
#include <libelf.h>
#include <unistd.h>

#include <memory>

namespace command {

namespace {

using WANTED = std::function<bool(std::string_view)>;

bool has_symbol(Elf* elf, Elf_Scn* section, const GElf_Shdr& header, const WANTED& wanted) {
  Elf_Data* const data = elf_getdata(section, nullptr);
  if (data == nullptr || header.sh_entsize == 0) return false;
  const auto count = static_cast<int>(header.sh_size / header.sh_entsize);
  for (int number = 0; number < count; ++number) {
    GElf_Sym symbol{};
    if (gelf_getsym(data, number, &symbol) == nullptr) return false;
    char const* const name = elf_strptr(elf, header.sh_link, symbol.st_name);
    if (name != nullptr && wanted(name)) return true;
  }
  return false;
}

bool has_symbol(Elf* elf, const WANTED& wanted) {
  for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf, section)) != nullptr;) {
    GElf_Shdr header{};
    if (gelf_getshdr(section, &header) != nullptr && header.sh_type == SHT_DYNSYM &&
        has_symbol(elf, section, header, wanted))
      return true;
  }
  return false;
}

}  // namespace

bool has_dynamic_symbol(const std::string& path, const WANTED& wanted) {
  elf_version(EV_CURRENT);
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  const std::unique_ptr<Elf, int (*)(Elf*)> elf(elf_begin(file, ELF_C_READ_MMAP, nullptr), elf_end);
  const bool has = elf != nullptr && has_symbol(elf.get(), wanted);
  close(file);
  return has;
}

}  // namespace command
