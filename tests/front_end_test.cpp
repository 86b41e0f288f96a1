// SPDX-License-Identifier: BSD-3-Clause
#include "shelver_exe/create.h"
#include "shelver_exe/front_end.h"
#include "shelver_exe/opencl.h"
#include "shelver_exe/package.h"
#include "shelver_exe/usage.h"

#include "support.h"

#include <cstdlib>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using FrontEnd = InTempDir;
using FrontEndDeathTest = InTempDir;

// A stream that reads a text.
struct TextStream {
  explicit TextStream(std::string text) : m_text(std::move(text)), file(fmemopen(m_text.data(), m_text.size(), "r")) {}
  ~TextStream() { std::fclose(file); }
  TextStream(const TextStream&) = delete;
  TextStream& operator=(const TextStream&) = delete;

private:
  std::string m_text;

public:
  std::FILE* file;
};

} // namespace

TEST_F(FrontEnd, FilesAndDirectories) {
  write_file("file", "");
  std::filesystem::create_symlink("file", "link");
  std::filesystem::create_symlink("nowhere", "dangling");
  const sockaddr_un address = {AF_UNIX, "socket"};
  const int socket_fd = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(0, bind(socket_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  close(socket_fd);
  const struct {
    const char* path;
    bool directory;
    bool regular;
  } cases[] = {{".", true, false}, {"file", false, true},       {"link", false, true},  {"dangling", false, false},
               {"", false, false}, {"/dev/null", false, false}, {"socket", true, false}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.directory, file_is_directory(c.path) != 0) << c.path;
    EXPECT_EQ(c.regular, file_is_a_regular_file(c.path)) << c.path;
  }
}

TEST_F(FrontEnd, StringsGrowByDoubling) {
  std::size_t capacity = 0;
  char* text = grow_string(nullptr, 10, &capacity);
  EXPECT_EQ(10U, capacity);
  text = grow_string(text, 10, &capacity);
  EXPECT_EQ(20U, capacity);
  EXPECT_EQ(text, grow_string(text, 5, &capacity));
  text = grow_string(text, 100, &capacity);
  EXPECT_EQ(100U, capacity);
  std::free(text);
}

TEST_F(FrontEnd, DirectoryDepths) {
  const struct {
    std::vector<std::string> names;
    int depth;
  } cases[] = {
      {{}, 0},
      {{""}, 0},
      {{"../rtl/a.v"}, 1},
      {{"a/../../x.v"}, 1},
      {{"../../ip/b.sv"}, 2},
      {{"sub/c.v", "/abs/d.v"}, 0},
      {{"..//.././x"}, 2},
      {{"../a/../.."}, 1}, // what follows the last "/" is never judged
      {{"a/b/../x", "../x"}, 1},
      {{"../../a/b/../x"}, 2},
      {{".../x", "..x/y"}, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.depth, find_max_directory_depth(c.names)) << (c.names.empty() ? "" : c.names.front());
  }
}

TEST_F(FrontEnd, DirectoryPrefixes) {
  write_file("u/proj/x", "");
  std::filesystem::current_path("u/proj");
  EXPECT_EQ("", gen_directory_prefix(0, "comp/top"));
  EXPECT_EQ("top/", gen_directory_prefix(1, "comp/top"));
  EXPECT_EQ("comp/top/", gen_directory_prefix(2, "comp/top"));
  EXPECT_EQ("u/proj/comp/", gen_directory_prefix(3, "comp"));
  EXPECT_EQ("proj//abs/", gen_directory_prefix(3, "/abs"));
  std::filesystem::current_path("/");
  EXPECT_EQ("", gen_directory_prefix(1, ""));
  EXPECT_EQ("a/", gen_directory_prefix(1, "a"));
}

TEST_F(FrontEndDeathTest, ProgrammingErrorsOddIrAndTooManyLevels) {
  EXPECT_DEATH(gen_directory_prefix(-1, ""), "src/shelver_exe/package.cpp:.*`depth >= 0'");
  EXPECT_DEATH(show_help("", "frobnicate"), "src/shelver_exe/usage.cpp:.*`0'");
  std::size_t capacity = 0;
  EXPECT_DEATH(static_cast<void>(grow_string(nullptr, SIZE_MAX / 2 + 1, &capacity)),
               "`src && \"Failed to reallocate more memory\"'");
  std::vector<std::string> values;
  EXPECT_DEATH(fill_named_args(0, nullptr, 1, nullptr, values, values), "`name'");
  for (const char* text : {"define void @()", "define void (i32)* @f()"}) {
    const TextStream stream(text);
    EXPECT_DEATH(extract_function_and_kernel_lists(stream.file, values, values),
                 "src/shelver_exe/opencl.cpp:.*`fname_end > fname_start \\+ 1'");
  }
  std::filesystem::current_path("/");
  EXPECT_EXIT(gen_directory_prefix(3, "a"), testing::ExitedWithCode(1), "");
}

TEST_F(FrontEnd, NamedArguments) {
  const char* names[] = {"-name", "-o"};
  const struct {
    std::vector<const char*> words;
    int result;
    std::vector<std::string> values;
    std::vector<std::string> positional;
    const char* message;
  } cases[] = {
      {{}, 1, {"", ""}, {}, ""},
      {{"a", "-o", "x", "b"}, 1, {"", "x"}, {"a", "b"}, ""},
      {{"-o", "x", "-o", "y"}, 1, {"", "y"}, {}, ""},
      {{"-o", "x", "-o", "y", "-name", "z"}, 1, {"", "y"}, {"-name", "z"}, ""},
      {{"-O", "-namex", "-"}, 1, {"", ""}, {"-O", "-namex", "-"}, ""},
      {{"-o", ""}, 1, {"", ""}, {}, ""},
      {{"a", "-o"}, 0, {"", ""}, {"a"}, "Error: argument -o is given without value!\n"},
      {{"-name", "-o"},
       0,
       {"", ""},
       {},
       "Error: option -name has value -o, which doesn't look like a valid file name!\n"},
  };
  for (const auto& c : cases) {
    std::vector<char*> argv = {nullptr, nullptr};
    for (const char* word : c.words) {
      argv.push_back(const_cast<char*>(word));
    }
    std::vector<std::string> values;
    std::vector<std::string> positional;
    int result = -1;
    const Printed printed = capture(
        [&] { result = fill_named_args(static_cast<int>(argv.size()), argv.data(), 2, names, values, positional); });
    EXPECT_EQ(c.result, result);
    EXPECT_EQ(c.values, values);
    EXPECT_EQ(c.positional, positional);
    EXPECT_EQ(c.message, printed.out);
  }
}

TEST_F(FrontEnd, DuplicatesAreAllTold) {
  std::vector<std::string> list = {"b", "a", "%s", "b", "%s", "b", "c"};
  const Printed printed = capture([&] { EXPECT_NE(0, find_duplicates(list, "twice: %s!\n")); });
  EXPECT_EQ("twice: %s!\ntwice: b!\n", printed.out);
  EXPECT_EQ((std::vector<std::string>{"%s", "%s", "a", "b", "b", "b", "c"}), list);
  list = {};
  EXPECT_EQ(0, find_duplicates(list, ""));
}

TEST_F(FrontEnd, FunctionsOfTextualIr) {
  const std::string filler(4087, 'x'); // "define " and it fill the reader's line
  const struct {
    std::string text;
    std::vector<std::string> functions;
    std::vector<std::string> kernels;
  } cases[] = {
      {"define i32 @f(i32 %a) {\n  ret i32 @notme(\n}\ndeclare i32 @g(i32)\n", {"f"}, {}},
      {"define spir_kernel void @k(i32 %x)\ndefine spir_func void @s()", {"k", "s"}, {"k"}},
      {"define \ndefine @\ndefine (\n\n define i32 @no()\n", {}, {}},
      {"define internal spir_kernel void @k()\n", {"k"}, {}},
      {"define void @\"a b\"()\n", {"\"a b\""}, {}},
      {"define " + filler + "define void @f()\n", {"f"}, {}},
      {"define " + filler + "@f()\n", {}, {}},
      {std::string("define void \0@f()\n", 18), {}, {}},
      {" ", {}, {}},
  };
  for (const auto& c : cases) {
    const TextStream stream(c.text);
    std::vector<std::string> kernels;
    std::vector<std::string> functions;
    extract_function_and_kernel_lists(stream.file, kernels, functions);
    EXPECT_EQ(c.functions, functions) << c.text.substr(0, 80);
    EXPECT_EQ(c.kernels, kernels) << c.text.substr(0, 80);
  }
}
