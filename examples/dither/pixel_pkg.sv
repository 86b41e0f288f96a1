// SPDX-License-Identifier: BSD-3-Clause

// Pixels, and the ways to make them smaller.
package pixel_pkg;
  typedef struct packed {
    logic [7:0] unused;
    logic [7:0] red;
    logic [7:0] green;
    logic [7:0] blue;
  } rgbx8888_t;

  typedef struct packed {
    logic [4:0] red;
    logic [5:0] green;
    logic [4:0] blue;
  } rgb565_t;

  // Every other value truncates too.
  typedef enum logic [7:0] {
    TRUNCATE = 8'd0,
    NEAREST  = 8'd1,
    ORDERED  = 8'd2
  } rounding_t;

  function automatic logic [7:0] add_saturated(logic [7:0] channel, logic [7:0] amount);
    logic [8:0] sum;
    sum = {1'b0, channel} + {1'b0, amount};
    add_saturated = sum[8] ? 8'hFF : sum[7:0];
  endfunction
endpackage
