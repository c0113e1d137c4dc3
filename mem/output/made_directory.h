// Directories that are made when they are missing.
#pragma once

#include "mem/base/bookkeeping.h"

/// Makes the directory of an absolute path and its parents, each with mode 0700 less the umask, and
/// replaces the path by the one without links and dots. A link is followed if it is this user's or
/// root's. Null, or why the directory can't be written into, in words. May throw std::bad_alloc.
char const* mem_make_directory(MEM_BOOKKEEPING_STRING& path);
