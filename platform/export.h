// The interfaces in this folder belong to the host's own libraries. The definitions beside them
// are defaults: each symbol is exported with default visibility and called through the dynamic
// linker, so a host that exports a symbol of the same name and signature replaces it. Files here
// rely on the C library and on nothing in mem/.
#pragma once

#define PLATFORM_API __attribute__((visibility("default")))
