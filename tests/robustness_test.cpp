// SPDX-License-Identifier: BSD-3-Clause
// No damaged file and no fault of the machine crashes or hangs the program, makes it destroy a file, or passes for
// success.
#include "pkg.h"
#include "shelver_exe/commands.h"

#include "support.h"

#include <cstring>
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

struct Damage {
  std::string name;
  std::size_t offset;
  std::string bytes; // that stand there instead; none cuts the file
};

std::vector<Damage> damages_of(const std::string& file) {
  std::vector<Damage> damages;
  for (std::size_t i = 0; i < file.size(); i += STEP) {
    const std::string at = " at " + std::to_string(i);
    damages.push_back({"cut" + at, i, ""});
    damages.push_back({"0x00" + at, i, std::string(1, '\0')});
    damages.push_back({"0xff" + at, i, "\xff"});
    damages.push_back({"flipped" + at, i, std::string(1, static_cast<char>(file[i] ^ (1 << i % 8)))});
  }
  const auto word = [](std::size_t value, std::size_t width) {
    return std::string(reinterpret_cast<const char*>(&value), width);
  };
  const auto field = [&](const std::string& name, std::size_t offset, std::size_t width) {
    for (const std::size_t value : std::initializer_list<std::size_t>{
             0, 1, 2, 3, 8, 0x800, 0xfff0, 0xffff, 0x7fffffff, 0x80000000, 0xffffffff, file.size()}) {
      damages.push_back({name + " " + std::to_string(value), offset, word(value, width)});
    }
  };
  field("table offset", 32, 4);
  field("entry size", 46, 2);
  field("header count", 48, 2);
  field("string-table index", 50, 2);
  std::uint32_t table = 0;
  std::memcpy(&table, &file[32], sizeof table);
  for (std::size_t header = table; header < file.size(); header += 40) {
    const std::string section = " of section " + std::to_string((header - table) / 40);
    const char* const names[] = {"name offset", "type", "flags", "address", "offset",
                                 "size",        "link", "info",  "alignment", "entry size"};
    for (std::size_t i = 0; i < std::size(names); ++i) {
      field(names[i] + section, header + 4 * i, 4);
    }
    damages.push_back({"no space" + section, header + 4, word(8, 16) + word(0xfffffff0, 4)});
  }
  return damages;
}

// Runs a command on every damaged file, in a child process that a new one follows after a case that ends it.
void check_damages(const std::string& good, const std::function<int()>& command) {
  const std::vector<Damage> damages = damages_of(good);
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
  for (const std::string kind : {"c/huge", "c/fifo", "c", "/dev/zero", "/dev/null", "c/top.v"}) {
    write_file("c/odd.xml", replaced(read_file("c/spec.xml"), "name='top.v'", "name='../" + kind + "'"));
    const std::vector<std::string> runs[] = {
        {"-c", kind == "c/huge" ? "c" : kind, "-o", "made"},
        {"-c", kind == "c/top.v" ? "c/top.v" : "c/odd.xml", "-o", "made"},
        {"create", "-o", "made", kind},
        {"list", kind},
        {"extract_c_models", kind, "out"},
        {"extract_c_models", "lib.bfclib", kind},
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
  EXPECT_EQ(1, run({"timeout", "10", BFCL_BIN_DIR "/bfcl-library", "extract_clang_ir", "lib.bfclib", IR_TYPE, "out"}).status);
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
  // What a run with a fault must leave, and that the next one makes up for it.
  void judge(const std::string& fault, const Outcome& run) {
    SCOPED_TRACE(fault + "\n" + run.out + run.err);
    auto left = files();
    if (run.status == 0 && fault.find("unlink") == std::string::npos) {
      EXPECT_TRUE(m_results == left);
      EXPECT_EQ(m_good.out, run.out);
    } else if (run.status == 1) {
      EXPECT_TRUE(GetParam().words[0] != "create" || left == m_inputs || left == m_results || fault.find("unlink") < 9);
      EXPECT_TRUE(run.out + run.err != "" || fault.find("system") < 9); // says as little as a linker that fails
    } else {
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
    for (const std::string& name : calls) {
      for (int at = 1;; ++at) {
        const std::string place = std::to_string(at);
        const Outcome run = bfcl_library(GetParam().words, {{"LD_PRELOAD", BFCL_FAULT_SHIM},
                                                            {"FAULT_CALL", name},
                                                            {"FAULT_ACTION", action},
                                                            {"FAULT_AT", place},
                                                            {"FAULT_MARK", "mark"}});
        if (unlink("mark") != 0) {
          break;
        }
        judge(action + " " + name + " " + place, run);
      }
    }
    clean_up();
  }

  std::map<std::string, std::string> m_inputs = files();
  Outcome m_good = bfcl_library(GetParam().words);
  std::map<std::string, std::string> m_results = files();
};

const std::vector<std::string> CALLS = {"open", "close", "read",   "pread",  "pwrite", "fsync",  "ftruncate", "stat",
                                        "fstat", "mmap", "mkdir",  "rename", "getcwd", "fopen",  "fdopen",    "popen",
                                        "fread", "fgets", "fwrite", "fclose", "pclose", "fflush", "unlink",    "system"};

} // namespace

TEST_P(Faults, CallsFail) {
  EXPECT_EQ(GetParam().status, m_good.status);
  clean_up();
  check_calls("fail", CALLS);
}

TEST_P(Faults, MemoryRunsOut) {
  clean_up();
  check_calls("fail", {"malloc"});
}

TEST_P(Faults, FilesShrink) {
  clean_up();
  check_calls("end", {"read", "pread", "fread"});
}

TEST_P(Faults, Kills) {
  clean_up();
  check_calls("kill", CALLS);
}

TEST_P(Faults, FullDisk) {
  clean_up();
  for (int blocks = 1; blocks < 24; ++blocks) {
    std::vector<std::string> words = {"sh", "-c", "ulimit -f " + std::to_string(blocks) + "; exec \"$0\" \"$@\"", BFCL_BIN_DIR "/bfcl-library"};
    words.insert(words.end(), GetParam().words.begin(), GetParam().words.end());
    judge("limit " + std::to_string(blocks), run(words));
  }
}

TEST_P(Faults, FullOutput) {
  clean_up();
  for (const auto& [redirection, reason] : {std::pair{"> /dev/full", "No space left on device"}, std::pair{">&-", "Bad file descriptor"}, std::pair{"3>&1; mkfifo p; : < p & exec > p; wait; rm p", "Broken pipe"}}) {
    std::vector<std::string> words = {"sh", "-c", std::string("exec ") + redirection + "; exec \"$0\" \"$@\"", BFCL_BIN_DIR "/bfcl-library"};
    words.insert(words.end(), GetParam().words.begin(), GetParam().words.end());
    const Outcome outcome = run(words);
    EXPECT_EQ(m_good.out.empty() ? 0 : 1, outcome.status) << redirection;
    EXPECT_EQ(m_good.out.empty() ? "" : std::string("Error: Cannot write to standard output: ") + reason + "\n", outcome.err);
    clean_up();
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
