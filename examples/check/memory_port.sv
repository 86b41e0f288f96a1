// SPDX-License-Identifier: BSD-3-Clause

// Memory behind one memory-mapped port, reading or writing: it makes commands wait at random and
// answers them in order after a random time. A write reaches the memory only with its writeack.
// Serves single words; bursts are refused.
module memory_port #(
  parameter WRITES     = 0,
  parameter WIDTH      = 32,
  parameter BURSTWIDTH = 1
) (
  input  wire                  clock,
  input  wire                  resetn,
  input  wire                  read,
  input  wire                  write,
  input  wire [63:0]           address,
  input  wire [BURSTWIDTH-1:0] burstcount,
  input  wire [WIDTH-1:0]      writedata,
  input  wire [WIDTH/8-1:0]    byteenable,
  output reg                   waitrequest,
  output reg  [WIDTH-1:0]      readdata,
  output reg                   readdatavalid,
  output reg                   writeack
);
  localparam QUEUE = 256;
  localparam BYTES = WIDTH / 8;
  localparam COMMAND_BITS = 64 + (WRITES ? WIDTH + BYTES : 0);

  wire active = WRITES ? write : read;
  wire [COMMAND_BITS-1:0] command = WRITES ? {byteenable, writedata, address} : address;

  reg [COMMAND_BITS-1:0] queue [0:QUEUE-1];
  integer accepted = 0, answered = 0;

  reg                    waiting = 0;
  reg [COMMAND_BITS-1:0] waiting_command;

  task accept;
    begin
      if (burstcount !== 1) $fatal(1, "%m: burstcount is %0d, not 1", burstcount);
      if (address % BYTES !== 0) $fatal(1, "%m: address %h is not aligned", address);
      if (!(address >= `MEMORY_BASE && address < `MEMORY_BASE + `MEMORY_BYTES))
        $fatal(1, "%m: address %h is outside the memory", address);
      if (accepted - answered == QUEUE) $fatal(1, "%m: too many commands in flight");
      queue[accepted % QUEUE] = command;
      accepted = accepted + 1;
    end
  endtask

  task answer;
    reg [BYTES-1:0] enable;
    reg [WIDTH-1:0] data;
    reg [63:0]      first;
    integer         i;
    begin
      {enable, data, first} = queue[answered % QUEUE];
      answered = answered + 1;
      for (i = 0; i < BYTES; i = i + 1)
        if (!WRITES)
          readdata[8 * i +: 8] <= stream_tb.memory[first - `MEMORY_BASE + i];
        else if (enable[i] !== 1'b0)
          stream_tb.memory[first - `MEMORY_BASE + i] = data[8 * i +: 8];
      readdatavalid <= !WRITES;
      writeack      <= WRITES;
    end
  endtask

  always @(posedge clock) begin
    readdata      <= 'x;
    readdatavalid <= 0;
    writeack      <= 0;
    waitrequest   <= $urandom_range(3) == 0;
    if (resetn) begin
      if (active === 1'bx) $fatal(1, "%m: the command line is unknown");
      if (waiting && !(active && command === waiting_command))
        $fatal(1, "%m: a command changed while it had to wait");
      waiting         = active && waitrequest;
      waiting_command = command;
      if (accepted != answered && $urandom_range(3) == 0) answer;
      if (active && !waitrequest) accept;
    end
  end
endmodule
