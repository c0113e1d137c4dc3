// Retiring what is known of modules that the loader has removed.
#pragma once

/// Retires what was learnt of modules that are gone: their unwind rules are forgotten, their
/// records are retired. To be called from the delete hook while mem_loader_is_removing() says so,
/// on every thread, also on one whose tracking is blocked. No exception leaves.
void mem_retire_modules_removed_now();

/// The same for all that happened while no hook was installed.
void mem_retire_modules_removed_unseen();
