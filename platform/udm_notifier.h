// The host's notifier of memory mappings.
#pragma once

#include "platform/export.h"

/// Tells registered observers of every mapping that the host adds or removes. The default keeps
/// the list; only a host that maps memory raises notifications.
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

  static void add_observer(OBSERVER* observer);
  static void remove_observer(OBSERVER* observer);
  static bool is_registered(OBSERVER const* observer);

  /// Raise a notification on the calling thread.
  static void notify_added(void const* address, unsigned long size);
  static void notify_removed(void const* address, unsigned long size);
};
