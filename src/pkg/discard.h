// SPDX-License-Identifier: BSD-3-Clause
#pragma once

struct vex_pkg_file;

namespace vex::pkg {

// Closes a package without writing it: its file stays as it is. Null is ignored.
void discard(vex_pkg_file* pkg);

} // namespace vex::pkg
