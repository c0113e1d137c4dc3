// The one place that reads the environment.
#pragma once

/// The environment variable `name`; null when it is unset or `name` is null. Always null in a
/// process that has more rights than whoever started it (setuid or setgid programs, file
/// capabilities): there no switch of the caller's holds. The text is the environment's own.
const char* mem_environment_value(const char* name);
