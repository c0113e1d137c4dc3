#include "mem/state/hot_line.h"

constinit MEM_HOT_LINE mem_hot_line;
