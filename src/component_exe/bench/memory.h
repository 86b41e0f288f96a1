// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "bench.h"
#include "component.h"

#include <deque>

// Where the byte at an address of the component is in the memory files; -1 when no buffer has it.
inline long long position(std::uint64_t address) {
  const std::uint64_t page = (address - MEMORY_BASE) / PAGE_STRIDE;
  const std::uint64_t offset = (address - MEMORY_BASE) % PAGE_STRIDE;
  const bool inside = page < PAGES && offset < PAGE_BYTES;
  return inside ? static_cast<long long>(page * PAGE_BYTES + offset) : -1;
}

// The memory behind one port. It makes commands wait and answers them in order, at once or at
// random. A write reaches the memory only with its writeack.
class Memory {
public:
  Memory(const MemorySignals& signals, Run& run)
      : m_signals(signals), m_run(run),
        m_bytes((signals.writes ? signals.writedata : signals.readdata).bytes()) {}

  void reset() {
    m_words.clear();
    m_waiting.clear();
    m_burst_left = 0;
  }

  // Sets the component's inputs for the coming clock.
  void drive() {
    const bool fast = m_run.phase.memory == Speed::fast ||
                      (m_run.phase.memory == Speed::mixed && m_run.clock / 256 % 2 == 0);
    // A slow memory may be one that looks at a command first: it takes none that did not wait.
    const bool is_idle = m_waiting.empty() && m_burst_left == 0;
    m_signals.waitrequest.set((m_run.phase.memory == Speed::slow && is_idle) ||
                              m_run.random.chance(fast ? 0 : 1));
    const bool answer = !m_words.empty() && m_words.front().clock < m_run.clock &&
                        m_run.random.chance(fast ? 4 : 1);
    m_signals.writes ? drive_write(answer) : drive_read(answer);
  }

  // Whether the component asks for an access in this clock.
  bool asked() const { return (m_signals.writes ? m_signals.write : m_signals.read).number() != 0; }

  // Looks at the component's outputs; true when a command or a word is accepted.
  bool look() {
    const bool active = asked();
    const Bytes command = active ? command_bits() : Bytes();
    if (!m_waiting.empty() && command != m_waiting) {
      report(m_run, "memory", NO_CALL, "port %s: a command changes while waitrequest is high",
             m_signals.name);
    }
    const bool waits = active && m_signals.waitrequest.number() != 0;
    m_waiting = waits ? command : Bytes();
    if (active && !waits) {
      accept();
    }
    return active && !waits;
  }

  bool idle() const { return m_words.empty() && m_burst_left == 0; }

  // Reports a write burst that lacks words.
  void check_burst() {
    if (m_burst_left != 0 && !m_run.failed) {
      report(m_run, "memory", NO_CALL,
             "port %s: a write burst has %" PRIu64 " words where burstcount is %" PRIu64,
             m_signals.name, m_burst - m_burst_left, m_burst);
    }
  }

private:
  struct Word {
    std::uint64_t address;
    std::uint64_t clock; // in which it was accepted
    bool last;           // of its burst
    Bytes data, enable;  // of a write; enable has a byte for each byte
  };

  void drive_read(bool answer) {
    m_signals.readdata.set(m_run.random);
    m_signals.readdatavalid.set(answer);
    if (answer) {
      const auto at = static_cast<std::size_t>(position(m_words.front().address));
      m_signals.readdata.set(&m_run.memory[at]);
      m_words.pop_front();
    }
  }

  void drive_write(bool answer) {
    m_signals.writeack.set(answer && (m_words.front().last || m_run.ack_words));
    if (answer) {
      const Word& word = m_words.front();
      for (std::size_t i = 0; i < m_bytes; ++i) {
        if (word.enable[i] != 0) {
          m_run.memory[static_cast<std::size_t>(position(word.address + i))] = word.data[i];
        }
      }
      m_words.pop_front();
    }
  }

  // What must not change while the command waits.
  Bytes command_bits() const {
    Bytes bits(1); // never empty
    const auto add = [&bits](const Signal& port) {
      bits.insert(bits.end(), port.data, port.data + port.bytes());
    };
    if (m_burst_left == 0) {
      add(m_signals.address);
      add(m_signals.burstcount);
    }
    if (m_signals.writes) {
      add(m_signals.writedata);
      add(m_signals.byteenable);
    }
    return bits;
  }

  void accept() {
    if (m_burst_left == 0) {
      begin_burst();
    }
    do {
      --m_burst_left;
      accept_word();
    } while (!m_signals.writes && m_burst_left != 0 && !m_run.failed);
  }

  void begin_burst() {
    m_address = m_signals.address.number();
    m_burst = m_signals.burstcount.number();
    m_run.wrote_burst |= m_signals.writes && m_burst > 1;
    if (m_burst == 0) {
      report(m_run, "memory", NO_CALL, "port %s: burstcount is 0", m_signals.name);
      m_burst = 1;
    } else if (m_address % m_bytes != 0) {
      report(m_run, "memory", NO_CALL,
             "port %s: address 0x%" PRIx64 " is not aligned to the %zu bytes of a word",
             m_signals.name, m_address, m_bytes);
    }
    m_burst_left = m_burst;
  }

  void accept_word() {
    Word word = {m_address, m_run.clock, m_burst_left == 0, {}, {}};
    m_address += m_bytes;
    if (m_signals.writes) {
      word.data.assign(m_signals.writedata.data, m_signals.writedata.data + m_bytes);
      for (std::size_t i = 0; i < m_bytes; ++i) {
        word.enable.push_back(m_signals.byteenable.data[i / 8] >> i % 8 & 1);
      }
    }
    for (std::size_t i = 0; i < m_bytes && !m_run.failed; ++i) {
      if (!m_signals.writes || word.enable[i] != 0) {
        check_address(word.address + i);
      }
    }
    m_words.push_back(std::move(word));
  }

  void check_address(std::uint64_t address) {
    const long long at = position(address);
    const bool writable = at >= static_cast<long long>(FIRST_WRITABLE_PAGE * PAGE_BYTES);
    m_run.read_writable |= writable && !m_signals.writes;
    if (at < 0) {
      report(m_run, "memory", NO_CALL, "port %s: %s address 0x%" PRIx64 ", which is in no buffer",
             m_signals.name, m_signals.writes ? "writes" : "reads", address);
    } else if (m_signals.writes && !writable) {
      report(m_run, "memory", NO_CALL,
             "port %s: writes address 0x%" PRIx64 ", which is in a readonly buffer", m_signals.name,
             address);
    }
  }

  MemorySignals m_signals;
  Run& m_run;
  std::size_t m_bytes;       // of a word
  std::deque<Word> m_words;  // accepted and not answered
  std::uint64_t m_burst = 0; // words of the latest burst
  std::uint64_t m_burst_left = 0;
  std::uint64_t m_address = 0; // of its next word
  Bytes m_waiting;             // the command that waits; empty for none
};
