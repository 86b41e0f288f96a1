// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <chrono>
#include <string>
#include <vector>

// Runs the outside tools: without a shell, in a process group of their own, with a time limit.

namespace bfcl::component {

struct ToolResult {
  enum class End {
    exited,      // `code` is the exit status
    signalled,   // `code` is the signal
    timed_out,   // it was killed after its time limit
    interrupted, // it was killed because this process was asked to end
    too_much,    // it was killed because it printed more than MAX_TOOL_OUTPUT bytes
    not_started, // `code` is the errno of the failure; ENOENT when the program is not installed
  };
  End end = End::not_started;
  int code = 0;
  std::string output; // standard output, at most MAX_TOOL_OUTPUT bytes
  std::string errors; // standard error, the same

  // Whether the tool ended by itself with status 0.
  [[nodiscard]] bool ok() const { return end == End::exited && code == 0; }
};

inline constexpr std::size_t MAX_TOOL_OUTPUT = std::size_t{64} << 20;

// How long one run of a tool may take unless its caller says otherwise.
inline constexpr std::chrono::seconds DEFAULT_TIME_LIMIT{120};

// What one process of a tool may use; 0: no limit. A tool that wants more memory fails by itself;
// one that computes for longer is ended by a signal, however busy the machine is.
struct ToolLimits {
  std::size_t memory = 0; // bytes of address space
  std::chrono::seconds processor_time{0};
};

// Runs argv[0], found through PATH, in `folder` (the working directory when empty), with an empty
// standard input, and waits for it. After the time limit the tool and what it started are killed.
// Thread-safe. Prints nothing.
[[nodiscard]] ToolResult run_tool(const std::vector<std::string>& argv, const std::string& folder,
                                  std::chrono::milliseconds limit = DEFAULT_TIME_LIMIT,
                                  const ToolLimits& limits = {});

// One line for people about a run that was not ok(): that the tool is not installed, what ended it,
// or its exit status with its last line of output. `tool` is its name.
[[nodiscard]] std::string describe_failure(const std::string& tool, const ToolResult& result);

// From now on SIGINT, SIGTERM and SIGHUP end running tools instead of this process, so that a
// command can remove its temporary files. Called once, by main.
void catch_interrupts();

// The signal that arrived since catch_interrupts, or 0.
[[nodiscard]] int interrupt_signal();

// A folder below TMPDIR (or /tmp) that is removed with its contents at the end of the object's
// life.
class TempFolder {
public:
  // Creates the folder; path() is empty when that fails.
  TempFolder();
  ~TempFolder();
  TempFolder(TempFolder&& other) noexcept;
  TempFolder& operator=(TempFolder other) noexcept;

  [[nodiscard]] const std::string& path() const { return m_path; }

private:
  std::string m_path;
};

} // namespace bfcl::component
