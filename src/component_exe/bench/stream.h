// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "memory.h"
#include "results.h"

#include <memory>

#include <verilated.h>
#if VM_TRACE_FST
#include <verilated_fst_c.h>
#endif

constexpr std::uint64_t RESET_CLOCKS = 16;
constexpr std::uint64_t START_CLOCKS = 1000000; // no call of a phase starts later
constexpr std::uint64_t PATIENCE = std::min<std::uint64_t>(LATENCY, 100000);
constexpr std::uint64_t FILL_CLOCKS = 256 + 4 * PATIENCE;
constexpr std::uint64_t IDLE_CLOCKS = 64 + 2 * PATIENCE;
constexpr std::uint64_t HANG_CLOCKS = 100000 + 4 * PATIENCE;
constexpr std::uint64_t BUSY_CLOCKS = 10 * HANG_CLOCKS; // while memory is accessed

// Turns a stream on and off, for some clocks mostly one and then mostly the other.
class Pattern {
public:
  bool next(Random& random) {
    if (m_left == 0) {
      m_left = 1 + (random.next() >> 58);
      m_quarters = static_cast<unsigned>((random.next() >> 32) % 5);
    }
    --m_left;
    return random.chance(m_quarters);
  }

private:
  std::uint64_t m_left = 0;
  unsigned m_quarters = 0;
};

// The component in one phase, from power-up on: the calls go in, the results come out.
class Stream {
public:
  // `last` is the call after the last of the phase.
  Stream(Run& run, std::size_t first, std::size_t last, std::uint64_t seed, const char* waves)
      : m_run(run), m_first(first), m_last(last) {
    m_context.randReset(2);
    m_context.randSeed(static_cast<int>(seed % 0x7FFFFFFF) + 1);
    m_context.traceEverOn(waves != nullptr);
    m_top = std::make_unique<Vbfcl_bench>(&m_context);
    m_top->clock = 0;
    m_in = signal(m_top->in, 8 * INPUT_BYTES);
    m_out = signal(m_top->out, 8 * OUTPUT_BYTES);
    for (const MemorySignals& signals : memory_signals(*m_top)) {
      m_memories.emplace_back(signals, run);
    }
#if VM_TRACE_FST
    if (waves != nullptr) {
      m_top->trace(&m_waves, 99);
      m_waves.open(waves);
    }
#endif
  }

  ~Stream() {
    m_top->final();
#if VM_TRACE_FST
    m_waves.close();
#endif
  }

  // Makes the calls of the phase; the number of those that were answered.
  std::size_t run_phase() {
    reset();
    if (m_run.phase.fill_first) {
      fill();
    }
    if (m_run.phase.reset_again && !m_run.failed) {
      reset();
    }
    stream();
    drain();
    if (!m_run.failed) {
      check_memory();
    }
    return m_given - m_first;
  }

private:
  void settle() {
    m_top->eval();
    dump();
  }

  void dump() {
#if VM_TRACE_FST
    if (m_waves.isOpen()) {
      m_waves.dump(m_context.time());
    }
#endif
    m_context.timeInc(1);
  }

  void rising_edge() {
    m_top->clock = 1;
    settle();
    m_top->clock = 0;
    ++m_run.clock;
  }

  void drive_memories() {
    for (Memory& memory : m_memories) {
      memory.drive();
    }
  }

  // The component's state is lost, and with it what the memories owe and what was written.
  void reset() {
    m_run.memory = m_run.files.memory_before;
    m_taken = m_given = m_first;
    m_taken_at.clear();
    m_offers = m_stalled = m_stalled_since_empty = false;
    const bool oready = m_run.random.chance(2);
    for (std::uint64_t i = 0; i < RESET_CLOCKS; ++i) {
      for (Memory& memory : m_memories) {
        memory.reset();
      }
      m_top->resetn = 0;
      m_top->ivalid = m_run.phase.valid_in_reset;
      m_top->oready = oready;
      m_in.set(m_run.random);
      drive_memories();
      settle();
      rising_edge();
    }
    m_top->resetn = 1;
    for (std::uint64_t i = 0; i < RESET_CLOCKS && !m_run.phase.valid_in_reset; ++i) {
      cycle(false, oready);
    }
    m_since_progress = m_since_access = 0;
  }

  // Holds the output back until the component takes no more.
  void fill() {
    if (STALL_FREE) {
      for (std::uint64_t i = 0; i < PATIENCE + 4 && !m_run.failed; ++i) {
        cycle(true, false);
      }
      return;
    }
    for (std::uint64_t idle = 0; idle < FILL_CLOCKS && !m_run.failed; ++idle) {
      const std::size_t before = m_taken;
      cycle(true, false);
      idle = m_taken != before ? 0 : idle;
    }
    while (m_taken != m_given && !m_stalled && !m_run.failed) { // ovalid must not wait for oready
      cycle(true, false);
      check_progress();
    }
    const std::size_t held = m_taken - m_first;
    if (!m_run.failed && (held < CAPACITY ? m_taken < m_last : held > CAPACITY && CAPACITY_GIVEN)) {
      report(m_run, "capacity", NO_CALL,
             "takes %zu calls while its output stalls, where CAPACITY is %zu", held, CAPACITY);
    }
  }

