#include "mem/bins/bin_names.h"

#include <stdexcept>

template <class ID>
MEM_BIN_NAME_MGR<ID>::MEM_BIN_NAME_MGR() {
  open("Root");
}

template <class ID>
void MEM_BIN_NAME_MGR<ID>::open(std::string_view name) {
  m_pb_id_stack.push_back(id_of(name));
  publish_current_id();
}

template <class ID>
void MEM_BIN_NAME_MGR<ID>::close(std::string_view name) {
  mem_check(name == get_curr_name(), "name == get_curr_name()", MEM_SOURCE::profile_bins);
  pop();
}

template <class ID>
void MEM_BIN_NAME_MGR<ID>::pop() {
  m_pb_id_stack.pop_back();
  publish_current_id();
  mem_check(!m_pb_id_stack.empty(), "!m_pb_id_stack.empty()", MEM_SOURCE::profile_bins);
}

template <class ID>
ID MEM_BIN_NAME_MGR<ID>::id_of(std::string_view name) {
  if (const auto known = m_ids.find(name); known != m_ids.end()) return known->second;
  const std::size_t id = m_name_count;
  // One that could not be registered, for want of memory, left its place: the next takes it.
  const auto place = m_names.size() > id ? m_names.begin() + static_cast<std::ptrdiff_t>(id)
                                         : m_names.emplace_back();
  *place = name;
  m_ids.emplace(*place, static_cast<ID>(id));
  m_name_count.store(id + 1, std::memory_order_release);
  return static_cast<ID>(id);
}

template <class ID>
const MEM_BOOKKEEPING_STRING& MEM_BIN_NAME_MGR<ID>::id_to_name(ID id) const {
  if (id >= m_name_count.load(std::memory_order_acquire)) throw std::out_of_range("no such name");
  return m_names[id];
}

template <class ID>
void MEM_BIN_NAME_MGR<ID>::publish_current_id() {
  const std::int64_t id = m_pb_id_stack.empty() ? none : std::int64_t{m_pb_id_stack.back()};
  m_current_id.store(id, std::memory_order_relaxed);
}

template class MEM_BIN_NAME_MGR<std::uint32_t>;
