// SPDX-License-Identifier: BSD-3-Clause
#pragma once

// The attributes that elements of a component specification must have.

namespace vex::efi::xml {

// An attribute that an element must have. When it is absent, a second report follows the one that
// says so: `msg`, on the attribute called `label`.
struct RequiredAttribute {
  const char* name;
  const char* label;
  const char* msg;
};

inline constexpr RequiredAttribute FUNCTION_NAME = {"name", "function_name",
                                                    "Unsupported function_name string."};
inline constexpr RequiredAttribute MODULE_NAME = {"module", "module_name",
                                                  "Unsupported module_name string."};
inline constexpr RequiredAttribute NAME = {"name", "name", "Unsupported name string."};
inline constexpr RequiredAttribute VALUE = {"value", "value", "Unsupported value string."};
inline constexpr RequiredAttribute PORT = {"port", "port", "Unsupported port string."};
inline constexpr RequiredAttribute TYPE = {"type", "type", "Unsupported type string."};
inline constexpr RequiredAttribute ACCESS = {"access", "access", "Unsupported access string."};
inline constexpr RequiredAttribute WIDTH = {"width", "width", "Unsupported width string."};
inline constexpr RequiredAttribute BURSTWIDTH = {"burstwidth", "burstwidth", WIDTH.msg};
inline constexpr RequiredAttribute OPTYPE = {"optype", "optype", "Unsupported optype string."};
inline constexpr RequiredAttribute BUFFER_LOCATION = {"buffer_location", "buffer_location",
                                                      "Unsupported buffer_location string."};

} // namespace vex::efi::xml
