// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <csignal>

namespace bfcl::package {

// While it lives, blocks the signals by which users and systems end a program.
class SignalBlock {
public:
  SignalBlock() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
      sigaddset(&signals, signal);
    }
    sigprocmask(SIG_BLOCK, &signals, &m_old);
  }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;
  ~SignalBlock() { sigprocmask(SIG_SETMASK, &m_old, nullptr); }

private:
  sigset_t m_old;
};

} // namespace bfcl::package
