// SPDX-License-Identifier: BSD-3-Clause

// Takes two vectors of eight unsigned bytes and picks, lane by lane, the smaller byte or, with
// KEEP_GREATER, the greater one.
module minmax #(
  parameter [0:0] KEEP_GREATER = 1'b0
) (
  input  wire        clock,
  input  wire        resetn,
  input  wire        ivalid,
  output wire        iready,
  output wire        ovalid,
  input  wire        oready,
  input  wire [63:0] left,
  input  wire [63:0] right,
  output wire [63:0] picked
);
  wire [63:0] choice;

  genvar lane;
  generate
    for (lane = 0; lane < 8; lane = lane + 1) begin : lanes
      wire [7:0] l = left[8 * lane +: 8];
      wire [7:0] r = right[8 * lane +: 8];
      assign choice[8 * lane +: 8] = ((l > r) == KEEP_GREATER) ? l : r;
    end
  endgenerate

  skid_buffer #(.WIDTH(64)) out (
    .clock (clock),
    .resetn(resetn),
    .ivalid(ivalid),
    .iready(iready),
    .idata (choice),
    .ovalid(ovalid),
    .oready(oready),
    .odata (picked)
  );
endmodule
