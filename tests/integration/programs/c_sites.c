/* Call sites in C: every allocation function of the C library. One allocator has no pvalloc: the C
 * library's gives blocks of its own. */
#define _GNU_SOURCE
#include <malloc.h>
#include <stdlib.h>

#include "tests/integration/programs/books.h"

void allocate_in_c(void) {
  NOTE(malloc(100), 100);
  NOTE(calloc(7, 30), 210);
  NOTE(realloc(NULL, 300), 300);
  NOTE(memalign(64, 400), told(400, 64));
  NOTE(aligned_alloc(128, 512), 512);
  NOTE(valloc(600), told(600, 4096));
  if (!is_preloaded("jemalloc")) NOTE(pvalloc(700), told(700, 4096));

  void* grown = NOTE(malloc(50), 50);
  note_release(grown, 0);
  grown = NOTE(realloc(grown, 5000), 5000);
  note_release(grown, 0);
  NOTE(reallocarray(grown, 600, 10), 6000);

  void* aligned = NULL;
  if (posix_memalign(&aligned, 256, 800) == 0) NOTE(aligned, told(800, 256));
}
