// SPDX-License-Identifier: BSD-3-Clause
#include "process.h"

#include "unique_fd.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace bfcl::component {

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<int> s_signal = 0;

// Becomes readable when a signal arrives: [0] is polled by every waiting thread, [1] is written by
// the handler.
std::array<int, 2> s_wake_up = {-1, -1};

void note_signal(int signal) {
  const int saved = errno;
  s_signal = signal;
  const ssize_t written = write(s_wake_up[1], "", 1); // a full pipe is readable too
  static_cast<void>(written);
  errno = saved;
}

struct Pipe {
  unique_fd read_end;
  unique_fd write_end;
};

std::optional<Pipe> make_pipe() {
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return std::nullopt;
  }
  return Pipe{unique_fd(ends[0]), unique_fd(ends[1])};
}

struct FileActions {
  posix_spawn_file_actions_t actions = {};
  FileActions() { posix_spawn_file_actions_init(&actions); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
};

struct SpawnAttributes {
  posix_spawnattr_t attributes = {};
  SpawnAttributes() { posix_spawnattr_init(&attributes); }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
};

// Starts the tool as the leader of a process group of its own, so that what it starts can be killed
// with it. Returns 0 or an errno.
int start(const std::vector<std::string>& argv, const std::string& folder, const Pipe& output,
          const Pipe& errors, pid_t* pid) {
  FileActions files;
  posix_spawn_file_actions_addopen(&files.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&files.actions, output.write_end.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&files.actions, errors.write_end.get(), STDERR_FILENO);
  if (!folder.empty()) {
    posix_spawn_file_actions_addchdir_np(&files.actions, folder.c_str());
  }
  SpawnAttributes attributes;
  posix_spawnattr_setflags(&attributes.attributes, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attributes.attributes, 0);
  std::vector<char*> words;
  words.reserve(argv.size() + 1);
  for (const std::string& word : argv) {
    words.push_back(const_cast<char*>(word.c_str())); // the interface predates const
  }
  words.push_back(nullptr);
  return posix_spawnp(pid, words[0], &files.actions, &attributes.attributes, words.data(), environ);
}

// Appends what can be read; false at the end of the stream.
bool take_output(int fd, std::string& text) {
  std::array<char, 65536> buffer = {};
  const ssize_t count = read(fd, buffer.data(), buffer.size());
  if (count > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return count > 0 || (count < 0 && errno == EINTR);
}

// Collects both streams until they end; anything but `exited` means that the tool must be killed.
ToolResult::End collect(Pipe& output, Pipe& errors, Clock::time_point deadline,
                        ToolResult& result) {
  while (output.read_end || errors.read_end) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      return ToolResult::End::timed_out;
    }
    std::array<pollfd, 3> polled = {{{output.read_end.get(), POLLIN, 0},
                                     {errors.read_end.get(), POLLIN, 0},
                                     {s_wake_up[0], POLLIN, 0}}};
    if (poll(polled.data(), polled.size(), static_cast<int>(std::min<long long>(left, 1000000))) <
            0 &&
        errno != EINTR) {
      return ToolResult::End::timed_out;
    }
    if (s_signal != 0) {
      return ToolResult::End::interrupted;
    }
    if (polled[0].revents != 0 && !take_output(polled[0].fd, result.output)) {
      output.read_end = unique_fd();
    }
    if (polled[1].revents != 0 && !take_output(polled[1].fd, result.errors)) {
      errors.read_end = unique_fd();
    }
    if (std::max(result.output.size(), result.errors.size()) > MAX_TOOL_OUTPUT) {
      return ToolResult::End::too_much;
    }
  }
  return ToolResult::End::exited;
}

// A tool that closed its streams and still runs is waited for until the deadline too.
bool reap(pid_t pid, Clock::time_point deadline, int* status) {
  constexpr timespec pause = {0, 2000000};
  pid_t ended = 0;
  while ((ended = waitpid(pid, status, WNOHANG)) == 0 && Clock::now() < deadline && s_signal == 0) {
    nanosleep(&pause, nullptr);
  }
  return ended == pid;
}

