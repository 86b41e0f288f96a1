// SPDX-License-Identifier: BSD-3-Clause
#include "pkg_internal.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <unistd.h>

unsigned default_show_mode = VEX_PKG_SHOW_ERRORS;

const char* elf_error_text(int error) {
  const char* text = elf_errmsg(error);
  return text != nullptr ? text : "no error";
}

bool is_package(const vex_pkg_file* pkg) {
  return elf_kind(pkg->elf) == ELF_K_ELF && elf32_getehdr(pkg->elf) != nullptr &&
         elf_getident(pkg->elf, nullptr)[EI_DATA] == ELFDATA2LSB;
}

// When memory runs out inside elf_newscn, it returns a section that crashes whoever touches it and
// keeps that in its list; only the error number tells.
Elf_Scn* make_section(vex_pkg_file* pkg) {
  elf_errno();
  Elf_Scn* section = is_package(pkg) && !pkg->damaged ? elf_newscn(pkg->elf) : nullptr;
  const int error = elf_errno();
  if (section != nullptr && error == 0) {
    return section;
  }
  pkg->damaged = pkg->damaged || section != nullptr;
  report(pkg->show_errors, " elf_newscn ()  failed : %s.", elf_error_text(error));
  return nullptr;
}

Elf32_Shdr* set_section_header(vex_pkg_file* pkg, Elf_Scn* section, Elf32_Word type,
                               Elf32_Word flags) {
  Elf32_Shdr* header = elf32_getshdr(section);
  if (header == nullptr) {
    report(pkg->show_errors, " elf32_getshdr ()  failed : %s.", elf_error_text(-1));
    return nullptr;
  }
  header->sh_type = type;
  header->sh_flags = flags;
  header->sh_entsize = 0;
  return header;
}

Elf32_Shdr read_section_header(Elf_Scn* section) {
  Elf32_Shdr header = {};
  const Elf32_Shdr* location = elf32_getshdr(section);
  if (location != nullptr) {
    std::memcpy(&header, location, sizeof header);
  }
  return header;
}

Elf_Data* get_name_data_ptr(vex_pkg_file* pkg, bool show) {
  if (pkg->name_data != nullptr) {
    return pkg->name_data;
  }
  auto index = static_cast<std::size_t>(-1);
  Elf_Data* names = nullptr;
  if (is_package(pkg) && elf_getshdrstrndx(pkg->elf, &index) == 0 && index != SHN_UNDEF) {
    names = elf_getdata(elf_getscn(pkg->elf, index), nullptr);
  }
  if (names == nullptr) {
    report(show, "No string table section\n");
  }
  return names;
}

bool name_table_is_usable(const Elf_Data* names) {
  return names != nullptr && names->d_buf != nullptr && names->d_size > 0 &&
         static_cast<const char*>(names->d_buf)[names->d_size - 1] == '\0';
}

std::vector<mapped_source>::iterator find_mapped_source(vex_pkg_file* pkg, const void* bytes) {
  auto& sources = pkg->mapped_sources;
  return std::find_if(sources.begin(), sources.end(),
                      [bytes](const mapped_source& source) { return source.bytes.get() == bytes; });
}

std::uint64_t padded_size(std::uint64_t size, std::uint64_t alignment) {
  return (size + alignment - 1) / alignment * alignment;
}

void set_section_bytes(Elf_Data* data, const void* buffer, std::size_t size) {
  // A null d_buf would keep an old section's size and contents: an empty section points at a byte.
  static const char no_bytes = '\0';
  data->d_buf = const_cast<void*>(buffer != nullptr ? buffer : &no_bytes);
  data->d_size = size;
}

void fill_section_data(Elf_Data* data, const void* buffer, std::size_t size) {
  set_section_bytes(data, buffer, size);
  data->d_type = ELF_T_BYTE;
  data->d_off = 0;
  data->d_align = SECTION_ALIGNMENT;
  data->d_version = EV_CURRENT;
}

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

// Without O_TRUNC: what an existing file holds is kept until close writes over it. O_NONBLOCK,
// which regular files ignore, keeps a FIFO from stopping the program.
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

