#include "mem/output/report_directory.h"

#include <atomic>
#include <cerrno>
#include <new>
#include <string>
#include <string_view>

#include "mem/base/bookkeeping.h"
#include "mem/base/error_line.h"
#include "mem/base/kept_text.h"
#include "mem/host/settings.h"
#include "mem/output/error_words.h"
#include "mem/output/made_directory.h"
#include "mem/output/run_start.h"
#include "platform/thr_runtime.h"

namespace {

using PATH = MEM_BOOKKEEPING_STRING;

constinit std::atomic<char const*> wanted = nullptr;  // as start-up has expanded it
constinit std::atomic<char const*> made = nullptr;

// What was asked for, and where a relative one begins.
constinit char const* asked = nullptr;
constinit char const* start = "";

// Appends what `sequence` stands for. False for one that stands for nothing.
bool append_expansion(char sequence, PATH& out) {
  switch (sequence) {
    case 'p':
      out += std::to_string(thr_getpid());
      return true;
    case 'e':
      out += mem_run_start().executable_name();
      return true;
    case '%':
      out += '%';
      return true;
    default:
      return false;
  }
}

bool expand(std::string_view text, PATH& out) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%')
      out += text[i];
    else if (++i == text.size() || !append_expansion(text[i], out))
      return false;
  }
  return true;
}

void give_up(char const* path, char const* trouble) {
  if (wanted.exchange(nullptr) != nullptr)
    mem_say_error_line("MEM: no file can be written into %s (%s): the current directory is used",
                       path, trouble);
}

char const* make(char const* path) try {
  PATH directory = path;
  char const* const trouble = mem_make_directory(directory);
  if (trouble == nullptr) return made = mem_keep_text(directory);
  give_up(path, trouble);
  return nullptr;
} catch (const std::bad_alloc&) {
  give_up(path, mem_error_words(-ENOMEM));
  return nullptr;
}

void want() {
  PATH path;
  if (!expand(asked, path)) {
    mem_say_error_line(
        "MEM: the report directory is \"%s\", where %% is none of %%p, %%e and %%%%: the current "
        "directory is used",
        asked);
    return;
  }
  wanted = mem_keep_text(path);
  if (path.starts_with('/')) return;
  if (*start == '\0') return give_up(path.c_str(), "the current one has been removed");
  wanted = mem_keep_text(PATH(start) + '/' + path);
}

void ask(MEM_TRACKING_GRANULARITY granularity) {
  const std::string text = mem_setting_text(mem_settings_row("mem_report_directory"));
  if (text.empty()) return;
  asked = mem_keep_text(text);
  start = mem_keep_text(mem_note_run_start().directory);
  want();
  if (granularity != MEM_TRACK_NONE) mem_report_directory();
}

// Made when the first file is: until then the child may become another user.
void expand_anew() {
  mem_note_run_start_of_child();
  made = nullptr;
  wanted = nullptr;
  if (asked != nullptr) want();
}

}  // namespace

char const* mem_wanted_report_directory() {
  char const* const directory = made;
  return directory != nullptr ? directory : wanted.load();
}

bool mem_processes_share_report_directory() {
  return asked == nullptr || std::string_view(asked).find("%p") == std::string_view::npos;
}

char const* mem_report_directory() {
  if (char const* const directory = made) return directory;
  char const* const path = wanted;
  return path == nullptr ? nullptr : make(path);
}

constinit const MEM_PART mem_report_directory_part(
    MEM_CREATE{ask}, MEM_RESET{mem_nothing},  // no figure
    MEM_FREE{mem_nothing},                    // what is opened afterwards goes to the same place
    MEM_ABANDON{mem_nothing},                 // the child goes on with the parent's
    MEM_FOLLOW{expand_anew});
