// SPDX-License-Identifier: BSD-3-Clause
// With damaged files and failing system calls, the program does not crash or hang, destroys no file, and never reports
// success for a failure.
#include "pkg.h"
#include "shelver_exe/commands.h"

#include "damage.h"
#include "support.h"

#include <map>

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Most cases write a package, and wait for the disk when it is on one.
[[maybe_unused]] const bool in_memory = access("/dev/shm", W_OK) == 0 && setenv("TMPDIR", "/dev/shm", 0) == 0;

constexpr const char* IR_SECTION = ".vex.clang_ir.x86_64-unknown-linux-ostrahw";
constexpr const char* IR_TYPE = IR_SECTION + sizeof ".vex.clang_ir";
const std::string BITCODE = std::string("k") + IR_SECTION + ".bc";

using namespace std::string_literals;
using Files = std::map<std::string, std::string>; // what each holds

// Works over the HDL package "f", the OpenCL package "k" and a library of both, with scripts as the kit's tools.
class Robustness : public InTempDir {
protected:
  Robustness() {
    // A prefix of two folders, which does not fit into a string object itself.
    const std::string spec = write_component("c", "f");
    const std::string top = "../../" + std::filesystem::current_path().filename().string() + "/c/top.v";
    write_file(spec, replaced(read_file(spec), "top.v", top));
    write_file("tools/bfcl-link", "#!/bin/sh\n[ $2 = -o ] && cat \"$1\" > \"$3\"\n");
    write_file("tools/bfcl-opt", "#!/bin/sh\ncat \"$2\"\n");
    chmod("tools/bfcl-link", 0700);
    chmod("tools/bfcl-opt", 0700);
    setenv("PATH", (std::filesystem::current_path() / "tools:/usr/bin:/bin").c_str(), 1);
    vex_pkg_ptr pkg(vex_pkg_open_file("k", VEX_PKG_READ_WRITE | VEX_PKG_CREATE));
    EXPECT_EQ(1U, vex_pkg_add_data_section(pkg.get(), IR_SECTION, "define @g()", 11));
    pkg.reset();
    EXPECT_EQ(0, bfcl_library({"-c", "c/spec.xml", "-o", "f"}).status);
    EXPECT_EQ(0, bfcl_library({"create", "-name", "lib", "f", "k"}).status);
    clean_up();
  }

  // Removes results, and the temporary files of runs that were killed.
  static bool clean_up() {
    for (const std::string& result : {"made"s, "other name"s, "out"s, ".emu_models"s, BITCODE}) {
      std::filesystem::remove_all(result);
    }
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
      if (entry.path().filename().string().starts_with(".bfcl-")) {
        std::filesystem::remove(entry);
      }
    }
    std::filesystem::create_symlink("c/top.v", BITCODE); // which no command may write through
    return std::filesystem::create_directory("out");
  }

  static Files files() {
    Files files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(".")) {
      if (entry.is_regular_file() && !entry.is_symlink() && entry.path() != "./mark") { // of a fault that came
        files[entry.path()] = read_file(entry.path());
      }
    }
    return files;
  }

  // A second of the processor, and more while other work has it.
  static void set_time_limit() {
    const itimerval second = {{0, 0}, {1, 0}};
    setitimer(ITIMER_PROF, &second, nullptr);
    alarm(10);
  }

  // Runs a command on every damaged file, in a child process that a new one follows after a case that ends it.
  static void check_damages(const std::string& path, const std::function<int()>& command,
                            std::size_t step = DAMAGE_STEP) {
    const std::string good = read_file(path);
    const auto damages = damages_of(good, step);
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
          clean_up();
          const auto& [name, offset, bytes] = damages[*current];
          write_file("bad", std::string(good).replace(offset, bytes.empty() ? std::string::npos : bytes.size(), bytes));
          set_time_limit();
          if ((command() & ~1) != 0) {
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
};

int call(int (*command)(int, char**), std::vector<const char*> words) {
  words.insert(words.begin(), {"bfcl-library", "command"});
  return command(static_cast<int>(words.size()), const_cast<char**>(words.data()));
}

} // namespace

