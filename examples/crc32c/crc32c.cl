// SPDX-License-Identifier: BSD-3-Clause

// One step of CRC-32C. The caller inverts the value before the first step and after the last.
uint crc32c_word(uint crc, uint word)
{
  crc ^= word;
  for (uint bit = 0; bit < 32; ++bit)
    crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0x82F63B78u : 0u);
  return crc;
}
