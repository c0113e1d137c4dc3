#include "mem/symbolizer/symbolizer_addr2line_inlining.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

#include "mem/base/check.h"
#include "mem/host/settings.h"
#include "mem/symbolizer/recently_used.h"

using IMPL = MEM_SYMBOLIZER_ADDR2LINE_INLINING::IMPL;
using ADDR2LINE_HANDLE = IMPL::ADDR2LINE_HANDLE;

constinit IMPL::CACHE IMPL::CACHE::singleton_instance;

namespace {

constinit std::atomic<int> wait_usecs =
    mem_default_number(mem_settings_row("mem_symbolizer_addr2line_usecs"));
constinit std::atomic<bool> wait_setting_was_read = false;

// Not a guarded static: a thread that waited for another's call into the host could hold a lock
// which the host needs to answer. Until the answer is there, others wait the default.
int get_wait_usecs() {
  if (!wait_setting_was_read.exchange(true))
    wait_usecs = mem_setting_integer("mem_symbolizer_addr2line_usecs");
  return wait_usecs;
}

}  // namespace

MEM_SYMBOLIZER_ADDR2LINE_INLINING* MEM_SYMBOLIZER_ADDR2LINE_INLINING::get_instance() {
  static MEM_SYMBOLIZER_ADDR2LINE_INLINING instance;
  return &instance;
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
  // Not on the stack: the thread that allocates is the host's, and may have a small one.
  constexpr std::size_t answer_size = 65536;
  using ANSWER = std::vector<char, MEM_BOOKKEEPING_ALLOCATOR<char>>;
  inlined.clear();
  if (!info.module_info_valid && !get_module_info(address, info)) return false;
  mem_check(address == info.address, "address == info.address", MEM_SOURCE::addr2line_inlining);
  get_wait_usecs();  // asks the host while no lock is held
  ANSWER answer(answer_size);
  IMPL::CACHE::singleton_instance.get_data(info, answer.data(), answer.size());
  return IMPL::parse_addr2line_output(answer.data(), info, inlined);
}

void IMPL::CACHE::get_data(const MEM_ADDRESS_INFO& info, char* buffer, unsigned long size) {
  const HANDLE handle = take_handle(info);
  const std::lock_guard lock(handle->lock());
  handle->get_data(handle->file().file_address(info), buffer, size);
}

IMPL::CACHE::HANDLE IMPL::CACHE::take_handle(const MEM_ADDRESS_INFO& info) {
  const std::lock_guard lock(m_lock.mutex);
  HANDLE handle = get_handle(info);
  mem_check(handle != nullptr, "handle", MEM_SOURCE::addr2line_inlining);
  mem_check(handle->module_name() == info.module_name_buffer,
            "handle->module_name () == info.module_name_buffer", MEM_SOURCE::addr2line_inlining);
  return handle;
}

IMPL::CACHE::HANDLE IMPL::CACHE::get_handle(const MEM_ADDRESS_INFO& info) {
  HANDLES& handles = m_handles.object;
  handles.reserve(most_tools);
  const bool runs = mem_move_latest_to_back(handles, [&](const HANDLE& handle) {
    return handle->module_name() == info.module_name_buffer;
  });
  if (runs) return handles.back();
  HANDLE fresh =
      std::allocate_shared<ADDR2LINE_HANDLE>(MEM_BOOKKEEPING_ALLOCATOR<ADDR2LINE_HANDLE>(), info);
  const auto idle = handles.size() < most_tools
                        ? handles.end()
                        : std::find_if(handles.begin(), handles.end(), [](const HANDLE& handle) {
                            return handle.use_count() == 1;
                          });
  if (idle == handles.end()) {
    handles.push_back(std::move(fresh));
  } else {
    mem_move_to_back(handles, idle);
    handles.back() = std::move(fresh);
  }
  return handles.back();
}

void IMPL::CACHE::clear() {
  HANDLES ended;
  const std::lock_guard lock(m_lock.mutex);
  ended.swap(m_handles.object);
}

// A cache that was locked when the process was forked may be half changed: its pipes stay open.
void IMPL::CACHE::abandon() {
  if (m_lock.mutex.try_lock())
    for (const HANDLE& handle : m_handles.object) handle->abandon();
  m_abandoned.object.swap(m_handles.object);
  m_lock.unlocked = 0;
}

ADDR2LINE_HANDLE::ADDR2LINE_HANDLE(const MEM_ADDRESS_INFO& info)
    : m_module_name(info.module_name_buffer), m_tool("-f -C -i", info.module_path) {
  mem_check(!m_tool.is_broken(), "((long) m_pid) > 0", MEM_SOURCE::addr2line_inlining);
  m_file = MEM_MODULE_FILE::read(info, MEM_SOURCE::addr2line_inlining);
}

void ADDR2LINE_HANDLE::get_data(unsigned long long address, char* buffer, unsigned long size) {
  // A captured address is a return address: only the byte before it lies in the call.
  if (!drop_stale_output() || !m_tool.ask(address - 1)) return;
  char* cursor = buffer;
  char* const end = buffer + size - 1;
  std::size_t count = 0;
  const auto append = [&] {
    const bool has_read = m_tool.read(cursor, static_cast<std::size_t>(end - cursor), count);
    cursor += count;
    return has_read && count > 0;
  };
  while (append() && cursor[-1] != '\n') {
  }
  while (m_tool.wait_for_output(get_wait_usecs()) > 0 && append()) {
  }
  *cursor = '\0';
}

// What came too late for its own request. False when the tool is of no use any more.
bool ADDR2LINE_HANDLE::drop_stale_output() {
  char dropped[1024];
  std::size_t count = 0;
  int ready = 0;
  do {
    ready = m_tool.wait_for_output(0);
  } while (ready > 0 && m_tool.read(dropped, sizeof dropped, count) && count > 0);
  return ready >= 0;
}
