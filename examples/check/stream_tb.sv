// SPDX-License-Identifier: BSD-3-Clause

// Streams the vectors of one component through it and compares results, memory and timing.
//
// Made from the component specification are settings.svh, its widths and timing, and wiring.svh,
// which connects it to the signals declared here and to a memory_port for each memory port.
//
// The output is first held back until the component is full, to see that its capacity is as
// declared. Then four quarters follow: full speed, gaps in the input, a stalling output, both.
module stream_tb;
  `include "settings.svh"

  localparam VECTORS     = `VECTORS;
  localparam FILL_CYCLES = 64;
  localparam CYCLE_LIMIT = 1000 + 100 * VECTORS;

  reg                  clock  = 0;
  reg                  resetn = 0;
  reg                  ivalid = 0;
  wire                 iready;
  wire                 ovalid;
  reg                  oready = 0;
  reg  [IN_WIDTH-1:0]  in;
  wire [OUT_WIDTH-1:0] out;

  `include "wiring.svh"

  reg [OUT_WIDTH+IN_WIDTH-1:0] vectors [0:VECTORS-1];
  reg [7:0] memory       [0:`MEMORY_BYTES-1];
  reg [7:0] memory_after [0:`MEMORY_BYTES-1];

  // A stall-free component gives its results without asking: oready may do as it likes.
  wire take = ivalid && iready;
  wire give = ovalid && (oready || STALL_FREE);

  integer cycle = 0, offered = 0, taken = 0, given = 0, last_stall = 0;
  integer taken_at [0:VECTORS-1];
  reg                 stalled = 0;
  reg [OUT_WIDTH-1:0] stalled_out;

  task check_handshake;
    begin
      if (^{iready, ovalid} === 1'bx) $fatal(1, "iready or ovalid is unknown");
      if (STALL_FREE && !iready) $fatal(1, "a stall-free component is not ready");
      if (stalled && !(ovalid && out === stalled_out))
        $fatal(1, "result %0d changed while it had to wait", given);
      if (cycle == FILL_CYCLES && !STALL_FREE && taken != CAPACITY)
        $fatal(1, "holds %0d items where CAPACITY is %0d", taken, CAPACITY);
    end
  endtask

  task check_result;
    reg [OUT_WIDTH-1:0] expected;
    begin
      if (given == taken) $fatal(1, "more results than inputs");
      expected = vectors[given] >> IN_WIDTH;
      if (out !== expected)
        $fatal(1, "vector %0d: result %h where the model has %h", given, out, expected);
      if (FIXED_LATENCY && taken_at[given] > last_stall && cycle - taken_at[given] != LATENCY)
        $fatal(1, "vector %0d: latency %0d where EXPECTED_LATENCY is %0d",
               given, cycle - taken_at[given], LATENCY);
      given = given + 1;
    end
  endtask

  task check_memory;
    integer i;
    for (i = 0; i < `MEMORY_BYTES; i = i + 1)
      if (memory[i] !== memory_after[i])
        $fatal(1, "memory byte %0d is %h where the model has %h",
               i, memory[i], memory_after[i]);
  endtask

  task drive;
    integer quarter;
    begin
      quarter = 4 * taken / VECTORS;
      if (take || !ivalid) begin
        if (offered < VECTORS && !(quarter % 2 == 1 && $urandom_range(2) == 0)) begin
          ivalid  <= 1;
          in      <= vectors[offered];
          offered = offered + 1;
        end else begin
          ivalid <= 0;
          in     <= 'x;
        end
      end
      oready <= cycle > FILL_CYCLES && !(quarter >= 2 && $urandom_range(2) == 0);
    end
  endtask

  always #1 clock = !clock;

  initial begin
    if (VECTORS < 1) $fatal(1, "no vectors");
    $readmemh("vectors.hex", vectors);
    $readmemh("memory_before.hex", memory);
    $readmemh("memory_after.hex", memory_after);
    repeat (8) @(posedge clock);
    resetn <= 1;
  end

  always @(posedge clock)
    if (resetn) begin
      cycle = cycle + 1;
      check_handshake;
      if (take) begin
        taken_at[taken] = cycle;
        taken = taken + 1;
      end
      if (give) check_result;
      stalled     = ovalid && !give;
      stalled_out = out;
      if (stalled) last_stall = cycle;
      if (cycle == CYCLE_LIMIT)
        $fatal(1, "timed out: %0d taken, %0d given of %0d", taken, given, VECTORS);
      if (given == VECTORS) begin
        check_memory;
        $display("%0d vectors match", given);
        $finish;
      end
      drive;
    end
endmodule
