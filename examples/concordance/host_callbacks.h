// What a host tells the library about itself.
#pragma once

/// Installs the host's callbacks: debug messages go to standard error with the host's own prefix,
/// and the fast leak report names the program.
void install_host_callbacks();
