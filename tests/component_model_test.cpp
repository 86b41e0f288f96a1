// SPDX-License-Identifier: BSD-3-Clause
#include "component_exe/check_model.h"
#include "support.h"

#include "component_exe/process.h"

#include <sstream>

namespace bfcl::component {
namespace {

// The INTERFACE that a row needs: words "NAME:WIDTH" for INPUT, "NAME:r" and "NAME:rw" for
// MEM_INPUT and "=WIDTH" for OUTPUT.
std::string make_interface(const std::string& ports) {
  std::string xml;
  std::istringstream words(ports);
  for (std::string word; words >> word;) {
    const std::size_t colon = word.find(':');
    const std::string name = word.substr(0, colon);
    const std::string type = word.substr(colon + 1);
    if (word[0] == '=') {
      xml += "<OUTPUT port=\"o\" width=\"" + word.substr(1) + "\"/>\n";
    } else if (type == "r" || type == "rw") {
      const std::string access = type == "r" ? "readonly" : "readwrite";
      xml += "<MEM_INPUT port=\"" + name + "\" access=\"" + access + "\"/>\n";
    } else {
      xml += "<INPUT port=\"" + name + "\" width=\"" + type + "\"/>\n";
    }
  }
  const std::string memory = "<VEYRA_MEM port=\"m\" width=\"32\" burstwidth=\"1\" optype=\"write\" "
                             "buffer_location=\"\"/>\n";
  return xml + (ports.find(":rw") != std::string::npos ? memory : "");
}

// A description of the function "f", whose INTERFACE begins in line 2 and whose ports follow in
// line 3; and a source that contains every name.
std::string make_spec(const std::string& ports, const std::string& models) {
  std::string xml = "<EFI_SPEC><FUNCTION name=\"f\" module=\"f\">\n<INTERFACE>\n";
  xml += make_interface(ports);
  for (const char* signal : {"clock", "resetn", "ivalid", "iready", "ovalid", "oready"}) {
    xml += std::string("<VEYRA port=\"") + signal + "\" type=\"" + signal + "\"/>";
  }
  return xml + "</INTERFACE>\n<C_MODEL>" + models +
         "</C_MODEL><REQUIREMENTS><FILE name=\"f.v\"/></REQUIREMENTS>\n</FUNCTION></EFI_SPEC>\n";
}

// The findings of the model rules, one a line, and the problems.
std::string check(const std::string& spec) {
  write_file("f.v", "f clock resetn ivalid iready ovalid oready o m a b c p q\n");
  write_file("my specs/f.v", read_file("f.v"));
  write_file(spec == "f.xml" ? "f.xml" : "my specs/f.xml", read_file("f.xml"));
  Description description;
  if (!load_description(spec, description)) {
    return "not loaded";
  }
  Report report;
  check_model(description, 0, report);
  return capture([&] { report.print(); }).out;
}

struct Row {
  const char* name;
  const char* ports;
  const char* model;
  const char* expected;
};

constexpr const char* STRUCT_MODEL = R"(typedef struct { uchar tag; uint value; } pair_t;
enum kind { ONE, TWO };
struct three { uchar b[3]; };
pair_t f(struct three a, enum kind b, pair_t c) { return c; })";

// What is allowed.
const Row GOOD[] = {
    {"scalars", "a:8 b:16 c:64 =32", "uint f(char a, ushort b, double c) { return 1; }", ""},
    {"bool_and_size", "a:8 b:64 =64", "size_t f(bool a, ptrdiff_t b) { return 1; }", ""},
    {"vectors", "a:128 b:1024 =64", "float2 f(uint4 a, double16 b) { return (float2)(1, 2); }", ""},
    {"three_elements_padded", "a:32 b:128 =64", "ushort3 f(char3 a, int3 b) { return 1; }", ""},
    {"three_elements_packed", "a:24 b:96 =48", "ushort3 f(char3 a, int3 b) { return 1; }", ""},
    {"structs_and_enums", "a:24 b:32 c:64 =64", STRUCT_MODEL, ""},
    {"typedefs", "a:32 p:r",
     "typedef uint word; typedef word w4; typedef const word cw;\n"
     "void f(w4 a, global cw *p) {}",
     ""},
    {"pointer_typedef", "p:r q:rw",
     "typedef global const uint *in; typedef global int *out;\n"
     "void f(in p, out q) {}",
     ""},
    {"address_spaces", "a:r b:r c:rw q:rw =8",
     "uchar f(constant int *a, const __global int *b, int *c, global int q[4]) { return 0; }", ""},
    {"prototype_first", "a:32 =32", "uint f(uint);\nuint f(uint x) { return x; }", ""},
    {"static_inline", "a:32 =32", "static inline uint f(uint a) { return a; }", ""},
    {"overloaded", "a:32 =32",
     "float __attribute__((overloadable)) f(float2 x) { return x.x; }\n"
     "uint __attribute__((overloadable)) f(uint x) { return x; }",
     ""},
    {"made_by_a_macro", "a:32 =32", "#define MAKE(n) uint n(uint a) { return a; }\nMAKE(f)", ""},
    {"inactive_include", "a:32 =32", "#if 0\n#include \"x.h\"\n#endif\nuint f(uint a) { return a; }", ""},
    {"version_3", "a:32 =32",
     "#if __OPENCL_C_VERSION__ < 300\n#error old\n#endif\n"
     "uint f(uint a) { return a; }",
     ""},
    {"version_1", "p:rw",
     "#if __OPENCL_C_VERSION__ > 120\n#error new\n#endif\n"
     "void f(uint *p) {}",
     ""},
    {"built_in_functions", "a:32 =32", "uint f(uint a) { return popcount(a) + (uint)sqrt(2.0f); }", ""},
};

const Row FAULTS[] = {
    {"narrow", "a:32 =32", "uint f(\n  ushort a)\n{ return a; }",
     "f.cl:2: error: argument 1 'a' is 'ushort' of 16 bits, but INPUT 'a' (f.xml:3) has 32 bits "
     "[model-type]\n"},
    {"three_elements", "a:24 =32", "uint f(short3 a) { return 1; }",
     "f.cl:1: error: argument 1 'a' is 'short3' of 64 bits, but INPUT 'a' (f.xml:3) has 24 bits "
     "[model-type]\n"},
    {"pointer_for_value", "a:64", "void f(global int *a) {}",
     "f.cl:1: error: argument 1 'a' is the pointer '__global int *', but INPUT 'a' (f.xml:3) is no "
     "MEM_INPUT [model-type]\n"},
    {"value_for_pointer", "p:r", "void f(ulong p) {}",
     "f.cl:1: error: argument 1 'p' is 'ulong' of 64 bits, but MEM_INPUT 'p' (f.xml:3) takes a "
     "pointer [model-type]\n"},
    {"own_memory", "p:rw q:rw", "void f(local int *p, __private int *q) {}",
     "f.cl:1: error: argument 1 'p' is the pointer '__local int *', but MEM_INPUT 'p' (f.xml:3) "
     "takes one to global memory [model-type]\n"
     "f.cl:1: error: argument 2 'q' is the pointer '__private int *', but MEM_INPUT 'q' (f.xml:4) "
     "takes one to global memory [model-type]\n"},
    {"access", "p:r q:rw", "void f(global uint *p, global const uint *q) {}",
     "f.cl:1: error: argument 1 'p' is the pointer '__global uint *', not to const, but MEM_INPUT "
     "'p' (f.xml:3) is readonly [model-type]\n"
     "f.cl:1: error: argument 2 'q' is the pointer 'const __global uint *', to const, but MEM_INPUT "
     "'q' (f.xml:4) is readwrite [model-type]\n"},
    {"too_few", "a:32 b:8 =32", "\nuint f(uint a) { return a; }",
     "f.cl:2: error: 'f' takes 1 argument, but the component has 2 inputs, the last of them INPUT "
     "'b' (f.xml:4) [model-arguments]\n"},
    {"none", "a:32 =32", "uint f(void) { return 1; }",
     "f.cl:1: error: 'f' takes 0 arguments, but the component has 1 input, the last of them INPUT "
     "'a' (f.xml:3) [model-arguments]\n"},
    {"swapped", "a:32 b:32 =32", "uint f(uint b, uint a) { return a; }",
     "f.cl:1: error: 'f' names its arguments as the inputs (f.xml:2), but in another order "
     "[model-arguments]\n"},
    {"wide_result", "a:32 =32", "#define R ulong\nR f(uint a) { return a; }",
     "f.cl:2: error: 'f' returns 'ulong' of 64 bits, but OUTPUT 'o' (f.xml:4) has 32 bits "
     "[model-result]\n"},
    {"no_result", "a:32 =32", "void f(uint a) {}",
     "f.cl:1: error: 'f' returns nothing, but the component has the OUTPUT 'o' (f.xml:4) "
     "[model-result]\n"},
    {"no_output", "a:32", "uint f(uint a) { return a; }",
     "f.cl:1: error: 'f' returns 'uint', but the component has no OUTPUT [model-result]\n"},
    {"overloads_that_do_not_fit", "a:32 =32",
     "float2 __attribute__((overloadable)) f(float2 x) { return x; }\n"
     "uint __attribute__((overloadable)) f(uchar x) { return x; }",
     "f.cl:2: error: argument 1 'x' is 'uchar' of 8 bits, but INPUT 'a' (f.xml:3) has 32 bits "
     "[model-type]\n"},
    {"prototype_only", "a:32 =32", "\nuint f(uint a);",
     "f.cl:2: error: 'f' is declared here, but no C model defines it [model-missing]\n"},
    {"other_name", "a:32 =32", "\nuint f2(uint a) { return a; }",
     "f.cl:2: error: no C model defines 'f'; did you mean 'f2'? [model-missing]\n"},
    {"other_letter", "a:32 =32", "// half\nuint g(uint a) { return a / 2; }",
     "f.cl:2: error: no C model defines 'f'; did you mean 'g'? [model-missing]\n"},
    {"in_a_comment", "a:32 =32", "int g;\n// f is not here",
     "f.cl:2: error: no C model defines a function 'f' [model-missing]\n"},
    {"include", "a:32 =32", "\n#include \"f.h\"\nuint f(uint a) { return a + X; }",
     "f.cl:2: error: the C model includes a file, which a library does not keep for it; put the "
     "text of that file into the model [model-include]\n"},
    {"missing_include", "a:32 =32", "\n#include \"g.h\"\nuint f(uint a) { return a; }",
     "f.cl:2: error: 'g.h' file not found; a C model cannot include files, since a library does "
     "not keep them [model-include]\n"},
    {"no_return", "a:32 =32", "uint f(uint a)\n{\n  a += 1;\n}",
     "f.cl:4: error: non-void function does not return a value [model]\n"},
    {"empty", "a:32 =32", "uint f(uint a)\n{\n  // {\n}",
     "f.cl:4: warning: the body is empty: write what the component computes [model]\n"},
    {"empty_and_wrong", "a:16 =32", "uint f(uint a) {}",
     "f.cl:1: error: argument 1 'a' is 'uint' of 32 bits, but INPUT 'a' (f.xml:3) has 16 bits "
     "[model-type]\n"
     "f.cl:1: warning: the body is empty: write what the component computes [model]\n"},
    {"does_not_compile", "a:32 =16", "uint f(uint a)\n{ return b; }",
     "f.cl:1: error: 'f' returns 'uint' of 32 bits, but OUTPUT 'o' (f.xml:4) has 16 bits [model-result]\n"
     "f.cl:2: error: use of undeclared identifier 'b' [model]\n"},
    {"unknown_type", "a:32 =32", "uint f(word a)\n{ return a; }", "f.cl:1: error: unknown type name 'word' [model]\n"},
};

class ModelTest : public InTempDir {
protected:
  void SetUp() override {
    if (!run_tool({"clang", "--version"}, "").ok()) {
      GTEST_SKIP() << "clang is not installed";
    }
  }
};

template <typename Rows>
void check_rows(const Rows& rows) {
  write_file("f.h", "#define X 1\n");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    write_file("f.cl", row.model);
    write_file("f.xml", make_spec(row.ports, "<FILE name=\"f.cl\"/>"));
    EXPECT_EQ(check("f.xml"), row.expected);
  }
}

TEST_F(ModelTest, AcceptsWhatAgrees) {
  check_rows(GOOD);
}

TEST_F(ModelTest, NamesEachDifference) {
  check_rows(FAULTS);
}

TEST_F(ModelTest, ReadsSeveralModelsOfAnyExtensionAndName) {
  std::filesystem::create_directory("my specs");
  write_file("my specs/a \"b\".h", "uint helper(uint a);\n");
  write_file("my specs/f.c", "uint f(uint4 a) { return a.x; }\n");
  write_file("f.xml", make_spec("a:128 =32", "<FILE name='a \"b\".h'/><FILE name=\"f.c\"/>"));
  EXPECT_EQ(check("my specs/f.xml"), "");
  write_file("my specs/a \"b\".h", "#include \"../f.h\"\nuint f(uint4 b) { return X; }\n");
  write_file("f.h", "#define X 1\n");
  EXPECT_EQ(check("my specs/f.xml"),
            "my specs/a \"b\".h:1: error: the C model includes a file, which a library does not "
            "keep for it; put the text of that file into the model [model-include]\n"
            "my specs/f.c:1: error: 'f' is defined in my specs/a \"b\".h:2 too [model]\n");
}

} // namespace
} // namespace bfcl::component
