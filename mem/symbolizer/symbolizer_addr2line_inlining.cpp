#include "mem/symbolizer/symbolizer_addr2line_inlining.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <utility>

#include "mem/base/check.h"
#include "mem/host/settings.h"
#include "mem/symbolizer/inlined_answer.h"
#include "mem/symbolizer/module_info.h"
#include "mem/symbolizer/recently_used.h"
#include "mem/symbolizer/tool_request.h"

using IMPL = MEM_SYMBOLIZER_ADDR2LINE_INLINING::IMPL;
using ADDR2LINE_HANDLE = IMPL::ADDR2LINE_HANDLE;

constinit IMPL::CACHE IMPL::CACHE::singleton_instance;

namespace {

constinit std::atomic<int> wait_usecs =
    mem_default_number(mem_settings_row("mem_symbolizer_addr2line_usecs"));
constinit std::atomic<bool> wait_setting_was_read = false;

// Not a guarded static: a thread that waited for another's call into the host could hold a lock
// which the host needs to answer. Until the answer is there, and when the host's callback throws,
// the default holds.
int get_wait_usecs() {
  if (wait_setting_was_read.exchange(true)) return wait_usecs;
  try {
    wait_usecs = mem_setting_integer("mem_symbolizer_addr2line_usecs");
  } catch (...) {
  }
  return wait_usecs;
}

constinit MEM_NEVER_DESTROYED<MEM_SYMBOLIZER_ADDR2LINE_INLINING> only_addr2line_inlining;

}  // namespace

MEM_SYMBOLIZER_ADDR2LINE_INLINING* MEM_SYMBOLIZER_ADDR2LINE_INLINING::get_instance() {
  return &only_addr2line_inlining.object;
}

bool MEM_SYMBOLIZER_ADDR2LINE_INLINING::get_module_info(void const* address,
                                                        MEM_ADDRESS_INFO& info) {
  return mem_get_module_info(address, info);
}

bool MEM_SYMBOLIZER_ADDR2LINE_INLINING::get_source_and_function_info(void const* address,
                                                                     MEM_ADDRESS_INFO& info) {
  std::vector<MEM_ADDRESS_INFO> thrown_away;
  return get_source_and_function_info(address, info, thrown_away);
}

bool MEM_SYMBOLIZER_ADDR2LINE_INLINING::get_source_and_function_info(
    void const* address, MEM_ADDRESS_INFO& info, std::vector<MEM_ADDRESS_INFO>& inlined) {
  return ask(address, info, inlined) != MEM_SYMBOL_ANSWER::no_module;
}

MEM_SYMBOL_ANSWER MEM_SYMBOLIZER_ADDR2LINE_INLINING::ask(
    void const* address, MEM_ADDRESS_INFO& info, std::vector<MEM_ADDRESS_INFO>& inlined) try {
  // Not on the stack: the thread that allocates is the host's, and may have a small one.
  constexpr std::size_t answer_size = 65536;
  using ANSWER = std::vector<char, MEM_BOOKKEEPING_ALLOCATOR<char>>;
  inlined.clear();
  if (!info.module_info_valid && !get_module_info(address, info))
    return MEM_SYMBOL_ANSWER::no_module;
  mem_check(address == info.address, "address == info.address", MEM_SOURCE::addr2line_inlining);
  MEM_SYMBOL_ANSWER result;
  MEM_MODULE_FILE* file = mem_file_to_ask(info, result);
  if (file == nullptr) return result;
  get_wait_usecs();  // asks the host while no lock is held
  ANSWER answer(answer_size);
  const MEM_TOOL_OUTCOME outcome =
      IMPL::CACHE::singleton_instance.get_data(info, *file, answer.data(), answer.size());
  IMPL::parse_addr2line_output(answer.data(), info, inlined);
  return mem_conclude(outcome, *file, info);
} catch (const std::bad_alloc&) {
  return MEM_SYMBOL_ANSWER::for_now;
}

bool IMPL::parse_addr2line_output(char const* text, MEM_ADDRESS_INFO& info,
                                  std::vector<MEM_ADDRESS_INFO>& inlined) {
  mem_parse_inlined_answer(text, info, inlined);
  return true;
}

MEM_TOOL_OUTCOME IMPL::CACHE::get_data(const MEM_ADDRESS_INFO& info, MEM_MODULE_FILE& file,
                                       char* buffer, unsigned long size) {
  const HANDLE handle = take_handle(info, file);
  const std::lock_guard lock(handle->lock());
  return handle->get_data(mem_file_address(info, file.e_type()), buffer, size);
}

IMPL::CACHE::HANDLE IMPL::CACHE::take_handle(const MEM_ADDRESS_INFO& info, MEM_MODULE_FILE& file) {
  HANDLE evicted;  // ends, if nobody uses it, once the lock is given back
  const std::lock_guard lock(m_lock.mutex);
  HANDLE handle = get_handle(file, evicted);
  mem_check(handle != nullptr, "handle", MEM_SOURCE::addr2line_inlining);
  mem_check(handle->module_name() == info.module_name_buffer,
            "handle->module_name () == info.module_name_buffer", MEM_SOURCE::addr2line_inlining);
  return handle;
}

IMPL::CACHE::HANDLE IMPL::CACHE::get_handle(MEM_MODULE_FILE& file, HANDLE& evicted) {
  HANDLES& handles = m_handles.object;
  handles.reserve(most_tools);
  const bool runs = mem_move_latest_to_back(
      handles, [&](const HANDLE& handle) { return &handle->file() == &file; });
  if (runs) return handles.back();
  HANDLE fresh =
      std::allocate_shared<ADDR2LINE_HANDLE>(MEM_BOOKKEEPING_ALLOCATOR<ADDR2LINE_HANDLE>(), file);
  const auto idle = handles.size() < most_tools
                        ? handles.end()
                        : std::find_if(handles.begin(), handles.end(), [](const HANDLE& handle) {
                            return handle.use_count() == 1;
                          });
  if (idle == handles.end()) {
    handles.push_back(std::move(fresh));
  } else {
    mem_move_to_back(handles, idle);
    evicted = std::exchange(handles.back(), std::move(fresh));
  }
  return handles.back();
}

void IMPL::CACHE::clear() {
  HANDLES ended;
  const std::lock_guard lock(m_lock.mutex);
  ended.swap(m_handles.object);
}

// A cache that was locked when the process was forked may be half changed.
void IMPL::CACHE::abandon() {
  if (m_lock.mutex.try_lock())
    for (const HANDLE& handle : m_handles.object) handle->abandon();
  m_abandoned.object.swap(m_handles.object);
  m_lock.unlocked = 0;
}

ADDR2LINE_HANDLE::ADDR2LINE_HANDLE(MEM_MODULE_FILE& file)
    : m_file(file), m_tool("-f -C -i", MEM_ADDR2LINE_TOOL::ENDING::silence, file) {
  char name[65];
  mem_short_module_name(file.path(), name);
  m_module_name = name;
}

// A captured address is a return address: only the byte before it lies in the call.
MEM_TOOL_OUTCOME ADDR2LINE_HANDLE::get_data(unsigned long long address, char* buffer,
                                            unsigned long size) {
  return m_tool.ask(address - 1, get_wait_usecs(), buffer, size);
}
