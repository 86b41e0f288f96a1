// SPDX-License-Identifier: BSD-3-Clause
package lanes_pkg;
  typedef struct packed {
    logic [3:0][63:0] lane;
  } lanes_t;
endpackage
