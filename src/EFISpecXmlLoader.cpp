// SPDX-License-Identifier: BSD-3-Clause
#include "EFISpecXmlLoader.h"

#include "EFISpecXml.h"

#include <memory>

namespace vex::efi {

EFISpecXmlLoader::EFISpecXmlLoader(bool debug, bool component_checks)
    : m_debug(debug), m_component_checks(component_checks) {}

EFISpec* EFISpecXmlLoader::load_file(const char* filename) {
  return load_efi_spec(parse_file(filename));
}

EFISpec* EFISpecXmlLoader::load_xml(const char* xml) {
  return load_efi_spec(parse_xml(xml));
}

EFISpec* EFISpecXmlLoader::load_efi_spec(tinyxml2::XMLDocument* doc) {
  if (doc == nullptr) {
    return nullptr;
  }
  const std::unique_ptr<tinyxml2::XMLDocument> document(doc);
  if (m_debug) {
    debug(doc_to_string(doc));
  }
  auto spec = std::make_unique<EFISpec>();
  xml::EFIVisitor visitor(spec.get(), this, m_debug, m_component_checks);
  return document->Accept(&visitor) ? spec.release() : nullptr;
}

} // namespace vex::efi
