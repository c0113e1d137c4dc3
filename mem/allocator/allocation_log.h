// The log of every allocation and release, "mem_allocations.log".
#pragma once

/// Switches the log off and closes its file. Nothing when it was never opened.
void mem_close_allocation_log();
