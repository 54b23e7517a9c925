// ArrayBuffers over native memory.
#ifndef JSBINDING_V8_ARRAY_BUFFER_H_
#define JSBINDING_V8_ARRAY_BUFFER_H_

#include <v8.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace vx {

// A buffer over memory that stays native: V8 never frees it, and the owner must outlive it.
inline v8::Local<v8::ArrayBuffer> NewSharedBuffer(v8::Isolate* isolate, void* data, size_t length) {
  return v8::ArrayBuffer::New(isolate, data, length, v8::ArrayBufferCreationMode::kExternalized);
}

namespace internal {

// How to free a block that was given away.
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

// Follows a given-away buffer to its end.
struct WeakBufferHolder {
  v8::Persistent<v8::ArrayBuffer> buffer;
  v8::Isolate* isolate;
  bool collected;
  void (*finaliser)(BlockDeleter* deleter);
  BlockDeleter* deleter;

  static void FirstPass(const v8::WeakCallbackInfo<WeakBufferHolder>& info) {
    WeakBufferHolder* holder = info.GetParameter();
    if (!holder->collected) {
      holder->collected = true;
      holder->buffer.Reset();
      info.SetSecondPassCallback(SecondPass);
    }
  }

  static void SecondPass(const v8::WeakCallbackInfo<WeakBufferHolder>& info) {
    WeakBufferHolder* holder = info.GetParameter();
    if (holder->finaliser != nullptr) {
      holder->finaliser(holder->deleter);
    }
    delete holder;
  }
};

}  // namespace internal

// A buffer over a block from the general heap that script takes over: the block is freed once the
// buffer has been collected.
inline v8::Local<v8::ArrayBuffer> NewGivenAwayBuffer(v8::Isolate* isolate, void* block,
                                                     size_t length) {
  v8::Local<v8::ArrayBuffer> buffer = NewSharedBuffer(isolate, block, length);
  internal::BlockDeleter* deleter =
      new internal::BlockDeleter{&internal::FreeHeapBlock, block, nullptr};
  internal::WeakBufferHolder* holder =
      new internal::WeakBufferHolder{v8::Persistent<v8::ArrayBuffer>(isolate, buffer), isolate,
                                     false, &internal::FinalizeBlock, deleter};
  holder->buffer.SetWeak(holder, internal::WeakBufferHolder::FirstPass,
                         v8::WeakCallbackType::kParameter);
  return buffer;
}

}  // namespace vx

#endif  // JSBINDING_V8_ARRAY_BUFFER_H_
