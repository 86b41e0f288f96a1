// SPDX-License-Identifier: BSD-3-Clause

// Writes one byte of a word and gives no result. The next write does not wait for the last one.
module store (
  input             clock, resetn, ivalid, oready,
  output            iready, ovalid,
  input      [63:0] target,
  input      [7:0]  value,
  output reg        port_write,
  output reg [63:0] port_address,
  output     [31:0] port_writedata,
  output     [3:0]  port_byteenable,
  output            port_burstcount,
  input             port_waitrequest, port_writeack
);
  reg [2:0] owed; // acknowledgements, and then results
  reg [2:0] done;
  reg [7:0] data;
  wire take = ivalid && iready;
  assign iready = (!port_write || !port_waitrequest) && owed + done < 4;
  assign ovalid = done != 0;
  assign port_writedata = {24'd0, data};
  assign port_byteenable = 4'b0001;
  assign port_burstcount = 1;
  always @(posedge clock)
    if (!resetn) begin
      port_write <= 0;
      owed <= 0;
      done <= 0;
    end else begin
      if (take) {port_address, data} <= {target, value};
      port_write <= take || (port_write && port_waitrequest);
      owed <= owed + take - port_writeack;
      done <= done + port_writeack - (ovalid && oready);
    end
endmodule
