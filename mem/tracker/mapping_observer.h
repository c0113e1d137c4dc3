// Memory mappings that other parts of the process create and remove, accounted like blocks.
#pragma once

#include "platform/udm_notifier.h"

/// Hands every notification of the host's notifier to mem_notify_memory_mapping_added and
/// mem_notify_memory_mapping_removed.
class MEM_UDM_OBSERVER final : public UDM_BAREBONES_NOTIFIER::OBSERVER {
 public:
  /// Registers, unless it is registered already.
  MEM_UDM_OBSERVER();
  MEM_UDM_OBSERVER(const MEM_UDM_OBSERVER&) = delete;
  MEM_UDM_OBSERVER& operator=(const MEM_UDM_OBSERVER&) = delete;
  ~MEM_UDM_OBSERVER() override;

  void mapping_added(void const* address, unsigned long size) override;
  void mapping_removed(void const* address, unsigned long size) override;

  /// Lives through the static life of the library.
  static MEM_UDM_OBSERVER singleton_instance;

 private:
  void* m_reserved = nullptr;  // part of the object's layout
};
