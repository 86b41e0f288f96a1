// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <memory>

// The package container: named sections of opaque bytes in one ELF file.
//
// The file. A package is an ELF file of class ELFCLASS32, ELFDATA2LSB, e_type ET_NONE and e_machine
// 62 (EM_X86_64, whatever the host is; readers must not look at it). It contains, in this order:
//
//   offset 0     the ELF header, 52 bytes, then zeros up to 128
//   section 1    ".shstrtab", SHT_STRTAB with SHF_STRINGS: the section names, each ended by a NUL,
//                the empty name first
//   section 2    a nameless section of 4096 zero bytes, which every new package starts with
//   section 3…   the added sections, in the order in which they were added: SHT_PROGBITS, flags 0,
//                each at the next multiple of 128 bytes, gaps zeroed
//   at the end   the section header table, 40 bytes an entry
//
// Offsets and sizes are 32 bits wide in such a file, so a package has less than 4 GiB.
//
// The functions. None throws, none aborts; when memory runs out, the operation fails. Unless said
// otherwise they return 1 for success and 0 for failure; a null handle fails. A handle's show bits
// say which messages it prints: failures on standard error, progress on standard output. A handle
// of a file that is not a package (another kind of file, 64-bit or big-endian ELF, damaged tables,
// sections or names that overlap, so that they claim more bytes than the file has) behaves like a
// package without sections.
//
// Ownership. The container never copies section contents. A buffer passed to add or update belongs
// to the caller and must live, unchanged, until the package is closed. Contents that the container
// reads from files belong to the handle, which frees them at close. In a package that was
// created, a file of 16 KiB or more is mapped instead of read: it may be removed or replaced by
// another one, but must not be changed until close, which fails if it was. Until then a section
// whose file was changed has no data for the read operations.

struct vex_pkg_file;

// Open-mode bits.
enum : unsigned {
  VEX_PKG_READ_ONLY = 0x1,     // open an existing package for reading
  VEX_PKG_READ_WRITE = 0x2,    // open for reading and writing
  VEX_PKG_CREATE = 0x4,        // create the file; only with VEX_PKG_READ_WRITE
  VEX_PKG_SHOW_ERRORS = 0x100, // report failures on standard error
  VEX_PKG_SHOW_INFO = 0x200,   // report progress on standard output
};

// The show bits that callers OR to their access bits. VEX_PKG_SHOW_ERRORS; no command changes it.
extern unsigned default_show_mode;

// The name of the section-name string table, which every package has and no listing shows.
inline constexpr const char* VEX_PKG_STRING_TABLE = ".shstrtab";

// The longest section name, in characters without the terminating NUL.
inline constexpr std::size_t VEX_PKG_MAX_SECTION_NAME = 4096;

// Opens the file `name`, or returns null with a message (without one when its string table is
// empty). Creating makes an empty file, or keeps an existing one as it is until close. The handle
// copies the name. A file that libelf cannot open (a directory) also gives a handle, but
// every operation on it fails.
[[nodiscard]] vex_pkg_file* vex_pkg_open_file(const char* name, unsigned mode);

// Opens the package that is in `image`, `size` bytes that must outlive the handle and are never
// written. The mode may contain show bits only. Null after a message; null without one for a
// null image or a size of 0.
[[nodiscard]] vex_pkg_file* vex_pkg_open_file_from_memory(char* image, std::size_t size,
                                                          unsigned mode);

// Writes the changes, closes the file and frees the handle. Null is ignored. Failures are only
// printed (a failed write even without VEX_PKG_SHOW_ERRORS).
//
// The file is written whole or not at all: the package is written to a temporary file in the same
// folder, ".bfcl-" and six characters, which takes over the file's permissions, and its owner where
// the system allows that, and replaces the file at the end. A symbolic link stays one. After a
// failure the file is as it was. A file with other hard links, or in a folder where the program may
// not create files, is truncated and written in place; until that is complete, it is not a package.
void vex_pkg_close_file(vex_pkg_file* pkg);

// The same, but returns 0 when the file does not contain what the package did: writing, flushing or
// closing it failed, or a source was changed. With `write` false nothing is written: the file stays
// as it is.
[[nodiscard]] unsigned vex_pkg_close_file_checked(vex_pkg_file* pkg, bool write = true);

// Replaces the handle's two show bits by those of the mode. Null is ignored.
void vex_pkg_set_show_mode(vex_pkg_file* pkg, unsigned mode);

// Entry points of the interface without a function: each does nothing and returns 0.
unsigned vex_pkg_pack(const char* out_file, const char** in_files);
unsigned vex_pkg_unpack(const char* in_file, const char* out_dir);
unsigned vex_pkg_unpack_buffer(const char* buffer, std::size_t size, const char* out_dir);

// Adds a section of `size` bytes. Fails if the package is read-only, has a section of that name,
// or would grow beyond 4 GiB; and for a name longer than VEX_PKG_MAX_SECTION_NAME, which leaves a
// nameless section behind.
unsigned vex_pkg_add_data_section(vex_pkg_file* pkg, const char* name, const void* buffer,
                                  std::size_t size);

// Reads a whole regular file. The result is malloc'ed, the caller frees it, and *size_out is its
// size in bytes; nothing is appended. Null after a message on standard error.
[[nodiscard]] void* vex_pkg_read_file_into_buffer(const char* path, std::size_t* size_out);

// Adds the whole of a regular file as a section.
unsigned vex_pkg_add_data_section_from_file(vex_pkg_file* pkg, const char* name, const char* path);

// Whether the section exists and has data; no message if it does not exist. *size_out, if given,
// receives its size in bytes.
unsigned vex_pkg_section_exists(vex_pkg_file* pkg, const char* name, std::size_t* size_out);

// Points *data_out at the section's bytes, without a terminator, valid until close; null for none.
unsigned vex_pkg_read_section_transient(vex_pkg_file* pkg, const char* name, void** data_out);

// Copies the section's bytes and a NUL after them; buffer_size must exceed the section's size.
unsigned vex_pkg_read_section(vex_pkg_file* pkg, const char* name, char* buffer,
                              std::size_t buffer_size);

// Writes the section's bytes into a file, which is replaced if it exists; it is whole or unchanged.
// Unlike a package at its close, it is not flushed to the disk.
unsigned vex_pkg_read_section_into_file(vex_pkg_file* pkg, const char* name, const char* path);

// Replaces a section's contents; its header stays as it is.
unsigned vex_pkg_update_section(vex_pkg_file* pkg, const char* name, const void* buffer,
                                std::size_t size);
unsigned vex_pkg_update_section_from_file(vex_pkg_file* pkg, const char* name, const char* path);

// Prints a heading and a line for each named section but ".shstrtab", with its size in bytes, on
// standard output.
void vex_pkg_list_file_sections(vex_pkg_file* pkg);

// Writes the names that the listing shows into the buffer: separated by "\n", ended by a NUL. A
// package without named sections leaves the buffer unchanged and succeeds. If not all names fit,
// the buffer contains those that did, and the result is 0.
unsigned vex_pkg_section_names(vex_pkg_file* pkg, char* buffer, std::size_t buffer_size);

struct vex_pkg_closer {
  void operator()(vex_pkg_file* pkg) const { vex_pkg_close_file(pkg); }
};
using vex_pkg_ptr = std::unique_ptr<vex_pkg_file, vex_pkg_closer>;
