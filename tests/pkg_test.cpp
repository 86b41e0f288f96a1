// SPDX-License-Identifier: BSD-3-Clause
#include "pkg.h"

#include "support.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

// The allocation of C++ that fails when it counts down to 0; none when it is 0. Inlined operators make
// gcc warn of free() for the result of new.
static long s_allocations = 0;

[[gnu::noinline]] void* operator new(std::size_t size) {
  void* block = s_allocations > 0 && --s_allocations == 0 ? nullptr : std::malloc(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace {

constexpr unsigned CREATE = VEX_PKG_SHOW_ERRORS | VEX_PKG_READ_WRITE | VEX_PKG_CREATE;
constexpr unsigned READ = VEX_PKG_SHOW_ERRORS | VEX_PKG_READ_ONLY;
constexpr unsigned EDIT = VEX_PKG_SHOW_ERRORS | VEX_PKG_READ_WRITE;

using Pkg = InTempDir;
using namespace std::string_literals;

vex_pkg_ptr open_package(const char* name, unsigned mode) {
  return vex_pkg_ptr(vex_pkg_open_file(name, mode));
}

// Sections "a" (ten bytes) and "bc" (none).
std::string make_package() {
  const vex_pkg_ptr pkg = open_package("good", CREATE);
  EXPECT_EQ(1U, vex_pkg_add_data_section(pkg.get(), "a", "0123456789", 10));
  EXPECT_EQ(1U, vex_pkg_add_data_section(pkg.get(), "bc", nullptr, 0));
  EXPECT_EQ(1U, vex_pkg_close_file_checked(const_cast<vex_pkg_ptr&>(pkg).release()));
  return read_file("good");
}

std::uint32_t word_at(const std::string& image, std::size_t offset) {
  std::uint32_t word = 0;
  std::memcpy(&word, image.data() + offset, sizeof word);
  return word;
}

std::string with_bytes(std::string image, std::size_t offset, const std::string& bytes) {
  return image.replace(offset, bytes.size(), bytes);
}

std::string word(std::uint32_t value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

// The place of a field of a section's header.
std::size_t header_at(const std::string& image, unsigned section, unsigned field) {
  return word_at(image, 32) + 40 * section + field;
}

std::string read_section(vex_pkg_file* pkg, const char* name) {
  std::size_t size = 0;
  if (vex_pkg_section_exists(pkg, name, &size) == 0) {
    return "(none)";
  }
  std::string text(size + 1, '?');
  return vex_pkg_read_section(pkg, name, text.data(), text.size()) != 0 ? text.substr(0, size) : "(unreadable)";
}

} // namespace

TEST_F(Pkg, OpenModes) {
  write_file("file", "x");
  const struct {
    const char* name;
    unsigned mode;
    const char* message;
  } cases[] = {
      {"file", 0x100, "Binary package open mode 0x100 must include either read-only or read-write\n"},
      {"file", 0x107, "Binary package open mode 0x107 cannot include both read-only and read-write\n"},
      {"file", 0x105, "Binary package creation flag can only be used with read-write mode.\n"},
      {nullptr, 0x101, "No filename specified\n"},
      {"absent", 0x101, "Couldn't open absent: No such file or directory\n"},
      {"absent", 0x1, ""},
      {"no/file", 0x106, "Couldn't open no/file: No such file or directory\n"},
      {".", 0x102, "Couldn't open .: Is a directory\n"},
      {"file", 0x102, "No string table section\n"},
  };
  for (const auto& c : cases) {
    const Printed printed = capture([&c] { EXPECT_EQ(nullptr, vex_pkg_open_file(c.name, c.mode)); });
    EXPECT_EQ(c.message, printed.err);
    EXPECT_EQ("", printed.out);
  }
}

TEST_F(Pkg, NewPackageHasTwoSectionsAndAFixedHeader) {
  const Printed printed = capture([] {
    const vex_pkg_ptr pkg = open_package("new", CREATE);
    vex_pkg_list_file_sections(pkg.get());
    char names[] = "untouched";
    EXPECT_EQ(1U, vex_pkg_section_names(pkg.get(), names, sizeof names));
    EXPECT_STREQ("untouched", names);
  });
  EXPECT_EQ("Sections in package file:\n", printed.out);
  const std::string image = read_file("new");
  ASSERT_EQ(4472U, image.size());
  EXPECT_EQ(std::string("\177ELF\1\1\1", 7), image.substr(0, 7));
  EXPECT_EQ(word(62U << 16), image.substr(16, 4));       // type none, machine 62
  EXPECT_EQ(word((1U << 16) | 3U), image.substr(48, 4)); // three headers, names in section 1
  EXPECT_EQ(std::string("\0.shstrtab\0\0", 12), image.substr(128, 12));
  const std::uint32_t table[] = {1, 3, 0x20, 0, 128, 12, 0, 0, 128, 0};
  EXPECT_EQ(0, std::memcmp(image.data() + header_at(image, 1, 0), table, sizeof table));
  const std::uint32_t nameless[] = {11, 1, 0, 0, 256, 4096, 0, 0, 128, 0};
  EXPECT_EQ(0, std::memcmp(image.data() + header_at(image, 2, 0), nameless, sizeof nameless));
}

TEST_F(Pkg, SameInputGivesSameBytes) {
  const std::string image = make_package();
  write_file("good", std::string(100000, 'x'));
  EXPECT_EQ(image, make_package()); // over a longer file
  {
    const vex_pkg_ptr pkg = open_package("edited", CREATE);
    vex_pkg_add_data_section(pkg.get(), "a", "x", 1);
  }
  {
    const vex_pkg_ptr pkg = open_package("edited", EDIT);
    EXPECT_EQ(1U, vex_pkg_update_section(pkg.get(), "a", "0123456789", 10));
    EXPECT_EQ(1U, vex_pkg_add_data_section(pkg.get(), "bc", nullptr, 0));
  }
  EXPECT_EQ(image, read_file("edited"));
}

TEST_F(Pkg, SectionsRoundTrip) {
  make_package();
  write_file("source", std::string("b\0c", 3));
  {
    const vex_pkg_ptr pkg = open_package("good", EDIT);
    EXPECT_EQ("0123456789", read_section(pkg.get(), "a"));
    EXPECT_EQ(1U, vex_pkg_update_section(pkg.get(), "a", nullptr, 0));
    EXPECT_EQ(1U, vex_pkg_update_section_from_file(pkg.get(), "bc", "source"));
    EXPECT_EQ(1U, vex_pkg_add_data_section_from_file(pkg.get(), "d", "good"));
  }
  const vex_pkg_ptr pkg = open_package("good", READ);
  EXPECT_EQ("", read_section(pkg.get(), "a"));
  EXPECT_EQ(std::string("b\0c", 3), read_section(pkg.get(), "bc"));
  void* data = nullptr;
  EXPECT_EQ(1U, vex_pkg_read_section_transient(pkg.get(), "bc", &data));
  EXPECT_EQ(0, std::memcmp(data, "b\0c", 3));
  write_file("target", "longer than the section");
  EXPECT_EQ(1U, vex_pkg_read_section_into_file(pkg.get(), "bc", "target"));
  EXPECT_EQ(std::string("b\0c", 3), read_file("target"));
  EXPECT_EQ(1U, vex_pkg_read_section_into_file(pkg.get(), "a", "target"));
  EXPECT_EQ("", read_file("target"));
  std::filesystem::create_hard_link("target", "other"); // written over, not replaced
  EXPECT_EQ(1U, vex_pkg_read_section_into_file(pkg.get(), "bc", "target"));
  EXPECT_EQ(std::string("b\0c", 3), read_file("other"));
  // A package in a package opens from memory.
  std::string inner = read_section(pkg.get(), "d");
  const vex_pkg_ptr nested(vex_pkg_open_file_from_memory(inner.data(), inner.size(), 0x100));
  EXPECT_EQ("0123456789", read_section(nested.get(), "a"));
}

TEST_F(Pkg, RefusedOperationsSayWhy) {
  make_package();
  write_file("source", "s");
  const vex_pkg_ptr reader = open_package("good", READ);
  const vex_pkg_ptr writer = open_package("written", CREATE);
  vex_pkg_add_data_section(writer.get(), "a", "x", 1);
  vex_pkg_file* const r = reader.get();
  vex_pkg_file* const w = writer.get();
  const std::string long_name(4097, 'n');
  char buffer[16];
  const struct {
    std::function<unsigned()> operation;
    std::string message;
  } cases[] = {
      {[&] { return vex_pkg_add_data_section(r, "n", "x", 1); }, "Cannot add section to read-only binary\n"},
      {[&] { return vex_pkg_add_data_section_from_file(r, "n", "source"); },
       "Cannot add section to read-only binary\n"},
      {[&] { return vex_pkg_update_section(r, "a", "x", 1); }, "Cannot add section to read-only binary\n"},
      {[&] { return vex_pkg_update_section_from_file(r, "a", "source"); }, "Cannot add section to read-only binary\n"},
      {[&] { return vex_pkg_add_data_section(w, "a", "x", 1); }, "Section 'a' already exists.\n"},
      {[&] { return vex_pkg_add_data_section_from_file(w, "a", "absent"); }, "Section 'a' already exists.\n"},
      {[&] { return vex_pkg_add_data_section(w, "", "x", 1); }, "Section '' already exists.\n"},
      {[&] { return vex_pkg_add_data_section(w, ".shstrtab", "x", 1); }, "Section '.shstrtab' already exists.\n"},
      {[&] { return vex_pkg_add_data_section(w, long_name.c_str(), "x", 1); },
       "Section name length 4097 exceeds limit of 4096 bytes. Section name is " + long_name + "\n"},
      {[&] { return vex_pkg_add_data_section(w, nullptr, "x", 1); }, "Section name argument is NULL\n"},
      {[&] { return vex_pkg_add_data_section(w, "n", nullptr, 1); }, "Buffer argument is NULL\n"},
      {[&] { return vex_pkg_add_data_section(w, "n", "x", UINT32_MAX); },
       "Section of 4294967295 bytes exceeds the package's limit of 4 GiB\n"},
      {[&] { return vex_pkg_add_data_section(w, "n", "x", SIZE_MAX); },
       "Section of 18446744073709551615 bytes exceeds the package's limit of 4 GiB\n"},
      {[&] { return vex_pkg_add_data_section_from_file(w, "n", "absent"); }, "Couldn't open file absent for reading\n"},
      {[&] { return vex_pkg_add_data_section_from_file(w, "n", "."); }, "Couldn't open file . for reading\n"},
      {[&] { return vex_pkg_update_section(w, "n", "x", 1); }, "Section 'n' does not exist.\n"},
      {[&] { return vex_pkg_update_section_from_file(w, "n", "source"); }, "Section 'n' does not exist.\n"},
      {[&] { return vex_pkg_section_exists(r, "n", nullptr); }, ""},
      {[&] { return vex_pkg_read_section(r, "n", buffer, sizeof buffer); }, "Couldn't find section with name 'n'.\n"},
      {[&] { return vex_pkg_read_section(r, "a", nullptr, 11); }, "Buffer argument is NULL\n"},
      {[&] { return vex_pkg_read_section(r, "a", buffer, 10); }, "Target buffer for section 'a' is too small.\n"},
      {[&] { return vex_pkg_read_section_transient(r, "a", nullptr); }, "Buffer pointer argument is NULL\n"},
      {[&] { return vex_pkg_read_section_into_file(r, "n", "target"); }, "Couldn't find section with name 'n'.\n"},
      {[&] { return vex_pkg_read_section_into_file(r, "a", "no/target"); },
       "Couldn't open file for writing: No such file or directory\n"},
      {[&] { return vex_pkg_read_section_into_file(r, "a", "/dev/full"); },
       "Wrote only 0 out of 10 bytes into /dev/full for writing"},
      {[&] { return vex_pkg_section_names(r, buffer, 4); }, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    unsigned result = 2;
    const Printed printed = capture([&] { result = c.operation(); });
    EXPECT_EQ(0U, result);
    EXPECT_EQ(c.message, printed.err);
  }
}

TEST_F(Pkg, NamesFillTheBufferExactly) {
  make_package();
  const vex_pkg_ptr pkg = open_package("good", READ);
  char names[5] = {};
  EXPECT_EQ(0U, vex_pkg_section_names(pkg.get(), names, 4));
  EXPECT_STREQ("a", names);
  EXPECT_EQ(1U, vex_pkg_section_names(pkg.get(), names, 5));
  EXPECT_STREQ("a\nbc", names);
}

TEST_F(Pkg, LongestNameAndOneMore) {
  const std::string longest(4096, 'n');
  {
    const vex_pkg_ptr pkg = open_package("long", CREATE);
    EXPECT_EQ(1U, vex_pkg_add_data_section(pkg.get(), longest.c_str(), "x", 1));
    capture([&] { EXPECT_EQ(0U, vex_pkg_add_data_section(pkg.get(), (longest + "n").c_str(), "y", 1)); });
    EXPECT_EQ(1U, vex_pkg_add_data_section(pkg.get(), "after", "z", 1));
  }
  const vex_pkg_ptr pkg = open_package("long", READ);
  EXPECT_EQ("x", read_section(pkg.get(), longest.c_str()));
  EXPECT_EQ("z", read_section(pkg.get(), "after"));
  const Printed printed = capture([&pkg] { vex_pkg_list_file_sections(pkg.get()); });
  EXPECT_EQ("Sections in package file:\n  " + longest + ", 1 bytes\n  after, 1 bytes\n", printed.out);
}

TEST_F(Pkg, ManySections) {
  constexpr int count = 70000; // beyond what the header's 16-bit fields hold
  {
    const vex_pkg_ptr pkg = open_package("many", CREATE);
    for (int i = 0; i < count; ++i) {
      ASSERT_EQ(1U, vex_pkg_add_data_section(pkg.get(), std::to_string(i).c_str(), "x", 1));
    }
  }
  const vex_pkg_ptr pkg = open_package("many", READ);
  EXPECT_EQ("x", read_section(pkg.get(), "0"));
  EXPECT_EQ("x", read_section(pkg.get(), std::to_string(count - 1).c_str()));
  EXPECT_EQ("(none)", read_section(pkg.get(), std::to_string(count).c_str()));
}

TEST_F(Pkg, ProgressIsShownOnRequest) {
  write_file("source", "sss");
  const Printed printed = capture([] {
    const vex_pkg_ptr pkg = open_package("p", CREATE);
    vex_pkg_set_show_mode(pkg.get(), VEX_PKG_SHOW_INFO);
    vex_pkg_add_data_section_from_file(pkg.get(), "s", "source");
    vex_pkg_update_section(pkg.get(), "s", "zz", 2);
    vex_pkg_read_section_into_file(pkg.get(), "s", "target");
    vex_pkg_add_data_section(pkg.get(), "s", "", 0); // fails without a message
  });
  EXPECT_EQ("vex_pkg_add_data_section: Added section s with 3 bytes\n"
            "Read 3 bytes from file source and created new section 's'.\n"
            "vex_pkg_update_section: Updating section s with 2 bytes of new data\n"
            "Wrote 2 bytes from section 's' to file target\n"
            "vex_pkg_close_file: Pkg fd is live\n"
            "vex_pkg_close_file: Pkg is dirty\n"
            "vex_pkg_close_file: Pkg update is ok\n",
            printed.out);
  EXPECT_EQ("", printed.err);
}

TEST_F(Pkg, MemoryTakesShowBitsOnly) {
  std::string image = make_package();
  const Printed printed = capture([&image] {
    EXPECT_EQ(nullptr, vex_pkg_open_file_from_memory(image.data(), image.size(), 0x101));
    EXPECT_EQ(nullptr, vex_pkg_open_file_from_memory(image.data(), image.size(), 0x1));
    EXPECT_EQ(nullptr, vex_pkg_open_file_from_memory(nullptr, 1, 0x100));
    EXPECT_EQ(nullptr, vex_pkg_open_file_from_memory(image.data(), 0, 0x100));
    vex_pkg_close_file(vex_pkg_open_file_from_memory(image.data(), image.size(), 0x300));
    vex_pkg_close_file(nullptr);
  });
  EXPECT_EQ("Invalid mode 257 for opening a binary in memory\n", printed.err);
  EXPECT_EQ("", printed.out);
}

// A table taken from itself, and the same table again and again.
TEST_F(Pkg, StringTableUpdatesKeepIndexAndMemoryInOrder) {
  make_package();
  const char table[] = "\0X"; // no end, and most names beyond it: adding gives sections new names
  {
    const vex_pkg_ptr pkg = open_package("good", EDIT);
    void* old = nullptr;
    ASSERT_EQ(1U, vex_pkg_read_section_transient(pkg.get(), ".shstrtab", &old));
    for (int i = 0; i < 100; ++i) {
      ASSERT_EQ(1U, vex_pkg_update_section(pkg.get(), ".shstrtab", old, 17));
      ASSERT_EQ(1U, vex_pkg_add_data_section(pkg.get(), std::to_string(i).c_str(), "", 0));
    }
    ASSERT_EQ(1U, vex_pkg_update_section(pkg.get(), ".shstrtab", table, 2));
    ASSERT_EQ(1U, vex_pkg_add_data_section(pkg.get(), "0123456789abcdefgh", "", 0));
    EXPECT_EQ("0123456789", read_section(pkg.get(), "abcdefgh"));
  }
  EXPECT_EQ("0123456789", read_section(open_package("good", READ).get(), "abcdefgh"));
}

// They are mapped: what may happen to them before close.
TEST_F(Pkg, LargeSources) {
  const std::string large(100000, 'x');
  for (const char* file : {"removed", "replaced", "updated", "kept", "shortened"}) {
    write_file(file, large);
  }
  const auto add = [](vex_pkg_file* pkg, const char* name) {
    EXPECT_EQ(1U, vex_pkg_add_data_section_from_file(pkg, name, name)) << name;
  };
  vex_pkg_ptr pkg = open_package("p", CREATE);
  for (const char* name : {"removed", "replaced", "updated", "kept"}) {
    add(pkg.get(), name);
  }
  unlink("removed");
  write_file("other", "other");
  rename("other", "replaced");
  EXPECT_EQ(1U, vex_pkg_update_section_from_file(pkg.get(), "updated", "kept"));
  write_file("updated", "no longer looked at");
  EXPECT_EQ(large, read_section(pkg.get(), "kept"));
  EXPECT_EQ(1U, vex_pkg_close_file_checked(pkg.release()));
  pkg = open_package("p", READ);
  for (const char* name : {"removed", "replaced", "updated", "kept"}) {
    EXPECT_TRUE(large == read_section(pkg.get(), name)) << name;
  }

  pkg = open_package("p", CREATE);
  add(pkg.get(), "shortened");
  write_file("shortened", "short");
  void* data = nullptr;
  const Printed printed = capture([&] {
    EXPECT_EQ("(unreadable)", read_section(pkg.get(), "shortened"));
    EXPECT_EQ(0U, vex_pkg_read_section_transient(pkg.get(), "shortened", &data));
    EXPECT_EQ(0U, vex_pkg_read_section_into_file(pkg.get(), "shortened", "target"));
    write_file("shortened", large); // at another time
    EXPECT_EQ(0U, vex_pkg_close_file_checked(pkg.release()));
  });
  EXPECT_NE(std::string::npos, printed.err.find("vex_pkg_close_file: File shortened changed while it was packaged\n"))
      << printed.err;
}

TEST_F(Pkg, LargeSectionsAreWrittenWhole) {
  std::string bytes;
  for (std::uint32_t i = 0; bytes.size() <= std::size_t{1} << 20; ++i) {
    bytes += word(i);
  }
  const std::size_t piece = std::size_t{256} << 10;
  for (const std::size_t size : {piece, piece + 1, 2 * piece, bytes.size()}) {
    const std::string name = std::to_string(size);
    const vex_pkg_ptr pkg = open_package("p", size == piece ? CREATE : EDIT);
    ASSERT_EQ(1U, vex_pkg_add_data_section(pkg.get(), name.c_str(), bytes.data(), size));
    ASSERT_EQ(1U, vex_pkg_add_data_section(pkg.get(), (name + " updated").c_str(), bytes.data(), size));
    ASSERT_EQ(1U, vex_pkg_update_section(pkg.get(), (name + " updated").c_str(), bytes.data() + 1, size - 1));
  }
  const vex_pkg_ptr pkg = open_package("p", READ);
  for (const std::size_t size : {piece, piece + 1, 2 * piece, bytes.size()}) {
    EXPECT_TRUE(bytes.substr(0, size) == read_section(pkg.get(), std::to_string(size).c_str())) << size;
    EXPECT_TRUE(bytes.substr(1, size - 1) == read_section(pkg.get(), (std::to_string(size) + " updated").c_str()));
  }
}

static std::set<std::string> files_here() {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    names.insert(entry.path().filename());
  }
  return names;
}

// What close makes of the output, whatever happened to it before and since it was opened.
TEST_F(Pkg, OutputsAreReplacedWhole) {
  make_package();
  const std::string large(1000000, 'l');
  const std::string old_only(3 * large.size(), 'o'); // the new file is shorter
  {
    const vex_pkg_ptr pkg = open_package("good", EDIT);
    vex_pkg_add_data_section(pkg.get(), "old", old_only.data(), old_only.size());
  }
  const std::string old = read_file("good");
  const auto move_away = [] { std::filesystem::rename("out", "moved"); };
  const struct {
    const char* name;
    std::function<void()> before;
    std::function<void()> meanwhile;
    std::set<std::string> files;
    std::function<bool()> holds;
    const char* message = "";
  } cases[] = {
      {"mode",
       [] { chmod("out", 0604); },
       [] {},
       {"out"},
       [] {
         struct stat status = {};
         return stat("out", &status) == 0 && (status.st_mode & 07777) == 0604;
       }},
      {"link",
       [=] {
         move_away();
         symlink("moved", "out");
       },
       [] {},
       {"moved", "out"},
       [] { return std::filesystem::is_symlink("out"); }},
      {"two names",
       [] { link("out", "other"); },
       [] {},
       {"other", "out"},
       [&] { return read_file("other") == read_file("out"); }},
      {"removed", [] {}, [] { unlink("out"); }, {"out"}, [] { return true; }},
      {"moved", [] {}, move_away, {"moved", "out"}, [&] { return read_file("moved") == old; }},
      {"other folder",
       [] {},
       [] { std::filesystem::current_path(".."); },
       {"out"},
       [] {
         std::filesystem::current_path("other folder");
         return true;
       }},
      {"a folder now",
       [] {},
       [] {
         unlink("out");
         mkdir("out", 0777);
       },
       {"out"},
       [] { return true; },
       "vex_pkg_close_file: Failed to replace out: Is a directory\n"},
      {"no folder",
       [] {},
       [] {
         unlink("out");
         rmdir("../no folder");
       },
       {},
       [] { return true; },
       "vex_pkg_close_file: Failed to write out: No such file or directory\n"},
  };
  umask(027);
  for (const unsigned mode : {CREATE, EDIT}) {
    std::string first;
    for (const auto& c : cases) {
      SCOPED_TRACE(c.name + std::to_string(mode));
      std::filesystem::create_directory(c.name);
      std::filesystem::current_path(c.name);
      write_file("out", old);
      c.before();
      vex_pkg_ptr pkg = open_package("out", mode);
      EXPECT_EQ(1U, vex_pkg_add_data_section(pkg.get(), "large", large.data(), large.size()));
      EXPECT_EQ(old, read_file("out"));
      c.meanwhile();
      const Printed printed =
          capture([&] { EXPECT_EQ(c.message == ""s ? 1U : 0U, vex_pkg_close_file_checked(pkg.release())); });
      EXPECT_EQ(c.message, printed.err);
      EXPECT_TRUE(c.holds());
      EXPECT_EQ(c.files, files_here());
      if (c.message == ""s) {
        first = first.empty() ? read_file("out") : first;
        EXPECT_TRUE(first == read_file("out"));
        EXPECT_EQ(large, read_section(open_package("out", READ).get(), "large"));
        EXPECT_EQ(mode == CREATE ? "(none)" : "0123456789", read_section(open_package("out", READ).get(), "a"));
      }
      std::filesystem::current_path("..");
      std::filesystem::remove_all(c.name);
    }
  }
}

// Readers beside writers find one package or the other.
TEST_F(Pkg, ConcurrentReadersAndWriters) {
  const auto write = [](char text) {
    const std::string bytes(400000, text);
    const vex_pkg_ptr pkg = open_package("p", CREATE);
    vex_pkg_add_data_section(pkg.get(), "s", bytes.data(), bytes.size());
    vex_pkg_add_data_section(pkg.get(), "t", bytes.data(), 1);
  };
  write('0');
  std::vector<pid_t> writers;
  for (const char text : {'1', '2'}) {
    writers.push_back(fork());
    if (writers.back() == 0) {
      for (int i = 0; i < 50; ++i) {
        write(text);
      }
      _exit(0);
    }
  }
  while (waitpid(-1, nullptr, WNOHANG) >= 0) {
    const vex_pkg_ptr pkg = open_package("p", READ);
    const std::string text = read_section(pkg.get(), "t");
    ASSERT_EQ(1U, text.size());
    ASSERT_TRUE(read_section(pkg.get(), "s") == std::string(400000, text[0]));
  }
}

TEST_F(Pkg, AFileWithTwoNamesIsWrittenByOneProgramAtATime) {
  const std::string old = make_package();
  link("good", "other name");
  EXPECT_TRUE(waits_for_lock("good", [] { open_package("good", CREATE); }));
  EXPECT_NE(old, read_file("good"));
}

// A package that is never closed leaves the old file, or an empty one.
TEST_F(Pkg, OutputsWithoutCloseStay) {
  const std::string old = make_package();
  const pid_t child = fork();
  if (child == 0) {
    for (const char* name : {"good", "new"}) {
      vex_pkg_add_data_section(vex_pkg_open_file(name, CREATE), "s", "bytes", 5);
    }
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  EXPECT_EQ(old, read_file("good"));
  EXPECT_EQ("", read_file("new"));
  EXPECT_EQ((std::set<std::string>{"good", "new"}), files_here());
}

// A package with four sections of whose names each is an end of the longest, "a" the last of them.
static std::string make_nested_names() {
  const std::string longest(VEX_PKG_MAX_SECTION_NAME, 'a');
  vex_pkg_ptr pkg = open_package("nested", CREATE);
  for (const std::string& name : {longest, "1"s, "2"s, "3"s}) {
    EXPECT_EQ(1U, vex_pkg_add_data_section(pkg.get(), name.c_str(), "", 0));
  }
  pkg.reset();
  std::string image = read_file("nested");
  const std::uint32_t first = word_at(image, header_at(image, 3, 0));
  for (std::uint32_t i = 1; i < 4; ++i) {
    image = with_bytes(image, header_at(image, 3 + i, 0), word(first + (i < 3 ? i : 4095)));
  }
  return image;
}

TEST_F(Pkg, SectionBeyondTheFileHidesNoOther) {
  const std::string good = make_package();
  write_file("good", with_bytes(good, header_at(good, 4, 20), word(0x7fffffff)));
  EXPECT_EQ("0123456789", read_section(open_package("good", READ).get(), "a"));
}

// Sizes near the limit, of bytes that are not there: they must not be written.
TEST_F(Pkg, UpdateMayUseTheSpaceOfOldContents) {
  const vex_pkg_ptr pkg = open_package("p", CREATE);
  EXPECT_EQ(1U, vex_pkg_add_data_section(pkg.get(), "a", "x", 0xfff00000));
  EXPECT_EQ(1U, vex_pkg_update_section(pkg.get(), "a", "y", 0xfff00000));
  capture([&pkg] { EXPECT_EQ(0U, vex_pkg_add_data_section(pkg.get(), "b", "x", 0xfff00000)); });
  EXPECT_EQ(1U, vex_pkg_update_section(pkg.get(), "a", "x", 1));
}

TEST_F(Pkg, FirstSectionOfANameIsFound) {
  const std::string good = make_package();
  const std::string twice = word(word_at(good, header_at(good, 3, 0)));
  write_file("good", with_bytes(good, header_at(good, 4, 0), twice)); // both "a"
  const vex_pkg_ptr pkg = open_package("good", EDIT);
  EXPECT_EQ("0123456789", read_section(pkg.get(), "a"));
  EXPECT_EQ(1U, vex_pkg_update_section(pkg.get(), "a", "first", 5));
  char names[8] = {};
  EXPECT_EQ(1U, vex_pkg_section_names(pkg.get(), names, sizeof names));
  EXPECT_STREQ("a\na", names);
  EXPECT_EQ("first", read_section(pkg.get(), "a"));
}

// Changes the package "p" while one allocation fails; returns whether it was reached. What an operation reports is so.
static bool change_with_fault(unsigned mode, long allocation) {
  bool added[2] = {};
  bool closed = false;
  bool reached = false;
  bool again = false;
  capture([&] {
    s_allocations = allocation;
    vex_pkg_file* pkg = vex_pkg_open_file("p", mode);
    vex_pkg_add_data_section(pkg, "new", "bytes", 5);
    again = vex_pkg_add_data_section(pkg, ".shstrtab", "again", 5) != 0;
    added[0] = vex_pkg_add_data_section_from_file(pkg, "small", "small") != 0;
    added[1] = vex_pkg_add_data_section_from_file(pkg, "large", "large") != 0;
    closed = vex_pkg_close_file_checked(pkg) != 0 && pkg != nullptr;
    reached = s_allocations == 0;
    s_allocations = 0;
  });
  EXPECT_FALSE(again);
  const vex_pkg_ptr pkg = open_package("p", READ);
  EXPECT_EQ(closed && added[0] ? "s" : "(none)", read_section(pkg.get(), "small"));
  EXPECT_EQ(closed && added[1] ? 100000U : "(none)"s.size(), read_section(pkg.get(), "large").size());
  EXPECT_TRUE(reached || (closed && added[0] && added[1]));
  return reached;
}

TEST_F(Pkg, NoOperationThrows) {
  write_file("small", "s");
  write_file("large", std::string(100000, 'l'));
  const std::string image = make_package();
  for (const unsigned mode : {EDIT, CREATE}) {
    long allocation = 0;
    do {
      write_file("p", image);
    } while (change_with_fault(mode, ++allocation));
    EXPECT_LT(5, allocation);
  }
}

// Whatever a file is, a handle on it behaves as a package without that section.
TEST_F(Pkg, DamagedFilesHaveNoSections) {
  const std::string good = make_package();
  const std::string whole = word(0) + word(static_cast<std::uint32_t>(good.size())); // a header's offset and size
  write_file("archived", "x");
  run({"ar", "rcS", "archive", "archived"});
  run({"cp", "/proc/self/exe", "elf64"});
  run({"objcopy", "-I", "binary", "-O", "elf32-big", "--rename-section", ".data=a", "archived", "big-endian"});
  mkfifo("fifo", 0666);
  const std::string heaped =
      with_bytes(with_bytes(good, header_at(good, 3, 16), whole), header_at(good, 4, 16), word(0) + word(1));
  const struct {
    const char* name;
    std::string image;
  } cases[] = {
      {"empty file", ""},
      {"text", "no package\n"},
      {"archive", read_file("archive")},
      {"64-bit ELF", read_file("elf64")},
      {"64-bit class", with_bytes(good, 4, "\2")},
      {"big-endian flag", with_bytes(good, 5, "\2")},
      {"big-endian", read_file("big-endian")},
      {"header cut off", good.substr(0, 51)},
      {"section headers cut off", good.substr(0, good.size() - 80)},
      {"no string table", with_bytes(good, 50, std::string(2, '\0'))},
      {"string table out of range", with_bytes(good, 50, "\xff\x7f")},
      {"string table without end", with_bytes(good, header_at(good, 1, 20), word(16))},
      {"string table of no size", with_bytes(good, header_at(good, 1, 20), word(0))},
      {"string table beyond the file", with_bytes(good, header_at(good, 1, 16), word(0xfffffff0))},
      {"name at the table's end", with_bytes(good, header_at(good, 1, 20), word(12))},
      {"name beyond the table", with_bytes(good, header_at(good, 3, 0), word(0x7fffffff))},
      {"section beyond the file", with_bytes(good, header_at(good, 3, 20), word(0x7fffffff))},
      {"sections over each other", heaped},
      {"sections over each other, and much behind", heaped + std::string(9 * good.size(), '\0')},
      {"sections over each other, one beyond the file",
       with_bytes(with_bytes(heaped, header_at(good, 2, 16), word(0x7fffffff) + word(0x7fffffff)),
                  header_at(good, 4, 16), whole)},
      {"names over each other", make_nested_names()},
      {"section without bytes", with_bytes(good, header_at(good, 3, 4), word(8))},
      {"section without bytes or size",
       with_bytes(with_bytes(good, header_at(good, 3, 4), word(8)), header_at(good, 3, 20), word(0))},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    write_file("bad", c.image);
    capture([&c] {
      std::string image = c.image;
      for (const bool in_memory : {false, true}) {
        const vex_pkg_ptr pkg(in_memory ? vex_pkg_open_file_from_memory(image.data(), image.size(), 0x100)
                                        : vex_pkg_open_file("bad", READ));
        char buffer[64];
        void* data = nullptr;
        EXPECT_EQ("(none)", read_section(pkg.get(), "a"));
        EXPECT_EQ(0U, vex_pkg_read_section(pkg.get(), "a", buffer, sizeof buffer));
        EXPECT_EQ(0U, vex_pkg_read_section_transient(pkg.get(), "a", &data));
        EXPECT_EQ(0U, vex_pkg_read_section_into_file(pkg.get(), "a", "target"));
        EXPECT_EQ(0U, vex_pkg_add_data_section(pkg.get(), "n", "x", 1));
        vex_pkg_section_names(pkg.get(), buffer, sizeof buffer);
        vex_pkg_list_file_sections(pkg.get());
      }
      vex_pkg_close_file(vex_pkg_open_file("bad", EDIT));
    });
    EXPECT_EQ(c.image, read_file("bad"));
  }
  for (const char* path : {".", "fifo"}) {
    const Printed printed = capture([path] {
      const vex_pkg_ptr pkg = open_package(path, READ);
      EXPECT_EQ("(none)", read_section(pkg.get(), "a"));
    });
    EXPECT_NE("", printed.err);
  }
}

TEST_F(Pkg, EditingRefusesWhatCannotBeWrittenSafely) {
  const std::string good = make_package();
  const struct {
    std::string image;
    const char* message;
  } cases[] = {
      {with_bytes(good, 50, std::string(2, '\0')), "No string table section\n"},
      {with_bytes(good, header_at(good, 1, 4), word(1)), "No usable string table section\n"},
      {with_bytes(good, header_at(good, 1, 20), word(16)), "No usable string table section\n"},
      {with_bytes(good, header_at(good, 1, 32), word(0x80000000)),
       "Section alignment of 2147483648 bytes is not supported\n"},
      {with_bytes(good, header_at(good, 3, 32), word(0x20000)), "Section alignment of 131072 bytes is not supported\n"},
      {with_bytes(good, header_at(good, 1, 20), word(0)), ""},
  };
  for (const auto& c : cases) {
    write_file("bad", c.image);
    const Printed printed = capture([] { EXPECT_EQ(nullptr, vex_pkg_open_file("bad", EDIT)); });
    EXPECT_EQ(c.message, printed.err);
  }
}
