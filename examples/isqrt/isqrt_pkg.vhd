-- SPDX-License-Identifier: BSD-3-Clause
library ieee;
use ieee.std_logic_1164.all;
use ieee.numeric_std.all;

-- The square root of a 32-bit number, digit by digit as on paper: each step brings two bits of the
-- number down and finds one bit of the root.
package isqrt_pkg is
  constant NUMBER_BITS : positive := 32;
  constant ROOT_BITS   : positive := NUMBER_BITS / 2;

  type progress is record
    number    : unsigned(NUMBER_BITS - 1 downto 0);   -- what is still to be brought down, on top
    remainder : unsigned(ROOT_BITS + 1 downto 0);
    root      : unsigned(ROOT_BITS - 1 downto 0);
  end record;

  function step(earlier : progress) return progress;
end package;

package body isqrt_pkg is
  function step(earlier : progress) return progress is
    variable remainder : unsigned(ROOT_BITS + 1 downto 0);
    variable trial     : unsigned(ROOT_BITS + 1 downto 0);
    variable later     : progress;
  begin
    remainder := earlier.remainder(ROOT_BITS - 1 downto 0) &
                 earlier.number(NUMBER_BITS - 1 downto NUMBER_BITS - 2);
    trial        := earlier.root & "01";
    later.number := earlier.number(NUMBER_BITS - 3 downto 0) & "00";
    if remainder >= trial then
      later.remainder := remainder - trial;
      later.root      := earlier.root(ROOT_BITS - 2 downto 0) & '1';
    else
      later.remainder := remainder;
      later.root      := earlier.root(ROOT_BITS - 2 downto 0) & '0';
    end if;
    return later;
  end function;
end package body;
