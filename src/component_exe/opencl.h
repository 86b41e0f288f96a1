// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "finding.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

// C models, run as OpenCL C by the OpenCL implementation of this machine. That happens in a process
// of its own, this program with a hidden command, which a model may crash or occupy for ever.

namespace bfcl::component {

// An argument of the function. Its bytes in the file of arguments are those of the port.
struct OpenClArgument {
  std::string type; // as OpenCL C spells it; not used of a pointer
  bool is_pointer = false;
  std::size_t bytes = 0;
};

struct OpenClJob {
  std::vector<std::string> sources; // paths of the C models, compiled as one source
  std::string function;
  std::vector<OpenClArgument> arguments;
  std::size_t result_bytes = 0; // of the OUTPUT; 0 when there is none
  std::size_t calls = 0;
  std::size_t pages = 0; // of memory, as calls.h describes it
};

enum class ModelEnd {
  done,
  stopped_at_call, // it crashed or did not return; `call` says in which
  failed           // there is no OpenCL, or it does not compile the model
};

struct ModelOutcome {
  ModelEnd end = ModelEnd::failed;
  std::size_t call = 0;
  std::string text; // what happened, unless it is done
};

// Makes the calls in FOLDER/arguments.bin one after the other, on the memory in
// FOLDER/memory_before.bin, and writes FOLDER/results.bin and FOLDER/memory_after.bin.
[[nodiscard]] ModelOutcome run_c_model(const OpenClJob& job, const std::string& folder);

// The text of the kernel that makes the calls; for the tests.
[[nodiscard]] bool write_kernel(const OpenClJob& job, const std::string& path);

// The hidden command.
void add_run_model(CLI::App& command, int* status);

} // namespace bfcl::component
