#include "mem/report/run_modules.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include "mem/modules/readable_memory.h"
#include "mem/report/report_text.h"
#include "mem/symbolizer/build_id_text.h"
#include "mem/symbolizer/debug_information.h"
#include "mem/symbolizer/elf_identity.h"
#include "platform/raw_syscall.h"

namespace {

// The lines of a file, through a buffer of its own; one that is longer than that is cut.
class LINES {
 public:
  explicit LINES(char const* path)
      : m_file(thr_raw_syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC)) {}
  LINES(const LINES&) = delete;
  LINES& operator=(const LINES&) = delete;
  ~LINES() {
    if (m_file >= 0) thr_raw_syscall(SYS_close, m_file);
  }

  // Without its end; good until the next one is asked for.
  std::optional<std::string_view> next() {
    std::size_t end = std::string_view::npos;
    while ((end = rest().find('\n')) == std::string_view::npos && fill()) {
    }
    if (rest().empty()) return std::nullopt;
    const std::string_view line = rest().substr(0, end);
    m_begin += std::min(line.size() + 1, rest().size());
    return line;
  }

 private:
  std::string_view rest() const { return {m_buffer.data() + m_begin, m_end - m_begin}; }

  bool fill() {
    std::copy(m_buffer.begin() + m_begin, m_buffer.begin() + m_end, m_buffer.begin());
    m_end -= std::exchange(m_begin, 0);
    const long count = m_file < 0 ? 0
                                  : thr_raw_syscall(SYS_read, m_file, m_buffer.data() + m_end,
                                                    m_buffer.size() - m_end);
    if (count > 0) m_end += static_cast<std::size_t>(count);
    return count > 0;
  }

  long m_file;
  std::array<char, PATH_MAX + 256> m_buffer;
  std::size_t m_begin = 0;
  std::size_t m_end = 0;
};

// A line of /proc/self/maps, as far as it tells of code.
struct MAPPING {
  std::uintptr_t begin = 0;
  bool is_code = false;
  std::string_view path;  // empty for memory of no file

  explicit MAPPING(std::string_view line) {
    constexpr int hexadecimal = 16;
    std::from_chars(line.data(), line.data() + line.size(), begin, hexadecimal);
    for (int column = 0; column < 5; ++column) {
      const std::size_t end = std::min(line.find(' '), line.size());
      if (column == 1) is_code = line.substr(0, end).ends_with("xp");
      line.remove_prefix(std::min(line.find_first_not_of(' ', end), line.size()));
    }
    path = line;
  }
};

class OPEN_FILE {
 public:
  explicit OPEN_FILE(char const* path)
      : m_file(
            static_cast<int>(thr_raw_syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC))) {}
  OPEN_FILE(const OPEN_FILE&) = delete;
  OPEN_FILE& operator=(const OPEN_FILE&) = delete;
  ~OPEN_FILE() {
    if (m_file >= 0) thr_raw_syscall(SYS_close, m_file);
  }
  bool is_of(const MEM_ELF_IDENTITY& identity) const {
    return m_file >= 0 && MEM_ELF_IDENTITY::of_file(m_file).is_same(identity);
  }

 private:
  int m_file;
};

// Where distributions put what they strip off.
bool has_file_of_its_own(std::string_view build_id) {
  constexpr std::size_t directory_digits = 2;
  if (build_id.size() <= directory_digits) return false;
  char path[128];
  std::snprintf(path, sizeof path, "/usr/lib/debug/.build-id/%.2s/%.*s.debug", build_id.data(),
                static_cast<int>(build_id.size() - directory_digits),
                build_id.data() + directory_digits);
  return thr_raw_syscall(SYS_faccessat, AT_FDCWD, path, R_OK) == 0;
}

// Whether addresses of the module can be told by line.
char const* has_debug_information(char const* path, const MEM_ELF_IDENTITY& identity,
                                  std::string_view build_id) {
  if (!OPEN_FILE(path).is_of(identity)) return "unknown";
  return mem_missing_lines_advice(path) == nullptr || has_file_of_its_own(build_id) ? "yes" : "no";
}

void write_module(MEM_REPORT_TEXT& out, const dl_find_object& module, std::string_view path) {
  auto const* const begin = static_cast<char const*>(module.dlfo_map_start);
  if (!mem_is_readable(reinterpret_cast<std::uintptr_t>(begin), mem_page_size)) return;
  const auto identity = MEM_ELF_IDENTITY::of_memory(begin, module.dlfo_link_map->l_addr);
  const MEM_BUILD_ID_TEXT build_id(identity);
  char terminated[PATH_MAX + 1];
  terminated[path.copy(terminated, sizeof terminated - 1)] = '\0';
  out << "module\t" << module.dlfo_map_start << ' '
      << static_cast<char const*>(module.dlfo_map_end) - begin << ' '
      << (build_id.text().empty() ? "-" : build_id.text()) << ' '
      << has_debug_information(terminated, identity, build_id.text()) << ' ';
  mem_write_run_value(out, path);
  out << '\n';
}

}  // namespace

void mem_write_run_modules(MEM_REPORT_TEXT& out) {
  void const* last = nullptr;
  LINES maps("/proc/self/maps");
  while (const auto line = maps.next()) {
    const MAPPING mapping(*line);
    dl_find_object module;
    if (!mapping.is_code || _dl_find_object(reinterpret_cast<void*>(mapping.begin), &module) != 0 ||
        module.dlfo_map_start == last)
      continue;
    last = module.dlfo_map_start;
    write_module(out, module, mapping.path);
  }
}
