#include "mem/symbolizer/module_info.h"

#include <elf.h>

#include <cstring>
#include <new>
#include <string_view>

#include "mem/host/message.h"
#include "mem/symbolizer/loaded_module.h"
#include "mem/symbolizer/module_file.h"
#include "mem/symbolizer/text_field.h"

namespace {

std::string_view file_name_of(std::string_view path) {
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0: the whole path
}

// The kernel's own module never had a file. The executable's is not to be named after a chroot.
void say_that_it_is_gone(MEM_MODULE_FILE& file) {
  const bool has_name = *file.path() != '\0';
  const bool had_file = !has_name || std::strchr(file.path(), '/') != nullptr;
  if (had_file && file.is_first(MEM_MODULE_FILE::file_is_gone))
    mem_tracker_debug("module %s is not the file that was loaded: new addresses of it stay unknown",
                      has_name ? file.path() : "of the executable");
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

bool mem_get_module_info(void const* address, MEM_ADDRESS_INFO& info) try {
  MEM_LOADED_MODULE module;
  if (address == nullptr || !module.find(address)) return false;
  MEM_MODULE_FILE& file = MEM_MODULE_FILE::of_module(module);
  if (file.state() == MEM_MODULE_FILE::STATE::gone) {
    say_that_it_is_gone(file);
    return false;
  }
  const bool has_suffix = mem_short_module_name(file.path(), info.module_name_buffer);
  const MEM_LOADED_SYMBOL symbol = file.nearest_symbol(module, address);
  info.address = address;
  info.module_info_valid = true;
  info.module_path = file.path();
  info.module_base = has_suffix ? module.start : nullptr;
  info.symbol_name = symbol.name;
  info.symbol_address = symbol.address;
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

std::uintptr_t mem_file_address(const MEM_ADDRESS_INFO& info, int e_type) {
  const auto address = reinterpret_cast<std::uintptr_t>(info.address);
  if (e_type != ET_DYN) return address;
  MEM_LOADED_MODULE module;
  if (info.module_base != nullptr)
    return address - reinterpret_cast<std::uintptr_t>(info.module_base);
  return module.find(info.address) ? address - module.bias : address;
}
