/* Call sites in C: every allocation function of the C library. The allocator rounds a request up to
 * its alignment before it tells its hooks. */
#include <malloc.h>
#include <stdlib.h>

#include "tests/integration/programs/books.h"

void allocate_in_c(void) {
  NOTE(malloc(100), 100);
  NOTE(calloc(7, 30), 210);
  NOTE(realloc(NULL, 300), 300);
  NOTE(memalign(64, 400), 448);
  NOTE(aligned_alloc(128, 512), 512);
  NOTE(valloc(600), 4096);
  NOTE(pvalloc(700), 4096);

  void* grown = NOTE(malloc(50), 50);
  note_release(grown, 0);
  NOTE(realloc(grown, 5000), 5000);

  void* aligned = NULL;
  if (posix_memalign(&aligned, 256, 800) == 0) NOTE(aligned, 1024);
}
