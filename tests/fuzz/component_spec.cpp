// SPDX-License-Identifier: BSD-3-Clause
// The text of a component specification; the files that it names are not looked at.
#include "EFISpecXmlLoader.h"

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  vex::efi::EFISpecXmlLoader loader(false, false);
  const std::unique_ptr<vex::efi::EFISpec> spec(loader.load_xml(text.c_str()));
  if ((spec == nullptr) == loader.m_errors.empty()) {
    __builtin_trap(); // either a specification or a reason
  }
  if (spec != nullptr) {
    std::ostringstream printed;
    printed << *spec;
  }
  return 0;
}
