// SPDX-License-Identifier: BSD-3-Clause
#include "arena.h"

#include <algorithm>

namespace {

// Chunks double what there is, up to this size in bytes. Where AddressSanitizer watches each block
// is a chunk of its own: it knows the bounds of what malloc gave.
#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t MAX_CHUNK_SIZE = 0;
#else
constexpr std::size_t MAX_CHUNK_SIZE = std::size_t{4} << 20;
#endif

} // namespace

Arena::~Arena() {
  while (m_last != nullptr) {
    m_last.reset(m_last->previous);
  }
}

bool Arena::add_chunk(std::size_t size) {
  auto* chunk = static_cast<Chunk*>(std::malloc(sizeof(Chunk) + size));
  if (chunk == nullptr) {
    return false;
  }
  chunk->previous = m_last.release();
  m_last.reset(chunk);
  m_next = chunk + 1;
  m_left = size;
  m_total += size;
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
