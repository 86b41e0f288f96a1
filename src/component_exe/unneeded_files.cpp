// SPDX-License-Identifier: BSD-3-Clause
#include "unneeded_files.h"

#include "rtl_text.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

struct Source {
  std::size_t index = 0;
  FileKind kind = FileKind::other;
  std::string text;               // of VHDL in lower case
  std::string code;               // without comments
  std::vector<std::string> names; // by which others use it
  bool is_needed = false;
};

// Each file once.
std::vector<Source> read_sources(const ElaborationRequest& request, const SealedTree& tree) {
  std::vector<Source> sources;
  for (std::size_t index = 0; index < request.files.size(); ++index) {
    const std::string& name = tree.name(index);
    if (name.empty() || tree.file_of(name) != index) {
      continue;
    }
    Source source;
    source.index = index;
    source.kind = file_kind(request.files[index]);
    source.text = read_text(request.files[index]);
    if (source.kind == FileKind::vhdl) {
      source.text = lower_case(source.text);
    }
    source.code =
        source.kind == FileKind::data ? source.text : blank_comments(source.text, source.kind);
    sources.push_back(std::move(source));
  }
  return sources;
}

bool names_file(const std::string& text, const std::string& file) {
  return text.find(fs::path(file).filename().string()) != std::string::npos ||
         has_word(text, fs::path(file).stem().string());
}

// Whether a needed source names something of another one.
bool uses(const Source& user, const Source& source) {
  return user.is_needed && std::any_of(source.names.begin(), source.names.end(),
                                       [&](const auto& n) { return has_word(user.code, n); });
}

// Makes needed what a needed source names, until nothing is added.
void spread(std::vector<Source>& sources) {
  for (bool is_changed = true; is_changed;) {
    is_changed = false;
    for (Source& source : sources) {
      if (!source.is_needed &&
          std::any_of(sources.begin(), sources.end(),
                      [&source](const Source& user) { return uses(user, source); })) {
        source.is_needed = is_changed = true;
      }
    }
  }
}

// Includes and data are needed when another file or a parameter names them.
void need_what_is_named(const ElaborationRequest& request, std::vector<Source>& sources) {
  for (Source& source : sources) {
    const std::string name = source.kind == FileKind::vhdl ? lower_case(request.files[source.index])
                                                           : request.files[source.index];
    for (const Source& other : sources) {
      source.is_needed =
          source.is_needed ||
          (other.index != source.index && source.kind != FileKind::vhdl &&
           other.kind != FileKind::data &&
           (source.kind != FileKind::verilog
                ? names_file(other.text, name)
                : other.text.find(fs::path(name).filename().string()) != std::string::npos));
    }
    for (const auto& [parameter, value] : request.parameters) {
      source.is_needed =
          source.is_needed || (source.kind == FileKind::data && names_file(value, name));
    }
  }
}

std::vector<std::size_t> not_needed(const std::vector<Source>& sources) {
  std::vector<std::size_t> indices;
  for (const Source& source : sources) {
    if (!source.is_needed && source.kind != FileKind::other) {
      indices.push_back(source.index);
    }
  }
  return indices;
}

} // namespace

std::vector<std::size_t> unneeded_files(const ElaborationRequest& request, const SealedTree& tree,
                                        const VerilatorRun& run) {
  std::vector<Source> sources = read_sources(request, tree);
  const auto contains = [](const std::vector<std::string>& list, const std::string& name) {
    return std::find(list.begin(), list.end(), name) != list.end();
  };
  for (Source& source : sources) {
    const std::string& name = tree.name(source.index);
    source.is_needed = contains(run.design.module_files, name) ||
                       (source.kind == FileKind::include && contains(run.read_files, name));
    if (source.kind != FileKind::verilog) {
      source.is_needed = source.is_needed || source.kind == FileKind::vhdl; // as far as is known
      continue;
    }
    source.names = macros_in(source.code);
    for (const RtlUnit& unit : units_in(source.text, source.kind)) {
      if (unit.keyword == "package" || unit.keyword == "interface") {
        source.names.push_back(unit.name);
      }
    }
  }
  need_what_is_named(request, sources);
  spread(sources);
  return not_needed(sources);
}

std::vector<std::size_t> unneeded_vhdl_files(const ElaborationRequest& request,
                                             const SealedTree& tree) {
  std::vector<Source> sources = read_sources(request, tree);
  for (Source& source : sources) {
    source.is_needed = source.kind == FileKind::verilog;
    for (const RtlUnit& unit : units_in(source.text, source.kind)) {
      source.names.push_back(unit.name);
      source.is_needed = source.is_needed || unit.name == lower_case(request.top);
    }
  }
  need_what_is_named(request, sources);
  spread(sources);
  return not_needed(sources);
}

} // namespace bfcl::component
