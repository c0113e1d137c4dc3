// What the library and the symbol server say to each other over a local stream socket: frames of a
// header and at most a megabyte, numbers as the processor stores them (both ends are on one
// machine). Neither end believes the other: every size is held against the limits first.
#pragma once

#include <cstddef>
#include <cstdint>

namespace MEM_SYMBOL_PROTOCOL {

constexpr std::uint32_t magic = 0x31534d54;  // "TMS1"; another version is another number
constexpr std::size_t most_payload = std::size_t{1} << 20;
constexpr std::uint32_t most_addresses = 4096;  // in one question
constexpr std::uint32_t most_frames = 1024;     // at one address; further ones are left out

enum KIND : std::uint32_t {
  /// Question: the path of a module's file, without an end mark, and beside it one descriptor of
  /// the file (SCM_RIGHTS), open for reading: the path names it in messages and leads to files
  /// beside it, what is read is the descriptor. Answer: OPENED.
  open_module = 1,
  /// Question: QUESTION, then that many addresses of 8 bytes, as the file counts them (already one
  /// less where they come from a return address). Answer: `answers`.
  look_up = 2,
  /// Answer to open_module.
  opened = 0x101,
  /// Answer to look_up: for each address in order, a word with the number of its frames, 1 at
  /// least; then the frames, innermost first, each a FRAME, its function's and its file's bytes. An
  /// empty function or file is unknown, as is line 0. Functions are demangled; files are what the
  /// debug information says, made absolute by its directory where it says one.
  answers = 0x102,
  /// Instead of either answer: REFUSAL.
  refused = 0x1ff,
};

/// In front of every payload. An answer carries the number of its question, which the asker
/// chooses; answers may come in any order.
struct HEADER {
  std::uint32_t magic;
  std::uint32_t kind;
  std::uint32_t number;
  std::uint32_t payload;  ///< bytes
};

struct OPENED {
  std::uint32_t module;  ///< its number on this connection
};

struct QUESTION {
  std::uint32_t module;
  std::uint32_t addresses;
};

struct FRAME {
  std::uint32_t line;
  std::uint32_t function;  ///< bytes
  std::uint32_t file;      ///< bytes
};

struct REFUSAL {
  enum REASON : std::uint32_t {
    unreadable = 1,  ///< no file of this kind, or a damaged one: asking again will not help
    for_now = 2,     ///< want of memory or descriptors in the server: it may
    misuse = 3,      ///< a question that breaks these rules; the server closes the connection
  };
  std::uint32_t reason;
};

}  // namespace MEM_SYMBOL_PROTOCOL
