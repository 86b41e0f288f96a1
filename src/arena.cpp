// SPDX-License-Identifier: BSD-3-Clause
#include "arena.h"

#include <algorithm>

namespace {

// Chunks double what there is, up to this size in bytes.
constexpr std::size_t MAX_CHUNK_SIZE = std::size_t{4} << 20;

} // namespace

bool Arena::add_chunk(std::size_t size) {
  malloc_ptr<void> chunk(std::malloc(size));
  if (chunk == nullptr) {
    return false;
  }
  m_next = chunk.get();
  m_left = size;
  m_total += size;
  m_chunks.push_back(std::move(chunk));
  return true;
}

void* Arena::allocate(std::size_t size) {
  size = std::max<std::size_t>(size, 1);
  if (std::align(alignof(std::max_align_t), size, m_next, m_left) == nullptr &&
      !add_chunk(std::max(size, std::min(m_total, MAX_CHUNK_SIZE)))) {
    return nullptr;
  }
  void* block = m_next;
  m_next = static_cast<char*>(m_next) + size;
  m_left -= size;
  return block;
}
