// SPDX-License-Identifier: BSD-3-Clause

// The valid bit of a pipeline stage that moves when ADVANCE is high.
`ifndef STREAM_STAGE_SVH
`define STREAM_STAGE_SVH

`define STREAM_VALID(ADVANCE, FROM, TO) \
  always_ff @(posedge clock) \
    if (!resetn)      TO <= 1'b0; \
    else if (ADVANCE) TO <= FROM;

`endif
