// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"
#include "front_end.h"
#include "unique_fd.h"
#include "usage.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

#include <fcntl.h>
#include <unistd.h>

namespace {

struct Command {
  const char* word;
  int (*handler)(int argc, char** argv);
};

constexpr Command COMMANDS[] = {
    {"hdl-comp-pkg", create_component_container},
    {"-c", create_component_container},
    {"create", create_full_library},
    {"list", list_library_content},
    {"extract_c_models", extract_c_models},
    {"extract_clang_ir", extract_clang_ir},
};

// Takes every "-v" out of the vector, in place, and returns how many entries are left.
int filter_options(int argc, char** argv) {
  int kept = 0;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "-v") == 0) {
      verbose = 1;
    } else {
      argv[kept++] = argv[i];
    }
  }
  return kept;
}

int run(int argc, char** argv) {
  const int kept = filter_options(argc, argv);
  if (kept == 1) {
    show_help(argv[0], nullptr);
  }
  // With options alone, the second slot still contains "-v", which is no command.
  const char* word = argc > 1 ? argv[1] : nullptr;
  if (word == nullptr) {
    if (kept != 1) {
      show_help(argv[0], nullptr);
    }
    return 0;
  }
  for (const Command& command : COMMANDS) {
    if (std::strcmp(command.word, word) == 0) {
      return command.handler(kept, argv);
    }
  }
  show_help(argv[0], nullptr);
  return 0;
}

int output_error = 0; // of the first write to standard output that failed

ssize_t write_output(void*, const char* bytes, std::size_t size) {
  const std::size_t written = move_all(size, [&](std::size_t done, std::size_t left) {
    return write(STDOUT_FILENO, bytes + done, left);
  });
  if (written < size && output_error == 0) {
    output_error = errno != 0 ? errno : EIO;
  }
  return static_cast<ssize_t>(written);
}

// stdio does not keep the reason of a write that failed: standard output becomes a stream of ours.
void open_output() {
  std::FILE* stream = fopencookie(nullptr, "w", {nullptr, write_output, nullptr, nullptr});
  if (stream != nullptr) {
    std::setvbuf(stream, nullptr, isatty(STDOUT_FILENO) != 0 ? _IOLBF : _IOFBF, BUFSIZ);
    stdout = stream;
  }
}

// A write beyond a file-size limit or to a reader that is gone fails like one on a full disk,
// instead of ending the process. Closed standard descriptors are opened on /dev/null, so that no
// file of a command gets their numbers and with it the messages; writing to them fails as before.
void prepare_process() {
  // The tools that a command runs get the default treatment: they do not inherit handlers.
  std::signal(SIGXFSZ, [](int) {});
  std::signal(SIGPIPE, [](int) {});
  int fd = 0;
  while (fd >= 0 && fd <= STDERR_FILENO) {
    fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  }
  if (fd >= 0) {
    close(fd);
  }
}

} // namespace

int main(int argc, char** argv) {
  prepare_process();
  open_output();
  int status = 1;
  try {
    status = run(argc, argv);
  } catch (const std::exception& error) { // the standard library's, when memory is out
    std::printf("Error: %s\n", error.what());
  }
  // The output is the result of most commands: a caller must learn that it is not whole. A reader
  // that is gone does not want the rest.
  if ((std::fflush(stdout) != 0 || std::ferror(stdout) != 0) && output_error == 0) {
    output_error = errno;
  }
  if (output_error != 0 && output_error != EPIPE) {
    std::fprintf(stderr, "Error: Cannot write to standard output: %s\n",
                 std::strerror(output_error));
    return 1;
  }
  return status;
}
