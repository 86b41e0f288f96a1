// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "malloc_ptr.h"

#include <cstddef>
#include <vector>

// Memory that is given back as a whole, when the arena goes.
class Arena {
public:
  // A block of `size` bytes, aligned for any type, or null.
  [[nodiscard]] void* allocate(std::size_t size);

private:
  bool add_chunk(std::size_t size);

  std::vector<malloc_ptr<void>> m_chunks;
  void* m_next = nullptr;
  std::size_t m_left = 0; // bytes of the last chunk, from m_next on
  std::size_t m_total = 0;
};
