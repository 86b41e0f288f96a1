// SPDX-License-Identifier: BSD-3-Clause

// The test bench of `bfcl component simulate`. The program contains it as text and compiles it with
// what verilator makes of a component and with component.h, which describes that one. It is run as
//   bench FOLDER SEED ACK [FILE.fst]
// FOLDER has arguments.bin, results.bin, memory_before.bin and memory_after.bin. ACK is "burst" or
// "word": what a writeack is for. The findings are written to FOLDER/outcome.txt, one a line:
//   RULE TAB CALL TAB CLOCK TAB PHASE TAB TEXT
// with CALL -1 when no call is to blame. The last line is
//   done CALLS WROTE_BURST
// the number of calls that were answered, and 1 if a write burst of several words was seen.
// FILE.fst receives the waves of a phase: of the first with a finding, which ends the run, or else
// of the last.
//
// A clock is: drive the inputs, settle, look at the outputs, rising edge.

#include "stream.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

constexpr Phase PHASES[] = {
    {"at full speed", false, false, false, false, false, Speed::fast},
    {"with gaps in the input", true, false, false, false, false, Speed::mixed},
    {"with a stalling output", false, true, true, false, false, Speed::mixed},
    {"with gaps and stalls", true, true, false, false, false, Speed::slow},
    {"with ivalid high during reset", true, true, false, false, true, Speed::mixed},
    {"after a reset with calls in flight", false, false, true, true, true, Speed::slow},
    {"with buffers that calls share", true, true, false, false, false, Speed::slow},
};
static_assert(std::size(PHASES) + 1 == std::size(FIRST_CALLS));
constexpr std::size_t SHARED_PHASE = std::size(PHASES) - 1;

bool load(const std::string& path, Bytes& bytes) {
  std::ifstream file(path, std::ios::binary);
  bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return file.good() || file.eof();
}

bool load_files(const std::string& folder, Files& files) {
  return load(folder + "/arguments.bin", files.arguments) &&
         load(folder + "/results.bin", files.results) &&
         load(folder + "/memory_before.bin", files.memory_before) &&
         load(folder + "/memory_after.bin", files.memory_after);
}

std::FILE* s_outcome = nullptr;

} // namespace

// The runtime calls these when the RTL stops, or when its logic does not settle.
void vl_finish(const char*, int, const char*) {
  Verilated::threadContextp()->gotFinish(true);
}

void vl_fatal(const char* file, int line, const char*, const char* message) {
  std::fprintf(s_outcome, "hdl\t-1\t0\tin the RTL\t%s:%d: %s\ndone 0 0\n", file, line, message);
  std::fflush(s_outcome);
  std::_Exit(0);
}

void vl_stop(const char* file, int line, const char* hierarchy) {
  vl_fatal(file, line, hierarchy, "the RTL ends the simulation with $stop or $fatal");
}

int main(int argc, char** argv) {
  const std::string folder = argc > 3 ? argv[1] : "";
  const std::uint64_t seed = argc > 3 ? std::strtoull(argv[2], nullptr, 10) : 0;
  const char* waves = argc > 4 ? argv[4] : nullptr;
  Files files;
  s_outcome = std::fopen((folder + "/outcome.txt").c_str(), "w");
  if (argc < 4 || s_outcome == nullptr || !load_files(folder, files)) {
    std::perror(folder.c_str());
    return 1;
  }
  std::size_t answered = 0;
  bool wrote_burst = false, read_writable = false;
  for (std::size_t i = 0; i < std::size(PHASES); ++i) {
    if (FIRST_CALLS[i] == FIRST_CALLS[i + 1] || (i == SHARED_PHASE && read_writable)) {
      continue;
    }
    Run run = {files, PHASES[i], argv[3] == std::string("word"), s_outcome,
               Random(seed * std::size(PHASES) + i)};
    answered += Stream(run, FIRST_CALLS[i], FIRST_CALLS[i + 1], seed * std::size(PHASES) + i, waves)
                    .run_phase();
    wrote_burst |= run.wrote_burst;
    read_writable |= run.read_writable;
    if (run.failed && waves != nullptr) {
      break;
    }
  }
  std::fprintf(s_outcome, "done %zu %d\n", answered, wrote_burst);
  return std::fclose(s_outcome) == 0 ? 0 : 1;
}
