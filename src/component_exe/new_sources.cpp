// SPDX-License-Identifier: BSD-3-Clause
#include "new_sources.h"

#include "description.h"
#include "ghdl.h"
#include "rtl_text.h"
#include "vhdl_types.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

constexpr unsigned MAX_ROUNDS = 20; // each adds what the one before lacked

bool is_same_file(const std::string& left, const std::string& right) {
  std::error_code error;
  return fs::equivalent(left, right, error);
}

bool is_among(const std::vector<std::string>& files, const std::string& path) {
  return std::any_of(files.begin(), files.end(),
                     [&](const std::string& file) { return is_same_file(file, path); });
}

// Orders files so that each comes behind those whose packages and, in VHDL, entities it uses, and
// keeps the order else.
class UseOrder {
public:
  explicit UseOrder(const std::vector<std::string>& files) : m_files(files) {
    for (const std::string& file : files) {
      const FileKind kind = file_kind(file);
      const bool is_hdl = kind == FileKind::verilog || kind == FileKind::vhdl;
      const std::string text = is_hdl ? blank_comments(read_text(file), kind) : "";
      m_texts.push_back(kind == FileKind::vhdl ? lower_case(text) : text);
      std::vector<std::string> units;
      for (const RtlUnit& unit : units_in(m_texts.back(), kind)) {
        if (unit.keyword == "package" || unit.keyword == "entity") {
          units.push_back(unit.name);
        }
      }
      m_units.push_back(std::move(units));
    }
    m_is_visited.resize(files.size());
  }

  std::vector<std::string> order() {
    for (std::size_t i = 0; i < m_files.size(); ++i) {
      visit(i);
    }
    return m_ordered;
  }

private:
  // Whether file `user` uses a unit of file `provider`.
  [[nodiscard]] bool uses(std::size_t user, std::size_t provider) const {
    return user != provider &&
           std::any_of(m_units[provider].begin(), m_units[provider].end(),
                       [&](const std::string& name) { return has_word(m_texts[user], name); });
  }
  void visit(std::size_t index) {
    if (m_is_visited[index]) {
      return;
    }
    m_is_visited[index] = true;
    for (std::size_t other = 0; other < m_files.size(); ++other) {
      if (uses(index, other)) {
        visit(other);
      }
    }
    m_ordered.push_back(m_files[index]);
  }

  const std::vector<std::string>& m_files;
  std::vector<std::string> m_texts;
  std::vector<std::vector<std::string>> m_units; // packages and entities that each file defines
  std::vector<bool> m_is_visited;
  std::vector<std::string> m_ordered;
};

struct Opening {
  const char* text; // of the tool, up to the name
  char quote;       // around the name
  const char* rule;
  const char* question; // behind the name; its "%" is the name
};

constexpr Opening OPENINGS[] = {
    {"Parameter without initial value", '\'', "question",
     ": the parameter has no value; --param %=VALUE gives it one"},
    {"(generic \"", '"', "question", ": the generic has no value; --param %=VALUE gives it one"},
    {"(port \"", '"', "unfit",
     ": the port's bounds are not given; put an entity around it whose ports have bounds"},
};

// Reports the question that a finding is, if it is one.
void ask(const Finding& finding, Report& report) {
  for (const Opening& opening : OPENINGS) {
    const std::size_t quote = finding.text.find(opening.quote);
    if (!finding.text.starts_with(opening.text) || quote == std::string::npos) {
      continue;
    }
    const std::size_t end = finding.text.find(opening.quote, quote + 1);
    const std::string name = finding.text.substr(quote + 1, end - quote - 1);
    std::string text = name + opening.question;
    if (const std::size_t at = text.find('%'); at != std::string::npos) {
      text.replace(at, 1, name);
    }
    report.error(opening.rule, finding.place, std::move(text));
  }
}

class SourceSearch {
public:
  SourceSearch(ElaborationRequest request, std::string folder)
      : m_request(std::move(request)), m_folder(std::move(folder)) {}

  NewSources run(Report& report);

private:
  static void report_open(Report last, Report& report);
  bool add_missing(const Report& report);
  bool add_data(const Design& design, Report& report);
  void drop_unneeded(const Report& report);
  void note_types(Design& design, Report& report);
  void note_undriven(const Report& report, const Design& design);
  void check_extensions(Report& report);
  void add(const std::string& path, const std::string& why) {
    m_request.files.push_back(path);
    m_sources.notes.push_back(tidy_path(path) + ": added, " + why);
  }

  ElaborationRequest m_request;
  std::string m_folder;
  NewSources m_sources;
};

NewSources SourceSearch::run(Report& report) {
  std::optional<Design> design;
  Report last;
  for (unsigned round = 0; round < MAX_ROUNDS; ++round) {
    m_request.files = UseOrder(m_request.files).order();
    m_request.file_places.clear();
    for (const std::string& file : m_request.files) {
      m_request.file_places.push_back({file, 0});
    }
    last = Report();
    design = elaborate(m_request, last);
    if (!add_missing(last)) {
      break;
    }
  }
  const bool is_sound =
      std::none_of(last.findings().begin(), last.findings().end(), [](const Finding& finding) {
        return finding.severity == Severity::error && finding.rule != "port-undriven";
      });
  if (!design || !is_sound || !add_data(*design, report)) {
    report_open(std::move(last), report);
    return std::move(m_sources);
  }
  drop_unneeded(last);
  note_undriven(last, *design);
  check_extensions(report);
  m_sources.files = m_request.files;
  m_sources.has_edges = false;
  for (const std::string& file : m_request.files) {
    const FileKind kind = file_kind(file);
    const std::string text = blank_comments(read_text(file), kind);
    for (const char* word : {"posedge", "negedge", "always_ff", "always_latch", "rising_edge",
                             "falling_edge", "event", "RISING_EDGE", "FALLING_EDGE", "EVENT"}) {
      m_sources.has_edges = m_sources.has_edges || has_word(text, word);
    }
  }
  if (design->ignores_case) {
    note_types(*design, report);
  }
  m_sources.design = std::move(design);
  return std::move(m_sources);
}