// Gives the handle its own, zeroed string table: the empty name, then the table's own.
void build_name_table(vex_pkg_file* pkg, Elf_Scn* section) {
  pkg->name_data = elf_newdata(section);
  if (pkg->name_data == nullptr) {
    report(pkg->show_errors, " elf_newdata ()  failed : %s.", elf_error_text(-1));
    return;
  }
  fill_section_data(pkg->name_data, nullptr, 0);
  pkg->name_table = static_cast<char*>(pkg->memory->allocate(INITIAL_NAME_TABLE_SIZE));
  if (pkg->name_table == nullptr) {
    report(pkg->show_errors, " Failed to allocate %d bytes for string table",
           static_cast<int>(INITIAL_NAME_TABLE_SIZE));
    pkg->name_data = nullptr; // names would begin where the table's own is missing
    return;
  }
  pkg->name_capacity = INITIAL_NAME_TABLE_SIZE;
  pkg->name_table[0] = '\0';
  std::strncpy(pkg->name_table + 1, VEX_PKG_STRING_TABLE, INITIAL_NAME_TABLE_SIZE - 1);
  set_section_bytes(pkg->name_data, pkg->name_table, 1 + std::strlen(VEX_PKG_STRING_TABLE) + 1);
}

// Each step prints its failure, and the next one is made all the same.
void build_new_package(vex_pkg_file* pkg) {
  build_header(pkg);
  Elf_Scn* section = make_section(pkg);
  build_name_table(pkg, section);
  Elf32_Shdr* header = set_section_header(pkg, section, SHT_STRTAB, SHF_STRINGS);
  if (header != nullptr) {
    header->sh_name = 1;
  }
  elfx_update_shstrndx(pkg->elf, elf_ndxscn(section));
  vex_pkg_add_data_section(pkg, "", FIRST_SECTION_BYTES, FIRST_SECTION_SIZE);
  pkg->dirty = true;
}

