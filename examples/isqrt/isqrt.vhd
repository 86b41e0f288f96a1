-- SPDX-License-Identifier: BSD-3-Clause
library ieee;
use ieee.std_logic_1164.all;
use ieee.numeric_std.all;
use work.isqrt_pkg.all;

-- The square root of a number, rounded down. Stallable with a fixed latency of STAGES clocks, which
-- must divide the 16 bits of the root.
entity isqrt is
  generic (STAGES : positive := 4);
  port (
    clock  : in  std_logic;
    resetn : in  std_logic;
    ivalid : in  std_logic;
    iready : out std_logic;
    ovalid : out std_logic;
    oready : in  std_logic;
    number : in  std_logic_vector(NUMBER_BITS - 1 downto 0);
    root   : out std_logic_vector(ROOT_BITS - 1 downto 0)
  );
end entity;

architecture rtl of isqrt is
  type chain is array (0 to STAGES) of progress;
  signal steps   : chain;
  signal valid   : std_logic_vector(0 to STAGES);
  signal advance : std_logic;
begin
  -- All stages move together, so a result that nobody takes holds the words behind it still.
  advance <= oready or not valid(STAGES);
  iready  <= advance;
  ovalid  <= valid(STAGES);
  root    <= std_logic_vector(steps(STAGES).root);

  valid(0)           <= ivalid;
  steps(0).number    <= unsigned(number);
  steps(0).remainder <= (others => '0');
  steps(0).root      <= (others => '0');

  stages_of_root : for i in 1 to STAGES generate
    stage : entity work.isqrt_stage
      generic map (STEPS => ROOT_BITS / STAGES)
      port map (
        clock   => clock,
        resetn  => resetn,
        advance => advance,
        ivalid  => valid(i - 1),
        earlier  => steps(i - 1),
        ovalid  => valid(i),
        later   => steps(i)
      );
  end generate;
end architecture;
