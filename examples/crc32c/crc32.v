// SPDX-License-Identifier: BSD-3-Clause

// Folds a 32-bit word, lowest byte first, into a running 32-bit CRC.
//
// Stallable, with a fixed latency of STAGES clocks: one enable moves the whole pipeline. While the
// last stage contains a result that is not taken, no stage moves.
module crc32 #(
  parameter [31:0] POLYNOMIAL = 32'hEDB88320, // bit-reversed: bit 31 is x^0
  parameter        STAGES     = 2             // must divide 32
) (
  input  wire        clock,
  input  wire        resetn,
  input  wire        ivalid,
  output wire        iready,
  output wire        ovalid,
  input  wire        oready,
  input  wire [31:0] crc,
  input  wire [31:0] word,
  output wire [31:0] next_crc
);
  localparam BITS_PER_STAGE = 32 / STAGES;

  function [31:0] fold(input [31:0] remainder);
    integer i;
    begin
      fold = remainder;
      for (i = 0; i < BITS_PER_STAGE; i = i + 1)
        fold = {1'b0, fold[31:1]} ^ (fold[0] ? POLYNOMIAL : 32'd0);
    end
  endfunction

  reg [STAGES-1:0]    valid;
  reg [32*STAGES-1:0] remainder;

  // Every stage and the one before it. The division is linear: the first stage takes the whole word,
  // and the stages contain only the remainder.
  wire [STAGES:0]          valid_chain     = {valid, ivalid};
  wire [32*(STAGES+1)-1:0] remainder_chain = {remainder, crc ^ word};

  wire advance = oready || !ovalid;

  always @(posedge clock)
    if (!resetn)
      valid <= {STAGES{1'b0}};
    else if (advance)
      valid <= valid_chain[STAGES-1:0];

  integer s;
  always @(posedge clock)
    if (advance)
      for (s = 0; s < STAGES; s = s + 1)
        remainder[32 * s +: 32] <= fold(remainder_chain[32 * s +: 32]);

  assign iready   = advance;
  assign ovalid   = valid_chain[STAGES];
  assign next_crc = remainder_chain[32 * STAGES +: 32];
endmodule
