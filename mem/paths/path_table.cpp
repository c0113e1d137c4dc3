// Finding paths, and adding them.
#include <algorithm>
#include <memory>
#include <mutex>
#include <utility>

#include "mem/base/reserve.h"
#include "mem/paths/call_paths.h"
#include "mem/paths/call_paths_lock.h"
#include "mem/settings/call_path_settings.h"
#include "mem/unwind/whole_stack.h"

namespace {

std::uint64_t stirred(std::uint64_t digest) {
  digest *= 0x9E3779B97F4A7C15ULL;
  return digest ^ (digest >> 29);
}

std::uint64_t node_digest(std::uint32_t caller, std::uint32_t frame) {
  return stirred((std::uint64_t{caller} << 32) | frame) >> 16;
}

}  // namespace

std::uint64_t MEM_PATH_KEY::digest() const {
  return stirred(stack.digest(outermost, innermost) ^ (std::uint64_t{bin} << 17));
}

// Words of a digest and a path's number, at the digest's own place or in the run behind it; at most
// half of the places are taken. A table that has become too small stays for those who are in it.
struct MEM_CALL_PATHS::TABLE {
  using WORD = std::uint64_t;
  static constexpr int number_bits = 32;
  static constexpr WORD removed = UINT32_MAX;
  static constexpr std::size_t first_size = 1024;

  TABLE* smaller;
  std::size_t size;
  std::size_t taken;
  std::atomic<WORD>* places;

  static WORD word(std::uint64_t digest, std::uint32_t number) {
    return (digest >> number_bits << number_bits) | number;
  }
  std::atomic<WORD>& place(std::size_t index) { return places[index & (size - 1)]; }

  void add(WORD word) {
    std::size_t index = word >> number_bits;
    while (place(index).load(std::memory_order_relaxed) != 0) ++index;
    place(index).store(word, std::memory_order_release);
    ++taken;
  }

  static TABLE* make(std::size_t size, TABLE* smaller) {
    auto* const places = MEM_BOOKKEEPING_ALLOCATOR<std::atomic<WORD>>().allocate(size);
    std::uninitialized_value_construct_n(places, size);
    try {
      return new (MEM_BOOKKEEPING_ALLOCATOR<TABLE>().allocate(1)) TABLE{smaller, size, 0, places};
    } catch (...) {
      MEM_BOOKKEEPING_ALLOCATOR<std::atomic<WORD>>().deallocate(places, size);
      throw;
    }
  }
  static void free(TABLE* table) {
    MEM_BOOKKEEPING_ALLOCATOR<std::atomic<WORD>>().deallocate(table->places, table->size);
    MEM_BOOKKEEPING_ALLOCATOR<TABLE>().deallocate(table, 1);
  }
};

MEM_CALL_PATHS::~MEM_CALL_PATHS() {
  for (TABLE* table = m_table; table != nullptr;) TABLE::free(std::exchange(table, table->smaller));
}

bool MEM_CALL_PATHS::is(const MEM_CALL_PATH& path, const MEM_PATH_KEY& key) {
  MEM_ADDRESS_TRACKER* const site = path.site.load(std::memory_order_relaxed);
  if (path.bin != key.bin || (site != nullptr && site != &key.site)) return false;
  std::uint32_t node = path.node;
  for (int frame = key.innermost; frame >= key.outermost; --frame) {
    if (const std::uint32_t noted = key.stack.note(frame)) return noted == node;
    if (node == 0) return false;
    const MEM_PATH_NODE& known = m_nodes[node];
    if (m_frames.behind_call(known.frame) != key.stack.behind_call(frame)) return false;
    if (known.is_removed.load(std::memory_order_relaxed)) return false;
    node = known.caller;
  }
  return node == 0;
}

void MEM_CALL_PATHS::note_nodes(std::uint32_t node, const MEM_PATH_KEY& key) {
  for (int frame = key.innermost; frame >= key.outermost && key.stack.note(frame) == 0; --frame) {
    key.stack.note(frame) = node;
    node = m_nodes[node].caller;
  }
}

MEM_CALL_PATH* MEM_CALL_PATHS::find(const MEM_PATH_KEY& key, std::uint64_t digest) {
  TABLE* const table = m_table.load(std::memory_order_acquire);
  if (table == nullptr) return nullptr;
  for (std::size_t index = digest >> TABLE::number_bits;; ++index) {
    const TABLE::WORD word = table->place(index).load(std::memory_order_acquire);
    if (word == 0) return nullptr;
    const auto number = static_cast<std::uint32_t>(word);
    if (word != TABLE::word(digest, number) || number == TABLE::removed) continue;
    MEM_CALL_PATH& path = m_paths[number];
    if (!is(path, key)) continue;
    path.site.store(&key.site, std::memory_order_relaxed);
    note_nodes(path.node, key);
    return &path;
  }
}

