// Buffers over native memory, kept or with ownership transferred.
#include <cstdlib>
#include <cstring>

#include "jsbinding/v8/array_buffer.h"
#include "tests/addon/TestAddon.h"

namespace nq::test {

namespace {

// Calls of CountingFree, and those of them with a second argument other than 0.
uint32_t freedBlocks = 0;
uint32_t oddArguments = 0;

void CountingFree(void* block, void* argument) {
  ++freedBlocks;
  oddArguments += argument == nullptr ? 0 : 1;
  std::free(block);
}

// givenAway(bytes): a buffer that owns a heap block, every byte 0xA5.
void GivenAwayOp(const vx::CallbackInfo& info) {
  const uint32_t bytes = Uint32Arg(info, 0);
  void* block = std::malloc(bytes);
  std::memset(block, 0xA5, bytes);
  info.GetReturnValue().Set(vx::NewGivenAwayBuffer(info.GetIsolate(), block, bytes));
}

// countedBuffer(bytes, withFinaliser): the same through a holder whose block is freed by a counting
// function. Without a finaliser nothing frees the block, so it is a static one.
void CountedBufferOp(const vx::CallbackInfo& info) {
  static char unowned[64];
  v8::Isolate* isolate = info.GetIsolate();
  const uint32_t bytes = Uint32Arg(info, 0);
  const bool withFinaliser = vx::ReadBool(isolate, vx::Arg(info, 1));
  void* block = withFinaliser ? std::malloc(bytes) : unowned;
  if (withFinaliser) {
    vx::internal::BlockDeleter* deleter =
        new vx::internal::BlockDeleter{&CountingFree, block, nullptr};
    info.GetReturnValue().Set(
        vx::host::NewOwnedBuffer(isolate, block, bytes, &vx::internal::FinalizeBlock, deleter));
  } else {
    info.GetReturnValue().Set(vx::host::NewOwnedBuffer(isolate, block, bytes, nullptr, nullptr));
  }
}

// sameBlock(): another buffer over the single static block of 100 bytes.
void SameBlockOp(const vx::CallbackInfo& info) {
  static char block[100];
  info.GetReturnValue().Set(vx::NewSharedBuffer(info.GetIsolate(), block, sizeof(block)));
}

// freedBlocks(): {count, oddArguments}.
void FreedBlocksOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  Set(isolate, result, "count", Number(isolate, freedBlocks));
  Set(isolate, result, "oddArguments", Number(isolate, oddArguments));
  info.GetReturnValue().Set(result);
}

// isExternal(buffer): true if V8 does not own its memory.
void IsExternalOp(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(ObjectArg(info, 0).As<v8::ArrayBuffer>()->IsExternal());
}

}  // namespace

void InstallBufferOps(v8::Local<v8::Object> exports) {
  Install(exports, "givenAway", GivenAwayOp);
  Install(exports, "countedBuffer", CountedBufferOp);
  Install(exports, "sameBlock", SameBlockOp);
  Install(exports, "freedBlocks", FreedBlocksOp);
  Install(exports, "isExternal", IsExternalOp);
}

}  // namespace nq::test
