// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "BaseXmlLoader.h"
#include "EFISpec.h"

namespace vex::efi {

// Loads a component specification. Every error and warning is collected in the loader's lists.
class EFISpecXmlLoader : public vex::xml::BaseXmlLoader {
public:
  // With `debug`, the parsed document and the walk over it are traced on standard error. With
  // `component_checks`, the files that a component names are opened and searched.
  EFISpecXmlLoader(bool debug, bool component_checks);

  // A specification that the caller owns, or null after an error.
  [[nodiscard]] EFISpec* load_file(const char* filename);
  [[nodiscard]] EFISpec* load_xml(const char* xml);

  // The same from a parsed document, which is taken over; null for null.
  [[nodiscard]] EFISpec* load_efi_spec(tinyxml2::XMLDocument* doc);

private:
  bool m_debug;
  bool m_component_checks;
};

} // namespace vex::efi
