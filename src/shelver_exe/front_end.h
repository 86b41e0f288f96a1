// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "pkg.h"

#include <cstddef>
#include <string>
#include <vector>

#include <sys/types.h>

// What the commands share.

// 1 once the option "-v" was given: commands print their progress.
extern int verbose;

// Whether the mode of the path's file has the directory bit, as that of block devices and sockets
// has, too. Follows links. 0 when there is no file.
int file_is_directory(const char* path);

// Whether the path names a regular file; links are followed.
bool file_is_a_regular_file(const std::string& path);

// Identifies a file, whatever path leads to it.
struct FileId {
  // ABSENT: the path leads nowhere, so that opening it fails or makes a new file.
  enum State { ABSENT, PRESENT, UNKNOWN };

  State state;
  dev_t device = 0;
  ino_t inode = 0;

  // Whether both may be the same file, as an unknown one may be.
  [[nodiscard]] bool may_be(const FileId& other) const {
    return state != ABSENT && other.state != ABSENT &&
           (state == UNKNOWN || other.state == UNKNOWN ||
            (device == other.device && inode == other.inode));
  }
};
FileId find_file_id(const std::string& path);

// An output file replaces what is there, which must not be a file that the command reads. Returns
// false, after a message, when one of the inputs is the same file or, if `also_absent`, will be
// once the output is created under the same name.
bool check_output_is_no_input(const std::string& output, const std::vector<std::string>& inputs,
                              bool also_absent = false);

// Creates a package, or returns null after the container's message. The files that it is made from
// must not change until it is closed.
vex_pkg_ptr create_new_package(const std::string& path);

// Closes a package that was made. Returns false, after a message that follows the container's, when
// its file does not contain the whole package.
bool close_new_package(vex_pkg_ptr pkg, const std::string& path);

// Returns a malloc'ed buffer of at least `needed` bytes: the given one while its capacity exceeds
// the need, else a reallocated one of twice the capacity or the need, whichever is larger. A null
// buffer with capacity 0 is allocated with exactly the need. Aborts when memory is out.
char* grow_string(char* buffer, std::size_t needed, std::size_t* capacity);

// The two parts with a "/" between them, or the other one when a part is empty.
std::string my_strjoin(const std::string& left, const std::string& right);

// The part of a path after its last "/", and the part before it (nothing without a "/").
std::string base_name(const std::string& path);
std::string directory_part(const std::string& path);
