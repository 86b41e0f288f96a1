// SPDX-License-Identifier: BSD-3-Clause
`include "stream_stage.svh"

// Reduces a pixel of eight bits a channel to five or six, by truncation, to the nearest value, or
// with the ordered dithering that its place on the screen asks for.
//
// Stallable with a fixed latency of two clocks: the first stage looks up the threshold, the second
// adds it and cuts the channels off.
module dither (
  input  logic                 clock,
  input  logic                 resetn,
  input  logic                 ivalid,
  output logic                 iready,
  output logic                 ovalid,
  input  logic                 oready,
  input  pixel_pkg::rgbx8888_t pixel,
  input  logic [7:0]           column,
  input  logic [7:0]           row,
  input  pixel_pkg::rounding_t rounding,
  output pixel_pkg::rgb565_t   reduced
);
  logic [3:0] bayer [0:15];
  initial $readmemh("bayer.hex", bayer);

  logic       valid;
  logic [7:0] red, green, blue;
  logic [3:0] threshold;

  // All stages move together, so a result that nobody takes holds the word behind it still.
  wire advance = oready || !ovalid;
  assign iready = advance;

  `STREAM_VALID(advance, ivalid, valid)
  `STREAM_VALID(advance, valid, ovalid)

  always_ff @(posedge clock)
    if (advance) begin
      red   <= pixel.red;
      green <= pixel.green;
      blue  <= pixel.blue;
      case (rounding)
        pixel_pkg::NEAREST: threshold <= 4'h8;
        pixel_pkg::ORDERED: threshold <= bayer[{row[1:0], column[1:0]}];
        default:            threshold <= 4'h0;
      endcase
    end

  // A threshold of 8 is half of what is cut off: three bits of red and blue, two of green.
  wire [7:0] red_sum   = pixel_pkg::add_saturated(red, {5'd0, threshold[3:1]});
  wire [7:0] green_sum = pixel_pkg::add_saturated(green, {6'd0, threshold[3:2]});
  wire [7:0] blue_sum  = pixel_pkg::add_saturated(blue, {5'd0, threshold[3:1]});

  always_ff @(posedge clock)
    if (advance)
      reduced <= {red_sum[7:3], green_sum[7:2], blue_sum[7:3]};

  wire _unused = &{pixel.unused, column[7:2], row[7:2], red_sum[2:0], green_sum[1:0],
                   blue_sum[2:0], threshold[0]};
endmodule
