// SPDX-License-Identifier: BSD-3-Clause
#include "plan.h"

#include "printable.h"

#include <algorithm>

#include <climits>

namespace bfcl::package {

using namespace vex::efi;

namespace {

// A folder that replaces each "." of the directory prefix, and each "" of "//". The packaging
// command counts both in the path of a specification as folders, so names may climb one level more
// than there are folders.
constexpr const char* STAND_IN_FOLDER = "unpacked";

std::vector<std::string_view> split_path(std::string_view path) {
  std::vector<std::string_view> words;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    end = path.find('/');
    words.push_back(path.substr(0, end));
    path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
  }
  return words;
}

// The folders from the root to the current one.
using Place = std::vector<PlannedFolder*>;

class ComponentPlan {
public:
  ComponentPlan(const ComponentPackage& package, PlannedFolder& root, std::size_t& folder_count,
                std::vector<std::string>& faults)
      : m_package(package), m_folder_count(folder_count), m_faults(faults), m_place({&root}) {}

  std::string make() {
    const std::size_t old_faults = m_faults.size();
    if (!enter_prefix()) {
      add_fault(DIR_CONTAINER_SECTION, "not a list of folder names");
      return "";
    }
    add_file(std::string(XML_SPEC_PREFIX) + m_package.specification_name,
             m_package.specification_name, m_package.specification);
    for (const PackagedFile& file : m_package.files) {
      const auto prefix = file.kind == PackagedFileKind::SOURCE ? SOURCE_PREFIX : C_MODEL_PREFIX;
      add_file(std::string(prefix) + file.name, file.name, file.bytes);
    }
    if (m_faults.size() == old_faults && m_levels != m_climbed) {
      add_fault(DIR_CONTAINER_SECTION,
                format_text("%s, but file names climb %s", format_count(m_levels, "folder").c_str(),
                            format_count(m_climbed, "level").c_str()));
    }
    return m_faults.size() == old_faults ? m_path + m_package.specification_name : "";
  }

private:
  void add_fault(const std::string& section, const std::string& text) {
    const std::string where = m_package.section.empty() ? "" : printable(m_package.section) + ": ";
    m_faults.push_back(where + printable(section) + ": " + text);
  }

  // Goes to the folder of the specification.
  bool enter_prefix() {
    std::string_view prefix = m_package.directory_prefix;
    if (prefix.empty()) {
      return true;
    }
    if (prefix.size() > MAX_PLANNED_PATH / 2) {
      return false;
    }
    if (prefix.ends_with('/')) {
      prefix.remove_suffix(1);
    }
    const auto words = split_path(prefix);
    const auto is_no_folder = [](auto word) { return word.empty() || word == "."; };
    if (words.size() > MAX_PLANNED_DEPTH || words.front().empty() ||
        !std::all_of(words.begin(), words.end(),
                     [&](auto word) { return is_no_folder(word) || is_file_name(word); })) {
      return false;
    }
    for (auto stand_ins = std::count_if(words.begin(), words.end(), is_no_folder); stand_ins > 0;
         --stand_ins) {
      enter(m_place, STAND_IN_FOLDER);
      m_path.append(STAND_IN_FOLDER).append("/");
    }
    for (const std::string_view word : words) {
      if (!is_no_folder(word)) {
        enter(m_place, word);
      }
      m_path.append(word).append("/");
    }
    m_levels = words.size();
    return true;
  }

  // False if a file has that name.
  bool enter(Place& place, std::string_view word) {
    const std::string name(word);
    if (place.back()->files.contains(name)) {
      return false;
    }
    auto& folder = place.back()->folders[name];
    if (folder == nullptr) {
      ++m_folder_count;
      folder = std::make_unique<PlannedFolder>();
    }
    place.push_back(folder.get());
    return true;
  }

  void add_file(const std::string& section, std::string_view name, std::string_view bytes) {
    if (name.starts_with('/')) {
      add_fault(section, "absolute file name");
    } else if (m_path.size() + name.size() > MAX_PLANNED_PATH) {
      add_fault(section, "file name too long");
    } else {
      auto words = split_path(name);
      const std::string_view last = words.back();
      words.pop_back();
      Place place = m_place;
      if (follow(section, words, place)) {
        put_file(section, last, bytes, *place.back());
      }
    }
  }

  // Goes through the folders of a name.
  bool follow(const std::string& section, const std::vector<std::string_view>& words,
              Place& place) {
    for (const std::string_view word : words) {
      if (word.empty() || word == ".") {
        continue;
      }
      if (word == "..") {
        if (place.size() == 1) {
          add_fault(section, "leads out of the folder that the package is unpacked to");
          return false;
        }
        place.pop_back();
        m_climbed = std::max(m_climbed, m_place.size() - std::min(m_place.size(), place.size()));
      } else if (!is_file_name(word) || place.size() > MAX_PLANNED_DEPTH) {
        add_fault(section, "file name too long");
        return false;
      } else if (m_folder_count >= MAX_PLANNED_FOLDERS) {
        add_fault(section, "too many folders");
        return false;
      } else if (!enter(place, word)) {
        add_fault(section, "needs a folder where another file is");
        return false;
      }
    }
    return true;
  }

  void put_file(const std::string& section, std::string_view name, std::string_view bytes,
                PlannedFolder& folder) {
    if (!is_file_name(name)) {
      add_fault(section, name.size() > NAME_MAX ? "file name too long" : "not a file name");
    } else if (folder.folders.contains(std::string(name))) {
      add_fault(section, "is where another file needs a folder");
    } else if (const auto [place, added] =
                   folder.files.try_emplace(std::string(name), PlannedFile{bytes, nullptr});
               !added && place->second.bytes != bytes) {
      add_fault(section, "has the same place as another file of other contents");
    }
  }

  const ComponentPackage& m_package;
  std::size_t& m_folder_count;
  std::vector<std::string>& m_faults;
  Place m_place;             // to the folder of the specification
  std::string m_path;        // the same as text, with the prefix unchanged, ending with "/"
  std::size_t m_levels = 0;  // folders of the prefix
  std::size_t m_climbed = 0; // the most levels that a name climbs above the specification
};

} // namespace

bool is_file_name(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.size() <= NAME_MAX &&
         name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

std::string plan_component(const ComponentPackage& package, PlannedFolder& root,
                           std::size_t& folder_count, std::vector<std::string>& faults) {
  return ComponentPlan(package, root, folder_count, faults).make();
}

} // namespace bfcl::package
