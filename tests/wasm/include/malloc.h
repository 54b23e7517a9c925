// Statistics of the heap that are not known.
#ifndef NQ_TESTS_WASM_MALLOC_H_
#define NQ_TESTS_WASM_MALLOC_H_

#include <cstddef>
#include <cstdlib>

struct mallinfo2 {
  std::size_t uordblks;
  std::size_t hblkhd;
};

inline struct mallinfo2 mallinfo2() {
  return {0, 0};
}

#endif  // NQ_TESTS_WASM_MALLOC_H_
