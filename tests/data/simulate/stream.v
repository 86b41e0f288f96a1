// SPDX-License-Identifier: BSD-3-Clause

// Multiplies two signed numbers in STAGES clocks, with the fault that FAULT names, if any.
module stream #(
  parameter FAULT = "none"
) (
  input  wire               clock,
  input  wire               resetn,
  input  wire               ivalid,
  output wire               iready,
  output wire               ovalid,
  input  wire               oready,
  input  wire signed [31:0] left,
  input  wire signed [15:0] right,
  output wire        [63:0] product
);
  localparam STAGES = FAULT == "stage too many" ? 4 : 3;

  reg [STAGES-1:0]    valid;
  reg [64*STAGES-1:0] data;
  reg [15:0]          count; // of words taken
  reg                 stalled, odd;
  reg signed [31:0]   left_before;

  wire advance = oready || !valid[STAGES-1];
  wire hang = FAULT == "hang" && count == 99;
  wire take = ivalid && iready;

  wire signed [31:0] first = FAULT == "swap" && count[5:1] == 9 ? left_before : left;
  wire signed [16:0] second = FAULT == "sign" ? {1'b0, right} : {right[15], right};
  wire signed [63:0] exact = first * second;
  wire        [63:0] result = exact ^ (FAULT == "state not reset" && odd);
  wire first_valid = FAULT == "loses a word" ? take && !stalled
                   : FAULT == "invents a word" ? take || (count == 99 && !stalled)
                   : take;

  always @(posedge clock) begin
    if (!resetn && FAULT != "valid not reset") valid <= 0;
    else if (advance) valid <= {valid, first_valid};
    else if (FAULT == "ovalid falls") valid[STAGES-1] <= count[3:0] != 5;
    if (advance || FAULT == "data changes") data <= {data, result};
    if (!resetn) count <= 0;
    else if (take) count <= count + 1'b1;
    left_before <= left;
    if (take) odd <= !odd;
    stalled <= !advance;
  end

  assign iready  = (FAULT == "accepts when full" || advance) && !hang;
  assign ovalid  = valid[STAGES-1] && (oready || FAULT != "waits for oready");
  assign product = data[64*STAGES-1 -: 64];
endmodule
