#include "platform/udm_notifier.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace {

struct OBSERVERS {
  std::mutex mutex;
  std::vector<UDM_BAREBONES_NOTIFIER::OBSERVER*> list;
};

// Never destroyed: observers of modules that unload last still remove themselves.
OBSERVERS& observers() {
  static OBSERVERS& instance = *new OBSERVERS;
  return instance;
}

// Observers run without the lock, so that one may add or remove another.
template <class NOTIFY>
void notify_each(NOTIFY notify) {
  std::vector<UDM_BAREBONES_NOTIFIER::OBSERVER*> current;
  {
    const std::lock_guard lock(observers().mutex);
    current = observers().list;
  }
  for (UDM_BAREBONES_NOTIFIER::OBSERVER* observer : current) notify(*observer);
}

}  // namespace

void UDM_BAREBONES_NOTIFIER::add_observer(OBSERVER* observer) {
  const std::lock_guard lock(observers().mutex);
  observers().list.push_back(observer);
}

void UDM_BAREBONES_NOTIFIER::remove_observer(OBSERVER* observer) {
  const std::lock_guard lock(observers().mutex);
  std::erase(observers().list, observer);
}

bool UDM_BAREBONES_NOTIFIER::is_registered(OBSERVER const* observer) {
  const std::lock_guard lock(observers().mutex);
  const auto& list = observers().list;
  return std::find(list.begin(), list.end(), observer) != list.end();
}

void UDM_BAREBONES_NOTIFIER::notify_added(void const* address, unsigned long size) {
  notify_each([&](OBSERVER& observer) { observer.mapping_added(address, size); });
}

void UDM_BAREBONES_NOTIFIER::notify_removed(void const* address, unsigned long size) {
  notify_each([&](OBSERVER& observer) { observer.mapping_removed(address, size); });
}
