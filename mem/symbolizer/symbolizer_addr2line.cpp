#include "mem/symbolizer/symbolizer_addr2line.h"

#include <mutex>
#include <new>

#include "mem/base/check.h"
#include "mem/symbolizer/module_info.h"
#include "mem/symbolizer/plain_answer.h"
#include "mem/symbolizer/recently_used.h"
#include "mem/symbolizer/tool_request.h"

using IMPL = MEM_SYMBOLIZER_ADDR2LINE::IMPL;
using ADDR2LINE_HANDLE = IMPL::ADDR2LINE_HANDLE;

constinit IMPL::CACHE IMPL::CACHE::singleton_instance;

namespace {

constinit MEM_NEVER_DESTROYED<MEM_SYMBOLIZER_ADDR2LINE> only_addr2line;

}  // namespace

MEM_SYMBOLIZER_ADDR2LINE* MEM_SYMBOLIZER_ADDR2LINE::get_instance() {
  return &only_addr2line.object;
}

bool MEM_SYMBOLIZER_ADDR2LINE::get_module_info(void const* address, MEM_ADDRESS_INFO& info) {
  return mem_get_module_info(address, info);
}

bool MEM_SYMBOLIZER_ADDR2LINE::get_source_and_function_info(void const* address,
                                                            MEM_ADDRESS_INFO& info) {
  std::vector<MEM_ADDRESS_INFO> none;
  return ask(address, info, none) != MEM_SYMBOL_ANSWER::no_module;
}

MEM_SYMBOL_ANSWER MEM_SYMBOLIZER_ADDR2LINE::ask(void const* address, MEM_ADDRESS_INFO& info,
                                                std::vector<MEM_ADDRESS_INFO>& inlined) try {
  constexpr unsigned long answer_size = 2048;
  inlined.clear();
  if (!info.module_info_valid && !get_module_info(address, info))
    return MEM_SYMBOL_ANSWER::no_module;
  mem_check(address == info.address, "address == info.address", MEM_SOURCE::addr2line);
  MEM_SYMBOL_ANSWER result;
  MEM_MODULE_FILE* file = mem_file_to_ask(info, result);
  if (file == nullptr) return result;
  char answer[answer_size] = {};
  const MEM_TOOL_OUTCOME outcome =
      IMPL::CACHE::singleton_instance.get_data(info, *file, answer, answer_size);
  IMPL::parse_addr2line_output(answer, info);
  return mem_conclude(outcome, *file, info);
} catch (const std::bad_alloc&) {
  return MEM_SYMBOL_ANSWER::for_now;
}

bool IMPL::parse_addr2line_output(char const* text, MEM_ADDRESS_INFO& info) {
  return mem_parse_plain_answer(text, info);
}

MEM_TOOL_OUTCOME IMPL::CACHE::get_data(const MEM_ADDRESS_INFO& info, MEM_MODULE_FILE& file,
                                       char* buffer, unsigned long size) {
  const std::lock_guard lock(m_lock.mutex);
  ADDR2LINE_HANDLE* handle = get_handle(file);
  mem_check(handle != nullptr, "handle", MEM_SOURCE::addr2line);
  mem_check(handle->module_name() == info.module_name_buffer,
            "handle->module_name () == info.module_name_buffer", MEM_SOURCE::addr2line);
  return handle->tool().get_data(mem_file_address(info, file.e_type()), buffer, size);
}

ADDR2LINE_HANDLE* IMPL::CACHE::get_handle(MEM_MODULE_FILE& file) {
  HANDLES& handles = m_handles.object;
  handles.reserve(most_tools);
  const bool runs = mem_move_latest_to_back(
      handles, [&](const ADDR2LINE_HANDLE& handle) { return &handle.file() == &file; });
  if (runs) return &handles.back();
  ADDR2LINE_HANDLE fresh(file);
  if (handles.size() < most_tools) {
    handles.push_back(std::move(fresh));
  } else {
    mem_move_to_back(handles, handles.begin());
    handles.back() = std::move(fresh);
  }
  return &handles.back();
}

void IMPL::CACHE::clear() {
  const std::lock_guard lock(m_lock.mutex);
  m_handles.object = {};
}

// A cache that was locked when the process was forked may be half changed.
void IMPL::CACHE::abandon() {
  if (m_lock.mutex.try_lock())
    for (const ADDR2LINE_HANDLE& handle : m_handles.object) handle.tool().abandon();
  m_abandoned.object.swap(m_handles.object);
  m_lock.unlocked = 0;
}

ADDR2LINE_HANDLE::ADDR2LINE_HANDLE(MEM_MODULE_FILE& file)
    : m_impl(std::allocate_shared<IMPL>(MEM_BOOKKEEPING_ALLOCATOR<IMPL>(), file)), m_file(&file) {
  char name[65];
  mem_short_module_name(file.path(), name);
  m_module_name = name;
}

MEM_TOOL_OUTCOME ADDR2LINE_HANDLE::IMPL::get_data(unsigned long long address, char* buffer,
                                                  unsigned long size) {
  return m_tool.ask(address, 0, buffer, size);
}
