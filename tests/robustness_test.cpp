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

// Most cases write a library, and wait for the disk when it is on one.
[[maybe_unused]] const bool in_memory = access("/dev/shm", W_OK) == 0 && setenv("TMPDIR", "/dev/shm", 0) == 0;

constexpr const char* IR_TYPE = "x86_64-unknown-linux-ostrahw";

// Works over an HDL package, an OpenCL package and a library of both, with scripts as the kit's tools.
class Robustness : public InTempDir {
protected:
  Robustness() {
    write_component("c", "f");
    for (const auto& [tool, text] : {std::pair{"bfcl-link", "[ $2 = -o ] && cat \"$1\" > \"$3\""},
                                     std::pair{"bfcl-opt", "cat \"$2\""}}) {
      write_file(std::string("tools/") + tool, std::string("#!/bin/sh\n") + text + "\n");
      std::filesystem::permissions(std::string("tools/") + tool, std::filesystem::perms::owner_all);
    }
    setenv("PATH", (std::filesystem::current_path() / "tools:/usr/bin:/bin").c_str(), 1);
    vex_pkg_file* pkg = vex_pkg_open_file("k", VEX_PKG_READ_WRITE | VEX_PKG_CREATE);
    EXPECT_EQ(1U, vex_pkg_add_data_section(pkg, (std::string(".vex.clang_ir.") + IR_TYPE).c_str(), "define i32 @g()\n", 16));
    vex_pkg_close_file(pkg);
    EXPECT_EQ(0, bfcl_library({"-c", "c/spec.xml", "-o", "f"}).status);
    EXPECT_EQ(0, bfcl_library({"create", "-name", "lib", "f", "k"}).status);
    std::filesystem::create_directory("out");
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

std::string little_endian(std::size_t value, std::size_t width) {
  return std::string(reinterpret_cast<const char*>(&value), width);
}

std::size_t word_at(const std::string& file, std::size_t offset, std::size_t width) {
  std::size_t value = 0;
  std::memcpy(&value, file.data() + offset, width);
  return value;
}

void add_fields(std::vector<Damage>& cases, const std::string& file) {
  struct Field {
    const char* name;
    std::size_t offset;
    std::size_t width;
  };
  constexpr Field of_file[] = {{"class", 4, 1},          {"encoding", 5, 1},    {"table offset", 32, 4},
                               {"header size", 40, 2},   {"entry size", 46, 2}, {"header count", 48, 2},
                               {"string-table index", 50, 2}};
  constexpr Field of_section[] = {{"name offset", 0, 4}, {"type", 4, 4},  {"flags", 8, 4},    {"offset", 16, 4},
                                  {"size", 20, 4},       {"link", 24, 4}, {"alignment", 32, 4}};
  const std::size_t values[] = {0, 1, 2, 3, 8, 0x800, 0xfff0, 0xffff, 0x7fffffff, 0x80000000, 0xffffffff, file.size()};
  const auto add = [&](const std::string& what, const Field& field, std::size_t start) {
    for (const std::size_t value : values) {
      cases.push_back({what + field.name + " = " + std::to_string(value), start + field.offset,
                       little_endian(value, field.width)});
    }
  };
  for (const Field& field : of_file) {
    add("", field, 0);
  }
  const std::size_t table = word_at(file, 32, 4);
  for (std::size_t i = 0; i < word_at(file, 48, 2); ++i) {
    for (const Field& field : of_section) {
      add("section " + std::to_string(i) + " ", field, table + 40 * i);
    }
    // Occupies no space in the file, whatever its size.
    cases.push_back({"huge section " + std::to_string(i), table + 40 * i + 4,
                     little_endian(8, 4) + std::string(12, '\0') + little_endian(0xfffffff0, 4)});
  }
}

std::vector<Damage> damages_of(const std::string& file) {
  std::vector<Damage> cases;
  for (std::size_t i = 0; i < file.size(); i += STEP) {
    const std::string at = " at " + std::to_string(i);
    cases.push_back({"cut" + at, i, ""});
    cases.push_back({"0x00" + at, i, std::string(1, '\0')});
    cases.push_back({"0xff" + at, i, "\xff"});
    cases.push_back({"flipped" + at, i, std::string(1, static_cast<char>(file[i] ^ (1 << i % 8)))});
  }
  add_fields(cases, file);
  return cases;
}

// Runs `check` on every damaged file, in a child process that a new one follows after a case that ends it. The check
// says whether the case is well.
void check_damages(const std::string& good, const std::string& path, const std::function<bool()>& check) {
  const std::vector<Damage> cases = damages_of(good);
  auto* current = static_cast<std::size_t*>(
      mmap(nullptr, sizeof(std::size_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  for (*current = 0; *current < cases.size(); ++*current) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      static_cast<void>(!std::freopen("/dev/null", "w", stdout));
      static_cast<void>(!std::freopen("messages", "a", stderr));
      for (; *current < cases.size(); ++*current) {
        static_cast<void>(!truncate("messages", 0));
        const Damage& damage = cases[*current];
        const std::size_t cut = damage.bytes.empty() ? std::string::npos : damage.bytes.size();
        write_file(path, std::string(good).replace(damage.offset, cut, damage.bytes));
        alarm(5); // a second is what it may take, on a machine that does nothing else
        if (!check()) {
          _exit(3);
        }
      }
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status) << cases[std::min(*current, cases.size() - 1)].name << " in " << path << "\n"
                         << read_file("messages").substr(0, 2000);
  }
  munmap(current, sizeof *current);
}

bool ends_well(int (*command)(int, char**), std::vector<const char*> words) {
  words.insert(words.begin(), {"bfcl-library", "command"});
  const int status = command(static_cast<int>(words.size()), const_cast<char**>(words.data()));
  return status == 0 || status == 1;
}

} // namespace

TEST_F(Robustness, DamagedLibraries) {
  check_damages(read_file("lib.bfclib"), "bad", [] {
    clean_up();
    return ends_well(list_library_content, {"bad"}) && ends_well(extract_c_models, {"bad", "out"}) &&
           ends_well(extract_clang_ir, {"bad", IR_TYPE, "out"});
  });
}

TEST_F(Robustness, DamagedPackages) {
  check_damages(read_file("f"), "bad", [] {
    clean_up();
    return ends_well(create_full_library, {"-o", "made", "bad"});
  });
}

#ifndef __SANITIZE_ADDRESS__ // whose library insists on being loaded first

struct Command {
  std::vector<std::string> words;
  int status = 0;
};

// Each call of each kind fails in turn, meets an end, or is the last before a kill. The next run makes up for it.
TEST_F(Robustness, BrokenCalls) {
  const Command commands[] = {
      {{"-c", "c/spec.xml", "-o", "made"}},
      {{"-c", "c/spec.xml", "-o", "c/top.v"}, 1},
      {{"create", "-o", "made", "f", "k"}},
      {{"create", "-o", "f", "f", "k"}, 1},
      {{"list", "lib.bfclib"}},
      {{"extract_c_models", "lib.bfclib", "out"}},
      {{"extract_clang_ir", "lib.bfclib", IR_TYPE, "out"}},
  };
  const char* const calls[] = {"malloc", "open",   "close",  "read",  "pread", "pwrite", "fsync",  "ftruncate",
                               "stat",   "fstat",  "mkdir",  "rename", "getcwd", "fopen", "popen",  "system",
                               "fread",  "fgets",  "fwrite", "fclose", "pclose", "fflush", "unlink"};
  const auto inputs = files();
  for (const Command& command : commands) {
    const Outcome good = bfcl_library(command.words);
    EXPECT_EQ(command.status, good.status);
    const auto results = files();
    const auto check = [&](const std::string& call, const std::string& action, int at) {
      clean_up();
      const Outcome run = bfcl_library(command.words, {{"LD_PRELOAD", BFCL_FAULT_SHIM},
                                                       {"FAULT_CALL", call},
                                                       {"FAULT_ACTION", action},
                                                       {"FAULT_AT", std::to_string(at)},
                                                       {"FAULT_MARK", "mark"}});
      const bool came = unlink("mark") == 0;
      SCOPED_TRACE(command.words[0] + ": " + action + " " + call + " " + std::to_string(at) + "\n" + run.out + run.err);
      auto left = files();
      if (run.status == 0 && call != "unlink") {
        EXPECT_TRUE(results == left);
        EXPECT_EQ(good.out, run.out);
      }
      if (run.status == 1) {
        EXPECT_TRUE(command.words[0] != "create" || left == inputs || left == results || call == "unlink");
        EXPECT_TRUE(run.out + run.err != "" || call == "system"); // as when the linker fails
      }
      if (run.status > 1) {
        EXPECT_TRUE(action == "kill" || run.err.find("Assertion `") != std::string::npos) << run.status;
      }
      for (const auto& [name, bytes] : inputs) {
        EXPECT_TRUE(bytes == left[name]) << name;
      }
      EXPECT_EQ(command.status, bfcl_library(command.words).status);
      EXPECT_TRUE(results == files());
      return came;
    };
    for (const char* call : calls) {
      for (const char* action : {"fail", "end", "kill"}) {
        for (int at = 1; check(call, action, at); ++at) {
        }
      }
    }
    clean_up();
  }
}

#endif
