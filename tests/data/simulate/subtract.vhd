-- SPDX-License-Identifier: BSD-3-Clause

-- The difference of two signed numbers, or the nearest that fits. One stage, which stalls.
library ieee;
use ieee.std_logic_1164.all;
use ieee.numeric_std.all;

entity Subtract is
  generic (WIDTH : positive := 8);
  port (
    clock, resetn, ivalid, oready : in std_logic;
    iready, ovalid : out std_logic;
    Left, Right : in std_logic_vector(WIDTH - 1 downto 0);
    difference : out std_logic_vector(WIDTH - 1 downto 0));
end entity;

architecture rtl of subtract is
  signal valid : std_logic;
begin
  iready <= oready or not valid;
  ovalid <= valid;

  process (clock)
    variable exact : signed(WIDTH downto 0);
  begin
    if rising_edge(clock) then
      if resetn = '0' then
        valid <= '0';
      elsif oready = '1' or valid = '0' then
        valid <= ivalid;
        exact := resize(signed(left), WIDTH + 1) - resize(signed(right), WIDTH + 1);
        if exact(WIDTH) = exact(WIDTH - 1) then
          difference <= std_logic_vector(exact(WIDTH - 1 downto 0));
        else
          difference <= (others => not exact(WIDTH));
          difference(WIDTH - 1) <= exact(WIDTH);
        end if;
      end if;
    end if;
  end process;
end architecture;
