// The host's notifier of memory mappings.
#pragma once

#include "export.h"

/// Tells registered observers of every mapping that the host adds or removes. The default keeps
/// the list; only a host that maps memory raises notifications. All functions: any thread, also
/// inside an observer and in a child made by fork; no lock, and no block of the heap.
class PLATFORM_API UDM_BAREBONES_NOTIFIER {
 public:
  class PLATFORM_API OBSERVER {
   public:
    OBSERVER() = default;
    OBSERVER(const OBSERVER&) = delete;
    OBSERVER& operator=(const OBSERVER&) = delete;
    virtual ~OBSERVER() = default;
    /// `size` in bytes.
    virtual void mapping_added(void const* address, unsigned long size) = 0;
    virtual void mapping_removed(void const* address, unsigned long size) = 0;
  };

  /// Notified from now on. Throws std::bad_alloc when there is no room for it.
  static void add_observer(OBSERVER* observer);

  /// Not notified any more, and free to be destroyed: waits for calls of the observer that run on
  /// other threads, up to a second each time it was added. Does not wait when called inside an
  /// observer, whose caller may be waited for itself. Nothing for one that is not registered.
  static void remove_observer(OBSERVER* observer);

  static bool is_registered(OBSERVER const* observer);

  /// Raise a notification on the calling thread. What an observer throws passes on.
  static void notify_added(void const* address, unsigned long size);
  static void notify_removed(void const* address, unsigned long size);
};
