// Sizes as people write and read them.
#pragma once

#include <cstdint>
#include <string>

namespace command {

/// "512", "1.21K", "30.4M": three digits, in units of 1024.
std::string human(std::int64_t number);
/// The same behind its sign, "+1.21K"; "0" has none.
std::string human_change(std::int64_t number);

/// "200M", "1.5 GiB", "1000", "10kB": K, M, G and T are powers of 1024 also behind "iB", and of
/// 1000 before a "B". Throws std::runtime_error.
std::int64_t parse_size(const std::string& text);

}  // namespace command
