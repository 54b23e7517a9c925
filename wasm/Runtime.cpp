// Memory of a fixed size, whose end is reported to JavaScript.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "wasm/Interface.h"

// Throws the JavaScript error that the memory is full, and makes the instance unusable.
NQ_IMPORT(outOfMemory) __attribute__((noreturn)) void nqOutOfMemory(uint32_t bytes);

// The linker replaces calls of the C library's functions (option --wrap) by these.
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* pointer, size_t size);
int __real_posix_memalign(void** result, size_t alignment, size_t size);
void* __real_aligned_alloc(size_t alignment, size_t size);

// An address of 0 can be written to, so no caller may receive it.
void* __wrap_malloc(size_t size) {
  void* pointer = __real_malloc(size);
  if (pointer == nullptr) {
    nqOutOfMemory(size);
  }
  return pointer;
}

void* __wrap_calloc(size_t count, size_t size) {
  void* pointer = __real_calloc(count, size);
  if (pointer == nullptr) {
    nqOutOfMemory(count * size);
  }
  return pointer;
}

void* __wrap_realloc(void* old, size_t size) {
  void* pointer = __real_realloc(old, size);
  if (pointer == nullptr) {
    nqOutOfMemory(size);
  }
  return pointer;
}

int __wrap_posix_memalign(void** result, size_t alignment, size_t size) {
  if (__real_posix_memalign(result, alignment, size) != 0) {
    nqOutOfMemory(size);
  }
  return 0;
}

void* __wrap_aligned_alloc(size_t alignment, size_t size) {
  void* pointer = __real_aligned_alloc(alignment, size);
  if (pointer == nullptr) {
    nqOutOfMemory(size);
  }
  return pointer;
}
}

// Whether two blocks of so many bytes are free.
NQ_EXPORT(nqHasRoom) bool nqHasRoom(uint32_t bytes, uint32_t more) {
  void* first = __real_malloc(bytes);
  void* second = __real_malloc(more);
  std::free(second);
  std::free(first);
  return first != nullptr && second != nullptr;
}
