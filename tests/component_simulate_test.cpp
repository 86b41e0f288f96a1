// SPDX-License-Identifier: BSD-3-Clause
#include "support.h"

#include <sstream>

namespace {

// What a FUNCTION of the test's own specifications says.
struct Function {
  const char* name;
  const char* module;
  const char* files;  // separated by blanks
  const char* ports;  // "port:width", with "<" before an output, "*" before a readonly pointer and
                      // "&" before one to memory that is written
  const char* memory; // "port:width:burstwidth:optype"
  const char* timing; // "STALL_FREE FIXED_LATENCY LATENCY CAPACITY", a capacity of - for none
  const char* parameter;
  const char* value;
};

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> words;
  std::istringstream stream(text);
  for (std::string word; std::getline(stream, word, separator);) {
    words.push_back(word);
  }
  return words;
}

std::string element(const std::string& name, const Sections& attributes) {
  std::string text = "<" + name;
  for (const auto& [attribute, value] : attributes) {
    text += " " + attribute + "=\"" + value + "\"";
  }
  return text + "/>";
}

std::string interface_of(const Function& function) {
  std::string text;
  for (const char* signal : {"clock", "resetn", "ivalid", "iready", "ovalid", "oready"}) {
    text += element("VEYRA", {{"port", signal}, {"type", signal}});
  }
  for (const std::string& port : split(function.ports, ' ')) {
    const std::string kind = port.substr(0, port.find_first_not_of("<*&"));
    const std::string name = port.substr(kind.size(), port.find(':') - kind.size());
    if (kind == "*" || kind == "&") {
      const char* access = kind == "*" ? "readonly" : "readwrite";
      text += element("MEM_INPUT", {{"port", name}, {"access", access}});
    } else {
      text += element(kind == "<" ? "OUTPUT" : "INPUT", {{"port", name}, {"width", port.substr(port.find(':') + 1)}});
    }
  }
  for (const std::string& port : split(function.memory, ' ')) {
    const std::vector<std::string> part = split(port, ':');
    text += element(
        "VEYRA_MEM",
        {{"port", part[0]}, {"width", part[1]}, {"burstwidth", part[2]}, {"optype", part[3]}, {"buffer_location", ""}});
  }
  return text;
}

// The element on one line, so that findings are about the line with its number.
std::string function_element(const Function& function, const std::string& model) {
  const std::vector<std::string> timing = split(function.timing, ' ');
  std::string attributes = element("IS_STALL_FREE", {{"value", timing[0]}}) +
                           element("IS_FIXED_LATENCY", {{"value", timing[1]}}) +
                           element("EXPECTED_LATENCY", {{"value", timing[2]}});
  if (timing[3] != "-") {
    attributes += element("CAPACITY", {{"value", timing[3]}});
  }
  if (*function.parameter != '\0') {
    attributes += element("PARAMETER", {{"name", function.parameter}, {"value", function.value}});
  }
  std::string files;
  for (const std::string& file : split(function.files, ' ')) {
    files += element("FILE", {{"name", file}});
  }
  return std::string("<FUNCTION name=\"") + function.name + "\" module=\"" + function.module + "\"><ATTRIBUTES>" +
         attributes + "</ATTRIBUTES><INTERFACE>" + interface_of(function) + "</INTERFACE><C_MODEL>" +
         element("FILE", {{"name", model}}) + "</C_MODEL><REQUIREMENTS>" + files + "</REQUIREMENTS></FUNCTION>\n";
}

constexpr const char* STREAM_PORTS = "left:32 right:16 <product:64";
constexpr const char* BURST_PORTS = "*source &target addend:64 <mixed:64";
constexpr const char* BURST_MEMORY = "load:64:3:read store:64:3:write";

Outcome simulate(std::vector<std::string> words) {
  words.insert(words.begin(), {BFCL_BIN_DIR "/bfcl-component", "simulate"});
  return run(words);
}

class ComponentSimulateTest : public InTempDir {
protected:
  void SetUp() override {
    for (const char* tool : {"verilator", "ghdl", "clang"}) {
      if (run({"/bin/sh", "-c", std::string("command -v ") + tool}).status != 0) {
        GTEST_SKIP() << tool << " is not installed";
      }
    }
    std::filesystem::copy(BFCL_SOURCE_DIR "/tests/data/simulate", "my component");
  }
};

