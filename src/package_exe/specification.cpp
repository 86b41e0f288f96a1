// SPDX-License-Identifier: BSD-3-Clause
#include "specification.h"

#include "EFISpecXmlLoader.h"
#include "printable.h"

namespace bfcl::package {

namespace {

// Messages name the file that was packaged.
class PackagedSpecLoader : public vex::efi::EFISpecXmlLoader {
public:
  explicit PackagedSpecLoader(std::string name)
      : EFISpecXmlLoader(false, false), m_name(std::move(name)) {}
  const char* get_source_name() const override { return m_name.c_str(); }

private:
  std::string m_name;
};

// The head line and the message of a diagnostic, without the help that may follow.
std::string to_one_line(const std::string& diagnostic) {
  const std::size_t head = diagnostic.find('\n');
  const std::size_t message = diagnostic.find('\n', head + 1);
  if (head == std::string::npos || message == std::string::npos) {
    return printable(diagnostic.substr(0, head));
  }
  const bool ended = head > 0 && diagnostic[head - 1] == ':'; // without a line number
  return printable(diagnostic.substr(0, head)) + (ended ? " " : ": ") +
         printable(diagnostic.substr(head + 1, message - head - 1));
}

} // namespace

std::unique_ptr<vex::efi::EFISpec> load_specification(const vex::efi::ComponentPackage& package,
                                                      std::vector<std::string>& faults) {
  PackagedSpecLoader loader(package.specification_name);
  const std::string text(package.specification);
  std::unique_ptr<vex::efi::EFISpec> spec(loader.load_xml(text.c_str()));
  if (spec == nullptr) {
    const std::string where = package.section.empty() ? "" : printable(package.section) + ": ";
    faults.push_back(where + to_one_line(loader.m_errors.empty() ? "" : loader.m_errors.front()));
  }
  return spec;
}

} // namespace bfcl::package
