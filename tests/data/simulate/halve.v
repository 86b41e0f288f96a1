// SPDX-License-Identifier: BSD-3-Clause

// Multiplies two pairs of floating numbers by -0.5, in one clock. Stall-free.
module halve (clock, resetn, ivalid, iready, ovalid, oready, pair, halves);
  input clock, resetn, ivalid, oready;
  input [63:0] pair;
  output iready;
  output reg ovalid;
  output reg [63:0] halves;
  assign iready = 1;

  function [31:0] halve(input [31:0] f);
    reg [23:0] fraction;
    begin
      fraction = {f[30:23] > 1, f[22:0]};
      case (f[30:23])
        8'd0, 8'd1: begin // the result is a denormal: round to even
          fraction = {f[30:23] == 1, f[22:0]};
          halve = {!f[31], 8'd0, 23'd0} | ((fraction >> 1) + (fraction[0] & fraction[1]));
        end
        8'd255: halve = {!f[31], 8'd255, f[22:0]}; // a NaN keeps its bits, whatever its sign
        default: halve = {!f[31], f[30:23] - 8'd1, f[22:0]};
      endcase
    end
  endfunction

  always @(posedge clock) begin
    ovalid <= #1 resetn & ivalid;
    halves <= #1 {halve(pair[63:32]), halve(pair[31:0])};
  end
endmodule