TEST_F(Robustness, DamagedFiles) {
  const auto create = [] { return call(create_full_library, {"-o", "made", "bad"}); };
  const auto read = [] {
    return call(list_library_content, {"bad"}) | call(extract_c_models, {"bad", "out"}) |
           call(extract_clang_ir, {"bad", IR_TYPE, "out"});
  };
  check_damages("lib.bfclib", read);
  check_damages("f", [&] { return read() | create(); });
  check_damages(
      "k", [&] { return read() | create(); }, 64); // each runs the kit's tools
  check_damages("lib.bfclib", create, 64);
}

TEST_F(Robustness, FilesOfOtherKinds) {
  write_file("c/huge", "module top(a);\n"); // then zeros: too large for a package, without a block on the disk
  std::filesystem::resize_file("c/huge", 0xffffffff);
  mkfifo("c/fifo", 0666);
  write_file("c/secret", "module top(a);\n");
  chmod("c/secret", 0);
  // Root may read it, too, but for a root of less rights.
  using Words = std::vector<std::string>;
  const Words user = geteuid() == 0 ? Words{"setpriv", "--bounding-set=-dac_override,-dac_read_search"} : Words{"env"};
  std::filesystem::create_directory("odd"); // with a file that nobody reads
  mkfifo("odd/lib.bfclib.x86_64-unknown-linux-ostrahw.bc", 0666);
  for (const std::string kind : {"c/huge", "c/secret", "c/fifo", "/dev/zero", "/dev/null", "c/top.v", "c/../c"}) {
    write_file("c/odd.xml", replaced(read_file("c/spec.xml"), "<FILE name='../..",
                                     "<FILE name='../" + kind + "'/><FILE name='../.."));
    const Words runs[] = {
        {"-c", kind == "c/huge" ? "c" : kind, "-o", "made"},
        {"-c", kind == "c/top.v" ? "c/top.v" : "c/odd.xml", "-o", "made"},
        {"create", "-o", "made", kind},
        {"list", kind},
        {"extract_c_models", "lib.bfclib", kind + "/none"},
        {"extract_clang_ir", "lib.bfclib", IR_TYPE, "odd"},
    };
    for (Words words : runs) {
      words.insert(words.begin(), BFCL_BIN_DIR "/bfcl-library");
      words.insert(words.begin(), user.begin(), user.end());
      const Outcome outcome = run(words);
      EXPECT_EQ(1, outcome.status) << testing::PrintToString(words) << "\n" << outcome.out << outcome.err;
      EXPECT_NE("", outcome.out);
    }
  }
}

enum Output { NEW, OLD, OLD_WITH_TWO_NAMES };

struct Command {
  const char* name;
  std::vector<std::string> words;
  int status = 0;
  Output output = NEW; // what there is in its place

  friend void PrintTo(const Command& command, std::ostream* out) { *out << command.name; }
};

class Faults : public Robustness, public testing::WithParamInterface<Command> {
protected:
  // Also puts an old package in the place of the output.
  bool prepare() {
    clean_up();
    if (GetParam().output != NEW) {
      std::filesystem::copy("old", "made");
    }
    if (GetParam().output == OLD_WITH_TWO_NAMES) {
      std::filesystem::create_hard_link("made", "other name");
    }
    return true;
  }

  // The output is the old one, the new one, or nothing that a reader takes for a package. What a
  // failed packaging leaves is a package that lacks the last section.
  bool is_whole(const Outcome& run, const Files& left) {
    const auto image = left.find("./out/lib.bfclib."s + IR_TYPE + ".bc");
    const auto made = left.find("./made");
    if (image != left.end() && image->second != "" && image->second != m_results[image->first]) {
      return false;
    }
    return made == left.end() || made->second == read_file("old") || made->second == m_results["./made"] ||
           section_names_of("made").empty() ||
           (run.status == 1 && GetParam().words[0] == "-c" && ::run({"readelf", "-SW", "made"}).err == "" &&
            section_names_of("made").find(".comp_header") == std::string::npos);
  }

