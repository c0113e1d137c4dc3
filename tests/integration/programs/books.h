/* A program's own books: what it asked for, on which line, what it got and what it gave back.
 * For C and C++. Prints them at the end, so that the test can
 * compare every figure of a report. One thread at a time. */
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Enters a block under file and line; returns it. */
void* note_block(const char* file, int line, void* block, size_t requested);
/* Takes a block out of the books, to be freed by the caller. `other_thread`: the caller is not the
 * thread that allocated it. */
void note_release(void* block, int other_thread);
/* Prints a line a site: "site", file, line, and the figures of a fileline report but for peaks. */
void print_books(void);
/* Whether a library of such a name is preloaded. */
int is_preloaded(const char* part_of_name);
/* What the hooks are told of a request for aligned memory. */
size_t told(size_t requested, size_t alignment);

#ifdef __cplusplus
}
#endif

/* The expression that allocates has to stand on the macro's line. */
#define NOTE(expression, requested) note_block(__FILE__, __LINE__, (expression), (requested))
