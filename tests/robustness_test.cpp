// SPDX-License-Identifier: BSD-3-Clause
// No damaged file and no fault of the machine crashes or hangs the program, makes it destroy a file, or passes for
// success.
#include "pkg.h"
#include "shelver_exe/commands.h"

#include "../fuzz/damage.h"
#include "support.h"

#include <map>

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t STEP = 16; // a case takes long there, and the fuzzers run many
#else
constexpr std::size_t STEP = 1;
#endif

// Most cases write a package, and wait for the disk when it is on one.
[[maybe_unused]] const bool in_memory = access("/dev/shm", W_OK) == 0 && setenv("TMPDIR", "/dev/shm", 0) == 0;

constexpr const char* IR_TYPE = "x86_64-unknown-linux-ostrahw";

// Works over the HDL package "f", the OpenCL package "k" and a library of both, with scripts as the kit's tools.
class Robustness : public InTempDir {
protected:
  Robustness() {
    write_component("c", "f");
    write_file("tools/bfcl-link", "#!/bin/sh\n[ $2 = -o ] && cat \"$1\" > \"$3\"\n");
    write_file("tools/bfcl-opt", "#!/bin/sh\ncat \"$2\"\n");
    for (const char* tool : {"tools/bfcl-link", "tools/bfcl-opt"}) {
      std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
    }
    setenv("PATH", (std::filesystem::current_path() / "tools:/usr/bin:/bin").c_str(), 1);
    vex_pkg_file* pkg = vex_pkg_open_file("k", VEX_PKG_READ_WRITE | VEX_PKG_CREATE);
    EXPECT_EQ(1U, vex_pkg_add_data_section(pkg, (std::string(".vex.clang_ir.") + IR_TYPE).c_str(), "define @g()", 11));
    vex_pkg_close_file(pkg);
    EXPECT_EQ(0, bfcl_library({"-c", "c/spec.xml", "-o", "f"}).status);
    EXPECT_EQ(0, bfcl_library({"create", "-name", "lib", "f", "k"}).status);
    clean_up();
  }

  static void clean_up() {
    for (const char* result : {"made", "out", ".emu_models"}) {
      std::filesystem::remove_all(result);
    }
    std::filesystem::create_directory("out");
  }

  static std::map<std::string, std::string> files() {
    std::map<std::string, std::string> bytes;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(".")) {
      if (entry.is_regular_file()) {
        bytes[entry.path().string()] = read_file(entry.path());
      }
    }
    return bytes;
  }
};

// Runs a command on every damaged file, in a child process that a new one follows after a case that ends it.
void check_damages(const std::string& good, const std::function<int()>& command) {
  const std::vector<Damage> damages = damages_of(good, STEP);
  auto* current = static_cast<std::size_t*>(
      mmap(nullptr, sizeof(std::size_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  for (*current = 0; *current < damages.size(); ++*current) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      static_cast<void>(!std::freopen("/dev/null", "w", stdout));
      static_cast<void>(!std::freopen("messages", "a", stderr));
      for (; *current < damages.size(); ++*current) {
        static_cast<void>(!truncate("messages", 0));
        const auto& [name, offset, bytes] = damages[*current];
        write_file("bad", std::string(good).replace(offset, bytes.empty() ? std::string::npos : bytes.size(), bytes));
        alarm(5); // a second is what it may take, on a machine that does nothing else
        const int status = command();
        if (status != 0 && status != 1) {
          _exit(3);
        }
      }
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status) << damages[std::min(*current, damages.size() - 1)].name << "\n" << read_file("messages");
  }
  munmap(current, sizeof *current);
}

int call(int (*command)(int, char**), std::vector<const char*> words) {
  words.insert(words.begin(), {"bfcl-library", "command"});
  return command(static_cast<int>(words.size()), const_cast<char**>(words.data()));
}

} // namespace

TEST_F(Robustness, DamagedLibraries) {
  check_damages(read_file("lib.bfclib"), [] {
    clean_up();
    return call(list_library_content, {"bad"}) | call(extract_c_models, {"bad", "out"}) |
           call(extract_clang_ir, {"bad", IR_TYPE, "out"});
  });
}

TEST_F(Robustness, DamagedPackages) {
  check_damages(read_file("f"), [] {
    clean_up();
    return call(create_full_library, {"-o", "made", "bad"});
  });
}

TEST_F(Robustness, FilesOfOtherKinds) {
  write_file("c/huge", "module top(a);\n"); // and zeros: more than a package holds, and not a page of the disk
  std::filesystem::resize_file("c/huge", 0xffffffff);
  mkfifo("c/fifo", 0666);
  for (const std::string kind : {"c/huge", "c/fifo", "/dev/zero", "/dev/null", "c/top.v", "c/../c"}) {
    write_file("c/odd.xml", replaced(read_file("c/spec.xml"), "name='top.v'", "name='../" + kind + "'"));
    const std::vector<std::string> runs[] = {
        {"-c", kind == "c/huge" ? "c" : kind, "-o", "made"},
        {"-c", kind == "c/top.v" ? "c/top.v" : "c/odd.xml", "-o", "made"},
        {"create", "-o", "made", kind},
        {"list", kind},
        {"extract_c_models", kind, "out"},
        {"extract_c_models", "lib.bfclib", kind + "/."},
        {"extract_clang_ir", kind, IR_TYPE, "out"},
    };
    for (std::vector<std::string> words : runs) {
      words.insert(words.begin(), {"timeout", "10", BFCL_BIN_DIR "/bfcl-library"});
      const Outcome outcome = run(words);
      EXPECT_EQ(1, outcome.status) << words[3] << " " << words[4] << "\n" << outcome.out;
      EXPECT_NE("", outcome.out);
    }
  }
  // Nobody reads what comes out of these.
  mkfifo((std::string("out/lib.bfclib.") + IR_TYPE + ".bc").c_str(), 0666);
  EXPECT_EQ(
      1, run({"timeout", "10", BFCL_BIN_DIR "/bfcl-library", "extract_clang_ir", "lib.bfclib", IR_TYPE, "out"}).status);
}