  // What a run with a fault must leave, and that the next one makes up for it. A linker that fails says nothing, and
  // whether files are removed is not looked at.
  void judge(const Outcome& run, const std::string& fault, const std::string& call = "") {
    SCOPED_TRACE(fault + " " + call + "\n" + run.out + run.err);
    auto left = files();
    const bool killed = fault.starts_with("kill");
    const bool finished = left == m_results || call == "unlink";
    EXPECT_TRUE(is_whole(run, left));
    EXPECT_TRUE(killed || call == "unlink" || std::none_of(left.begin(), left.end(), is_temporary));
    if (run.status == 0) {
      EXPECT_TRUE(finished && run.out == m_good.out && (call != "fsync" || access("mark", F_OK) != 0));
    } else if (run.status == 1) {
      EXPECT_TRUE(finished || is_without_output(left) || GetParam().words[0] != "create");
      EXPECT_TRUE(run.out + run.err != "" || call == "system");
    } else {
      EXPECT_TRUE(killed || run.err.find("Assertion `") != std::string::npos) << run.status;
    }
    for (const auto& [name, bytes] : m_inputs) {
      EXPECT_TRUE(bytes == left[name] || is_output(name)) << name;
    }
    EXPECT_EQ(m_good.status, bfcl_library(GetParam().words).status);
    left = files();
    std::erase_if(left, is_temporary);
    if (GetParam().output == OLD_WITH_TWO_NAMES) { // a failed run has removed one of them
      left["./other name"] = m_results["./other name"];
    }
    EXPECT_TRUE(m_results == left);
    prepare();
  }

  // Two runs at the same time leave what one leaves.
  void judge_meeting(const Outcome& run, const std::string& fault) {
    EXPECT_EQ(m_good.status, run.status) << fault << "\n" << run.out << run.err;
    EXPECT_TRUE(m_results == files()) << fault;
    prepare();
  }

  static std::string shell_words() {
    std::string words = BFCL_BIN_DIR "/bfcl-library";
    for (const std::string& word : GetParam().words) {
      words += " " + word;
    }
    return words;
  }

  static bool is_temporary(const Files::value_type& file) { return file.first.find("/.bfcl-") != std::string::npos; }
  static bool is_output(const std::string& name) { return name == "./made" || name == "./other name"; }

  bool is_without_output(Files left) const {
    Files inputs = m_inputs;
    std::erase_if(inputs, [](const auto& file) { return is_output(file.first); });
    std::erase_if(left, [](const auto& file) { return is_output(file.first); });
    return left == inputs;
  }

  // Breaks each of the calls in turn; returns how many there were.
  int check_calls(const std::string& action, const std::string& calls) {
    int count = 0;
    std::istringstream words(calls);
    for (std::string call; words >> call;) {
      for (int at = 1; at == 1 || unlink("mark") == 0; ++at, ++count) {
        const Environment shim = {{"LD_PRELOAD", BFCL_FAULT_SHIM},
                                  {"FAULT_ACTION", action},
                                  {"FAULT_CALL", call},
                                  {"FAULT_AT", std::to_string(at)},
                                  {"FAULT_MARK", "mark"},
                                  {"FAULT_MEETS", shell_words() + " > /dev/null"},
                                  {"ASAN_OPTIONS", "verify_asan_link_order=0:allocator_may_return_null=1"}};
        const std::string fault = action + " " + std::to_string(at);
        const Outcome outcome = bfcl_library(GetParam().words, shim);
        action == "meet" ? judge_meeting(outcome, fault + " " + call) : judge(outcome, fault, call);
      }
      --count; // the last run had no such call any more
    }
    return count;
  }

  static Outcome run_in_shell(const std::string& preparation) {
    std::vector<std::string> words = GetParam().words;
    words.insert(words.begin(), {"sh", "-c", preparation + "; exec \"$0\" \"$@\"", BFCL_BIN_DIR "/bfcl-library"});
    return run(words);
  }

  // A source and a package that are mapped, and written in pieces.
  Files make_inputs() {
    write_file("c/top.v", "module top(a);\n" + std::string(300000, '\n'));
    EXPECT_EQ(0, bfcl_library({"-c", "c/spec.xml", "-o", "f"}).status);
    EXPECT_EQ(0, bfcl_library({"create", "-name", "lib", "f", "k"}).status);
    EXPECT_EQ(0, bfcl_library({"create", "-o", "old", "f"}).status);
    prepare();
    return files();
  }

