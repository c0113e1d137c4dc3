// Texts that stay for the life of the process.
#pragma once

#include <string_view>

/// A copy of `text`, terminated, that is never changed or freed; equal texts share one. For what is
/// of few kinds and may be read at any time: names of reports, paths of modules. Any thread; may
/// throw std::bad_alloc.
char const* mem_keep_text(std::string_view text);

/// In a child made by fork: the texts stay, their list begins anew.
void mem_abandon_kept_texts();
