// A host's library whose constructors run before those of the memory library: it maps memory then.
#include <cstdlib>

extern "C" [[gnu::weak]] void mem_notify_memory_mapping_added(void const* address,
                                                              unsigned long size);

extern "C" [[gnu::constructor]] void map_early() {
  static char mapping;
  if (std::getenv("MAP_EARLY") != nullptr) mem_notify_memory_mapping_added(&mapping, 123456);
  asm volatile("");  // no tail call
}