MEM_CALL_PATH* MEM_CALL_PATHS::find_or_add(const MEM_PATH_KEY& key) {
  const std::uint64_t digest = key.digest();
  if (MEM_CALL_PATH* const known = find(key, digest)) [[likely]]
    return known;
  return m_is_full ? nullptr : add(key, digest);
}

// What is unknown of a module is asked without the lock.
[[gnu::cold, gnu::noinline]] MEM_CALL_PATH* MEM_CALL_PATHS::add(const MEM_PATH_KEY& key,
                                                                std::uint64_t digest) {
  for (;;) {
    std::uintptr_t unknown = 0;
    MEM_CALL_PATH* const path = add_or_name_module(key, digest, unknown);
    if (path != nullptr || unknown == 0) return path;
    const MEM_PATH_MODULE module = MEM_PATH_FRAMES::describe_module(unknown);
    const std::lock_guard adding(mem_call_paths_lock);
    m_frames.add_module(module);
  }
}

MEM_CALL_PATH* MEM_CALL_PATHS::add_or_name_module(const MEM_PATH_KEY& key, std::uint64_t digest,
                                                  std::uintptr_t& unknown) {
  const std::lock_guard adding(mem_call_paths_lock);
  if (MEM_CALL_PATH* const others = find(key, digest)) return others;
  if (m_paths.count() >= mem_call_paths_limit) {
    m_is_full = true;
    return nullptr;
  }
  const std::uint32_t node = add_nodes(key, unknown);
  if (node == 0) return nullptr;
  make_room();
  const std::uint32_t number = m_paths.add(&key.site, node, key.bin);
  mem_add_to_reserve(sizeof(MEM_CALL_PATH_FIGURES::ROW));
  m_table.load(std::memory_order_relaxed)->add(TABLE::word(digest, number));
  return &m_paths[number];
}

// The innermost frame's; 0 where a module is unknown.
std::uint32_t MEM_CALL_PATHS::add_nodes(const MEM_PATH_KEY& key, std::uintptr_t& unknown) {
  int frame = key.innermost;
  while (frame >= key.outermost && key.stack.note(frame) == 0) --frame;
  std::uint32_t node = frame < key.outermost ? 0 : key.stack.note(frame);
  while (++frame <= key.innermost) {
    const std::uintptr_t address = key.stack.behind_call(frame);
    const std::uint32_t number = m_frames.number_of(address);
    if (number == 0) {
      unknown = address - 1;
      return 0;
    }
    node = add_node(node, number);
    key.stack.note(frame) = node;
  }
  return node;
}

std::uint32_t MEM_CALL_PATHS::add_node(std::uint32_t caller, std::uint32_t frame) {
  const auto is = [&](std::uint32_t number) {
    const MEM_PATH_NODE& node = m_nodes[number];
    return node.caller == caller && node.frame == frame;
  };
  const std::uint64_t digest = node_digest(caller, frame);
  const std::uint32_t known = m_node_index.find(digest, is);
  if (known != MEM_NUMBER_INDEX::none) return known;
  m_node_index.make_room([&](std::uint32_t number) {
    return node_digest(m_nodes[number].caller, m_nodes[number].frame);
  });
  const std::uint32_t number = m_nodes.add(caller, frame, false);
  m_node_index.add(digest, number);
  return number;
}

void MEM_CALL_PATHS::make_room() {
  TABLE* const table = m_table.load(std::memory_order_relaxed);
  if (table != nullptr && table->taken < table->size / 2) return;
  TABLE* const larger = TABLE::make(table == nullptr ? TABLE::first_size : 2 * table->size, table);
  for (std::size_t index = 0; table != nullptr && index < table->size; ++index) {
    const TABLE::WORD word = table->places[index].load(std::memory_order_relaxed);
    if (word != 0 && static_cast<std::uint32_t>(word) != TABLE::removed) larger->add(word);
  }
  m_table.store(larger, std::memory_order_release);
}

// A node that is removed makes those it has called be removed, which have higher numbers.
void MEM_CALL_PATHS::remove_module(std::uintptr_t begin, std::uintptr_t end) {
  if (!m_frames.remove(begin, end)) return;
  m_nodes.for_each([&](MEM_PATH_NODE& node) {
    if (m_frames.is_removed(node.frame) || (node.caller != 0 && m_nodes[node.caller].is_removed))
      node.is_removed = true;
  });
  TABLE* const table = m_table;
  for (std::size_t index = 0; table != nullptr && index < table->size; ++index) {
    const TABLE::WORD word = table->places[index].load(std::memory_order_relaxed);
    const auto number = static_cast<std::uint32_t>(word);
    if (word != 0 && number != TABLE::removed && m_nodes[m_paths[number].node].is_removed)
      table->places[index].store(TABLE::word(word, TABLE::removed), std::memory_order_release);
  }
}
