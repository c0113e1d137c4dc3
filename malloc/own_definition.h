// What a module defines itself, whoever's definition the loader prefers.
#pragma once

/// The function `name` of the module that has `address`; null where it defines none. Asks nothing
/// of the loader that takes a lock or memory: a constructor may be the caller.
void* mem_definition_in_module_of(void const* address, char const* name);
