// SPDX-License-Identifier: BSD-3-Clause
#include "helpers.h"
#include "output_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

using namespace vex::pkg;

namespace {

// How many bytes libelf gets to write at once: the system takes much longer over one write of
// hundreds of MiB than over many of this size.
constexpr std::size_t WRITE_PIECE_SIZE = std::size_t{256} << 10;

// Divides large contents into descriptors of WRITE_PIECE_SIZE bytes; without memory for more of
// them, the last one keeps the rest. The section can't be read any more.
void split_section(Elf_Scn* section) {
  Elf_Data* piece = elf_getdata(section, nullptr);
  while (piece != nullptr && piece->d_size > WRITE_PIECE_SIZE) {
    Elf_Data* rest = elf_newdata(section);
    if (rest != nullptr) {
      fill_section_data(rest, static_cast<char*>(piece->d_buf) + WRITE_PIECE_SIZE,
                        piece->d_size - WRITE_PIECE_SIZE);
      piece->d_size = WRITE_PIECE_SIZE;
    }
    piece = rest;
  }
}

// Only in a new package: in one that was opened, asking for the contents would read them.
void split_contents(vex_pkg_file* pkg) {
  Elf_Scn* section = nullptr;
  while ((section = elf_nextscn(pkg->elf, section)) != nullptr) {
    split_section(section);
  }
}

// Asks for all of a new file's space at once, which takes the system less time than block by block.
// Not every file system can; an error is left to writing.
void reserve_space(vex_pkg_file* pkg) {
  const off_t size = elf_update(pkg->elf, ELF_C_NULL);
  if (size > 0) {
    static_cast<void>(fallocate(pkg->fd, 0, 0, size));
  }
}

// Writes a changed package to a temporary file. libelf writes stale gaps and may write a garbage
// header table unless the whole file is marked. It knows the file by its descriptor's number only.
bool write_package(vex_pkg_file* pkg, OutputFile& output) {
  if (pkg->show_info) {
    std::puts("vex_pkg_close_file: Pkg is dirty");
  }
  if (!output.begin(pkg->fd, pkg->path.get(), !pkg->created)) {
    report(pkg->show_errors, "vex_pkg_close_file: Failed to write %s: %s\n", pkg->name.c_str(),
           std::strerror(errno));
    return false;
  }
  if (pkg->created && !pkg->damaged) {
    split_contents(pkg);
    reserve_space(pkg);
  }
  elf_flagelf(pkg->elf, ELF_C_SET, ELF_F_DIRTY);
  if (pkg->damaged || elf_update(pkg->elf, ELF_C_WRITE) < 0) {
    report(true, " elf_update ()  failed : %s.", elf_error_text(-1));
    return false;
  }
  // The disk starts to write here, while the handle's memory is freed; fsync waits for it and
  // returns its errors.
  static_cast<void>(sync_file_range(pkg->fd, 0, 0, SYNC_FILE_RANGE_WRITE));
  if (pkg->show_info) {
    std::puts("vex_pkg_close_file: Pkg update is ok");
  }
  return true;
}

bool check_mapped_sources(const vex_pkg_file* pkg) {
  bool ok = true;
  for (const auto& [bytes, source] : pkg->contents.sources) {
    if (source.has_changed()) {
      report(pkg->show_errors, "vex_pkg_close_file: File %s changed while it was packaged\n",
             source.path.c_str());
      ok = false;
    }
  }
  return ok;
}

// The system maps files side by side: most are unmapped with one call.
void unmap_sources(vex_pkg_file* pkg) {
  auto& sources = pkg->contents.sources;
  auto last = sources.begin();
  for (auto next = last; next != sources.end() && ++next != sources.end();) {
    if (!last->second.bytes.absorb(next->second.bytes)) {
      last = next;
    }
  }
  sources.clear();
}

// Flushes what was written and puts it in the place of the output.
bool finish_output(const vex_pkg_file* pkg, OutputFile& output) {
  if (fsync(pkg->fd) != 0) {
    report(pkg->show_errors, "vex_pkg_close_file: Failed to flush data on %s: %s\n",
           pkg->name.c_str(), std::strerror(errno));
    return false;
  }
  if (!output.commit(pkg->fd)) {
    report(pkg->show_errors, "vex_pkg_close_file: Failed to replace %s: %s\n", pkg->name.c_str(),
           std::strerror(errno));
    return false;
  }
  return true;
}

bool close_descriptor(const vex_pkg_file* pkg) {
  if (close(pkg->fd) != 0) {
    report(pkg->show_errors, "vex_pkg_close_file: Failed to close %s: %s\n", pkg->name.c_str(),
           std::strerror(errno));
    return false;
  }
  return true;
}

} // namespace

unsigned vex_pkg_close_file_checked(vex_pkg_file* pkg, bool write) {
  if (pkg == nullptr) {
    return 1;
  }
  pkg->dirty = pkg->dirty && write;
  const std::unique_ptr<vex_pkg_file> owner(pkg);
  OutputFile output;
  bool ok = true;
  if (pkg->fd != -1) {
    if (pkg->show_info) {
      std::puts("vex_pkg_close_file: Pkg fd is live");
    }
    ok = !pkg->dirty || (write_package(pkg, output) && check_mapped_sources(pkg));
  }
  while (elf_end(pkg->elf) != 0) {
    if (pkg->show_info) {
      std::puts("vex_pkg_close_file: elf_end returned non-zero.  Do it again.");
    }
  }
  unmap_sources(pkg);
  if (pkg->fd != -1) {
    ok = ok && (!pkg->dirty || finish_output(pkg, output));
    ok = close_descriptor(pkg) && ok;
  }
  return ok ? 1 : 0;
}

void vex_pkg_close_file(vex_pkg_file* pkg) {
  static_cast<void>(vex_pkg_close_file_checked(pkg));
}
