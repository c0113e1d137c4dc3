#include "tools/symbols/server/module_store.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>

#include <algorithm>

#include "mem/symbolizer/elf_identity.h"

namespace symbols {

namespace {

using REFUSAL = MEM_SYMBOL_PROTOCOL::REFUSAL;
using namespace std::chrono_literals;

constexpr std::size_t most_workers = 128;
constexpr std::size_t most_modules = 4096;
constexpr auto idle_time = 30s;
constexpr auto silent_time = 60s;

template <class VALUE>
void append(std::string& bytes, const VALUE& value) {
  bytes.append(reinterpret_cast<char const*>(&value), sizeof value);
}

bool may_be_read(int file) { return (fcntl(file, F_GETFL) & (O_ACCMODE | O_PATH)) != O_WRONLY; }

// Whatever tells a file from another, or from what it was before. The build-id too: a file system
// may give a new file the number and the times of an old one.
std::string key_of(const struct stat& file, const MEM_ELF_IDENTITY& identity) {
  std::string key;
  append(key, file.st_dev);
  append(key, file.st_ino);
  append(key, file.st_size);
  append(key, file.st_mtim);
  append(key, file.st_ctim);
  append(key, identity.headers);
  append(key, identity.build_id);
  return key;
}

}  // namespace

MODULE_STORE::OPENED MODULE_STORE::open(DESCRIPTOR file, std::string path) {
  struct stat status {};
  if (fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode) || !may_be_read(file.number()))
    return REFUSAL::unreadable;
  const MEM_ELF_IDENTITY identity = MEM_ELF_IDENTITY::of_file(file.number());
  if (!identity.is_known()) return REFUSAL::unreadable;
  const std::string key = key_of(status, identity);
  const auto known = m_modules.find(key);
  if (known != m_modules.end()) return known->second;
  if (m_modules.size() >= most_modules && !drop_oldest_module()) return REFUSAL::for_now;
  auto module = std::make_shared<KNOWN_MODULE>(*this, std::move(file), std::move(path));
  m_modules.emplace(key, module);
  return module;
}

bool MODULE_STORE::has_room_for_worker() {
  const auto workers = std::count_if(m_modules.begin(), m_modules.end(),
                                     [](const auto& entry) { return entry.second->has_worker(); });
  return static_cast<std::size_t>(workers) < most_workers || drop_oldest_worker(nullptr);
}

void MODULE_STORE::wait_for_room(KNOWN_MODULE& module) {
  if (std::find(m_want_room.begin(), m_want_room.end(), &module) == m_want_room.end())
    m_want_room.push_back(&module);
}

void MODULE_STORE::start_waiting() {
  for (KNOWN_MODULE* module : std::exchange(m_want_room, {})) module->go_on();
}

std::uint64_t MODULE_STORE::memory_in_use() const {
  std::uint64_t bytes = private_memory_of(getpid());
  for (const auto& [key, module] : m_modules) bytes += module->worker_memory();
  return bytes;
}

void MODULE_STORE::make_room(const KNOWN_MODULE& in_use) {
  while (memory_in_use() > m_memory_limit &&
         (drop_oldest_worker(&in_use) || drop_oldest_answers(&in_use))) {
  }
}

namespace {

// The one that was used least recently of those for which the condition holds; the end for none.
template <class MODULES, class CONDITION>
auto oldest(MODULES& modules, const CONDITION& holds) {
  auto found = modules.end();
  for (auto entry = modules.begin(); entry != modules.end(); ++entry)
    if (holds(entry->second) &&
        (found == modules.end() || entry->second->last_use() < found->second->last_use()))
      found = entry;
  return found;
}

}  // namespace

bool MODULE_STORE::drop_oldest_worker(const KNOWN_MODULE* in_use) {
  const auto found = oldest(m_modules, [&](const auto& module) {
    return module->has_worker() && module->is_idle() && module.get() != in_use;
  });
  if (found == m_modules.end()) return false;
  found->second->end_worker();
  return true;
}

bool MODULE_STORE::drop_oldest_answers(const KNOWN_MODULE* in_use) {
  const auto found = oldest(m_modules, [&](const auto& module) {
    return module->bytes_of_answers() > 0 && module->is_idle() && module.get() != in_use;
  });
  if (found == m_modules.end()) return false;
  found->second->forget_answers();
  malloc_trim(0);
  return true;
}

// One that no client has open any more.
bool MODULE_STORE::drop_oldest_module() {
  const auto found = oldest(m_modules, [](const auto& module) { return module.use_count() == 1; });
  if (found == m_modules.end()) return false;
  m_modules.erase(found);
  return true;
}

void MODULE_STORE::sweep() {
  const auto now = KNOWN_MODULE::CLOCK::now();
  for (const auto& [key, module] : m_modules) {
    if (!module->has_worker()) continue;
    if (module->is_idle() && now - module->last_use() > idle_time) module->end_worker();
    if (!module->is_idle() && now - module->last_sign() > silent_time) module->worker_ended();
  }
}

}  // namespace symbols
