// Settings: the host's callback, else the host's own function found by name, else the environment.
#include <strings.h>

#include <atomic>
#include <cstdlib>

#include "mem/host/callbacks.h"
#include "mem/host/environment.h"
#include "platform/thr_runtime.h"

namespace {

using PENDING = std::atomic<bool>;

// A host's own search may ask for settings.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool is_searching = false;

// What stands in a slot. An empty one is filled with the host's function `name`, if the process has
// it. Searched once per slot, or by each of several threads that come first: a function that turns
// up later is only found through the setter.
template <class CALLBACK>
CALLBACK found_in(CALLBACK& slot, PENDING& search_pending, const char* name) {
  const std::atomic_ref<CALLBACK> shared(slot);
  if (shared != nullptr || !search_pending || is_searching) return shared;
  is_searching = true;
  const auto found = reinterpret_cast<CALLBACK>(thr_drl_find_function(nullptr, name));
  is_searching = false;
  CALLBACK none = nullptr;
  shared.compare_exchange_strong(none, found);
  search_pending = false;
  return shared;
}

constinit PENDING cfg_is_on_search_pending = true;
constinit PENDING cfg_get_int_value_search_pending = true;
constinit PENDING cfg_get_value_search_pending = true;

bool is_any_of(const char* value, const char* word, const char* digit) {
  return strcasecmp(value, word) == 0 || strcasecmp(value, digit) == 0;
}

}  // namespace

bool mem_cfg_is_on(const char* name, bool default_value) {
  const auto callback =
      found_in(mem_host_callbacks.cfg_is_on, cfg_is_on_search_pending, "cfg_dyn_is_on");
  if (callback != nullptr) return callback(name, default_value);
  const char* value = mem_environment_value(name);
  if (value == nullptr) return default_value;
  if (is_any_of(value, "on", "1")) return true;
  if (is_any_of(value, "off", "0")) return false;
  return default_value;
}

int mem_cfg_get_int_value(const char* name, int default_value) {
  const auto callback = found_in(mem_host_callbacks.cfg_get_int_value,
                                 cfg_get_int_value_search_pending, "cfg_dyn_get_int_value");
  int result = 0;
  if (callback != nullptr) {
    callback(name, &result, default_value);
    return result;
  }
  const char* value = mem_environment_value(name);
  if (value != nullptr && *value != '\0')
    result = static_cast<int>(std::strtol(value, nullptr, 10));
  return result;
}

std::string mem_cfg_get_value(const char* name) {
  const auto callback =
      found_in(mem_host_callbacks.cfg_get_value, cfg_get_value_search_pending, "cfg_dyn_get_value");
  std::string result;
  if (callback != nullptr) {
    callback(name, &result);
    return result;
  }
  if (const char* value = mem_environment_value(name)) result = value;
  return result;
}

bool mem_env_is_on(const char* name) {
  const char* value = mem_environment_value(name);
  if (value == nullptr || *value == '\0') return false;
  return value[0] != '0' || value[1] != '\0';
}

void* mem_get_cfg_handle() { return nullptr; }
