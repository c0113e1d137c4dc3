#include "mem/paths/path_frames.h"

#include <dlfcn.h>

#include "mem/modules/module_watch.h"
#include "mem/modules/readable_memory.h"
#include "mem/symbolizer/loaded_module.h"
#include "mem/symbolizer/module_file.h"

namespace {

std::uint64_t digest_of(std::uintptr_t behind_call) {
  const std::uint64_t spread = behind_call * 0x9E3779B97F4A7C15ULL;
  return spread >> 32;
}

}  // namespace

// Its removal is noticed from now on.
MEM_PATH_MODULE MEM_PATH_FRAMES::describe_module(std::uintptr_t address) {
  MEM_PATH_MODULE described{};
  dl_find_object found;
  MEM_LOADED_MODULE module;
  if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0 ||
      !module.find(reinterpret_cast<void const*>(address)))
    return described;
  mem_watch_module_of(address);
  described.begin = reinterpret_cast<std::uintptr_t>(found.dlfo_map_start);
  described.end = reinterpret_cast<std::uintptr_t>(found.dlfo_map_end);
  described.bias = module.bias;
  described.path = "";
  if (!mem_is_readable(described.begin, mem_page_size)) return described;
  described.identity = MEM_ELF_IDENTITY::of_memory(module.start, module.bias);
  described.path = MEM_MODULE_FILE::of_module(module).path();
  return described;
}

// Whether it is known, or there is none. The newest: one that was removed unseen is an older one.
bool MEM_PATH_FRAMES::find_module(std::uintptr_t address, std::uint32_t& number) {
  for (number = m_modules.count(); number > 0; --number) {
    const MEM_PATH_MODULE& module = m_modules[number];
    if (!module.is_removed && module.holds(address)) return true;
  }
  dl_find_object found;
  return _dl_find_object(reinterpret_cast<void*>(address), &found) != 0;
}

void MEM_PATH_FRAMES::add_module(const MEM_PATH_MODULE& module) {
  bool is_known = module.end == 0;
  m_modules.for_each([&](const MEM_PATH_MODULE& known) {
    is_known =
        is_known || (!known.is_removed && known.begin == module.begin && known.end == module.end);
  });
  if (!is_known) m_modules.add(module);
}

std::uint32_t MEM_PATH_FRAMES::number_of(std::uintptr_t behind_call) {
  const auto is = [&](std::uint32_t number) { return m_frames[number].behind_call == behind_call; };
  const std::uint64_t digest = digest_of(behind_call);
  const std::uint32_t known = m_index.find(digest, is);
  if (known != MEM_NUMBER_INDEX::none) return known;
  std::uint32_t module = 0;
  if (!find_module(behind_call - 1, module)) return 0;
  m_index.make_room([&](std::uint32_t number) { return digest_of(m_frames[number].behind_call); });
  const std::uint32_t number = m_frames.add(behind_call, module, false);
  m_index.add(digest, number);
  return number;
}

bool MEM_PATH_FRAMES::remove(std::uintptr_t begin, std::uintptr_t end) {
  bool any = false;
  m_modules.for_each([&](MEM_PATH_MODULE& module) {
    if (module.begin - begin < end - begin) module.is_removed = true;
  });
  m_frames.for_each([&](MEM_PATH_FRAME& frame) {
    if (frame.is_removed || frame.address() - begin >= end - begin) return;
    frame.is_removed = any = true;
  });
  if (any)
    m_index.keep([&](std::uint32_t number) { return digest_of(m_frames[number].behind_call); },
                 [&](std::uint32_t number) { return !m_frames[number].is_removed; });
  return any;
}
