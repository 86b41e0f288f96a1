// SPDX-License-Identifier: BSD-3-Clause
#include "ghdl_output.h"

#include "rtl_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <sstream>

namespace bfcl::component {

namespace {

std::optional<GhdlMessage> parse_message(const std::string& line) {
  std::array<std::size_t, 3> colons = {};
  std::size_t from = 0;
  for (std::size_t& colon : colons) {
    colon = line.find(':', from);
    if (colon == std::string::npos) {
      break;
    }
    from = colon + 1;
  }
  GhdlMessage message;
  const std::size_t program = line.find("ghdl");
  if (colons[0] != std::string::npos && program < colons[0] &&
      line.compare(colons[0], 2, ": ") == 0) {
    message.text = line.substr(colons[0] + 2);
    return message;
  }
  if (colons[2] == std::string::npos || colons[2] == 0 || colons[1] == colons[0] + 1 ||
      std::from_chars(line.data() + colons[0] + 1, line.data() + colons[1], message.line).ec !=
          std::errc()) {
    return std::nullopt;
  }
  message.file = line.substr(0, colons[0]);
  message.text = line.substr(colons[2] + 1);
  message.is_warning = message.text.rfind("warning: ", 0) == 0;
  message.text.erase(0, message.is_warning ? 9 : 1);
  return message;
}

// The ports that `--synth --out=raw` lists: "    input \word[15:0];", a record as "\port.\field".
std::vector<Port> read_port_list(const std::string& text) {
  std::vector<Port> ports;
  std::istringstream lines(text);
  unsigned modules = 0; // the first is around the top
  for (std::string line; std::getline(lines, line) && modules <= 2;) {
    modules += line.rfind("module ", line.find_first_not_of(' ')) != std::string::npos ? 1U : 0U;
    const bool is_input = line.rfind("    input \\", 0) == 0;
    const bool is_output = line.rfind("    output \\", 0) == 0;
    if (modules != 2 || (!is_input && !is_output) || line.back() != ';') {
      continue;
    }
    std::string name = line.substr(line.find('\\') + 1);
    name.pop_back();
    Port port;
    port.direction = is_input ? Direction::input : Direction::output;
    port.width = 1;
    unsigned left = 0;
    unsigned right = 0;
    const std::size_t range = name.rfind('[');
    if (range != std::string::npos &&
        std::sscanf(name.c_str() + range, "[%u:%u]", &left, &right) == 2) {
      port.width = std::max(left, right) - std::min(left, right) + 1;
      name.erase(range);
    }
    const std::size_t field = name.find(".\\");
    if (field != std::string::npos) {
      name.erase(field);
      port.kind = PortKind::record;
    }
    port.name = lower_case(name);
    if (ports.empty() || ports.back().name != port.name) {
      ports.push_back(port);
    }
  }
  return ports;
}

// An output that the netlist drives from the port side of an "$inout" is an inout.
void note_inouts(const std::string& text, std::vector<Port>& ports) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t assigned = line.find(" := ");
    if (line.rfind("    \\", 0) == 0 && line.find(":$oport{") != std::string::npos) {
      const std::string name = lower_case(line.substr(5, assigned - 5));
      for (Port& port : ports) {
        port.direction = port.name == name ? Direction::inout : port.direction;
      }
    }
  }
}

} // namespace

std::vector<GhdlMessage> parse_ghdl_messages(const std::string& text) {
  std::vector<GhdlMessage> messages;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::optional<GhdlMessage> message = parse_message(line);
    if (message && message->text.starts_with("(found: ") && !messages.empty()) {
      messages.back().text += " " + message->text; // the second half of a syntax error
    } else if (message) {
      messages.push_back(std::move(*message));
    }
  }
  return messages;
}

std::string quoted_unit(const std::string& text, unsigned index) {
  std::size_t open = text.find('"');
  for (; index != 0 && open != std::string::npos; --index) {
    open = text.find('"', text.find('"', open + 1) + 1);
  }
  const std::size_t close = open == std::string::npos ? open : text.find('"', open + 1);
  return close == std::string::npos ? std::string() : text.substr(open + 1, close - open - 1);
}

std::vector<Port> read_ghdl_ports(const std::string& netlist) {
  std::vector<Port> ports = read_port_list(netlist);
  note_inouts(netlist, ports);
  return ports;
}

} // namespace bfcl::component
