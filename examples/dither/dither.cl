// SPDX-License-Identifier: BSD-3-Clause

uchar add_saturated(uchar channel, uchar amount)
{
  return channel > 255 - amount ? 255 : channel + amount;
}

// 0x00RRGGBB to five, six and five bits. Rounding: 1 to the nearest, 2 ordered, else truncation.
ushort dither_rgb565(uint pixel, uchar column, uchar row, uchar rounding)
{
  const uchar bayer[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};
  uchar threshold = 0;
  if (rounding == 1)
    threshold = 8;
  else if (rounding == 2)
    threshold = bayer[row % 4][column % 4];
  uint red = add_saturated((pixel >> 16) & 0xFF, threshold >> 1);
  uint green = add_saturated((pixel >> 8) & 0xFF, threshold >> 2);
  uint blue = add_saturated(pixel & 0xFF, threshold >> 1);
  return (ushort)((red >> 3) << 11 | (green >> 2) << 5 | blue >> 3);
}
