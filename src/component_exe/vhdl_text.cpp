// SPDX-License-Identifier: BSD-3-Clause
#include "hdl_text.h"

#include <algorithm>

namespace bfcl::component {

namespace {

// "%" is a value, "#" the port's width.
struct TypeRow {
  const char* mark;
  bool is_vector;
  const char* to;   // from std_logic and std_logic_vector
  const char* from; // to them
};

constexpr TypeRow TYPES[] = {
    {"std_logic", false, "%", "%"},
    {"std_ulogic", false, "%", "%"},
    {"std_logic_vector", true, "%", "%"},
    {"std_ulogic_vector", true, "%", "%"},
    {"unsigned", true, "unsigned(%)", "std_logic_vector(%)"},
    {"signed", true, "signed(%)", "std_logic_vector(%)"},
    {"boolean", false, "% = '1'", "'1' when % else '0'"},
    {"bit", false, "to_bit(%)", "to_stdulogic(%)"},
    {"bit_vector", true, "to_bitvector(%)", "to_stdlogicvector(%)"},
    {"natural", false, "to_integer(unsigned(%))", "std_logic_vector(to_unsigned(%, #))"},
    {"integer", false, "to_integer(signed(%))", "std_logic_vector(to_signed(%, #))"},
};

const TypeRow* find_type(const std::string& mark) {
  const auto* found = std::find_if(std::begin(TYPES), std::end(TYPES),
                                   [&](const TypeRow& row) { return mark == row.mark; });
  return found == std::end(TYPES) ? nullptr : found;
}

std::string filled(std::string format, const std::string& value, unsigned width) {
  if (value[0] == '"') { // the type of a literal has to be said, unless it is clear
    format = format.rfind("to_bit", 0) == 0 ? "%" : format;
    const std::size_t open = format.find("signed(%");
    format = open == std::string::npos ? format : format.insert(open + 6, "'");
  }
  if (const std::size_t at = format.find('#'); at != std::string::npos) {
    format.replace(at, 1, std::to_string(width));
  }
  return format.replace(format.find('%'), 1, value);
}

// Whether it can be connected without a signal: a name, bits of one, a literal.
bool is_simple(const std::string& value) {
  return value.find(" and ") == std::string::npos && value.find(" or ") == std::string::npos &&
         value.rfind("not ", 0) != 0;
}

bool is_number(const TypeRow& type) {
  return std::string_view(type.from).find('#') != std::string_view::npos;
}

std::string bit_type(unsigned width) {
  return width == 1 ? "std_logic" : "std_logic_vector(" + std::to_string(width - 1) + " downto 0)";
}

// In brackets unless it is one name, or one operator that may be repeated.
std::string operand(const std::string& value, const char* repeated) {
  std::string rest = value;
  for (std::size_t at = 0; (at = rest.find(repeated)) != std::string::npos;) {
    rest.erase(at, std::string(repeated).size());
  }
  return rest.find(" and ") == std::string::npos && rest.find(" or ") == std::string::npos
             ? value
             : "(" + value + ")";
}

class VhdlText : public HdlText {
public:
  VhdlText(std::string entity, ParameterValues generics, std::map<std::string, std::string> types)
      : m_entity(std::move(entity)), m_generics(std::move(generics)), m_types(std::move(types)) {
    m_names.take(m_entity);
  }

  std::string negated(const std::string& value) const override {
    const bool is_negated = value.rfind("not ", 0) == 0 && value.find(' ', 4) == std::string::npos;
    return is_negated ? value.substr(4)
                      : "not " + (value.find(' ') == std::string::npos ? value : "(" + value + ")");
  }
  std::string both(const std::string& left, const std::string& right) const override {
    return operand(left, " and ") + " and " + operand(right, " and ");
  }
  std::string either(const std::string& left, const std::string& right) const override {
    return operand(left, " or ") + " or " + operand(right, " or ");
  }
  std::string high_bit(const std::string& name, unsigned of) const override {
    return of == 1 ? name : name + "(" + std::to_string(of - 1) + ")";
  }
  std::string low_bits(const std::string& name, unsigned width, unsigned of) const override {
    const std::string range = width == 1 ? "(0)" : "(" + std::to_string(width - 1) + " downto 0)";
    return width == of ? name : name + range;
  }
  std::string joined(const std::vector<HdlValue>& highest_first) const override {
    std::string list;
    for (const HdlValue& value : highest_first) {
      list += (list.empty() ? "" : " & ") + value.text;
    }
    return list;
  }
  std::string literal(const std::string& bits) const override {
    const char quote = bits.size() == 1 ? '\'' : '"';
    return quote + bits + quote;
  }

  void declare(const std::string& name, unsigned width) override { declare(name, bit_type(width)); }
  void comment(const std::string& text) override { m_statements += "\n  -- " + text + "\n"; }
  void assign(const std::string& name, const std::string& value) override {
    m_statements += "  " + name + " <= " + value + ";\n";
  }
  void flag(const std::string& name, const std::string& set, const std::string& clear) override {
    const std::string stays = clear.empty() ? "" : both(name, negated(clear));
    const std::string value = clear.empty() ? set : either(stays, both(negated(name), set));
    clocked(name, both("resetn", value));
  }
  void hold(const std::string& name, const std::string& value, const std::string& when) override {
    m_statements += "  " + name + " <= " + value + " when rising_edge(clock) and " +
                    (is_simple(when) ? when : "(" + when + ")") + " = '1';\n";
  }
  void shift(const std::string& name, unsigned width, const std::string& first) override {
    const std::string all = "(" + std::to_string(width - 1) + " downto 0 => resetn)";
    clocked(name, width == 1
                      ? both("resetn", first)
                      : "(" + low_bits(name, width - 1, width) + " & " + first + ") and " + all);
  }

