// SPDX-License-Identifier: BSD-3-Clause
#include "hdl_text.h"
#include "verilog_keywords.h"

#include <algorithm>
#include <cctype>

namespace bfcl::component {

namespace {

// "[7:0] ", or nothing for one bit.
std::string range(unsigned width) {
  return width == 1 ? "" : "[" + std::to_string(width - 1) + ":0] ";
}

std::string in_brackets(const std::string& value) {
  return value.find(' ') == std::string::npos ? value : "(" + value + ")";
}

// In brackets if the other operator is in it.
std::string operand(const std::string& value, const char* other) {
  return value.find(other) == std::string::npos ? value : "(" + value + ")";
}

std::string identifier(const std::string& name) {
  const bool is_plain = std::all_of(name.begin(), name.end(), [](unsigned char byte) {
    return byte == '_' || byte == '$' || std::isalnum(byte) != 0;
  });
  const bool has_start = std::isalpha(static_cast<unsigned char>(name[0])) != 0 || name[0] == '_';
  return is_plain && has_start && !is_verilog_keyword(name) ? name : "\\" + name + " ";
}

class VerilogText : public HdlText {
public:
  VerilogText(std::string module, ParameterValues parameters)
      : m_module(std::move(module)), m_parameters(std::move(parameters)) {
    m_names.take(m_module);
  }

  std::string negated(const std::string& value) const override {
    const bool is_negated = value[0] == '~' && value.find(' ') == std::string::npos;
    return is_negated ? value.substr(1) : "~" + in_brackets(value);
  }
  std::string both(const std::string& left, const std::string& right) const override {
    return operand(left, " | ") + " & " + operand(right, " | ");
  }
  std::string either(const std::string& left, const std::string& right) const override {
    return operand(left, " & ") + " | " + operand(right, " & ");
  }
  std::string high_bit(const std::string& name, unsigned of) const override {
    return of == 1 ? name : name + "[" + std::to_string(of - 1) + "]";
  }
  std::string low_bits(const std::string& name, unsigned width, unsigned of) const override {
    return width == of ? name
                       : name + (width == 1 ? "[0]" : "[" + std::to_string(width - 1) + ":0]");
  }
  std::string joined(const std::vector<HdlValue>& highest_first) const override {
    std::string list;
    for (const HdlValue& value : highest_first) {
      list += (list.empty() ? "" : ", ") + value.text;
    }
    return highest_first.size() == 1 ? list : "{" + list + "}";
  }
  std::string literal(const std::string& bits) const override;

  void declare(const std::string& name, unsigned width) override {
    m_declarations += "  logic " + range(width) + name + ";\n";
  }
  void comment(const std::string& text) override { m_statements += "\n  // " + text + "\n"; }
  void assign(const std::string& name, const std::string& value) override {
    m_statements += "  assign " + name + " = " + value + ";\n";
  }
  void flag(const std::string& name, const std::string& set, const std::string& clear) override {
    clocked(name, "resetn & " + (clear.empty()
                                     ? in_brackets(set)
                                     : "(" + name + " ? " + negated(clear) + " : " + set + ")"));
  }
  void hold(const std::string& name, const std::string& value, const std::string& when) override {
    m_statements +=
        "  always_ff @(posedge clock) if (" + when + ") " + name + " <= " + value + ";\n";
  }
  void shift(const std::string& name, unsigned width, const std::string& first) override {
    clocked(name, width == 1
                      ? "resetn & " + first
                      : "resetn ? {" + low_bits(name, width - 1, width) + ", " + first + "} : '0");
  }

  void drive(const Port& port, const std::string& value) override { connect(port, value); }
  std::string read(const Port& port) override { return wire(port, "core_"); }
  void leave_open(const Port& port) override {
    port.direction == Direction::output&& port.kind == PortKind::vector
        ? void(wire(port, "unused_"))
        : connect(port, "");
  }
  std::string text(const std::string& head, const std::vector<WrapperPort>& ports,
                   const std::vector<std::string>& unused) override;

private:
  void clocked(const std::string& name, const std::string& value) {
    m_statements += "  always_ff @(posedge clock) " + name + " <= " + value + ";\n";
  }
  void connect(const Port& port, const std::string& value) {
    m_connections[&port] = "." + identifier(port.name) + "(" + value + ")";
  }
  std::string wire(const Port& port, const std::string& prefix) {
    const bool is_plain = identifier(port.name) == port.name;
    std::string name = m_names.take(prefix + (is_plain ? port.name : "port"));
    m_declarations += "  wire  " + range(port.width) + name + ";\n";
    connect(port, name);
    return name;
  }

  std::string m_module;
  ParameterValues m_parameters;
  std::string m_declarations;
  std::string m_statements;
  std::map<const Port*, std::string> m_connections; // in the order of the module's ports
};

std::string VerilogText::literal(const std::string& bits) const {
  std::string digits;
  for (std::size_t end = bits.size(); end > 0; end -= std::min<std::size_t>(end, 4)) {
    const std::size_t begin = end - std::min<std::size_t>(end, 4);
    const unsigned long digit = std::stoul(bits.substr(begin, end - begin), nullptr, 2);
    digits.insert(digits.begin(), "0123456789abcdef"[digit]);
  }
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
  return std::to_string(bits.size()) + (bits.size() == 1 ? "'b" : "'h") + digits;
}

std::string VerilogText::text(const std::string& head, const std::vector<WrapperPort>& ports,
                              const std::vector<std::string>& unused) {
  std::string text = "// " + head + "\nmodule " + wrapper_name(m_module) + " (\n";
  for (const WrapperPort& port : ports) {
    text += (port.is_input ? "  input  wire " : "  output wire ") + range(port.width) + port.name +
            (&port == &ports.back() ? "\n" : ",\n");
  }
  text += ");\n" + m_declarations + (m_declarations.empty() ? "" : "\n") + "  " + m_module;
  for (const auto& [name, value] : m_parameters) {
    text.append(name == m_parameters[0].first ? " #(." : ", .").append(name);
    text.append("(").append(value).append(")");
  }
  text += (m_parameters.empty() ? " " : ") ") + m_names.take("core") + " (";
  for (const auto& [port, connection] : m_connections) {
    text += (port == m_connections.begin()->first ? "\n    " : ",\n    ") + connection;
  }
  text += "\n  );\n" + m_statements;
  std::string list;
  for (const std::string& value : unused) {
    list += ", " + value;
  }
  if (!unused.empty()) {
    text += "\n  wire " + m_names.take("unused") + " = &{1'b0" + list + "};\n";
  }
  return text + "endmodule\n";
}

} // namespace

std::unique_ptr<HdlText> verilog_text(const std::string& module,
                                      const ParameterValues& parameters) {
  return std::make_unique<VerilogText>(module, parameters);
}

std::string wrapper_name(const std::string& module) {
  return module + "_component";
}

} // namespace bfcl::component
