#include "mem/symbolizer/debug_information.h"

#include <elf.h>
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <string_view>

#include "platform/raw_syscall.h"

namespace {

class OPEN_FILE {
 public:
  explicit OPEN_FILE(char const* path)
      : m_file(thr_raw_syscall(SYS_open, path, O_RDONLY | O_CLOEXEC)) {}
  OPEN_FILE(const OPEN_FILE&) = delete;
  OPEN_FILE& operator=(const OPEN_FILE&) = delete;
  ~OPEN_FILE() {
    if (m_file >= 0) thr_raw_syscall(SYS_close, m_file);
  }

  // How many bytes are there.
  std::size_t read(std::uint64_t offset, std::span<char> buffer) const {
    const long count = thr_raw_syscall(SYS_pread64, m_file, buffer.data(), buffer.size(), offset);
    return static_cast<std::size_t>(std::max(count, 0L));
  }

 private:
  long m_file;
};

// A part of a file that moves along with what is looked at: section headers and their names lie
// side by side.
class WINDOW {
 public:
  explicit WINDOW(const OPEN_FILE& file) : m_file(file) {}

  // Good until the next one is looked at; empty where the file has less.
  std::string_view at(std::uint64_t offset, std::size_t size) {
    if (offset < m_offset || offset - m_offset > m_count || m_count - (offset - m_offset) < size) {
      m_offset = offset;
      m_count = m_file.read(offset, m_buffer);
    }
    return std::string_view(m_buffer.data(), m_count).substr(offset - m_offset, size);
  }

  template <class OBJECT>
  bool copy(std::uint64_t offset, OBJECT& object) {
    const std::string_view bytes = at(offset, sizeof object);
    if (bytes.size() < sizeof object) return false;
    std::memcpy(&object, bytes.data(), sizeof object);
    return true;
  }

 private:
  const OPEN_FILE& m_file;
  std::array<char, 4096> m_buffer;
  std::uint64_t m_offset = 0;
  std::size_t m_count = 0;
};

class ELF_FILE {
 public:
  explicit ELF_FILE(char const* path) : m_file(path), m_headers(m_file), m_names(m_file) {
    m_is_readable = m_headers.copy(0, m_header) && m_header.e_shentsize == sizeof(Elf64_Shdr) &&
                    section(m_header.e_shstrndx, m_section_of_names);
  }

  bool is_readable() const { return m_is_readable; }

  bool has_section(std::string_view wanted) {
    Elf64_Shdr header;
    for (unsigned i = 0; i < m_header.e_shnum; ++i)
      if (section(i, header) &&
          m_names.at(m_section_of_names.sh_offset + header.sh_name, wanted.size() + 1) ==
              std::string_view(wanted.data(), wanted.size() + 1))
        return true;
    return false;
  }

 private:
  bool section(unsigned number, Elf64_Shdr& header) {
    return m_headers.copy(m_header.e_shoff + number * sizeof header, header);
  }

  OPEN_FILE m_file;
  WINDOW m_headers;
  WINDOW m_names;
  Elf64_Ehdr m_header{};
  Elf64_Shdr m_section_of_names{};
  bool m_is_readable;
};

}  // namespace

// Only a file that was built with its information split off has a section of those addresses.
char const* mem_missing_lines_advice(char const* path, bool reads_split) {
  ELF_FILE file(path);
  if (!file.is_readable()) return nullptr;
  if (!file.has_section(".debug_info"))
    return "has no debug information: build it with -g, or install its -dbgsym package";
  if (file.has_section(".debug_addr"))
    return reads_split
               ? "has split debug information that is not there: its .dwo files are to stay where "
                 "they were built, and not in a .dwp file"
               : "has split debug information that addr2line can't read: build it without "
                 "-gsplit-dwarf";
  return nullptr;
}
