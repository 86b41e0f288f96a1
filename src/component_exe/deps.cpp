// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"
#include "included_files.h"

#include "EFISpecXmlLoader.h"
#include "finding.h"
#include "printable.h"
#include "unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

#include <sys/stat.h>

#include <CLI/CLI.hpp>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

struct DepsOptions {
  std::vector<std::string> specs;
  std::string output;
  std::string target;
};

// Names in the order of their adding, each once.
class UniqueNames {
public:
  void add(const std::string& name) {
    if (m_seen.insert(name).second) {
      m_names.push_back(name);
    }
  }
  void add(const std::vector<std::string>& names) {
    std::for_each(names.begin(), names.end(), [this](const std::string& name) { add(name); });
  }
  [[nodiscard]] const std::vector<std::string>& names() const { return m_names; }

private:
  std::vector<std::string> m_names;
  std::set<std::string> m_seen;
};

// The rule of one target.
struct Rule {
  std::string target;
  UniqueNames sources;      // the descriptions
  UniqueNames dependencies; // the other files
};

// Make has no way to write these in a name: a line end, what ends the names, what joins lines. In
// the rules of a hostile description they would be commands.
bool is_writable_name(const std::string& name) {
  return name.find_first_of(";\n\r") == std::string::npos && !name.ends_with('\\');
}

// A name as make and ninja read it.
std::string escape(const std::string& name) {
  std::string text;
  std::size_t backslashes = 0;
  for (const char character : name) {
    if (character == ' ' || character == '\t' || character == '#' || character == ':') {
      text.append(backslashes + 1, '\\'); // those before it would escape each other
    } else if (character == '$') {
      text += '$';
    }
    backslashes = character == '\\' ? backslashes + 1 : 0;
    text += character;
  }
  return text;
}

// An assignment or a pattern rule would come of it.
bool can_be_target(const std::string& name) {
  return name.find_first_of("=%") == std::string::npos;
}

std::string format_rule(const Rule& rule) {
  std::string text = escape(rule.target) + ":";
  for (const UniqueNames* list : {&rule.sources, &rule.dependencies}) {
    for (const std::string& name : list->names()) {
      text += " \\\n  ";
      text += escape(name);
    }
  }
  return text + "\n";
}

// A rule without a command for each dependency: when the file is deleted, make continues and the
// program reports what is missing.
std::string format_rules(const std::vector<Rule>& rules) {
  std::string text;
  std::set<std::string> seen;
  for (const Rule& rule : rules) {
    text += format_rule(rule);
    seen.insert(rule.target);
    seen.insert(rule.sources.names().begin(), rule.sources.names().end());
  }
  for (const Rule& rule : rules) {
    for (const std::string& name : rule.dependencies.names()) {
      if (can_be_target(name) && seen.insert(name).second) {
        text += "\n" + escape(name) + ":\n";
      }
    }
  }
  return text;
}

// Files need not exist, since the build may make them. Null after messages.
std::unique_ptr<vex::efi::EFISpec> load_specification(const std::string& path) {
  vex::efi::EFISpecXmlLoader loader(false, false);
  std::unique_ptr<vex::efi::EFISpec> spec(loader.load_file(path.c_str()));
  for (const std::string& text : spec == nullptr ? loader.m_errors : std::vector<std::string>()) {
    std::fprintf(stderr, "%s\n", text.c_str());
  }
  return spec;
}

std::vector<std::string> listed_files(const vex::efi::EFISpec& spec, const std::string& folder) {
  UniqueNames files;
  for (const auto& component : spec.efi_elems()) {
    for (const auto* names : {&component->m_requirement_files, &component->m_c_model_files}) {
      for (const std::string& name : *names) {
        std::string path = folder.empty() ? name : folder + "/";
        files.add(dependency_path(folder.empty() ? path : path.append(name)));
      }
    }
  }
  return files.names();
}

