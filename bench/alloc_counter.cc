// Counts every heap allocation of the benchmark process by standing in for
// the C library's allocation entry points (operator new reaches them too) and
// forwarding to glibc's own implementations. Linux with glibc only.
#include "bench/alloc_counter.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* pointer);
}

namespace {
std::atomic<uint64_t> allocations{0};
}

uint64_t allocation_count() { return allocations.load(std::memory_order_relaxed); }

extern "C" {

void* malloc(size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, size);
}

void* realloc(void* pointer, size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(pointer, size);
}

void* memalign(size_t alignment, size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_memalign(alignment, size);
}

int posix_memalign(void** result, size_t alignment, size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  void* pointer = __libc_memalign(alignment, size);
  if (pointer == nullptr) return ENOMEM;
  *result = pointer;
  return 0;
}

void free(void* pointer) { __libc_free(pointer); }

}  // extern "C"
