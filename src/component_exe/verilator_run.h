// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"
#include "drivers.h"
#include "process.h"
#include "sealed_tree.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

// One run of verilator, and what it says and writes.

namespace bfcl::component {

// Options for warnings that sources turn off by name and that 5.006 does not know.
inline constexpr std::array<const char*, 9> FUTURE_WARNINGS = {
    "-Wfuture-WIDTHEXPAND", "-Wfuture-WIDTHTRUNC", "-Wfuture-MULTITOP",
    "-Wfuture-SIDEEFFECT",  "-Wfuture-GENUNNAMED", "-Wfuture-ENUMVALUE",
    "-Wfuture-ASCRANGE",    "-Wfuture-UNUSEDLOOP", "-Wfuture-VARHIDDEN"};

// A message of verilator, without the source lines that it shows.
struct VerilatorMessage {
  bool is_error = false;
  std::string code; // "MODDUP" of "%Warning-MODDUP: …", or empty
  std::string file; // as the tool names it, or empty
  unsigned line = 0;
  unsigned column = 0; // from 1; 0 when it is not said
  std::string text;
  // The other place of a message with two.
  std::string other_file;
  unsigned other_line = 0;
};

// The messages of its standard error, in their order.
[[nodiscard]] std::vector<VerilatorMessage> parse_verilator_messages(const std::string& text);

// What a run elaborates, below the root of a sealed tree.
struct VerilatorJob {
  std::string top;
  std::vector<std::string> files;                              // below root, in order
  std::vector<std::pair<std::string, std::string>> parameters; // name and value
  bool as_simulator = false; // with the macro VERILATOR, as sources for it see it, not SYNTHESIS
};

// Places in it are those of the tool: names below root.
struct VerilatorRun {
  bool ok = false;
  std::string problem; // of the tool itself, which says nothing about the RTL; or empty
  std::vector<VerilatorMessage> messages;
  Design design;                       // when ok
  std::vector<ModuleDrivers> drivers;  // as far as the format has them; when ok
  std::vector<std::string> read_files; // of the RTL, includes among them; when ok
};

[[nodiscard]] VerilatorRun run_verilator(const SealedTree& tree, const VerilatorJob& job);

// The formats in which verilator writes what it elaborated: XML, and JSON (the netlist and the file
// table beside it). The top module is run.design.top. False when the text is not in the format. The
// XML does not say which structures are packed: the sources do, whose names are relative to
// `folder`.
[[nodiscard]] bool read_verilator_xml(const std::string& path, const std::string& folder,
                                      VerilatorRun& run);
[[nodiscard]] bool read_verilator_json(const std::string& netlist, const std::string& meta,
                                       VerilatorRun& run);

} // namespace bfcl::component