#ifndef __SANITIZE_ADDRESS__ // whose library insists on being loaded before the shim

namespace {

struct Command {
  const char* name;
  std::vector<std::string> words;
  int status = 0;
};

class Faults : public Robustness, public testing::WithParamInterface<Command> {
protected:
  // What a run with a fault must leave, and that the next one makes up for it. A linker that fails says nothing, and
  // whether files are removed is not looked at.
  void judge(const Outcome& run, const std::string& fault, const std::string& call = "") {
    SCOPED_TRACE(fault + " " + call + "\n" + run.out + run.err);
    auto left = files();
    const bool finished = left == m_results || call == "unlink";
    switch (run.status) {
    case 0:
      EXPECT_TRUE(finished && run.out == m_good.out);
      break;
    case 1:
      EXPECT_TRUE(finished || left == m_inputs || GetParam().words[0] != "create");
      EXPECT_TRUE(run.out + run.err != "" || call == "system");
      break;
    default:
      EXPECT_TRUE(fault.find("kill") == 0 || run.err.find("Assertion `") != std::string::npos) << run.status;
    }
    for (const auto& [name, bytes] : m_inputs) {
      EXPECT_TRUE(bytes == left[name]) << name;
    }
    EXPECT_EQ(m_good.status, bfcl_library(GetParam().words).status);
    EXPECT_TRUE(m_results == files());
    clean_up();
  }

  // Breaks each of the calls in turn.
  void check_calls(const std::string& action, const std::vector<std::string>& calls) {
    for (const std::string& call : calls) {
      bool came = true;
      for (int at = 1; came; ++at) {
        clean_up();
        const std::string place = std::to_string(at);
        const Outcome run = bfcl_library(GetParam().words, {{"LD_PRELOAD", BFCL_FAULT_SHIM},
                                                            {"FAULT_CALL", call},
                                                            {"FAULT_ACTION", action},
                                                            {"FAULT_AT", place},
                                                            {"FAULT_MARK", "mark"}});
        came = unlink("mark") == 0;
        judge(run, action + " " + place, call);
      }
    }
  }

  Outcome run_in_shell(const std::string& preparation) {
    clean_up();
    std::vector<std::string> words = GetParam().words;
    words.insert(words.begin(), {"sh", "-c", preparation + "; exec \"$0\" \"$@\"", BFCL_BIN_DIR "/bfcl-library"});
    return run(words);
  }

  std::map<std::string, std::string> m_inputs = files();
  Outcome m_good = bfcl_library(GetParam().words);
  std::map<std::string, std::string> m_results = files();
};

const std::vector<std::string> CALLS = {"open",      "close",  "read",   "pread",  "pwrite", "fsync",
                                        "ftruncate", "stat",   "fstat",  "mmap",   "mkdir",  "rename",
                                        "getcwd",    "fopen",  "fdopen", "popen",  "fread",  "fgets",
                                        "fwrite",    "fclose", "pclose", "fflush", "unlink", "system"};

} // namespace

TEST_P(Faults, BrokenCalls) {
  EXPECT_EQ(GetParam().status, m_good.status);
  check_calls("fail", {"malloc"});
  check_calls("fail", CALLS);
  check_calls("end", {"read", "pread", "fread"}); // as of a file that shrinks
  check_calls("kill", CALLS);
}

TEST_P(Faults, FullDisk) {
  for (int blocks = 1; blocks < 24; ++blocks) {
    const std::string limit = "ulimit -f " + std::to_string(blocks);
    judge(run_in_shell(limit), limit);
  }
}

TEST_P(Faults, FullOutput) {
  for (const auto& [output, reason] :
       {std::pair{"exec > /dev/full", "No space left on device"}, std::pair{"exec >&-", "Bad file descriptor"},
        std::pair{"mkfifo p; : < p & exec > p; wait; rm p", "Broken pipe"}}) {
    const Outcome outcome = run_in_shell(output);
    const std::string message = std::string("Error: Cannot write to standard output: ") + reason + "\n";
    EXPECT_EQ(m_good.out.empty() ? 0 : 1, outcome.status) << output;
    EXPECT_EQ(m_good.out.empty() ? "" : message, outcome.err);
  }
}

INSTANTIATE_TEST_SUITE_P(, Faults,
                         testing::Values(Command{"Package", {"-c", "c/spec.xml", "-o", "made"}},
                                         Command{"PackageOverSource", {"-c", "c/spec.xml", "-o", "c/top.v"}, 1},
                                         Command{"Create", {"create", "-o", "made", "f", "k"}},
                                         Command{"CreateOverInput", {"create", "-o", "f", "f", "k"}, 1},
                                         Command{"List", {"list", "lib.bfclib"}},
                                         Command{"ExtractCModels", {"extract_c_models", "lib.bfclib", "out"}},
                                         Command{"ExtractClangIr", {"extract_clang_ir", "lib.bfclib", IR_TYPE, "out"}}),
                         [](const auto& command) { return std::string(command.param.name); });

#endif
