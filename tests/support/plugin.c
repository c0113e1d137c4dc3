/* A plug-in that is built with several frame sizes: its code is the same but for these. */
#include <stddef.h>

void* take_in_plugin(void* (*allocate)(size_t), size_t size) {
  volatile char room[PLUGIN_FRAME];
  room[0] = 1;
  void* const block = allocate(size);
  room[PLUGIN_FRAME - 1] = room[0];
  return block;
}
