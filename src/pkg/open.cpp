// SPDX-License-Identifier: BSD-3-Clause
#include "helpers.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

using namespace vex::pkg;

unsigned default_show_mode = VEX_PKG_SHOW_ERRORS;

namespace {

// The nameless section that every new package starts with.
constexpr std::size_t FIRST_SECTION_SIZE = 4096;
constexpr char FIRST_SECTION_BYTES[FIRST_SECTION_SIZE] = {};

// libelf keeps the alignments of an existing file, and a section of 6 KB aligned to 2 GiB would be
// written as a file of 2 GiB.
constexpr Elf32_Word MAX_FOREIGN_ALIGNMENT = 65536;

constexpr unsigned ACCESS_BITS = VEX_PKG_READ_ONLY | VEX_PKG_READ_WRITE;
constexpr unsigned SHOW_BITS = VEX_PKG_SHOW_ERRORS | VEX_PKG_SHOW_INFO;

// libelf of elfutils lacks this call of the classic library: it records the section as the header's
// string-table section. Ours is the first one made, so that the header's 16 bits hold its index.
int elfx_update_shstrndx(Elf* elf, std::size_t index) {
  Elf32_Ehdr* header = elf32_getehdr(elf);
  if (header == nullptr || index >= SHN_LORESERVE) {
    return 0;
  }
  header->e_shstrndx = static_cast<Elf32_Half>(index);
  return elf_flagehdr(elf, ELF_C_SET, ELF_F_DIRTY) != 0 ? 1 : 0;
}

bool check_open_mode(unsigned mode, bool show) {
  if ((mode & ACCESS_BITS) == 0) {
    report(show, "Binary package open mode 0x%x must include either read-only or read-write\n",
           mode);
    return false;
  }
  if ((mode & ACCESS_BITS) == ACCESS_BITS) {
    report(show, "Binary package open mode 0x%x cannot include both read-only and read-write\n",
           mode);
    return false;
  }
  if ((mode & VEX_PKG_CREATE) != 0 && (mode & VEX_PKG_READ_WRITE) == 0) {
    report(show, "Binary package creation flag can only be used with read-write mode.\n");
    return false;
  }
  return true;
}

bool check_elf_version(bool show) {
  if (elf_version(EV_CURRENT) == EV_NONE) {
    report(show, "elf_version failed: %s\n", elf_error_text(errno));
    return false;
  }
  return true;
}

// Without O_TRUNC: an existing file keeps its contents until close replaces it. O_NONBLOCK, which
// regular files ignore, keeps a FIFO from stopping the program.
int open_descriptor(const char* name, unsigned mode) {
  constexpr int always = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  if ((mode & VEX_PKG_READ_ONLY) != 0) {
    return open(name, O_RDONLY | always);
  }
  const int create = (mode & VEX_PKG_CREATE) != 0 ? O_CREAT : 0;
  return open(name, O_RDWR | create | always, 0666);
}

Elf_Cmd begin_command(unsigned mode) {
  if ((mode & VEX_PKG_READ_ONLY) != 0) {
    return ELF_C_READ;
  }
  return (mode & VEX_PKG_CREATE) != 0 ? ELF_C_WRITE : ELF_C_RDWR;
}

void build_header(vex_pkg_file* pkg) {
  Elf32_Ehdr* header = elf32_newehdr(pkg->elf);
  if (header == nullptr) {
    report(pkg->show_errors, "elf_newehdr failed: %s\n", elf_error_text(errno));
    return;
  }
  header->e_ident[EI_DATA] = ELFDATA2LSB;
  header->e_machine = EM_X86_64;
  header->e_type = ET_NONE;
}

// Makes `bytes` the handle's own string table of `size` used bytes.
void set_name_table(vex_pkg_file* pkg, Elf_Data* data, char* bytes, std::size_t size,
                    std::size_t capacity) {
  set_section_bytes(data, bytes, size);
  pkg->names = {data, bytes, capacity};
}

// Gives the handle a new string table: the empty name, then the table's own.
void build_name_table(vex_pkg_file* pkg, Elf_Scn* section) {
  Elf_Data* data = elf_newdata(section);
  if (data == nullptr) {
    report(pkg->show_errors, " elf_newdata ()  failed : %s.", elf_error_text(-1));
    return;
  }
  fill_section_data(data, nullptr, 0);
  auto* bytes = static_cast<char*>(allocate_block(pkg, INITIAL_NAME_TABLE_SIZE));
  if (bytes == nullptr) {
    report(pkg->show_errors, " Failed to allocate %d bytes for string table",
           static_cast<int>(INITIAL_NAME_TABLE_SIZE));
    return;
  }
  bytes[0] = '\0';
  std::strncpy(bytes + 1, VEX_PKG_STRING_TABLE, INITIAL_NAME_TABLE_SIZE - 1);
  set_name_table(pkg, data, bytes, 1 + std::strlen(VEX_PKG_STRING_TABLE) + 1,
                 INITIAL_NAME_TABLE_SIZE);
}

// Each step prints its failure, and the others still run. A package without a string table is
// returned, too, but never written.
void build_new_package(vex_pkg_file* pkg) {
  build_header(pkg);
  Elf_Scn* section = make_section(pkg);
  build_name_table(pkg, section);
  Elf32_Shdr* header = set_section_header(pkg, section, SHT_STRTAB, SHF_STRINGS);
  if (header != nullptr) {
    header->sh_name = 1;
  }
  elfx_update_shstrndx(pkg->elf, elf_ndxscn(section));
  pkg->damaged = pkg->damaged || header == nullptr || pkg->names.data == nullptr;
  vex_pkg_add_data_section(pkg, "", FIRST_SECTION_BYTES, FIRST_SECTION_SIZE);
  pkg->dirty = true;
}

// Adds up what an existing file holds, except the bytes of its string table, which can change;
// false for one that must not be written again.
bool measure_sections(vex_pkg_file* pkg, const Elf_Scn* name_section) {
  Elf_Scn* section = nullptr;
  while ((section = elf_nextscn(pkg->elf, section)) != nullptr) {
    const Elf32_Shdr* header = elf32_getshdr(section);
    if (header == nullptr) {
      continue;
    }
    if (header->sh_addralign > MAX_FOREIGN_ALIGNMENT) {
      report(pkg->show_errors, "Section alignment of %u bytes is not supported\n",
             header->sh_addralign);
      return false;
    }
    const auto alignment = std::max<std::uint64_t>(header->sh_addralign, SECTION_ALIGNMENT);
    pkg->contents.size += alignment - SECTION_ALIGNMENT;
    if (header->sh_type != SHT_NOBITS && section != name_section) {
      pkg->contents.size += padded_size(header->sh_size, alignment);
    }
  }
  return true;
}

// Takes over an existing file's string table as a private copy that can grow. The table must be a
// section of that type: libelf aborts when it writes a file whose table is section 0.
bool adopt_name_table(vex_pkg_file* pkg) {
  Elf_Data* names = get_name_data_ptr(pkg, pkg->show_errors);
  if (names == nullptr || names->d_size == 0) {
    return false;
  }
  std::size_t index = 0;
  elf_getshdrstrndx(pkg->elf, &index);
  Elf_Scn* section = elf_getscn(pkg->elf, index);
  const Elf32_Shdr* header = elf32_getshdr(section);
  if (header == nullptr || header->sh_type != SHT_STRTAB || !name_table_is_usable(names)) {
    report(pkg->show_errors, "No usable string table section\n");
    return false;
  }
  const std::size_t size = names->d_size;
  auto* bytes = static_cast<char*>(allocate_block(pkg, size));
  if (bytes == nullptr) {
    report(pkg->show_errors, " Failed to allocate %u bytes for string table",
           static_cast<unsigned>(size));
    return false;
  }
  std::memcpy(bytes, names->d_buf, size);
  set_name_table(pkg, names, bytes, size, size);
  return measure_sections(pkg, section);
}

// Whether the sections in a file, or their names, claim more bytes than there are, as they overlap:
// reading them all would take memory, disk or time without end. What is behind the last section
// does not count, as a sparse file has any size.
bool claims_too_much(vex_pkg_file* pkg, std::uint64_t file_size) {
  if (!is_package(pkg)) {
    return false;
  }
  const Elf_Data* names = get_name_data_ptr(pkg, false);
  const std::uint64_t limit = std::min(file_size, MAX_FILE_SIZE);
  std::uint64_t section_bytes = 0;
  std::uint64_t name_bytes = 0;
  std::uint64_t last_end = 0;
  Elf_Scn* section = nullptr;
  while (std::max(section_bytes, name_bytes) <= limit &&
         (section = elf_nextscn(pkg->elf, section)) != nullptr) {
    const Elf32_Shdr header = read_section_header(section);
    const std::uint64_t end = std::uint64_t{header.sh_offset} + header.sh_size;
    if (header.sh_type != SHT_NOBITS && header.sh_size > 0 && end <= file_size) {
      section_bytes += header.sh_size;
      last_end = std::max(last_end, end);
    }
    const char* name = get_section_name(section, names);
    name_bytes += name != nullptr ? std::strlen(name) : 0;
  }
  return std::max(section_bytes, name_bytes) > last_end;
}

// Fills a new handle on a file; elf stays null when libelf refuses the file.
bool begin_package(vex_pkg_file* pkg, const char* name, unsigned mode) {
  pkg->writable = (mode & VEX_PKG_READ_ONLY) == 0;
  pkg->created = (mode & VEX_PKG_CREATE) != 0;
  vex_pkg_set_show_mode(pkg, mode);
  if (!try_allocating([pkg, name] { pkg->name = name; })) {
    report(pkg->show_errors, "Failed to allocate %d bytes of memory\n",
           static_cast<int>(std::strlen(name)));
    return false;
  }
  if (pkg->writable) {
    pkg->path.reset(realpath(name, nullptr));
  }
  pkg->elf = elf_begin(pkg->fd, begin_command(mode), nullptr);
  if (pkg->elf == nullptr) {
    report(pkg->show_errors, "elf_begin failed: %s\n", elf_error_text(errno));
  }
  struct stat status = {};
  pkg->damaged = !pkg->created && fstat(pkg->fd, &status) == 0 && S_ISREG(status.st_mode) &&
                 claims_too_much(pkg, static_cast<std::uint64_t>(status.st_size));
  return true;
}

// Closes a handle that was not handed out, without writing anything.
struct package_discarder {
  void operator()(vex_pkg_file* pkg) const {
    static_cast<void>(vex_pkg_close_file_checked(pkg, false));
  }
};

} // namespace

