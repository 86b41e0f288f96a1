// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdlib>
#include <memory>

// Owns a block of malloc, as C interfaces hand it out.
struct malloc_deleter {
  void operator()(void* block) const { std::free(block); }
};
template <typename T>
using malloc_ptr = std::unique_ptr<T, malloc_deleter>;
