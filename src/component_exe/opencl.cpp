// SPDX-License-Identifier: BSD-3-Clause
#include "opencl.h"

#include "calls.h"
#include "process.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace bfcl::component {

namespace {

constexpr std::chrono::seconds MODEL_TIME_LIMIT{60};

// The kernel runs as one work item. It notes the number of each call before it makes it, so that a
// call that does not return is known. A compiler that fuses a product and a sum rounds once where
// the source rounds twice, which no RTL would match.
constexpr const char* KERNEL_HEAD = "#pragma OPENCL FP_CONTRACT OFF\n";
constexpr const char* KERNEL_BEGIN =
    "#define BFCL_COPY(to, from, size, bytes) \\\n"
    "  for (uint bfcl_i = 0; bfcl_i < (bytes) && bfcl_i < (size); ++bfcl_i) \\\n"
    "    (to)[bfcl_i] = (from)[bfcl_i]\n"
    "__kernel void bfcl_run_model(__global const uchar *bfcl_arguments,\n"
    "    __global uchar *bfcl_results, __global uchar *bfcl_memory,\n"
    "    __global volatile ulong *bfcl_progress, ulong bfcl_calls)\n"
    "{\n"
    "  for (ulong bfcl_call = 0; bfcl_call < bfcl_calls; ++bfcl_call) {\n"
    "    *bfcl_progress = bfcl_call;\n";

void add_argument(const OpenClArgument& argument, std::size_t index, std::string& text) {
  const std::string name = "bfcl_argument" + std::to_string(index);
  const std::string type = argument.is_pointer ? "ulong" : argument.type;
  const std::string bytes = std::to_string(argument.bytes);
  text += "    " + type + " " + name + ";\n    BFCL_COPY((uchar *)&" + name +
          ", bfcl_arguments, sizeof " + name + ", " + bytes +
          "u);\n    bfcl_arguments += " + bytes + ";\n";
}

std::string call_text(const OpenClJob& job) {
  std::string text = job.function + "(";
  for (std::size_t i = 0; i < job.arguments.size(); ++i) {
    const std::string name = "bfcl_argument" + std::to_string(i);
    text += i != 0 ? ", " : "";
    text += job.arguments[i].is_pointer ? "(__global void *)(bfcl_memory + (" + name + " - " +
                                              std::to_string(MEMORY_BASE) + "ul))"
                                        : name;
  }
  return text + ")";
}

std::string kernel_text(const OpenClJob& job) {
  std::string text = KERNEL_BEGIN;
  for (std::size_t i = 0; i < job.arguments.size(); ++i) {
    add_argument(job.arguments[i], i, text);
  }
  const std::string bytes = std::to_string(job.result_bytes);
  const std::string call = call_text(job);
  text +=
      job.result_bytes == 0
          ? "    (void)" + call + ";\n"
          : "    __typeof__(" + call + ") bfcl_result = " + call +
                ";\n    BFCL_COPY(bfcl_results, (const uchar *)&bfcl_result, sizeof bfcl_result, " +
                bytes + "u);\n    bfcl_results += " + bytes + ";\n";
  return text + "  }\n  *bfcl_progress = bfcl_calls;\n}\n";
}

std::vector<std::string> command_line(const OpenClJob& job, const std::string& folder) {
  std::size_t argument_bytes = 0;
  for (const OpenClArgument& argument : job.arguments) {
    argument_bytes += argument.bytes;
  }
  return {"/proc/self/exe", // even if the file was replaced meanwhile
          "run-model",
          folder,
          std::to_string(job.calls),
          std::to_string(argument_bytes),
          std::to_string(job.result_bytes),
          std::to_string(job.pages)};
}

// The number of the call that was being made; `calls` when all were, or when none began.
std::size_t progress(const OpenClJob& job, const std::string& folder) {
  std::uint64_t call = job.calls;
  std::ifstream file(folder + "/progress.bin", std::ios::binary);
  file.read(reinterpret_cast<char*>(&call), sizeof call);
  return file ? static_cast<std::size_t>(call) : job.calls;
}

} // namespace

bool write_kernel(const OpenClJob& job, const std::string& path) {
  std::ofstream file(path, std::ios::binary);
  file << KERNEL_HEAD;
  for (const std::string& source : job.sources) {
    std::ifstream model(source, std::ios::binary);
    file << "#line 1 " << std::filesystem::path(source) << "\n" << model.rdbuf() << "\n";
    file.clear(); // an empty model is no failure of the output
    if (!model.is_open()) {
      return false;
    }
  }
  file << "#line 1 \"the calls\"\n" << kernel_text(job);
  return file.flush().good();
}

ModelOutcome run_c_model(const OpenClJob& job, const std::string& folder) {
  if (!write_kernel(job, folder + "/model.cl")) {
    return {ModelEnd::failed, 0, "cannot write the kernel that calls the C model"};
  }
  const ToolResult result = run_tool(command_line(job, folder), folder, MODEL_TIME_LIMIT);
  if (result.ok()) {
    return {ModelEnd::done, 0, {}};
  }
  const std::size_t call = progress(job, folder);
  if (call < job.calls && result.end == ToolResult::End::timed_out) {
    return {ModelEnd::stopped_at_call, call, "does not return"};
  }
  if (call < job.calls && result.end == ToolResult::End::signalled) {
    return {ModelEnd::stopped_at_call, call, "crashes with signal " + std::to_string(result.code)};
  }
  if (result.end == ToolResult::End::exited) {
    return {ModelEnd::failed, 0, result.errors.substr(0, result.errors.find('\n'))};
  }
  return {ModelEnd::failed, 0, describe_failure("the C model in OpenCL", result)};
}

} // namespace bfcl::component