vex_pkg_file* vex_pkg_open_file(const char* name, unsigned mode) {
  const bool show = (mode & VEX_PKG_SHOW_ERRORS) != 0;
  if (!check_open_mode(mode, show)) {
    return nullptr;
  }
  if (name == nullptr) {
    report(show, "No filename specified\n");
    return nullptr;
  }
  if (!check_elf_version(show)) {
    return nullptr;
  }
  unique_fd fd(open_descriptor(name, mode));
  if (!fd) {
    report(show, "Couldn't open %s: %s\n", name, std::strerror(errno));
    return nullptr;
  }
  std::unique_ptr<vex_pkg_file, package_discarder> pkg(new (std::nothrow) vex_pkg_file);
  if (pkg == nullptr) {
    report(show, "Failed to allocate %d bytes of memory\n", static_cast<int>(sizeof *pkg));
    return nullptr;
  }
  pkg->fd = fd.release();
  if (!begin_package(pkg.get(), name, mode)) {
    return nullptr;
  }
  if (pkg->elf == nullptr) {
    return pkg.release(); // every operation on it fails
  }
  if (pkg->created) {
    build_new_package(pkg.get());
  } else if (pkg->writable && !adopt_name_table(pkg.get())) {
    return nullptr;
  }
  return pkg.release();
}

