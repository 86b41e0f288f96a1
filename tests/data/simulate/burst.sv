// SPDX-License-Identifier: BSD-3-Clause

// Reads a burst of four words, adds an addend to each, writes them as a burst, and returns their
// exclusive or; one call at a time. With the fault that FAULT names, if any.
module burst #(
  parameter FAULT = "none"
) (
  input  logic         clock, resetn, ivalid, oready,
  output logic         iready, ovalid,
  input  logic [63:0]  source, target,
  input  logic [63:0]  addend,
  output logic [63:0]  mixed,
  output logic         load_read,
  output logic [63:0]  load_address,
  output logic [2:0]   load_burstcount,
  input  logic         load_waitrequest, load_readdatavalid,
  input  logic [63:0]  load_readdata,
  output logic         store_write,
  output logic [63:0]  store_address, store_writedata,
  output logic [7:0]   store_byteenable,
  output logic [2:0]   store_burstcount,
  input  logic         store_waitrequest, store_writeack
);
  typedef enum logic [2:0] {IDLE, ASK, FETCH, WRITE, ACK, GIVE} state_t;
  state_t state;
  logic [3:0][63:0] words;
  logic [1:0] index;
  logic [63:0] from, to, number;
  localparam logic [1:0] LAST = FAULT == "short write burst" ? 2'd2 : 2'd3;

  assign iready = state == IDLE;
  assign ovalid = state == GIVE;
  assign mixed = words[0] ^ words[1] ^ words[2] ^ words[3];
  assign load_read = (state == ASK && (!load_waitrequest || FAULT != "waits for waitrequest")) || (FAULT == "reads after reset" && state == IDLE);
  assign load_address = from;
  assign load_burstcount = 3'd4;
  assign store_write = state == WRITE;
  assign store_address = to;
  assign store_writedata = words[index];
  assign store_byteenable = FAULT == "byte lanes" ? 8'h7F : 8'hFF;
  assign store_burstcount = 3'd4;

  always_ff @(posedge clock)
    if (!resetn) begin
      state <= IDLE;
      index <= 0;
    end else
      case (state)
        IDLE: if (ivalid) begin
          {from, to, number} <= {source, target, addend};
          state <= ASK;
        end
        ASK:
          if (!load_waitrequest) state <= FETCH;
          else if (FAULT == "address changes") from <= from + 8;
        FETCH: if (load_readdatavalid || FAULT == "ignores readdatavalid") begin
          words[index] <= load_readdata + number;
          index <= index + 1'b1;
          if (index == 3) state <= WRITE;
        end
        WRITE:
          if (!store_waitrequest) begin
            index <= index == LAST ? 2'd0 : index + 1'b1;
            if (index == LAST) state <= ACK;
          end
        ACK: if (store_writeack) state <= GIVE;
        GIVE: if (oready) state <= IDLE;
        default: state <= IDLE;
      endcase
endmodule
