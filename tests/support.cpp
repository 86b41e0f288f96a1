// SPDX-License-Identifier: BSD-3-Clause
#include "support.h"

#include "pkg.h"
#include "unique_fd.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <numeric>
#include <sstream>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char* OUT_FILE = ".captured.out";
constexpr const char* ERR_FILE = ".captured.err";

void redirect(int fd, const char* file) {
  const int target = open(file, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  dup2(target, fd);
  close(target);
}

Printed take_captured() {
  Printed printed = {read_file(OUT_FILE), read_file(ERR_FILE)};
  unlink(OUT_FILE);
  unlink(ERR_FILE);
  return printed;
}

} // namespace

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

void write_file(const std::string& path, const std::string& bytes) {
  const auto parent = std::filesystem::path(path).parent_path();
  if (!parent.empty()) {
    std::filesystem::create_directories(parent);
  }
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t place = text.find(from);
  if (place == std::string::npos) {
    ADD_FAILURE() << "no '" << from << "' to replace";
    return text;
  }
  return text.replace(place, from.size(), to);
}

std::string joined(const std::vector<std::string>& texts) {
  return std::accumulate(texts.begin(), texts.end(), std::string());
}

Printed capture(const std::function<void()>& function) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  function();
  std::fflush(nullptr);
  std::string err = testing::internal::GetCapturedStderr();
  return {testing::internal::GetCapturedStdout(), std::move(err)};
}

Outcome run(const std::vector<std::string>& words, const Environment& environment) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    redirect(STDOUT_FILENO, OUT_FILE);
    redirect(STDERR_FILENO, ERR_FILE);
    for (const auto& [name, value] : environment) {
      setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> argv;
    for (const std::string& word : words) {
      argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(126);
  }
  int status = 0;
  waitpid(child, &status, 0);
  auto [out, err] = take_captured();
  return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), std::move(out), std::move(err)};
}

namespace {

Outcome run_built(const char* program, std::vector<std::string> words, const Environment& environment) {
  words.insert(words.begin(), program);
  const char* wrapper = std::getenv("BFCL_WRAPPER"); // such as "valgrind -q --error-exitcode=99"
  std::istringstream wrapper_words(wrapper != nullptr ? wrapper : "");
  words.insert(words.begin(), std::istream_iterator<std::string>(wrapper_words), {});
  return run(words, environment);
}

} // namespace

Outcome bfcl_library(std::vector<std::string> words, const Environment& environment) {
  return run_built(BFCL_BIN_DIR "/bfcl-library", std::move(words), environment);
}

Outcome bfcl_package(std::vector<std::string> words, const Environment& environment) {
  return run_built(BFCL_BIN_DIR "/bfcl-package", std::move(words), environment);
}

std::string make_package(const Sections& sections) {
  vex_pkg_file* pkg = vex_pkg_open_file(".made", VEX_PKG_READ_WRITE | VEX_PKG_CREATE);
  for (const auto& [name, bytes] : sections) {
    vex_pkg_add_data_section(pkg, name.c_str(), bytes.data(), bytes.size());
  }
  EXPECT_EQ(1U, vex_pkg_close_file_checked(pkg));
  std::string image = read_file(".made");
  unlink(".made");
  return image;
}

std::string write_component(const std::string& directory, const std::string& function) {
  std::string spec = "<RTL_SPEC>\n<FUNCTION name='" + function + "' module='top'>\n" +
                     "<ATTRIBUTES><IS_STALL_FREE value='yes'/><IS_FIXED_LATENCY value='yes'/>"
                     "<EXPECTED_LATENCY value='1'/></ATTRIBUTES>\n<INTERFACE>";
  for (const std::string signal : {"clock", "resetn", "iready", "ivalid", "oready", "ovalid"}) {
    spec += "<VEYRA port='" + signal + "' type='" + signal + "'/>";
  }
  spec += "<INPUT port='a' width='8'/></INTERFACE>\n<REQUIREMENTS><FILE name='top.v'/>"
          "</REQUIREMENTS>\n<C_MODEL><FILE name='" +
          function + ".cl'/></C_MODEL>\n</FUNCTION>\n</RTL_SPEC>\n";
  write_file(directory + "/spec.xml", spec);
  write_file(directory + "/top.v", "module top(a);\n");
  write_file(directory + "/" + function + ".cl", "int " + function + "(int a);\n");
  return directory + "/spec.xml";
}

std::string section_of(const std::string& package, const std::string& section) {
  const Outcome objcopy = run({"objcopy", "--dump-section", section + "=.section", package, "/dev/null"});
  const std::string bytes = objcopy.status == 0 ? read_file(".section") : "(none)";
  unlink(".section");
  return bytes;
}

std::string section_names_of(const std::string& package) {
  std::istringstream lines(run({"readelf", "-SW", package}).out);
  std::string names;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t end = line.find(" PROGBITS");
    if (end != std::string::npos && line[7] != ' ') {
      names += line.substr(7, line.find_last_not_of(' ', end) - 6) + "\n";
    }
  }
  return names;
}

bool waits_for_lock(const std::string& path, const std::function<void()>& action) {
  unique_fd lock(open(path.c_str(), O_RDWR));
  lock_file(lock.get());
  const pid_t child = fork();
  if (child == 0) {
    lock = unique_fd(); // or it would be the child's, too
    action();
    _exit(0);
  }
  // Until the child waits, as far as the system shows that.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  bool runs = true;
  while (runs && std::chrono::steady_clock::now() < end && read_file("/proc/locks").find("->") == std::string::npos) {
    runs = waitpid(child, nullptr, WNOHANG) == 0;
  }
  lock = unique_fd();
  waitpid(child, nullptr, 0);
  return runs;
}

InTempDir::InTempDir() : m_old(std::filesystem::current_path()) {
  std::string name = (std::filesystem::temp_directory_path() / "bfcl-test-XXXXXX").string();
  m_new = mkdtemp(name.data());
  std::filesystem::current_path(m_new);
}

InTempDir::~InTempDir() {
  std::filesystem::current_path(m_old);
  std::filesystem::remove_all(m_new);
}
