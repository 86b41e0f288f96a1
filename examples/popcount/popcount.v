// SPDX-License-Identifier: BSD-3-Clause

// Counts the ones of a 64-bit word: takes a word every clock, returns its count three clocks later.
//
// Stall-free: the surrounding pipeline keeps room for the words in flight, so iready is always high
// and oready is ignored.
module popcount (
  input  wire        clock,
  input  wire        resetn,
  input  wire        ivalid,
  output wire        iready,
  output wire        ovalid,
  input  wire        oready,
  input  wire [63:0] word,
  output wire [31:0] ones
);
  function [3:0] ones_of_byte(input [7:0] bits);
    integer i;
    begin
      ones_of_byte = 4'd0;
      for (i = 0; i < 8; i = i + 1)
        ones_of_byte = ones_of_byte + {3'd0, bits[i]};
    end
  endfunction

  function [5:0] sum_of_four(input [15:0] counts);
    sum_of_four = {2'd0, counts[3:0]} + {2'd0, counts[7:4]}
                + {2'd0, counts[11:8]} + {2'd0, counts[15:12]};
  endfunction

  reg [2:0]  valid;
  reg [31:0] per_byte;  // eight counts of 0 to 8
  reg [5:0]  low_half;  // 0 to 32 each
  reg [5:0]  high_half;
  reg [6:0]  total;

  // Only the valid bits need a reset: data without its valid bit is never read.
  always @(posedge clock)
    valid <= resetn ? {valid[1:0], ivalid} : 3'd0;

  integer lane;
  always @(posedge clock) begin
    for (lane = 0; lane < 8; lane = lane + 1)
      per_byte[4 * lane +: 4] <= ones_of_byte(word[8 * lane +: 8]);
    low_half  <= sum_of_four(per_byte[15:0]);
    high_half <= sum_of_four(per_byte[31:16]);
    total     <= {1'b0, low_half} + {1'b0, high_half};
  end

  assign iready = 1'b1;
  assign ovalid = valid[2];
  assign ones   = {25'd0, total};

  wire _unused = oready;
endmodule