  void stream() {
    Pattern input, output;
    std::size_t last = m_last;
    while (!m_run.failed && m_given < last) {
      if (m_run.clock > START_CLOCKS) {
        last = m_last = m_taken + (m_offers ? 1 : 0);
      }
      const bool offer = !m_run.phase.gaps || input.next(m_run.random);
      const bool accept = !m_run.phase.stalls || output.next(m_run.random);
      cycle(offer, accept);
      check_progress();
    }
  }

  // No result may follow the last one, and no burst may stay unfinished.
  void drain() {
    for (std::uint64_t i = 0; i < IDLE_CLOCKS && !m_run.failed; ++i) {
      cycle(false, true);
    }
    for (Memory& memory : m_memories) {
      memory.check_burst();
    }
    const auto idle = [](const Memory& memory) { return memory.idle(); };
    for (std::uint64_t i = 0; i < HANG_CLOCKS && !m_run.failed &&
                              !std::all_of(m_memories.begin(), m_memories.end(), idle);
         ++i) {
      cycle(false, true);
    }
  }

  // One clock. `offer` and `accept` say whether to offer a new call and to accept a result.
  void cycle(bool offer, bool accept) {
    if (!m_offers) {
      m_offers = offer && m_taken < m_last;
      m_offers ? m_in.set(&m_run.files.arguments[m_taken * INPUT_BYTES]) : m_in.set(m_run.random);
    }
    m_top->ivalid = m_offers;
    m_top->oready = accept;
    drive_memories();
    settle();
    look();
    rising_edge();
    if (m_context.gotFinish() && !m_run.failed) {
      report(m_run, "hdl", NO_CALL, "the RTL ends the simulation with $finish");
    }
  }

  void look() {
    const bool take = m_offers && m_top->iready;
    const bool give = m_top->ovalid && (m_top->oready || STALL_FREE);
    if (m_taken == m_given) {
      m_stalled_since_empty = false;
    }
    check_handshake();
    if (take) {
      m_taken_at.push_back(m_run.clock);
      ++m_taken;
      m_offers = false;
    }
    if (m_top->ovalid && !m_run.failed) {
      check_result(give);
    }
    m_stalled = m_top->ovalid && !give;
    m_stalled_out.assign(m_out.data, m_out.data + OUTPUT_BYTES);
    m_stalled_since_empty |= m_stalled;
    m_since_progress = take || give ? 0 : m_since_progress + 1;
    ++m_since_access;
    for (Memory& memory : m_memories) {
      look_at(memory);
    }
  }

  void look_at(Memory& memory) {
    if (memory.asked() && m_taken == m_first && !m_offers && !m_run.failed) {
      report(m_run, "reset", NO_CALL, "accesses memory after reset, before any call was taken");
    }
    if (!m_run.failed && memory.look()) {
      m_since_access = 0;
    }
  }

  void check_handshake() {
    if (STALL_FREE && !m_top->iready) {
      report(m_run, "handshake", NO_CALL, "iready is low, but IS_STALL_FREE is \"yes\"");
    } else if (m_stalled && !m_top->ovalid) {
      report(m_run, "handshake", call(), "ovalid falls before oready took the result");
    } else if (m_stalled && std::memcmp(m_out.data, m_stalled_out.data(), OUTPUT_BYTES) != 0) {
      report(m_run, "handshake", call(), "the result changes from %s to %s while oready is low",
             hexadecimal(m_stalled_out.data(), OUTPUT_BYTES).c_str(),
             hexadecimal(m_out.data, OUTPUT_BYTES).c_str());
    }
  }

  // The call that the next result is for.
  long long call() const {
    return static_cast<long long>(m_given);
  }

  void check_result(bool give) {
    // Without a clock between them, the result shows before the call is taken.
    const bool shows_offer = (LATENCY == 0 || !FIXED_LATENCY) && m_offers && !give;
    if (m_given == m_taken && !shows_offer) {
      m_taken == m_first
          ? report(m_run, "reset", NO_CALL, "ovalid is high after reset, before any call was taken")
          : report(m_run, "handshake", NO_CALL, "ovalid is high although every call was answered");
      return;
    }
    if (OUTPUT_BYTES != 0 && !same_result(m_out.data, expected(m_given))) {
      report(m_run, "result", call(), "the RTL returns %s, the C model %s%s",
             hexadecimal(m_out.data, OUTPUT_BYTES).c_str(),
             hexadecimal(expected(m_given), OUTPUT_BYTES).c_str(), where_expected().c_str());
      return;
    }
    if (give) {
      check_latency();
      m_taken_at.pop_front();
      ++m_given;
    }
  }