UniqueNames folders_of(const std::vector<std::string>& files) {
  UniqueNames folders;
  for (const std::string& file : files) {
    folders.add(fs::path(file).parent_path().string());
  }
  return folders;
}

// Appends the files of a specification to the rule.
bool add_specification(const std::string& path, Rule& rule) {
  const auto spec = load_specification(path);
  if (spec == nullptr) {
    return false;
  }
  const std::string folder = fs::path(path).parent_path().string();
  const std::vector<std::string> files = listed_files(*spec, folder);
  UniqueNames folders = folders_of(files);
  folders.add(folder);
  rule.sources.add(dependency_path(path));
  rule.dependencies.add(files);
  rule.dependencies.add(find_included_files(files, folders.names()));
  return true;
}

std::string default_target(const std::string& spec) {
  return fs::path(spec).filename().replace_extension(".bfco").string();
}

bool write_all(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file, text.data(), text.size());
    if (count < 0 && errno != EINTR) {
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  return true;
}

// Writes a file whole or not at all. What is no regular file, /dev/stdout and other links included,
// must not be replaced and is written as it is.
bool write_output(const std::string& path, const std::string& text) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(path, error);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    const unique_fd file(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    return file && write_all(file.get(), text);
  }
  std::string part = path + ".XXXXXX";
  const unique_fd file(mkostemp(part.data(), O_CLOEXEC));
  if (!file) {
    return false;
  }
  const mode_t mask = umask(0);
  umask(mask);
  if (write_all(file.get(), text) && fchmod(file.get(), 0666 & ~mask) == 0 &&
      rename(part.c_str(), path.c_str()) == 0) {
    return true;
  }
  const int reason = errno;
  unlink(part.c_str());
  errno = reason;
  return false;
}

int fail(const std::string& subject, const std::string& text) {
  std::fprintf(stderr, "bfcl-component: %s: %s\n", subject.c_str(), text.c_str());
  return STATUS_NOT_CHECKED;
}

// The first name that no rule can contain, or empty.
std::string find_unwritable_name(const std::vector<Rule>& rules) {
  for (const Rule& rule : rules) {
    if (!is_writable_name(rule.target) || !can_be_target(rule.target)) {
      return rule.target;
    }
    for (const UniqueNames* list : {&rule.sources, &rule.dependencies}) {
      const auto& names = list->names();
      const auto found = std::find_if_not(names.begin(), names.end(), is_writable_name);
      if (found != names.end()) {
        return *found;
      }
    }
  }
  return "";
}

int write_deps(const DepsOptions& options) {
  std::vector<Rule> rules;
  for (const std::string& spec : options.specs) {
    const std::string target = options.target.empty() ? default_target(spec) : options.target;
    if (rules.empty() || options.target.empty()) {
      rules.push_back({target, {}, {}});
    }
    if (!add_specification(spec, rules.back())) {
      return STATUS_ERROR;
    }
  }
  if (const std::string name = find_unwritable_name(rules); !name.empty()) {
    return fail(printable(name), "a dependency file cannot contain this name");
  }
  const std::string text = format_rules(rules);
  if (options.output.empty()) {
    std::fputs(text.c_str(), stdout);
  } else if (!write_output(options.output, text)) {
    return fail(options.output, std::string("cannot write: ") + std::strerror(errno));
  }
  return STATUS_OK;
}

} // namespace

void add_deps(CLI::App& command, int* status) {
  auto options = std::make_shared<DepsOptions>();
  command.add_option("SPEC.xml", options->specs, "component specifications")->required();
  command.add_option("-o", options->output, "the file to write instead of standard output")
      ->type_name("FILE.d");
  command
      .add_option("--target", options->target,
                  "what depends on the files (default: SPEC.bfco for each SPEC.xml)")
      ->type_name("FILE");
  command.callback([options, status] { *status = write_deps(*options); });
}

} // namespace bfcl::component
