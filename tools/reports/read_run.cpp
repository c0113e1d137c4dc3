#include "tools/reports/read_run.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "tools/reports/read_report.h"

namespace fs = std::filesystem;

namespace reports {

namespace {

// Folders below the one that is named: %e/%p and the like.
constexpr int deepest = 4;

constexpr std::string_view snapshot_prefix = "snapshot-";

struct REPORT_FILE {
  const REPORT_KIND* kind;
  fs::path path;
};

// What a directory holds. The reports of several processes may stand in one: each host's tag is
// one set.
struct FOLDER {
  std::map<std::string, std::vector<REPORT_FILE>> sets;
  std::vector<fs::path> snapshots;
  std::vector<fs::path> others;
};

bool is_all_digits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// 2 before 10.
bool is_before(const fs::path& a, const fs::path& b) {
  const std::string left = a.filename().string();
  const std::string right = b.filename().string();
  if (is_all_digits(left) && is_all_digits(right) && left.size() != right.size())
    return left.size() < right.size();
  return left < right;
}

bool is_by_number(const fs::path& a, const fs::path& b) {
  const auto key = [](const fs::path& path) {
    const std::string name = path.filename().string();
    return std::make_pair(name.size(), name);
  };
  return key(a) < key(b);
}

class READER {
 public:
  READER(RUN& run, DAMAGED damaged) : m_run(run), m_damaged(damaged) {}

  void read(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error) throw UNREADABLE(path + ": " + error.message());
    if (!fs::is_directory(status)) return read_single_file(path);
    const fs::path folder(path);  // a slash at its end is no part of its name
    read_folder(folder.has_filename() ? folder : folder.parent_path(), ".", 0);
    if (m_run.processes.empty())
      throw UNREADABLE(path + ": there are no reports in this directory");
  }

 private:
  void note(const std::string& text) { m_run.notes.push_back(text); }

  void read_single_file(const fs::path& path) {
    PROCESS process;
    process.folder = ".";
    const REPORT_KIND* const kind = kind_of_name(path.filename().string(), process.tag);
    read_file({kind, path}, process);
    add(std::move(process));
  }

  FOLDER list(const fs::path& path) {
    FOLDER folder;
    std::error_code error;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error)) {
      const std::string name = entry->path().filename().string();
      std::error_code ignored;
      if (entry->is_directory(ignored) && !entry->is_symlink(ignored))
        list_directory(folder, entry->path(), name);
      else if (entry->is_regular_file(ignored))
        list_file(folder, entry->path(), name);
    }
    if (error) throw UNREADABLE(path.string() + ": " + error.message());
    std::sort(folder.snapshots.begin(), folder.snapshots.end(), is_by_number);
    std::sort(folder.others.begin(), folder.others.end(), is_before);
    return folder;
  }

  void list_directory(FOLDER& folder, const fs::path& path, const std::string& name) {
    if (!name.starts_with(snapshot_prefix))
      folder.others.push_back(path);
    else if (is_all_digits(std::string_view(name).substr(snapshot_prefix.size())))
      folder.snapshots.push_back(path);
    else
      note(path.string() + ": left out: a process was killed while it wrote this snapshot");
  }

  static void list_file(FOLDER& folder, const fs::path& path, const std::string& name) {
    std::string tag;
    const REPORT_KIND* const kind = kind_of_name(name, tag);
    if (kind != nullptr && kind->read != nullptr) folder.sets[tag].push_back({kind, path});
  }

  // The summary of leaks has no tag in its name: it belongs to the only set.
  static void give_tagless_to_only_set(FOLDER& folder) {
    const auto tagless = folder.sets.find("");
    if (tagless == folder.sets.end() || folder.sets.size() != 2) return;
    auto& only = folder.sets.rbegin()->second;
    only.insert(only.end(), tagless->second.begin(), tagless->second.end());
    folder.sets.erase(tagless);
  }

  void read_folder(const fs::path& path, const std::string& name, int depth) {
    FOLDER folder = list(path);
    if (folder.sets.empty() && !folder.snapshots.empty()) return read_last_snapshot(folder, name);
    give_tagless_to_only_set(folder);
    const bool is_snapshot = path.filename().string().starts_with(snapshot_prefix);
    for (auto& [tag, files] : folder.sets)
      read_set(tag, files, folder.snapshots, name, is_snapshot);
    for (const fs::path& other : folder.others)
      if (depth < deepest)
        read_folder(other,
                    depth == 0 ? other.filename().string() : name + "/" + other.filename().string(),
                    depth + 1);
  }

  // Of a process that was killed, or has not ended.
  void read_last_snapshot(const FOLDER& folder, const std::string& name) {
    const fs::path& last = folder.snapshots.back();
    FOLDER reports = list(last);
    give_tagless_to_only_set(reports);
    note(last.parent_path().string() + ": no reports of its end: its last snapshot is taken, " +
         last.filename().string());
    for (auto& [tag, files] : reports.sets) read_set(tag, files, folder.snapshots, name, true);
  }

  void read_set(const std::string& tag, std::vector<REPORT_FILE>& files,
                const std::vector<fs::path>& snapshots, const std::string& name, bool is_snapshot) {
    PROCESS process;
    process.folder = name;
    process.tag = tag;
    process.is_snapshot = is_snapshot;
    std::sort(files.begin(), files.end(), [](const REPORT_FILE& a, const REPORT_FILE& b) {
      return a.kind < b.kind;  // the order of the table
    });
    for (const REPORT_FILE& file : files)
      if (!file.kind->is_there(process)) read_file(file, process);
    for (const fs::path& snapshot : snapshots) add_snapshot(process, snapshot);
    add(std::move(process));
  }

  void add_snapshot(PROCESS& process, const fs::path& path) {
    PROCESS of_the_snapshot;
    const fs::path run_file = path / ("mem_tbb_run." + process.tag + ".log");
    std::error_code ignored;
    std::string tag;
    if (fs::is_regular_file(run_file, ignored))
      read_file({kind_of_name(run_file.filename().string(), tag), run_file}, of_the_snapshot);
    process.snapshots.push_back({path.filename().string(), of_the_snapshot.facts});
  }

  void read_file(const REPORT_FILE& file, PROCESS& process) {
    try {
      errno = 0;
      std::ifstream in(file.path, std::ios::binary);
      if (!in) throw UNREADABLE(file.path.string() + ": " + std::strerror(errno));
      read_report(in, file.path.string(), file.kind, process, m_run.texts);
    } catch (const UNREADABLE& damage) {
      if (m_damaged == DAMAGED::REFUSED) throw;
      note(std::string(damage.what()) + "; what stands before is taken");
    }
  }

  void add(PROCESS process) {
    const std::string executable = process.facts ? process.facts->value("executable") : "";
    const std::string program = fs::path(executable).filename().string();
    process.name = !program.empty()        ? program + " " + process.facts->value("pid")
                   : process.folder != "." ? process.folder
                   : process.tag.empty()   ? "the process"
                                           : process.tag;
    m_run.processes.push_back(std::move(process));
  }

  RUN& m_run;
  DAMAGED m_damaged;
};

}  // namespace

RUN read_run(const std::string& path, DAMAGED damaged) {
  RUN run;
  run.path = path;
  READER(run, damaged).read(path);
  return run;
}

}  // namespace reports
