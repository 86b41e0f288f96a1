// SPDX-License-Identifier: BSD-3-Clause

// A register for a ready/valid stream that also registers the ready path. One spare register
// takes the word that arrives in the clock in which the output stalls. A chain of these has no long
// combinational path backwards and still moves a word every clock.
module skid_buffer #(
  parameter WIDTH = 8
) (
  input  wire             clock,
  input  wire             resetn,
  input  wire             ivalid,
  output wire             iready,
  input  wire [WIDTH-1:0] idata,
  output reg              ovalid,
  input  wire             oready,
  output reg  [WIDTH-1:0] odata
);
  reg             spare_full;
  reg [WIDTH-1:0] spare;

  wire advance = oready || !ovalid;

  assign iready = !spare_full;

  always @(posedge clock)
    if (!resetn) begin
      ovalid     <= 1'b0;
      spare_full <= 1'b0;
    end else if (advance) begin
      ovalid     <= ivalid || spare_full;
      spare_full <= 1'b0;
    end else if (ivalid)
      spare_full <= 1'b1;

  always @(posedge clock) begin
    if (advance)
      odata <= spare_full ? spare : idata;
    if (iready)
      spare <= idata;
  end
endmodule
