#include "mem/symbolizer/debug_information.h"

#include <elf.h>
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/raw_syscall.h"

namespace {

class ELF_FILE {
 public:
  explicit ELF_FILE(char const* path)
      : m_file(thr_raw_syscall(SYS_open, path, O_RDONLY | O_CLOEXEC)) {
    m_is_readable = read(0, &m_header, sizeof m_header) &&
                    m_header.e_shentsize == sizeof(Elf64_Shdr) &&
                    section(m_header.e_shstrndx, m_names);
  }
  ELF_FILE(const ELF_FILE&) = delete;
  ELF_FILE& operator=(const ELF_FILE&) = delete;
  ~ELF_FILE() {
    if (m_file >= 0) thr_raw_syscall(SYS_close, m_file);
  }

  bool is_readable() const { return m_is_readable; }

  bool has_section(std::string_view wanted) const {
    Elf64_Shdr header;
    std::array<char, 32> name{};
    for (unsigned i = 0; i < m_header.e_shnum; ++i)
      if (section(i, header) &&
          read(m_names.sh_offset + header.sh_name, name.data(), wanted.size() + 1) &&
          std::string_view(name.data(), wanted.size() + 1) ==
              std::string_view(wanted.data(), wanted.size() + 1))
        return true;
    return false;
  }

 private:
  bool read(std::uint64_t offset, void* buffer, std::size_t size) const {
    return thr_raw_syscall(SYS_pread64, m_file, buffer, size, offset) == static_cast<long>(size);
  }
  bool section(unsigned number, Elf64_Shdr& header) const {
    return read(m_header.e_shoff + number * sizeof header, &header, sizeof header);
  }

  long m_file;
  Elf64_Ehdr m_header{};
  Elf64_Shdr m_names{};
  bool m_is_readable;
};

}  // namespace

// Only a file that was built with its information split off has a section of those addresses.
char const* mem_missing_lines_advice(char const* path, bool reads_split) {
  const ELF_FILE file(path);
  if (!file.is_readable()) return nullptr;
  if (!file.has_section(".debug_info"))
    return "has no debug information: build it with -g, or install its -dbgsym package";
  if (file.has_section(".debug_addr"))
    return reads_split
               ? "has split debug information that is not there: its .dwo files are to stay where "
                 "they were built, or a .dwp file beside it"
               : "has split debug information that addr2line can't read: build it without "
                 "-gsplit-dwarf";
  return nullptr;
}
