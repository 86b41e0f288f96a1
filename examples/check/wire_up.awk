# SPDX-License-Identifier: BSD-3-Clause
#
# Turns a component specification into what a check of its components needs. For each function it
# makes a directory below `work` with
#   sources        the HDL files, one a line
#   lint           verilator's arguments, one a line
#   settings.svh   widths and timing for the test bench
#   wiring.svh     the component and its memories, connected to the test bench
#   model.h        the C models and how to call the function
# File names are resolved against `base`, the directory of the specification.
#
# Reads the specifications beside it, which keep to one element a line, and not all of XML.

function attribute(name) {
  if (!match($0, "[ \t]" name "=\"[^\"]*\"")) {
    print FILENAME ":" FNR ": no attribute " name > "/dev/stderr"
    exit bad = 1
  }
  return substr($0, RSTART + length(name) + 3, RLENGTH - length(name) - 4)
}

function join(list, item) { return list (list == "" ? "" : ", ") item }

function connect(port, signal) { ports = join(ports, "." port "(" signal ")") }

function yes(value) { return tolower(value) == "yes" ? 1 : 0 }

function add_input(port, bits, access) {
  connect(port, "in[" in_width " +: " bits "]")
  in_width += bits
  inputs = join(inputs, "{" access ", " bits "}")
  return "(a)[" input_count++ "]"
}

function add_scalar(port, bits) { arguments = join(arguments, add_input(port, bits, "SCALAR")) }

function add_pointer(port, access) {
  arguments = join(arguments, "(void *)(memory + " add_input(port, 64, access) ")")
}

function add_memory(port, width, burst, optype,    signals, count, i, connections) {
  count = split("waitrequest address burstcount read readdata readdatavalid " \
                "write writedata byteenable writeack", signals)
  for (i = 1; i <= count; ++i) {
    connections = connections ", ." signals[i] "(" port "_" signals[i] ")"
    if (i <= 3 || (optype == "read") == (i <= 6))
      connect(port "_" signals[i], port "_" signals[i])
  }
  memories = memories \
    "wire " port "_read, " port "_readdatavalid, " port "_waitrequest;\n" \
    "wire " port "_write, " port "_writeack;\n" \
    "wire [63:0] " port "_address;\n" \
    "wire [" width - 1 ":0] " port "_readdata, " port "_writedata;\n" \
    "wire [" width / 8 - 1 ":0] " port "_byteenable;\n" \
    "wire [" burst - 1 ":0] " port "_burstcount;\n" \
    "memory_port #(" (optype == "write") ", " width ", " burst ") " port \
    " (.clock(clock), .resetn(resetn)" connections ");\n"
}

function save(name, text) {
  printf "%s", text > (work "/" function_name "/" name)
  close(work "/" function_name "/" name)
}

function save_all() {
  system("mkdir -p '" work "/" function_name "'")
  save("sources", sources)
  save("lint", "--top-module\n" module "\n" overrides)
  save("settings.svh", \
    "localparam IN_WIDTH = " in_width ", OUT_WIDTH = " out_width ";\n" \
    "localparam LATENCY = " latency ", CAPACITY = " capacity ";\n" \
    "localparam STALL_FREE = " stall_free ", FIXED_LATENCY = " fixed_latency ";\n")
  save("wiring.svh", memories module " #(" parameters ") component (" ports ");\n")
  save("model.h", models \
    "#define INPUTS {" inputs "}\n" \
    "#define RESULT_BITS " out_width "\n" \
    "#define CALL(a) " function_name "(" arguments ")\n")
}

/<FUNCTION / {
  function_name = attribute("name")
  module = attribute("module")
  in_width = input_count = stall_free = fixed_latency = capacity = 0
  sources = models = parameters = overrides = ports = inputs = arguments = memories = ""
}
/<IS_STALL_FREE /    { stall_free = yes(attribute("value")) }
/<IS_FIXED_LATENCY / { fixed_latency = yes(attribute("value")) }
/<EXPECTED_LATENCY / { latency = attribute("value") }
/<CAPACITY /         { capacity = attribute("value") }
/<PARAMETER / {
  parameters = join(parameters, "." attribute("name") "(" attribute("value") ")")
  overrides = overrides "-G" attribute("name") "=" attribute("value") "\n"
}
/<VEYRA /     { connect(attribute("port"), attribute("type")) }
/<INPUT /     { add_scalar(attribute("port"), attribute("width")) }
/<MEM_INPUT / { add_pointer(attribute("port"), toupper(attribute("access"))) }
/<OUTPUT /    { connect(attribute("port"), "out"); out_width = attribute("width") }
/<VEYRA_MEM / {
  add_memory(attribute("port"), attribute("width"), attribute("burstwidth"), attribute("optype"))
}
/<C_MODEL>/      { in_models = 1 }
/<REQUIREMENTS>/ { in_models = 0 }
/<FILE / {
  file = base "/" attribute("name")
  if (in_models)
    models = models "#include \"" file "\"\n"
  else
    sources = sources file "\n"
}
/<\/FUNCTION>/ { save_all() }
END { exit bad }
