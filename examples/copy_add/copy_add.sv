// SPDX-License-Identifier: BSD-3-Clause

// Reads a word at source, adds addend, writes the sum to target and returns it.
//
// Up to SLOTS items are in flight. Each owns one slot of a ring from the moment it is taken until
// its sum is returned, and passes the six steps below in order. One counter per step says how many
// items have passed it; no counter may overtake the one before it:
//
//     taken -> asked -> fetched -> written -> acked -> given -> (slot free again)
//
// Reads run ahead of the writes of earlier items: the two buffers must not overlap.
module copy_add (
  input  logic        clock,
  input  logic        resetn,
  input  logic        ivalid,
  output logic        iready,
  output logic        ovalid,
  input  logic        oready,
  input  logic [63:0] source,
  input  logic [31:0] addend,
  input  logic [63:0] target,
  output logic [31:0] sum,

  output logic        source_mem_read,
  output logic [63:0] source_mem_address,
  output logic [0:0]  source_mem_burstcount,
  input  logic        source_mem_waitrequest,
  input  logic [31:0] source_mem_readdata,
  input  logic        source_mem_readdatavalid,

  output logic        target_mem_write,
  output logic [63:0] target_mem_address,
  output logic [31:0] target_mem_writedata,
  output logic [3:0]  target_mem_byteenable,
  output logic [0:0]  target_mem_burstcount,
  input  logic        target_mem_waitrequest,
  input  logic        target_mem_writeack
);
  localparam SLOTS = 8;
  localparam SLOT_BITS = $clog2(SLOTS);

  // One bit more than a slot number, to distinguish a full ring from an empty one.
  logic [SLOT_BITS:0] taken, asked, fetched, written, acked, given;

  logic [63:0] sources [0:SLOTS-1];
  logic [63:0] targets [0:SLOTS-1];
  logic [31:0] addends [0:SLOTS-1];
  logic [31:0] sums    [0:SLOTS-1];

  // Data from memory cannot be refused; each word has a slot that waits for it.
  assign iready           = (taken ^ given) != {1'b1, {SLOT_BITS{1'b0}}};
  assign source_mem_read  = asked != taken;
  assign target_mem_write = written != fetched;
  assign ovalid           = given != acked;

  wire take = ivalid && iready;

  always_ff @(posedge clock)
    if (!resetn) begin
      taken   <= '0;
      asked   <= '0;
      fetched <= '0;
      written <= '0;
      acked   <= '0;
      given   <= '0;
    end else begin
      if (take)                                        taken   <= taken + 1'b1;
      if (source_mem_read && !source_mem_waitrequest)  asked   <= asked + 1'b1;
      if (source_mem_readdatavalid)                    fetched <= fetched + 1'b1;
      if (target_mem_write && !target_mem_waitrequest) written <= written + 1'b1;
      if (target_mem_writeack)                         acked   <= acked + 1'b1;
      if (ovalid && oready)                            given   <= given + 1'b1;
    end

  always_ff @(posedge clock) begin
    if (take) begin
      sources[taken[SLOT_BITS-1:0]] <= source;
      targets[taken[SLOT_BITS-1:0]] <= target;
      addends[taken[SLOT_BITS-1:0]] <= addend;
    end
    if (source_mem_readdatavalid)
      sums[fetched[SLOT_BITS-1:0]] <= source_mem_readdata + addends[fetched[SLOT_BITS-1:0]];
  end

  assign source_mem_address    = sources[asked[SLOT_BITS-1:0]];
  assign source_mem_burstcount = 1'b1;
  assign target_mem_address    = targets[written[SLOT_BITS-1:0]];
  assign target_mem_writedata  = sums[written[SLOT_BITS-1:0]];
  assign target_mem_byteenable = 4'b1111;
  assign target_mem_burstcount = 1'b1;
  assign sum                   = sums[given[SLOT_BITS-1:0]];
endmodule
