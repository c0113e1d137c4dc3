#include "mem/symbolizer/symbolizer_addr2line.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "mem/base/check.h"
#include "mem/symbolizer/recently_used.h"
#include "mem/symbolizer/text_field.h"

using IMPL = MEM_SYMBOLIZER_ADDR2LINE::IMPL;
using ADDR2LINE_HANDLE = IMPL::ADDR2LINE_HANDLE;

constinit IMPL::CACHE IMPL::CACHE::singleton_instance;

MEM_SYMBOLIZER_ADDR2LINE* MEM_SYMBOLIZER_ADDR2LINE::get_instance() {
  static MEM_SYMBOLIZER_ADDR2LINE instance;
  return &instance;
}

bool MEM_SYMBOLIZER_ADDR2LINE::get_module_info(void const* address, MEM_ADDRESS_INFO& info) {
  return mem_get_module_info(address, info);
}

bool MEM_SYMBOLIZER_ADDR2LINE::get_source_and_function_info(void const* address,
                                                            MEM_ADDRESS_INFO& info) {
  constexpr unsigned long answer_size = 2048;
  if (!info.module_info_valid && !get_module_info(address, info)) return false;
  mem_check(address == info.address, "address == info.address", MEM_SOURCE::addr2line);
  char answer[answer_size] = {};
  IMPL::CACHE::singleton_instance.get_data(info, answer, answer_size);
  IMPL::parse_addr2line_output(answer, info);
  return true;
}

bool IMPL::parse_addr2line_output(char const* text, MEM_ADDRESS_INFO& info) {
  if (*text == '\0' || *text == '?') return false;
  char const* end_of_function = std::strchr(text, '\n');
  if (end_of_function == nullptr) return false;
  mem_set_text_field(info.function_name_buffer, {text, end_of_function});

  const std::string_view rest(end_of_function + 1);
  const std::string_view location = rest.substr(0, rest.find('\n'));
  const std::size_t colon = location.find(':');
  info.file_name_buffer[0] = '\0';
  info.line = 0;
  if (colon == std::string_view::npos || location.front() == '?') return true;
  mem_set_text_field(info.file_name_buffer, location.substr(0, colon));
  // Whatever follows the number, such as a discriminator, is left alone.
  if (std::sscanf(location.data() + colon + 1, "%d", &info.line) != 1) info.line = 0;
  return true;
}

void IMPL::CACHE::get_data(const MEM_ADDRESS_INFO& info, char* buffer, unsigned long size) {
  const std::lock_guard lock(m_lock.mutex);
  ADDR2LINE_HANDLE* handle = get_handle(info);
  mem_check(handle != nullptr, "handle", MEM_SOURCE::addr2line);
  mem_check(handle->module_name() == info.module_name_buffer,
            "handle->module_name () == info.module_name_buffer", MEM_SOURCE::addr2line);
  handle->tool().get_data(handle->file().file_address(info), buffer, size);
}

ADDR2LINE_HANDLE* IMPL::CACHE::get_handle(const MEM_ADDRESS_INFO& info) {
  HANDLES& handles = m_handles.object;
  handles.reserve(most_tools);
  const bool runs = mem_move_latest_to_back(handles, [&](const ADDR2LINE_HANDLE& handle) {
    return handle.module_name() == info.module_name_buffer;
  });
  if (runs) return &handles.back();
  ADDR2LINE_HANDLE fresh(info);
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

// A cache that was locked when the process was forked may be half changed: its pipes stay open.
void IMPL::CACHE::abandon() {
  if (m_lock.mutex.try_lock())
    for (const ADDR2LINE_HANDLE& handle : m_handles.object) handle.tool().abandon();
  m_abandoned.object.swap(m_handles.object);
  m_lock.unlocked = 0;
}

ADDR2LINE_HANDLE::ADDR2LINE_HANDLE(const MEM_ADDRESS_INFO& info)
    : m_impl(std::allocate_shared<IMPL>(MEM_BOOKKEEPING_ALLOCATOR<IMPL>(), info.module_path)),
      m_module_name(info.module_name_buffer),
      m_file(MEM_MODULE_FILE::read(info, MEM_SOURCE::addr2line)) {}

void ADDR2LINE_HANDLE::IMPL::get_data(unsigned long long address, char* buffer,
                                      unsigned long size) {
  constexpr int lines_of_an_answer = 2;
  char* cursor = buffer;
  *cursor = '\0';
  if (!m_tool.ask(address)) return;
  unsigned long length = size - 1;
  int newlines = 0;
  std::size_t count = 0;
  while (newlines < lines_of_an_answer && m_tool.read(cursor, length, count) && count > 0) {
    newlines += static_cast<int>(std::count(cursor, cursor + count, '\n'));
    cursor += count;
    // No buffer's length: a second bulk read is refused, and the rest of a long or slow answer is
    // dropped below.
    length -= 4294967295UL;
  }
  drop_rest_of_answer(cursor, lines_of_an_answer - newlines);
  *cursor = '\0';
}

void ADDR2LINE_HANDLE::IMPL::drop_rest_of_answer(char* cursor, int newlines) {
  std::size_t count = 0;
  while (newlines > 0 && m_tool.read(cursor, 1, count) && count > 0)
    if (*cursor == '\n') --newlines;
}