  const unsigned char* expected(std::size_t call) const {
    return &m_run.files.results[call * OUTPUT_BYTES];
  }

  // Which call near this one the wrong result belongs to, if that is clear.
  std::string where_expected() const {
    if (OUTPUT_BYTES < 2) {
      return "";
    }
    for (std::size_t distance = 1; distance <= 8; ++distance) {
      if (m_given + distance < m_last && same_result(m_out.data, expected(m_given + distance))) {
        return "; it is the result of a later call (" + std::to_string(m_given + distance) + ")";
      }
      if (m_given >= m_first + distance && same_result(m_out.data, expected(m_given - distance))) {
        return "; it is the result of an earlier call (" + std::to_string(m_given - distance) + ")";
      }
    }
    return "";
  }

  // A stall delays calls that are in flight, and those behind them.
  void check_latency() {
    const std::uint64_t latency = m_run.clock - m_taken_at.front();
    if (FIXED_LATENCY && !m_stalled_since_empty && latency != LATENCY) {
      report(m_run, "latency", call(),
             "takes %" PRIu64 " clocks, where EXPECTED_LATENCY is %" PRIu64, latency, LATENCY);
    }
  }

  void check_progress() {
    if (m_since_progress < HANG_CLOCKS ||
        (m_since_access < HANG_CLOCKS && m_since_progress < BUSY_CLOCKS) || m_run.failed) {
      return;
    }
    for (Memory& memory : m_memories) {
      memory.check_burst();
    }
    if (m_taken != m_given && !m_run.failed) {
      report(m_run, "handshake", call(), "no result after %" PRIu64 " clocks%s", m_since_progress,
             m_top->oready ? "" : " while oready is low");
    } else if (!m_run.failed) {
      report(m_run, "handshake", static_cast<long long>(m_taken),
             "iready is low for %" PRIu64 " clocks, with no call in flight", m_since_progress);
    }
  }

  std::uint64_t address(std::size_t call, const Pointer& pointer) const {
    std::uint64_t value = 0;
    std::memcpy(&value, &m_run.files.arguments[call * INPUT_BYTES + pointer.offset], sizeof value);
    return value;
  }

  // Each page belongs to a call of one phase. The pages of the answered calls are as the C model
  // left them, all others as they were.
  void check_memory() {
    Bytes after = m_run.files.memory_before;
    for (std::size_t call = m_first; call < m_given; ++call) {
      for (const Pointer& pointer : POINTERS) {
        const auto page = static_cast<std::size_t>(position(address(call, pointer))) / PAGE_BYTES;
        const auto from = m_run.files.memory_after.begin() + static_cast<long>(page * PAGE_BYTES);
        std::copy(from, from + PAGE_BYTES, after.begin() + static_cast<long>(page * PAGE_BYTES));
      }
    }
    const auto [wrong, right] =
        std::mismatch(m_run.memory.begin(), m_run.memory.end(), after.begin());
    if (wrong != m_run.memory.end()) {
      report_memory(static_cast<std::size_t>(wrong - m_run.memory.begin()), *wrong, *right);
    }
  }

  void report_memory(std::size_t at, unsigned wrong, unsigned right) {
    for (std::size_t call = m_given; call-- > m_first;) {
      for (const Pointer& pointer : POINTERS) {
        const auto start = static_cast<std::size_t>(position(address(call, pointer)));
        if (start / PAGE_BYTES == at / PAGE_BYTES) {
          report(m_run, "memory", static_cast<long long>(call),
                 "byte %ld of the buffer %s is 0x%02x, with the C model 0x%02x",
                 static_cast<long>(at) - static_cast<long>(start), pointer.name, wrong, right);
          return;
        }
      }
    }
    report(m_run, "memory", NO_CALL, "writes a buffer of a call that was not made");
  }

  Run& m_run;
  VerilatedContext m_context;
#if VM_TRACE_FST
  VerilatedFstC m_waves;
#endif
  std::unique_ptr<Vbfcl_bench> m_top;
  Signal m_in = {}, m_out = {};
  std::deque<Memory> m_memories;
  std::size_t m_first, m_last;          // calls of the phase
  std::size_t m_taken = 0, m_given = 0; // the next call to take, and to answer
  std::deque<std::uint64_t> m_taken_at; // clocks, of the calls in flight
  bool m_offers = false;                // ivalid is high and waits for iready
  bool m_stalled = false;               // ovalid was high and oready low in the last clock
  bool m_stalled_since_empty = false;
  Bytes m_stalled_out;
  std::uint64_t m_since_progress = 0, m_since_access = 0; // clocks
};
