// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "malloc_ptr.h"

#include <cstddef>

// Memory that is given back as a whole, when the arena goes.
class Arena {
public:
  Arena() = default;
  ~Arena();
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  // A block of `size` bytes, aligned for any type, or null.
  [[nodiscard]] void* allocate(std::size_t size);

private:
  // What a chunk begins with; its blocks follow.
  struct alignas(std::max_align_t) Chunk {
    Chunk* previous;
  };

  bool add_chunk(std::size_t size);

  malloc_ptr<Chunk> m_last;
  void* m_next = nullptr;
  std::size_t m_left = 0; // bytes of the last chunk, from m_next on
  std::size_t m_total = 0;
};