  void drive(const Port& port, const std::string& value) override;
  std::string read(const Port& port) override;
  void leave_open(const Port& port) override { connect(port, "open"); }
  std::string text(const std::string& head, const std::vector<WrapperPort>& ports,
                   const std::vector<std::string>& unused) override;

private:
  void declare(const std::string& name, std::string_view type) {
    m_declarations += "  signal " + name + " : " + std::string(type) + ";\n";
  }
  void clocked(const std::string& name, const std::string& value) {
    assign(name, value + " when rising_edge(clock)");
  }
  void connect(const Port& port, const std::string& value) {
    m_connections[&port] = port.name + " => " + value;
  }
  const TypeRow& type_of(const Port& port) const {
    const std::string& type = m_types.at(port.name);
    return *find_type(type.substr(0, type.find(' ')));
  }

  // A signal of the port's own type.
  std::string connected_signal(const Port& port) {
    std::string name = m_names.take("core_" + port.name);
    const TypeRow& type = type_of(port);
    const std::string range = "(" + std::to_string(port.width - 1) + " downto 0)";
    declare(name, type.is_vector ? type.mark + range : m_types.at(port.name));
    connect(port, name);
    return name;
  }

  std::string m_entity;
  ParameterValues m_generics;
  std::map<std::string, std::string> m_types;
  std::string m_declarations;
  std::string m_statements;
  std::map<const Port*, std::string> m_connections; // in the order of the entity's ports
};

void VhdlText::drive(const Port& port, const std::string& value) {
  const TypeRow& type = type_of(port);
  const bool is_one_of_vector = type.is_vector && port.width == 1;
  if (std::string(type.to) == "%" && !is_one_of_vector && is_simple(value)) {
    connect(port, value);
    return;
  }
  const std::string signal = connected_signal(port);
  if (is_one_of_vector) {
    assign(signal + "(0)",
           std::string(type.mark) == "bit_vector" ? "to_bit(" + value + ")" : value);
  } else if (std::string(type.mark) == "boolean" && value[0] == '\'') {
    assign(signal, value == "'1'" ? "true" : "false");
  } else if (is_number(type) && port.width == 1) {
    const char* vector = std::string_view(type.mark) == "integer" ? "signed" : "unsigned";
    assign(signal, "to_integer(" + std::string(vector) + "'(0 => " + value + "))");
  } else {
    assign(signal, filled(type.to, value, port.width));
  }
}

std::string VhdlText::read(const Port& port) {
  const TypeRow& type = type_of(port);
  const std::string signal = connected_signal(port);
  if (type.is_vector && port.width == 1) {
    return std::string(type.mark) == "bit_vector" ? "to_stdulogic(" + signal + "(0))"
                                                  : signal + "(0)";
  }
  std::string value = filled(type.from, signal, port.width);
  if (is_number(type) && port.width == 1) {
    return "to_" + std::string(std::string_view(type.mark) == "integer" ? "signed" : "unsigned") +
           "(" + signal + ", 1)(0)";
  }
  if (std::string(type.mark) != "boolean") {
    return value;
  }
  std::string bit = m_names.take(signal + "_bit");
  declare(bit, 1);
  assign(bit, value);
  return bit;
}

std::string VhdlText::text(const std::string& head, const std::vector<WrapperPort>& ports,
                           const std::vector<std::string>& /*unused*/) {
  const std::string name = wrapper_name(m_entity);
  std::string text = "-- " + head +
                     "\nlibrary ieee;\nuse ieee.std_logic_1164.all;\n"
                     "use ieee.numeric_std.all;\n\nentity " +
                     name + " is\n  port (\n";
  for (const WrapperPort& port : ports) {
    text += "    " + port.name + " : " + (port.is_input ? "in  " : "out ") + bit_type(port.width) +
            (&port == &ports.back() ? "\n" : ";\n");
  }
  text += "  );\nend entity;\n\narchitecture wrapper of " + name + " is\n" + m_declarations +
          "begin\n  " + m_names.take("core") + " : entity work." + m_entity + "\n";
  for (const auto& [generic, value] : m_generics) {
    text.append(generic == m_generics[0].first ? "    generic map (" : ", ");
    text.append(generic).append(" => ").append(value);
  }
  text += std::string(m_generics.empty() ? "" : ")\n") + "    port map (";
  for (const auto& [port, connection] : m_connections) {
    text += (port == m_connections.begin()->first ? "\n      " : ",\n      ") + connection;
  }
  return text + "\n    );\n" + m_statements + "end architecture;\n";
}

} // namespace

std::unique_ptr<HdlText> vhdl_text(const std::string& entity, const ParameterValues& generics,
                                   const std::map<std::string, std::string>& types) {
  return std::make_unique<VhdlText>(entity, generics, types);
}

bool can_connect_vhdl(const std::string& type) {
  return find_type(type) != nullptr;
}

} // namespace bfcl::component
