// Heap allocations made by the benchmark process so far (every malloc,
// calloc, realloc, aligned allocation and operator new), for checking that
// the command path allocates nothing.
#pragma once

#include <cstdint>

uint64_t allocation_count();