// What the tools call errors, although no fault of the module: what only its users can know.
void SourceSearch::report_open(Report last, Report& report) {
  Report questions;
  for (const Finding& finding : last.findings()) {
    ask(finding, questions);
  }
  report.merge(std::move(questions.has_errors() ? questions : last));
}

bool SourceSearch::add_missing(const Report& report) {
  const std::size_t before = m_request.files.size();
  for (const auto& [path, content] : report.unlisted_files()) {
    if (!is_among(m_request.files, path)) {
      std::error_code error;
      const fs::path file = path;
      add(file.is_absolute() ? file.lexically_proximate(fs::current_path(error)).string() : path,
          "which '" + content + "' is in");
    }
  }
  return m_request.files.size() != before;
}

// A data file is listed by any name whose last part is the one that the RTL reads.
bool SourceSearch::add_data(const Design& design, Report& report) {
  for (const DataFile& data : design.data_files) {
    const std::string name = fs::path(data.name).filename().string();
    const auto has_name = [&](const std::string& file) {
      return fs::path(file).filename().string() == name;
    };
    std::error_code error;
    if (std::any_of(m_request.files.begin(), m_request.files.end(), has_name)) {
      continue;
    }
    std::set<std::string> candidates = {data.name};
    for (const std::string& file : m_request.files) {
      candidates.insert((fs::path(file).parent_path() / name).string());
      candidates.insert((fs::path(file).parent_path() / data.name).string());
    }
    const auto found = std::find_if(candidates.begin(), candidates.end(), [&](const auto& path) {
      return fs::is_regular_file(path, error);
    });
    if (found == candidates.end()) {
      report.error("data-unlisted", data.place,
                   "data file '" + data.name + "' is not among the files");
      return false;
    }
    add(*found, "which the module reads");
  }
  return true;
}

// Leaves out the files that the elaboration warned about.
void SourceSearch::drop_unneeded(const Report& report) {
  for (const Finding& finding : report.findings()) {
    const std::string& file = finding.place.file;
    if (finding.rule == "file-unneeded" && std::erase(m_request.files, file) != 0) {
      m_sources.notes.push_back(tidy_path(file) + ": left out, the module does not need it");
    }
  }
}

void SourceSearch::note_types(Design& design, Report& report) {
  std::vector<std::string> texts;
  for (const std::string& file : m_request.files) {
    texts.push_back(file_kind(file) == FileKind::vhdl ? read_text(file) : "");
  }
  Report of_netlist; // its findings are known
  m_sources.vhdl_types = vhdl_types(vhdl_netlist(m_request, of_netlist), texts);
  if (of_netlist.status() == STATUS_NOT_CHECKED) {
    report.merge(std::move(of_netlist));
  }
  for (Port& port : design.ports) {
    if (m_sources.vhdl_types[port.name].empty()) {
      port.kind = port.kind == PortKind::vector ? PortKind::other : port.kind;
    }
  }
}

// Outputs that nothing drives are no results.
void SourceSearch::note_undriven(const Report& report, const Design& design) {
  for (const Finding& finding : report.findings()) {
    for (const Port& port : design.ports) {
      if (finding.rule == "port-undriven" && finding.severity == Severity::error &&
          finding.place == port.place &&
          finding.text.find("'" + port.name + "'") != std::string::npos) {
        m_sources.undriven.push_back(port.name);
      }
    }
  }
}

void SourceSearch::check_extensions(Report& report) {
  for (const std::string& file : m_request.files) {
    const FileKind kind = file_kind(file);
    const std::string extension = lower_case(fs::path(file).extension().string());
    constexpr const char* PACKAGED[] = {".v", ".sv", ".svh", ".vhd", ".hex", ".mif"};
    if (std::find(std::begin(PACKAGED), std::end(PACKAGED), extension) == std::end(PACKAGED)) {
      report.error("file-extension", {tidy_path(file), 0},
                   "cannot be packaged: its extension is none of v, sv, svh, vhd, hex, mif; give "
                   "the file one of them" +
                       std::string(kind == FileKind::vhdl      ? ", here vhd"
                                   : kind == FileKind::include ? ", here svh, also in its `include"
                                                               : ""));
    }
  }
}

} // namespace

NewSources find_sources(const std::string& module, const std::vector<std::string>& files,
                        const std::vector<std::pair<std::string, std::string>>& parameters,
                        const std::string& folder, Report& report) {
  ElaborationRequest request;
  request.top = module;
  request.parameters = parameters;
  request.top_place = {(fs::path(folder) / (module + ".xml")).lexically_normal().string(), 0};
  for (const std::string& file : files) {
    std::error_code error;
    if (!fs::is_regular_file(file, error)) {
      report.cannot_check(file, "does not exist or is not a regular file");
    } else if (!is_among(request.files, file)) {
      request.files.push_back(file);
    }
  }
  return report.status() == STATUS_OK ? SourceSearch(request, folder).run(report) : NewSources();
}

} // namespace bfcl::component
