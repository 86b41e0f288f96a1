-- SPDX-License-Identifier: BSD-3-Clause
library ieee;
use ieee.std_logic_1164.all;
use ieee.numeric_std.all;
use work.isqrt_pkg.all;

-- Some steps of the root, and a register behind them that moves when `advance` is high.
entity isqrt_stage is
  generic (STEPS : positive);
  port (
    clock   : in  std_logic;
    resetn  : in  std_logic;
    advance : in  std_logic;
    ivalid  : in  std_logic;
    earlier  : in  progress;
    ovalid  : out std_logic;
    later   : out progress
  );
end entity;

architecture rtl of isqrt_stage is
begin
  process (clock)
    variable now : progress;
  begin
    if rising_edge(clock) then
      if resetn = '0' then
        ovalid <= '0';
      elsif advance = '1' then
        ovalid <= ivalid;
      end if;
      if advance = '1' then
        now := earlier;
        for i in 1 to STEPS loop
          now := step(now);
        end loop;
        later <= now;
      end if;
    end if;
  end process;
end architecture;