  Files m_inputs = make_inputs();
  Outcome m_good = bfcl_library(GetParam().words);
  Files m_results = files();
  bool m_prepared = prepare();
};

class Meetings : public Faults {};

constexpr const char* CALLS = "open close read pread write pwrite fcntl fallocate ftruncate stat fstat mmap "
                              "memfd_create mkostemp fchmod dup3 realpath mkdir rename getcwd fopen "
                              "fdopen popen fread fgets fwrite fclose pclose fflush unlink system";

TEST_P(Faults, BrokenCalls) {
  EXPECT_EQ(GetParam().status, m_good.status);
  EXPECT_LT(0, check_calls("fail", "malloc"));
  EXPECT_LT(0, check_calls("fail", "new"));
  EXPECT_LT(0, check_calls("fail", CALLS));
  EXPECT_EQ(m_results.contains("./made"), check_calls("fail", "fsync") > 0); // no success without it
  check_calls("end", "read pread fread");                                    // as of a file that shrinks
  check_calls("kill", CALLS + " fsync"s);
}

TEST_P(Meetings, TwoRunsAtOnce) {
  check_calls("meet", "open stat mkdir mkostemp memfd_create fchmod pwrite write fsync rename unlink close");
}

TEST_P(Faults, FullDisk) {
  for (int blocks = 1; blocks < 1000; blocks += blocks < 24 ? 1 : 50) {
    const std::string closed = blocks % 2 == 0 ? "exec 2>&-; " : ""; // standard error
    judge(run_in_shell(closed + "ulimit -f " + std::to_string(blocks)), std::to_string(blocks) + " blocks");
  }
}

// The command's files are complete. A reader that ends early is no error.
TEST_P(Faults, FullOutput) {
  for (const auto& [output, reason] :
       {std::pair{"exec > /dev/full", "No space left on device"}, std::pair{"exec >&-", "Bad file descriptor"},
        std::pair{"mkfifo p; : < p & exec > p; wait; rm p", ""}, std::pair{"exec > out.txt 2>&-", ""}}) {
    const Outcome outcome = run_in_shell(output);
    const bool fails = m_good.out != "" && *reason != '\0';
    EXPECT_EQ(fails ? 1 : m_good.status, outcome.status) << output;
    EXPECT_EQ(fails ? std::string("Error: Cannot write to standard output: ") + reason + "\n" : "", outcome.err);
    std::filesystem::remove("out.txt");
    EXPECT_TRUE(m_results == files()) << output;
    prepare();
  }
}

const Command PACKAGE_OVER_OLD = {"PackageOverOld", {"-c", "c/spec.xml", "-o", "made"}, 0, OLD};
const Command EXTRACT_C_MODELS = {"ExtractCModels", {"extract_c_models", "lib.bfclib", "out"}};
const Command EXTRACT_CLANG_IR = {"ExtractClangIr", {"extract_clang_ir", "lib.bfclib", IR_TYPE, "out"}};

std::string name_of(const testing::TestParamInfo<Command>& command) {
  return command.param.name;
}

INSTANTIATE_TEST_SUITE_P(, Meetings, testing::Values(PACKAGE_OVER_OLD, EXTRACT_C_MODELS, EXTRACT_CLANG_IR), name_of);
INSTANTIATE_TEST_SUITE_P(
    , Faults,
    testing::Values(Command{"Package", {"-c", "c/spec.xml", "-o", "made"}},
                    Command{"PackageOverSource", {"-c", "c/spec.xml", "-o", "c/top.v"}, 1}, PACKAGE_OVER_OLD,
                    Command{"Create", {"create", "-o", "made", "f", "k"}},
                    Command{"CreateOverOld", {"create", "-o", "made", "f", "k"}, 0, OLD},
                    Command{"CreateOverTwoNames", {"create", "-o", "made", "f", "k"}, 0, OLD_WITH_TWO_NAMES},
                    Command{"CreateVerbose", {"create", "-v", "-o", "made", "f", "k"}},
                    Command{"CreateOverInput", {"create", "-o", "f", "f", "k"}, 1},
                    Command{"List", {"list", "lib.bfclib"}}, EXTRACT_C_MODELS, EXTRACT_CLANG_IR),
    name_of);
