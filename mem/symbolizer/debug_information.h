// Why a file's addresses have no source lines.
#pragma once

/// What to do about a file whose lines addr2line does not tell, in words; null when the file itself
/// gives no reason. With `reads_split` it was asked
/// of a tool that reads information which is split off.
char const* mem_missing_lines_advice(char const* path, bool reads_split = false);
