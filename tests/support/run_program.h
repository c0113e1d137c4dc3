// Running a program of the tests as a user would: in a directory of its own, with the environment
// that the test gives it and nothing that would profile it otherwise.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

/// How to run a program. No text may contain a quote. Of the test's own environment, it gets the
/// PATH.
struct PROGRAM {
  std::string path;
  std::vector<std::string> arguments{};
  std::map<std::string, std::string> environment{};
  std::vector<std::string> preload{};
  std::string shell_prefix{};  ///< run in the same shell before the program: "ulimit -v 500000;"
};

/// What a run left behind. Its directory goes with it.
class RUN {
 public:
  explicit RUN(const PROGRAM& program);
  RUN(const RUN&) = delete;
  RUN& operator=(const RUN&) = delete;
  ~RUN();

  int status() const { return m_status; }  ///< exit status, or 128 + the signal it died of
  const std::string& out() const { return m_out; }
  const std::string& err() const { return m_err; }
  const std::filesystem::path& directory() const { return m_directory; }
  std::string file(const std::string& name) const;  ///< "" when there is none
  std::set<std::string> file_names() const;

 private:
  std::filesystem::path m_directory;
  int m_status = -1;
  std::string m_out;
  std::string m_err;
};
