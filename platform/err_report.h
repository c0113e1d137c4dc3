// The host's error reporting.
#pragma once

#include "export.h"

/// Reports a broken invariant: the condition that failed, the module it belongs to, the source
/// file and line. Must not return. The default prints all four to standard error and aborts.
[[noreturn]] PLATFORM_API void err_report_internal_error(const char* condition, const char* module,
                                                         const char* file, int line);

/// Reports a fatal error with a message. Normally does not return. The default prints its
/// arguments to standard error and aborts.
PLATFORM_API void err_report_fatal_error(const char* message, const char* module, const char* file,
                                         int line);
