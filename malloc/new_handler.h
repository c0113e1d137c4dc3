// malloc that calls the new-handler before it fails, as operator new does, where a host wants that.
#pragma once

/// Whether it is worth trying again: somebody wanted it (tc_set_new_mode), there is a new-handler,
/// and it has returned.
bool mem_new_handler_made_room();
