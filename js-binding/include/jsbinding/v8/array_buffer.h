// ArrayBuffers over native memory.
#ifndef JSBINDING_V8_ARRAY_BUFFER_H_
#define JSBINDING_V8_ARRAY_BUFFER_H_

#include <v8.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "jsbinding/v8/host.h"

namespace vx {

// A buffer over memory that native code owns: V8 never frees it, and the owner must outlive it.
inline v8::Local<v8::ArrayBuffer> NewSharedBuffer(v8::Isolate* isolate, void* data, size_t length) {
  return host::NewUnownedBuffer(isolate, data, length);
}

namespace internal {

// How to free a block whose ownership was transferred.
struct BlockDeleter {
  void (*freeFunction)(void* block, void* argument);
  void* block;
  void* argument;  // second argument of `freeFunction`; 0
};

// Frees the block and the record itself.
inline void FinalizeBlock(BlockDeleter* deleter) {
  deleter->freeFunction(deleter->block, deleter->argument);
  delete deleter;
}

inline void FreeHeapBlock(void* block, void* /*argument*/) {
  std::free(block);
}

}  // namespace internal

// A buffer that takes ownership of a block from the general heap: the block is freed once nothing
// refers to it any longer, in this buffer or, on hosts where JavaScript can transfer it, in
// another.
inline v8::Local<v8::ArrayBuffer> NewGivenAwayBuffer(v8::Isolate* isolate, void* block,
                                                     size_t length) {
  internal::BlockDeleter* deleter =
      new internal::BlockDeleter{&internal::FreeHeapBlock, block, nullptr};
  return host::NewOwnedBuffer(isolate, block, length, &internal::FinalizeBlock, deleter);
}

}  // namespace vx

#endif  // JSBINDING_V8_ARRAY_BUFFER_H_
