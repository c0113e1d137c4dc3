// Builds a concordance of text files: which words occur, and where. Without arguments it reads
// licence texts that every Debian machine has.
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "concordance/bookmarks.h"
#include "concordance/host_callbacks.h"
#include "concordance/phase.h"
#include "line_store/line_store.h"
#include "tuk_mem.h"
#include "word_index/word_index.h"

namespace {

std::vector<std::string> input_files(int count, char** arguments) {
  if (count > 1) return {arguments + 1, arguments + count};
  return {"/usr/share/common-licenses/GPL-2", "/usr/share/common-licenses/GPL-3",
          "/usr/share/common-licenses/LGPL-2.1", "/usr/share/common-licenses/Apache-2.0"};
}

bool read_files(const std::vector<std::string>& paths, LINE_STORE& store) {
  for (const std::string& path : paths) {
    if (store.read(path)) continue;
    std::fprintf(stderr, "concordance: cannot read %s\n", path.c_str());
    return false;
  }
  std::printf("line_store.cpp holds %zu lines in %zu bytes asked for.\n", store.lines().size(),
              store.requested_bytes());
  return true;
}

void index_lines(const LINE_STORE& store, WORD_INDEX& index) {
  std::uint32_t number = 0;
  for (const LINE_STORE::LINE& line : store.lines()) index.add_line(++number, line.get());
  std::printf("word_index.cpp holds %zu words and %zu occurrences of 16 bytes.\n", index.words(),
              index.occurrences());
}

void print_most_frequent(const WORD_INDEX& index) {
  std::printf("Most frequent:");
  for (const auto& [word, count] : index.most_frequent(5))
    std::printf(" %s (%zu)", word.c_str(), count);
  std::printf("\n");
}

// One bookmark every hundred lines, none of them ever deleted.
void set_bookmarks(const LINE_STORE& store) {
  std::size_t forgotten = 0;
  for (std::size_t line = 0; line < store.lines().size(); line += 100, ++forgotten)
    forget_bookmark(line);
  std::printf("bookmarks.cpp leaks %zu bookmarks of %zu bytes.\n", forgotten, bookmark_size);
}

// The lines were allocated here: for each, the thread that frees it is another one.
void release_lines_elsewhere(LINE_STORE& store) {
  std::thread([lines = store.take()]() mutable { lines.clear(); }).join();
  std::printf("All lines are freed by another thread.\n");
}

// The work in phases, each measured by itself and under its tag.
bool run(const std::vector<std::string>& paths) {
  LINE_STORE store;
  WORD_INDEX index;
  {
    const PHASE phase("read", "input");
    if (!read_files(paths, store)) return false;
  }
  {
    const PHASE phase("build", "index");
    {
      const PHASE words("words");  // under the same tag
      index_lines(store, index);
    }
    print_most_frequent(index);
  }
  // The reports show this phase's peak, unless the rest of the run rises above it.
  mem_tbb_tracking_flush_peak();
  {
    const PHASE phase("bookmarks", "index");  // a second bin of the tag
    set_bookmarks(store);
  }
  mem_set_timeline_label("closing");
  mem_user_snapshot_tracking_data();
  const PHASE phase("release");
  release_lines_elsewhere(store);
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  install_host_callbacks();
  mem_set_tbb_exe_string("concordance");
  return run(input_files(count, arguments)) ? 0 : 1;
}
