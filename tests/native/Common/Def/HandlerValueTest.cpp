// Values behind handles: blocks, views, and the order of their destruction.
#include "Common/Def/HandlerValue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "Common/Def/EngineRuntime.h"
#include "tests/native/Common/Def/ChildProcess.h"

namespace nq::engine {
namespace {

class HandlerValueTest : public testing::Test {
 protected:
  HandlerValueTest() : runtime(new EngineRuntime(new MemoryAllocator)) {}

  ~HandlerValueTest() override {
    EXPECT_EQ(runtime->ReferenceCount(), 1u);
    runtime->DropReference();
  }

  // Deletes `value` and returns what that printed.
  static std::string Delete(HandlerValue* value) {
    testing::internal::CaptureStdout();
    delete value;
    return testing::internal::GetCapturedStdout();
  }

  static bool IsNoBlock(const MemoryBlock& block) {
    return block.size == 0 && block.memoryID == 0 && block.pointer == nullptr;
  }

  EngineRuntime* runtime;
};

TEST_F(HandlerValueTest, AValueHoldsAReferenceOnItsOwnerForItsLife) {
  auto* value = new HandlerValue(runtime, 0x7000);
  EXPECT_EQ(runtime->ReferenceCount(), 2u);
  EXPECT_EQ(value->owner, runtime);
  EXPECT_EQ(value->handle, 0x7000u);
  EXPECT_EQ(Delete(value), "");
  EXPECT_EQ(runtime->ReferenceCount(), 1u);
}

TEST_F(HandlerValueTest, AFreshBlockValueHasNoBlock) {
  BlockValue value(runtime, 0x1000);
  EXPECT_TRUE(IsNoBlock(value.block));
  EXPECT_FALSE(value.isView);
  EXPECT_EQ(value.viewBase, nullptr);
  const NativeValueInfo info = value.Info();
  EXPECT_EQ(info.handle, 0x1000u);
  EXPECT_EQ(info.size, 0u);
  EXPECT_EQ(info.memoryID, 0u);
  EXPECT_EQ(info.pointer, nullptr);
}

TEST_F(HandlerValueTest, ABlockValueAllocatesFromTheOwnersRuntimeAndReleasesThere) {
  const MemoryBlock other = runtime->Allocate(8);
  auto* value = new BlockValue(runtime, 0x1000);
  void* pointer = value->Allocate(40);
  EXPECT_EQ(value->block.pointer, pointer);
  EXPECT_EQ(value->block.size, 40u);
  EXPECT_EQ(value->block.memoryID, 1u);
  EXPECT_FALSE(value->isView);
  EXPECT_EQ(runtime->FindBlock(1).pointer, pointer);

  const NativeValueInfo info = value->Info();
  EXPECT_EQ(info.handle, 0x1000u);
  EXPECT_EQ(info.size, 40u);
  EXPECT_EQ(info.memoryID, 1u);
  EXPECT_EQ(info.pointer, pointer);

  EXPECT_EQ(Delete(value), "") << "only the runtime's own values print a line";
  EXPECT_TRUE(IsNoBlock(runtime->FindBlock(1)));
  EXPECT_EQ(runtime->FindBlock(0).pointer, other.pointer);
  EXPECT_EQ(runtime->Allocate(33).pointer, pointer);
}

TEST_F(HandlerValueTest, ASizeOfZeroLeavesTheValueWithoutABlock) {
  BlockValue value(runtime, 0x1000);
  EXPECT_EQ(value.Allocate(0), nullptr);
  EXPECT_TRUE(IsNoBlock(value.block));
}

TEST_F(HandlerValueTest, AViewStartsAtAnOffsetAndHasNoMemoryID) {
  runtime->Allocate(8);
  const MemoryBlock block = runtime->Allocate(64);
  ASSERT_EQ(block.memoryID, 1u);
  BlockValue value(runtime, 0x1000);
  value.SetView(block.pointer, 24, 16);
  EXPECT_EQ(value.block.pointer, static_cast<char*>(block.pointer) + 24);
  EXPECT_EQ(value.block.size, 16u);
  EXPECT_EQ(value.block.memoryID, 0u);
  EXPECT_TRUE(value.isView);
  EXPECT_EQ(value.viewBase, block.pointer);
}

TEST_F(HandlerValueTest, AViewReleasesTheBlockByItsStartAddress) {
  const MemoryBlock first = runtime->Allocate(64);
  auto* view = new BlockValue(runtime, 0x1000);
  view->SetView(first.pointer, 24, 16);
  // The view holds the only reference, so its destruction frees the block.
  delete view;
  EXPECT_TRUE(IsNoBlock(runtime->FindBlock(first.memoryID)));
  EXPECT_EQ(runtime->Allocate(64).pointer, first.pointer);
}

TEST_F(HandlerValueTest, ANativeValueCopiesTheBlocksAddress) {
  auto* value = new NativeValue(runtime, 0x1000);
  EXPECT_EQ(value->data, nullptr);
  EXPECT_EQ(value->reserved, 0u);
  EXPECT_EQ(value->Allocate(40), value->block.pointer);
  EXPECT_NE(value->data, nullptr);
  EXPECT_EQ(value->data, value->block.pointer);
  EXPECT_EQ(value->reserved, 0u);
  Delete(value);
}

TEST_F(HandlerValueTest, ANativeViewCopiesTheAddressWithItsOffset) {
  const MemoryBlock block = runtime->Allocate(64);
  auto* value = new NativeValue(runtime, 0x1000);
  value->SetView(block.pointer, 12, 4);
  EXPECT_EQ(value->data, static_cast<char*>(block.pointer) + 12);
  EXPECT_EQ(value->block.pointer, value->data);
  Delete(value);
}

TEST_F(HandlerValueTest, TheOperationsAreVirtual) {
  auto* value = new NativeValue(runtime, 0x1000);
  BlockValue* base = value;
  base->Allocate(16);
  EXPECT_EQ(value->data, value->block.pointer);
  EXPECT_EQ(Delete(base), "[NQ_INFO][OPV]: NativeValue 4096 dealloc\n");
  EXPECT_TRUE(IsNoBlock(runtime->FindBlock(0)));
}

TEST_F(HandlerValueTest, ANativeValuePrintsItsKeyWhenDestroyed) {
  EXPECT_EQ(Delete(new NativeValue(runtime, 0x1000)), "[NQ_INFO][OPV]: NativeValue 4096 dealloc\n");
  EXPECT_EQ(Delete(new NativeValue(runtime, 0x7FFFF000u)),
            "[NQ_INFO][OPV]: NativeValue 2147479552 dealloc\n");
  // The number is printed as signed.
  EXPECT_EQ(Delete(new NativeValue(runtime, 0xFFFFF000u)),
            "[NQ_INFO][OPV]: NativeValue -4096 dealloc\n");
}

TEST_F(HandlerValueTest, TheLineIsTwoWrites) {
  auto* value = new NativeValue(runtime, 0x3000);
  EXPECT_THAT(WritesOf([value] { delete value; }),
              testing::ElementsAre("[NQ_INFO][OPV]: ", "NativeValue 12288 dealloc\n"));
  Delete(value);  // drops the parent's own reference
}

// An owner that prints when its runtime is read and when it is deleted.
class TellingOwner : public HandlerOwner {
 public:
  explicit TellingOwner(EngineRuntime* runtime) : runtime(runtime) {}
  ~TellingOwner() override { std::printf("owner deleted\n"); }
  EngineRuntime* Runtime() override {
    std::printf("runtime asked for\n");
    return runtime;
  }

 private:
  EngineRuntime* const runtime;
};

TEST_F(HandlerValueTest, DestructionPrintsThenReleasesTheBlockAndTheOwnerLast) {
  auto* owner = new TellingOwner(runtime);
  auto* value = new NativeValue(owner, 0x2000);
  owner->DropReference();
  EXPECT_EQ(Delete(value),
            "[NQ_INFO][OPV]: NativeValue 8192 dealloc\n"
            "runtime asked for\n"
            "owner deleted\n");
}

}  // namespace
}  // namespace nq::engine