TEST_F(ComponentSimulateTest, CorrectComponentsMatch) {
  const Function functions[] = {
      {"stream", "stream", "stream.v", STREAM_PORTS, "", "no yes 3 -", "", ""},
      {"lanes", "lanes", "lanes_pkg.sv lanes.sv", "left:256 right:256 <sums:256", "", "no yes 0 0", "", ""},
      {"halve", "halve", "halve.v", "pair:64 <halves:64", "", "yes yes 1 -", "", ""},
      {"subtract", "subtract", "subtract.vhd", "left:16 right:16 <difference:16", "", "no yes 1 1", "WIDTH", "16"},
      {"store", "store", "store.v", "&target value:8", "port:32:1:write", "no no 10 4", "", ""},
      {"burst", "burst", "burst.sv", BURST_PORTS, BURST_MEMORY, "no no 30 1", "", ""},
  };
  std::string document = "<EFI_SPEC>\n", expected;
  for (const Function& function : functions) {
    document += function_element(function, "good.cl");
    expected += std::string("my component/good.xml: ") + function.name + ": ok\n";
  }
  write_file("my component/good.xml", document + "</EFI_SPEC>\n");
  Outcome outcome = simulate({"my component/good.xml", "--vectors", "3000"});
  for (std::size_t at = 0; (at = outcome.out.find(": ok, ", at)) != std::string::npos;) {
    outcome.out.erase(at + 4, outcome.out.find('\n', at) - at - 4);
  }
  EXPECT_EQ(outcome.out, expected) << outcome.err;
  EXPECT_EQ(outcome.status, 0);
}

// A fault of stream.v or burst.sv, and the rules that find it, in their order.
struct Fault {
  const char* module;
  const char* fault;
  const char* rules;
};

constexpr Fault FAULTS[] = {
    {"stream", "valid not reset", "reset"},
    {"stream", "state not reset", "result"},
    {"stream", "stage too many", "capacity latency"},
    {"stream", "accepts when full", "capacity result"},
    {"stream", "data changes", "handshake"},
    {"stream", "ovalid falls", "handshake"},
    {"stream", "loses a word", "result"},
    {"stream", "invents a word", "result"},
    {"stream", "swap", "result"},
    {"stream", "sign", "result"},
    {"stream", "hang", "handshake"},
    {"stream", "waits for oready", "handshake latency"},
    {"burst", "byte lanes", "memory"},
    {"burst", "short write burst", "memory"},
    {"burst", "address changes", "memory"},
    {"burst", "ignores readdatavalid", "result"},
    {"burst", "waits for waitrequest", "handshake"},
    {"burst", "reads after reset", "memory reset"},
};

// The rules of the findings of each line, in their order: "2: reset result\n3: result\n".
std::string rules_by_line(const std::string& output) {
  std::string text, last;
  for (const std::string& line : split(output, '\n')) {
    const std::string number = split(line, ':')[1];
    const std::string rule = line.substr(line.rfind('[') + 1);
    text += number == last ? " " : (last.empty() ? "" : "\n") + number + ": ";
    text += rule.substr(0, rule.find(']'));
    last = number;
  }
  return text + "\n";
}

// Simulates all faults of a module in one run.
void expect_faults_found(const std::string& module) {
  const std::string good = read_file("my component/good.cl");
  std::string document = "<EFI_SPEC>\n", expected;
  unsigned line = 1;
  for (const Fault& fault : FAULTS) {
    if (fault.module != module) {
      continue;
    }
    const std::string name = module + std::to_string(++line);
    const std::string value = "&quot;" + std::string(fault.fault) + "&quot;";
    const Function function = module == "stream" ? Function{name.c_str(), "stream",     "stream.v", STREAM_PORTS,
                                                            "",           "no yes 3 3", "FAULT",    value.c_str()}
                                                 : Function{name.c_str(), "burst",      "burst.sv", BURST_PORTS,
                                                            BURST_MEMORY, "no no 30 1", "FAULT",    value.c_str()};
    document += function_element(function, name + ".cl");
    expected += std::to_string(line) + ": " + fault.rules + "\n";
    write_file("my component/" + name + ".cl", replaced(good, module + "(", name + "("));
  }
  write_file("my component/bad.xml", document + "</EFI_SPEC>\n");
  const Outcome outcome = simulate({"my component/bad.xml", "--vectors", "3000"});
  EXPECT_EQ(rules_by_line(outcome.out), expected) << outcome.out << outcome.err;
  EXPECT_EQ(outcome.status, 1);
}

// The models are right only within the ranges.
TEST_F(ComponentSimulateTest, InputsStayInTheirRanges) {
  write_file("my component/narrow.cl", "short subtract(short left, short right) {\n"
                                       "  return clamp(left, (short)-100, (short)9) - (right == 7 ? 7 : 0);\n}\n"
                                       "float2 halve(float2 pair) { return clamp(pair, 2.0f, 7.0f) * -0.5f; }\n");
  const Function halve = {"halve", "halve", "halve.v", "pair:64 <halves:64", "", "yes yes 1 -", "", ""};
  const Function subtract = {"subtract", "subtract",   "subtract.vhd", "left:16 right:16 <difference:16",
                             "",         "no yes 1 1", "WIDTH",        "16"};
  write_file("my component/narrow.xml", "<EFI_SPEC>\n" + function_element(halve, "narrow.cl") +
                                            function_element(subtract, "narrow.cl") + "</EFI_SPEC>\n");
  const Outcome outcome =
      simulate({"my component/narrow.xml", "--range", "left=-100:9", "--range", "right=7:7", "--range", "pair=2:7"});
  EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
}

TEST_F(ComponentSimulateTest, FaultsOfAPipelineAreFound) {
  expect_faults_found("stream");
}

TEST_F(ComponentSimulateTest, FaultsOfMemoryPortsAreFound) {
  expect_faults_found("burst");
}

} // namespace