vex_pkg_file* vex_pkg_open_file_from_memory(char* image, std::size_t size, unsigned mode) {
  const bool show = (mode & VEX_PKG_SHOW_ERRORS) != 0;
  if ((mode & ~SHOW_BITS) != 0) {
    report(show, "Invalid mode %d for opening a binary in memory\n", static_cast<int>(mode));
    return nullptr;
  }
  if (image == nullptr || size == 0 || !check_elf_version(show)) {
    return nullptr;
  }
  Elf* elf = elf_memory(image, size);
  if (elf == nullptr) {
    report(show, "elf_memory failed: %s\n", elf_error_text(errno));
    return nullptr;
  }
  auto* pkg = new (std::nothrow) vex_pkg_file;
  if (pkg == nullptr) {
    report(show, "Failed to allocated %d bytes of memory\n", static_cast<int>(sizeof *pkg));
    elf_end(elf);
    return nullptr;
  }
  pkg->elf = elf;
  pkg->damaged = claims_too_much(pkg, size);
  vex_pkg_set_show_mode(pkg, mode);
  return pkg;
}

void vex_pkg_set_show_mode(vex_pkg_file* pkg, unsigned mode) {
  if (pkg != nullptr) {
    pkg->show_errors = (mode & VEX_PKG_SHOW_ERRORS) != 0;
    pkg->show_info = (mode & VEX_PKG_SHOW_INFO) != 0;
  }
}

unsigned vex_pkg_pack(const char*, const char**) {
  return 0;
}
unsigned vex_pkg_unpack(const char*, const char*) {
  return 0;
}
unsigned vex_pkg_unpack_buffer(const char*, std::size_t, const char*) {
  return 0;
}