// Adds up what an existing file holds beside its string table; false for one that must not be
// written again.
bool measure_sections(vex_pkg_file* pkg, const Elf_Scn* name_section) {
  Elf_Scn* section = nullptr;
  while ((section = elf_nextscn(pkg->elf, section)) != nullptr) {
    const Elf32_Shdr* header = elf32_getshdr(section);
    if (header == nullptr || section == name_section) {
      continue;
    }
    if (header->sh_addralign > MAX_FOREIGN_ALIGNMENT) {
      report(pkg->show_errors, "Section alignment of %u bytes is not supported\n",
             header->sh_addralign);
      return false;
    }
    const auto alignment = std::max<std::uint64_t>(header->sh_addralign, SECTION_ALIGNMENT);
    pkg->content_bytes += alignment - SECTION_ALIGNMENT;
    pkg->content_bytes +=
        header->sh_type == SHT_NOBITS ? 0 : padded_size(header->sh_size, alignment);
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
  pkg->name_table = static_cast<char*>(pkg->memory->allocate(names->d_size));
  if (pkg->name_table == nullptr) {
    report(pkg->show_errors, " Failed to allocate %u bytes for string table",
           static_cast<unsigned>(names->d_size));
    return false;
  }
  std::memcpy(pkg->name_table, names->d_buf, names->d_size);
  pkg->name_capacity = names->d_size;
  names->d_buf = pkg->name_table;
  pkg->name_data = names;
  return measure_sections(pkg, section);
}

// Divides large contents into descriptors of WRITE_PIECE_SIZE bytes; without memory for more of
// them, the last one keeps the rest. The section can't be read any more.
void split_section(Elf_Scn* section) {
  Elf_Data* piece = elf_getdata(section, nullptr);
  while (piece != nullptr && piece->d_size > WRITE_PIECE_SIZE) {
    Elf_Data* rest = elf_newdata(section);
    if (rest != nullptr) {
      fill_section_data(rest, static_cast<char*>(piece->d_buf) + WRITE_PIECE_SIZE,
                        piece->d_size - WRITE_PIECE_SIZE);
      rest->d_align = 1;
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
// Not every file system can; what goes wrong is left to writing.
void reserve_space(vex_pkg_file* pkg) {
  const off_t size = elf_update(pkg->elf, ELF_C_NULL);
  if (size > 0) {
    static_cast<void>(fallocate(pkg->fd, 0, 0, size));
  }
}

// Writes a changed package. libelf writes stale gaps and may write a garbage header table unless
// the whole file is marked.
bool write_package(vex_pkg_file* pkg) {
  if (pkg->show_info) {
    std::puts("vex_pkg_close_file: Pkg is dirty");
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
  // The disk is at work from here on, while the handle's memory is given back; fsync waits for it,
  // and tells what went wrong.
  static_cast<void>(sync_file_range(pkg->fd, 0, 0, SYNC_FILE_RANGE_WRITE));
  if (pkg->show_info) {
    std::puts("vex_pkg_close_file: Pkg update is ok");
  }
  return true;
}

// Whether the mapped sources held still. One that was replaced by another file did: the map is
// still of the old one.
bool check_mapped_sources(const vex_pkg_file* pkg) {
  bool ok = true;
  for (const auto& [path, old, bytes] : pkg->mapped_sources) {
    struct stat now = {};
    if (stat(path.c_str(), &now) == 0 && now.st_dev == old.st_dev && now.st_ino == old.st_ino &&
        (now.st_size != old.st_size || now.st_mtim.tv_sec != old.st_mtim.tv_sec ||
         now.st_mtim.tv_nsec != old.st_mtim.tv_nsec)) {
      report(pkg->show_errors, "vex_pkg_close_file: File %s changed while it was packaged\n",
             path.c_str());
      ok = false;
    }
  }
  return ok;
}

// The system maps each file below the one before: most go as one.
void unmap_sources(vex_pkg_file* pkg) {
  auto& sources = pkg->mapped_sources;
  for (std::size_t i = sources.size(); i > 1; --i) {
    sources[i - 2].bytes.absorb(sources[i - 1].bytes);
  }
  sources.clear();
}

bool close_descriptor(vex_pkg_file* pkg) {
  bool ok = true;
  if (pkg->dirty && fsync(pkg->fd) != 0) {
    report(pkg->show_errors, "vex_pkg_close_file: Failed to flush data on %s: %s\n",
           pkg->name.c_str(), std::strerror(errno));
    ok = false;
  }
  if (close(pkg->fd) != 0) {
    report(pkg->show_errors, "vex_pkg_close_file: Failed to close %s: %s\n", pkg->name.c_str(),
           std::strerror(errno));
    ok = false;
  }
  return ok;
}

// Whether the sections in a file and their names claim far more bytes than there are, as they lie
// over each other: reading them all would take memory, disk or time without end. What lies beyond
// the last section does not count, as a sparse file has any size.
bool claims_too_much(vex_pkg_file* pkg, std::uint64_t file_size) {
  if (!is_package(pkg)) {
    return false;
  }
  const Elf_Data* names = get_name_data_ptr(pkg, false);
  const std::uint64_t limit = std::min(file_size, MAX_FILE_SIZE);
  std::uint64_t claimed = 0;
  std::uint64_t headers = 0;
  std::uint64_t last_end = 0;
  Elf_Scn* section = nullptr;
  while (claimed / 2 <= limit && (section = elf_nextscn(pkg->elf, section)) != nullptr) {
    const Elf32_Shdr header = read_section_header(section);
    const std::uint64_t end = std::uint64_t{header.sh_offset} + header.sh_size;
    if (header.sh_type != SHT_NOBITS && header.sh_size > 0 && end <= file_size) {
      claimed += header.sh_size;
      last_end = std::max(last_end, end);
    }
    const char* name = get_section_name(section, names);
    claimed += name != nullptr ? std::strlen(name) : 0;
    headers += sizeof header;
  }
  return claimed / 2 > std::min(last_end + headers, limit);
}

// A small file that is only read is taken into memory at once: libelf would read it in five pieces.
// Null when it is another kind of file or does not come whole.
Elf* begin_small_file(vex_pkg_file* pkg) {
  const auto size = static_cast<std::size_t>(pkg->status.st_size);
  if (pkg->writable || !S_ISREG(pkg->status.st_mode) || size == 0 || size >= MIN_MAPPED_SIZE) {
    return nullptr;
  }
  auto* image = static_cast<char*>(pkg->memory->allocate(size));
  if (image == nullptr || read_all_into(pkg->fd, image, size) < size) {
    return nullptr;
  }
  pkg->image = image;
  pkg->image_size = size;
  return elf_memory(image, size);
}

// What a handle needs to be one, whether libelf takes the file or not.
void begin_package(vex_pkg_file* pkg, const char* name, unsigned mode) {
  pkg->name = name;
  pkg->writable = (mode & VEX_PKG_READ_ONLY) == 0;
  pkg->created = (mode & VEX_PKG_CREATE) != 0;
  vex_pkg_set_show_mode(pkg, mode);
  pkg->elf = fstat(pkg->fd, &pkg->status) == 0 ? begin_small_file(pkg) : nullptr;
  if (pkg->elf == nullptr) {
    pkg->elf = elf_begin(pkg->fd, begin_command(mode), nullptr);
  }
  if (pkg->elf == nullptr) {
    report(pkg->show_errors, "elf_begin failed: %s\n", elf_error_text(errno));
  }
  const auto size = static_cast<std::uint64_t>(pkg->status.st_size);
  pkg->damaged = !pkg->created && S_ISREG(pkg->status.st_mode) && claims_too_much(pkg, size);
}

// Closes a handle that was not handed out, without writing anything.
struct package_discarder {
  void operator()(vex_pkg_file* pkg) const {
    pkg->dirty = false;
    vex_pkg_close_file(pkg);
  }
};

// Opens a file, whose bytes go into a memory that outlives the handle, or into its own.
vex_pkg_file* open_file(const char* name, unsigned mode, Arena* memory) {
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
  const int fd = open_descriptor(name, mode);
  if (fd < 0) {
    report(show, "Couldn't open %s: %s\n", name, std::strerror(errno));
    return nullptr;
  }
  std::unique_ptr<vex_pkg_file, package_discarder> pkg(new (std::nothrow) vex_pkg_file);
  if (pkg == nullptr) {
    report(show, "Failed to allocate %d bytes of memory\n", static_cast<int>(sizeof *pkg));
    close(fd);
    return nullptr;
  }
  pkg->fd = fd;
  pkg->memory = memory != nullptr ? memory : pkg->memory;
  begin_package(pkg.get(), name, mode);
  if (pkg->created) {
    build_new_package(pkg.get());
  } else if (pkg->writable && pkg->elf != nullptr && !adopt_name_table(pkg.get())) {
    return nullptr;
  }
  return pkg.release();
}

} // namespace

vex_pkg_file* vex_pkg_open_file(const char* name, unsigned mode) {
  return open_file(name, mode, nullptr);
}

vex_pkg_file* vex_pkg_open_part(vex_pkg_file* whole, const char* name, unsigned mode) {
  return open_file(name, mode | VEX_PKG_READ_ONLY, whole != nullptr ? whole->memory : nullptr);
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

unsigned vex_pkg_close_file_checked(vex_pkg_file* pkg) {
  if (pkg == nullptr) {
    return 1;
  }
  const std::unique_ptr<vex_pkg_file> owner(pkg);
  bool ok = true;
  if (pkg->fd != -1) {
    if (pkg->show_info) {
      std::puts("vex_pkg_close_file: Pkg fd is live");
    }
    ok = !pkg->dirty || (write_package(pkg) && check_mapped_sources(pkg));
  }
  while (elf_end(pkg->elf) != 0) {
    if (pkg->show_info) {
      std::puts("vex_pkg_close_file: elf_end returned non-zero.  Do it again.");
    }
  }
  unmap_sources(pkg);
  if (pkg->fd != -1) {
    ok = close_descriptor(pkg) && ok;
  }
  return ok ? 1 : 0;
}

void vex_pkg_close_file(vex_pkg_file* pkg) {
  static_cast<void>(vex_pkg_close_file_checked(pkg));
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
