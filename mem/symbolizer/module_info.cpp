#include "mem/symbolizer/module_info.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string_view>

#include "mem/base/check.h"
#include "mem/symbolizer/text_field.h"

namespace {

bool exists(char const* path) { return access(path, F_OK) == 0; }

// The loader knows the executable only by argv[0], which is no path at all when the program was
// found through PATH. Its file is then the one the kernel runs.
class EXECUTABLE_PATH {
 public:
  static char const* get() {
    static const EXECUTABLE_PATH instance;
    return instance.m_path;
  }

 private:
  EXECUTABLE_PATH() {
    const ssize_t length = readlink("/proc/self/exe", m_path, sizeof m_path - 1);
    m_path[length < 0 ? 0 : length] = '\0';
  }

  char m_path[PATH_MAX];
};

// The object that `address` lies in, asked without the loader's lock: a thread inside dlopen
// holds that while its constructors allocate.
const link_map* loaded_object(void const* address) {
  dl_find_object found;
  if (_dl_find_object(const_cast<void*>(address), &found) != 0) return nullptr;
  return found.dlfo_link_map;
}

bool lies_in_executable(void const* address) {
  const link_map* object = loaded_object(address);
  return object != nullptr && object->l_name[0] == '\0';
}

// Null when the module's file no longer exists.
char const* existing_path(void const* address, char const* reported) {
  if (reported == nullptr) return nullptr;
  if (exists(reported)) return reported;
  if (lies_in_executable(address) && exists(EXECUTABLE_PATH::get())) return EXECUTABLE_PATH::get();
  return nullptr;
}

std::string_view file_name_of(std::string_view path) {
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0: the whole path
}

}  // namespace

bool mem_short_module_name(char const* path, char (&name)[65]) {
  constexpr std::string_view prefix = "lib";
  std::string_view file_name = file_name_of(path);
  const std::size_t suffix = file_name.find(".so");
  const bool has_suffix = suffix != std::string_view::npos;
  if (has_suffix) file_name = file_name.substr(0, suffix);
  if (file_name.substr(0, prefix.size()) == prefix) file_name.remove_prefix(prefix.size());
  mem_set_text_field(name, file_name);
  return has_suffix;
}

bool mem_get_module_info(void const* address, MEM_ADDRESS_INFO& info) {
  Dl_info loader;
  if (address == nullptr || dladdr(address, &loader) == 0) return false;
  char const* path = existing_path(address, loader.dli_fname);
  if (path == nullptr) return false;
  const bool has_suffix = mem_short_module_name(path, info.module_name_buffer);
  info.address = address;
  info.module_info_valid = true;
  info.module_path = path;
  info.module_base = has_suffix ? loader.dli_fbase : nullptr;
  info.symbol_name = loader.dli_sname;
  info.symbol_address = loader.dli_saddr;
  return true;
}

MEM_MODULE_FILE MEM_MODULE_FILE::read(const MEM_ADDRESS_INFO& info, char const* source) {
  Elf64_Ehdr ehdr;
  const int fd = open(info.module_path, O_RDONLY | O_CLOEXEC);
  mem_check(fd >= 0, "fd >= 0", source);
  const ssize_t nread = ::read(fd, &ehdr, sizeof ehdr);
  close(fd);
  mem_check(sizeof ehdr == static_cast<std::size_t>(nread), "sizeof ( ehdr ) == nread", source);
  MEM_MODULE_FILE file{ehdr.e_type, 0};
  if (file.e_type == ET_DYN && info.module_base == nullptr)
    if (const link_map* object = loaded_object(info.address)) file.loader_base = object->l_addr;
  return file;
}

std::uintptr_t MEM_MODULE_FILE::file_address(const MEM_ADDRESS_INFO& info) const {
  const auto address = reinterpret_cast<std::uintptr_t>(info.address);
  if (e_type != ET_DYN) return address;
  return address - reinterpret_cast<std::uintptr_t>(info.module_base) - loader_base;
}
