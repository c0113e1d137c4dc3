// The notifier of mappings: who is told, and when an observer may go.
#include "platform/udm_notifier.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

namespace {

using NOTIFIER = UDM_BAREBONES_NOTIFIER;

struct CALLS_BACK : NOTIFIER::OBSERVER {
  std::function<void()> when_added = [] {};
  unsigned long added = 0;
  unsigned long removed = 0;

  void mapping_added(void const*, unsigned long size) override {
    added += size;
    when_added();
  }
  void mapping_removed(void const*, unsigned long size) override { removed += size; }
};

TEST(MappingNotifier, TellsEveryObserverOfWhatHappensWhileItIsRegistered) {
  CALLS_BACK observers[40];
  CALLS_BACK& last = observers[39];
  for (CALLS_BACK& observer : observers) NOTIFIER::add_observer(&observer);
  observers[0].when_added = [&] {
    for (CALLS_BACK& observer : observers)
      if (&observer != &last) NOTIFIER::remove_observer(&observer);
  };
  NOTIFIER::notify_removed(nullptr, 1);
  NOTIFIER::notify_added(nullptr, 10);
  NOTIFIER::notify_added(nullptr, 100);
  NOTIFIER::remove_observer(&last);
  NOTIFIER::notify_removed(nullptr, 1000);
  for (CALLS_BACK& observer : observers) {
    EXPECT_EQ(observer.removed, 1U);
    EXPECT_EQ(observer.added, &observer == &last ? 110 : &observer == observers ? 10 : 0);
    EXPECT_FALSE(NOTIFIER::is_registered(&observer));
  }
}

TEST(MappingNotifier, LetsAnObserverGoOnceNoOtherThreadIsInIt) {
  CALLS_BACK observer;
  std::atomic<bool> inside = false;
  std::atomic<bool> leave = false;
  std::atomic<bool> gone = false;
  observer.when_added = [&] {
    inside = true;
    while (!leave) std::this_thread::yield();
  };
  NOTIFIER::add_observer(&observer);
  std::thread notifies([] { NOTIFIER::notify_added(nullptr, 1); });
  while (!inside) std::this_thread::yield();
  // A forked child has no thread to wait for.
  EXPECT_EXIT((ualarm(900000, 0), NOTIFIER::remove_observer(&observer), _exit(0)),
              testing::ExitedWithCode(0), "");
  std::thread removes([&] {
    NOTIFIER::remove_observer(&observer);
    gone = true;
  });
  usleep(20000);
  EXPECT_FALSE(gone);
  leave = true;
  removes.join();
  notifies.join();
}

}  // namespace
