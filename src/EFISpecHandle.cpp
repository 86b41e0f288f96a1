// SPDX-License-Identifier: BSD-3-Clause
#include "EFISpecHandle.h"

#include "EFISpec.h"
#include "EFISpecXmlLoader.h"

#include <cstdio>
#include <memory>

using vex::efi::EFIElem;
using vex::efi::EFISpec;
using vex::efi::EFISpecXmlLoader;

namespace {

const EFISpec& spec_of(const efi_spec_handle* spec) {
  return *reinterpret_cast<const EFISpec*>(spec);
}

const EFIElem& elem_of(const efi_elem_handle* elem) {
  return *reinterpret_cast<const EFIElem*>(elem);
}

// Each text ends in a newline, and puts adds an empty line.
void print_lines(const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    std::puts(text.c_str());
  }
}

} // namespace

efi_spec_handle* load_efi_spec_file(const char* filename) {
  EFISpecXmlLoader loader(false, true);
  std::unique_ptr<EFISpec> spec(loader.load_file(filename));
  if (spec == nullptr) {
    std::printf("Errors in HDL component specification file:");
    print_lines(loader.m_errors);
    return nullptr;
  }
  if (spec->efi_elems().empty()) {
    std::printf("Error: XML specification file %s has no defined components\n", filename);
    return nullptr;
  }
  print_lines(loader.m_warnings);
  return reinterpret_cast<efi_spec_handle*>(spec.release());
}

void free_efi_spec_handle(efi_spec_handle* spec) {
  delete reinterpret_cast<EFISpec*>(spec);
}

int get_num_efi_elems(const efi_spec_handle* spec) {
  return static_cast<int>(spec_of(spec).efi_elems().size());
}

const efi_elem_handle* get_efi_elem(const efi_spec_handle* spec, int index) {
  const auto& elems = spec_of(spec).efi_elems();
  return reinterpret_cast<const efi_elem_handle*>(elems[static_cast<std::size_t>(index)].get());
}

const char* get_function_name(const efi_elem_handle* elem) {
  return elem_of(elem).m_function_name.c_str();
}

const char* get_module_name(const efi_elem_handle* elem) {
  return elem_of(elem).m_module_name.c_str();
}

int get_num_c_model_files(const efi_elem_handle* elem) {
  return static_cast<int>(elem_of(elem).m_c_model_files.size());
}

const char* get_c_model_file(const efi_elem_handle* elem, int index) {
  return elem_of(elem).m_c_model_files[static_cast<std::size_t>(index)].c_str();
}

int get_num_source_files(const efi_elem_handle* elem) {
  return static_cast<int>(elem_of(elem).m_requirement_files.size());
}

const char* get_source_file(const efi_elem_handle* elem, int index) {
  return elem_of(elem).m_requirement_files[static_cast<std::size_t>(index)].c_str();
}