void kill_group(pid_t leader, int* status) {
  kill(-leader, SIGKILL);
  while (waitpid(leader, status, 0) < 0 && errno == EINTR) {
  }
}

// A limit that cannot be set leaves the time limit of run_tool.
void set_limits(pid_t pid, const ToolLimits& limits) {
  if (limits.memory != 0) {
    const rlimit bytes = {limits.memory, limits.memory};
    prlimit(pid, RLIMIT_AS, &bytes, nullptr);
  }
  if (limits.processor_time.count() != 0) {
    const auto seconds = static_cast<rlim_t>(limits.processor_time.count());
    const rlimit time = {seconds, seconds};
    prlimit(pid, RLIMIT_CPU, &time, nullptr);
  }
}

} // namespace

ToolResult run_tool(const std::vector<std::string>& argv, const std::string& folder,
                    std::chrono::milliseconds limit, const ToolLimits& limits) {
  ToolResult result;
  std::optional<Pipe> output = make_pipe();
  std::optional<Pipe> errors = make_pipe();
  if (!output || !errors) {
    result.code = errno;
    return result;
  }
  pid_t pid = 0;
  result.code = start(argv, folder, *output, *errors, &pid);
  if (result.code != 0) {
    return result;
  }
  set_limits(pid, limits);
  output->write_end = unique_fd();
  errors->write_end = unique_fd();
  const Clock::time_point deadline = Clock::now() + limit;
  result.end = collect(*output, *errors, deadline, result);
  int status = 0;
  if (result.end == ToolResult::End::exited && !reap(pid, deadline, &status)) {
    result.end = s_signal != 0 ? ToolResult::End::interrupted : ToolResult::End::timed_out;
  }
  if (result.end != ToolResult::End::exited) {
    kill_group(pid, &status);
    return result;
  }
  if (WIFSIGNALED(status)) {
    result.end = ToolResult::End::signalled;
    result.code = WTERMSIG(status);
  } else {
    result.code = WEXITSTATUS(status);
  }
  return result;
}

std::string describe_failure(const std::string& tool, const ToolResult& result) {
  switch (result.end) {
  case ToolResult::End::not_started:
    return result.code == ENOENT ? tool + " is not installed"
                                 : tool + " cannot be started: " + std::strerror(result.code);
  case ToolResult::End::signalled:
    return tool + " was ended by signal " + std::to_string(result.code) + " (" +
           strsignal(result.code) + ")";
  case ToolResult::End::timed_out:
    return tool + " took too long and was ended";
  case ToolResult::End::interrupted:
    return tool + " was interrupted";
  case ToolResult::End::too_much:
    return tool + " printed too much and was ended";
  case ToolResult::End::exited:
    break;
  }
  std::string said = result.errors.empty() ? result.output : result.errors;
  said.erase(said.find_last_not_of(" \n") + 1);
  said.erase(0, said.rfind('\n') + 1);
  return tool + " failed with status " + std::to_string(result.code) +
         (said.empty() ? "" : ": " + said);
}

void catch_interrupts() {
  if (s_wake_up[0] < 0 && pipe2(s_wake_up.data(), O_CLOEXEC | O_NONBLOCK) == 0) {
    struct sigaction action = {};
    action.sa_handler = note_signal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      sigaction(signal, &action, nullptr);
    }
  }
}

int interrupt_signal() {
  return s_signal;
}

TempFolder::TempFolder() {
  const char* parent = std::getenv("TMPDIR");
  std::string pattern = std::string(parent != nullptr && *parent != '\0' ? parent : "/tmp");
  pattern += "/bfcl-XXXXXX";
  if (mkdtemp(pattern.data()) != nullptr) {
    std::error_code error;
    m_path = std::filesystem::absolute(pattern, error).string();
  }
}

TempFolder::~TempFolder() {
  if (!m_path.empty()) {
    std::error_code error;
    std::filesystem::remove_all(m_path, error);
  }
}

TempFolder::TempFolder(TempFolder&& other) noexcept : m_path(std::exchange(other.m_path, {})) {}

TempFolder& TempFolder::operator=(TempFolder other) noexcept {
  std::swap(m_path, other.m_path);
  return *this;
}

} // namespace bfcl::component
