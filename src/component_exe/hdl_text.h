// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "component_names.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// The text of a wrapper in SystemVerilog or VHDL: the few things that wrappers are made of.

namespace bfcl::component {

using ParameterValues = std::vector<std::pair<std::string, std::string>>;

// A value of so many bits as the language writes it.
struct HdlValue {
  std::string text;
  unsigned width = 1;
};

// A port of the wrapper. It is one bit or a vector of bits, the highest first.
struct WrapperPort {
  std::string name;
  unsigned width = 1;
  bool is_input = true;
};

class HdlText {
public:
  virtual ~HdlText() = default;

  // A name for a signal that nothing else in the wrapper has.
  std::string free_name(const std::string& name) { return m_names.take(name); }

  // Values. The first three have one bit.
  [[nodiscard]] virtual std::string negated(const std::string& value) const = 0;
  [[nodiscard]] virtual std::string both(const std::string& left,
                                         const std::string& right) const = 0;
  [[nodiscard]] virtual std::string either(const std::string& left,
                                           const std::string& right) const = 0;
  [[nodiscard]] virtual std::string high_bit(const std::string& name, unsigned of) const = 0;
  [[nodiscard]] virtual std::string low_bits(const std::string& name, unsigned width,
                                             unsigned of) const = 0;
  [[nodiscard]] virtual std::string joined(const std::vector<HdlValue>& highest_first) const = 0;
  [[nodiscard]] virtual std::string literal(const std::string& bits) const = 0; // of "0" and "1"

  // Declares a signal.
  virtual void declare(const std::string& name, unsigned width) = 0;

  // The statements that follow are about this.
  virtual void comment(const std::string& text) = 0;
  virtual void assign(const std::string& name, const std::string& value) = 0;

  // Registers, which are declared. A flag is low in a reset, and is set while it is low and
  // cleared while it is high, in the next clock anyway if `clear` is empty. What is held is taken
  // over when `when` is high. A line of flags moves up by one in each clock.
  virtual void flag(const std::string& name, const std::string& set, const std::string& clear) = 0;
  virtual void hold(const std::string& name, const std::string& value, const std::string& when) = 0;
  virtual void shift(const std::string& name, unsigned width, const std::string& first) = 0;

  // Connects an input of the module to a value, or an output to a new signal, whose value is given.
  virtual void drive(const Port& port, const std::string& value) = 0;
  [[nodiscard]] virtual std::string read(const Port& port) = 0;

  // Leaves an output of the module open.
  virtual void leave_open(const Port& port) = 0;

  // The whole text; `head` is a line of comment, `unused` are the values that nothing looks at.
  [[nodiscard]] virtual std::string text(const std::string& head,
                                         const std::vector<WrapperPort>& ports,
                                         const std::vector<std::string>& unused) = 0;

protected:
  Names m_names;
};

[[nodiscard]] std::unique_ptr<HdlText> verilog_text(const std::string& module,
                                                    const ParameterValues& parameters);

// `types` are what vhdl_types gives, none of them empty for a port that is connected.
[[nodiscard]] std::unique_ptr<HdlText> vhdl_text(const std::string& entity,
                                                 const ParameterValues& generics,
                                                 const std::map<std::string, std::string>& types);

// Whether a wrapper can connect a port of this type, such as "unsigned".
[[nodiscard]] bool can_connect_vhdl(const std::string& type);

// The name of a module's wrapper.
[[nodiscard]] std::string wrapper_name(const std::string& module);

} // namespace bfcl::component
