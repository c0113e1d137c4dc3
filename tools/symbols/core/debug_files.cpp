#include "tools/symbols/core/debug_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

namespace symbols {

namespace {

std::string hexadecimal(const unsigned char* bytes, int size) {
  std::string text;
  for (int i = 0; i < size; ++i) {
    constexpr char digits[] = "0123456789abcdef";
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

std::string variable(char const* name) {
  char const* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::vector<std::string> debuginfod_caches() {
  std::vector<std::string> caches;
  const auto add = [&](const std::string& parent, char const* name) {
    if (!parent.empty()) caches.push_back(parent + name);
  };
  add(variable("DEBUGINFOD_CACHE_PATH"), "");
  add(variable("XDG_CACHE_HOME"), "/debuginfod_client");
  add(variable("HOME"), "/.cache/debuginfod_client");
  add(variable("HOME"), "/.debuginfod_client_cache");
  return caches;
}

// An empty file stands for the answer that there is none.
int open_in_cache(const std::string& build_id, char** path) {
  for (const std::string& cache : debuginfod_caches()) {
    std::string candidate = cache;
    candidate.append("/").append(build_id).append("/debuginfo");
    struct stat status {};
    const int file = ::open(candidate.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) continue;
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
      *path = strdup(candidate.c_str());
      return file;
    }
    close(file);
  }
  return -1;
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// Beside a file, or below the usual directory, where the file's own is told from any part of it on.
bool is_beside(const std::string& file, const std::string& name) {
  const auto holds = [&](std::string directory) { return exists(directory.append(name)); };
  std::string own = file.substr(0, file.rfind('/') + 1);
  if (holds(own) || holds(own + ".debug/")) return true;
  while (!own.empty()) {
    if (holds("/usr/lib/debug" + own)) return true;
    own.erase(0, std::min(own.find('/', 1), own.size()));
  }
  return false;
}

// Where there is a file of the name that a debug link tells. One that is shared by several files is
// looked for elsewhere; it has no checksum.
bool may_be_found_by_name(const std::string& path, char const* link, GElf_Word checksum) {
  if (link != nullptr && checksum == 0) return true;
  const std::string name =
      link != nullptr ? link : path.substr(path.rfind('/') + 1).append(".debug");
  std::error_code trouble;
  return is_beside(path, name) ||
         is_beside(std::filesystem::canonical(path, trouble).string(), name);
}

// The usual search ends at debuginfod: where nothing is found it loads a client for networks, with
// some thirty libraries, only to hear that it is to ask nobody.
int find_debug_file(Dwfl_Module* module, void** data, char const* name, GElf_Addr base,
                    char const* path, char const* link, GElf_Word checksum, char** found) {
  int file = dwfl_build_id_find_debuginfo(module, data, name, base, path, link, checksum, found);
  if (file < 0 && may_be_found_by_name(path == nullptr ? "" : path, link, checksum))
    file = dwfl_standard_find_debuginfo(module, data, name, base, path, link, checksum, found);
  if (file >= 0) return file;
  const unsigned char* build_id = nullptr;
  GElf_Addr address = 0;
  const int size = dwfl_module_build_id(module, &build_id, &address);
  return size > 0 ? open_in_cache(hexadecimal(build_id, size), found) : -1;
}

char* default_directories = nullptr;

const Dwfl_Callbacks callbacks{.find_elf = nullptr,  // it is there
                               .find_debuginfo = find_debug_file,
                               .section_address = dwfl_offline_section_address,
                               .debuginfo_path = &default_directories};

}  // namespace

DEBUG_FILES::DEBUG_FILES(int descriptor, const std::string& path) : m_dwfl(dwfl_begin(&callbacks)) {
  const int own = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  if (m_dwfl == nullptr || own < 0) return;
  dwfl_report_begin(m_dwfl);
  m_module = dwfl_report_elf(m_dwfl, path.c_str(), path.c_str(), own, 0, true);
  dwfl_report_end(m_dwfl, nullptr, nullptr);
  if (m_module == nullptr) close(own);
}

Dwarf* DEBUG_FILES::debug_information(std::uint64_t& bias) const {
  return dwfl_module_getdwarf(m_module, &bias);
}

}  // namespace symbols
