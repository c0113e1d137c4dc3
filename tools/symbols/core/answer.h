// Frames as bytes: what an answer holds for one address.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/symbols/core/module.h"

namespace symbols {

/// The word with the number of frames, then the frames; functions and files that are too long are
/// cut, and outer frames left out, where there would be more than the protocol or `most_bytes`
/// allows.
std::string encoded(std::span<const FRAME> frames);
constexpr std::size_t most_bytes_of_answer = std::size_t{96} * 1024;

/// What stands for an address of which nothing is known.
std::string encoded_unknown();

/// The answer without the outer frames that would take it beyond so many bytes. One frame stays,
/// unknown if it must be.
std::string first_frames(const std::string& answer, std::size_t most_bytes);

/// Whether the bytes are such an answer, and nothing behind it.
bool is_whole_answer(std::string_view bytes);

/// The frames of a whole answer.
std::vector<FRAME> decoded(std::string_view answer);

}  // namespace symbols
