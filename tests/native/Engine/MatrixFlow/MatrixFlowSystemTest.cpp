// Command buffers: handles, blocks, resizing, release.
#include "Engine/MatrixFlow/MatrixFlowSystem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "tests/native/Engine/MatrixFlow/MatrixFlowScene.h"

namespace nq::engine {
namespace {

class MatrixFlowSystemTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ("", scene.Problem()); }

  int32_t Execute(uint32_t handle) {
    int32_t code = -1;
    EXPECT_TRUE(scene.Execute(handle, &code)) << "no defined result";
    return code;
  }
  static bool IsNothing(const NativeValueInfo& info) {
    return info.handle == 0 && info.size == 0 && info.memoryID == 0 && info.pointer == nullptr;
  }

  MatrixFlowScene scene;
};

TEST_F(MatrixFlowSystemTest, HandlesAreIssuedInOrderAndBuffersAreZeroed) {
  EngineCore* core = scene.Core();
  const MemoryBlock used = scene.Runtime()->Allocate(64);
  std::memset(used.pointer, 0xAB, 64);
  scene.Runtime()->Release(used);
  const NativeValueInfo first = core->CreateCommandBuffer(64);
  EXPECT_EQ(0x1000u, first.handle);
  EXPECT_EQ(64u, first.size);
  EXPECT_EQ(1u, first.memoryID);
  ASSERT_EQ(used.pointer, first.pointer);
  for (uint32_t i = 0; i < 64; ++i) {
    EXPECT_EQ(0, static_cast<uint8_t*>(first.pointer)[i]);
  }
  EXPECT_EQ(first.pointer, scene.Runtime()->FindBlock(1).pointer);
  const NativeValueInfo second = core->CreateCommandBuffer(1000);
  EXPECT_EQ(0x2000u, second.handle);
  EXPECT_EQ(2u, second.memoryID);
  core->ReleaseCommandBuffer(first.handle);
  core->ReleaseCommandBuffer(second.handle);
}

TEST_F(MatrixFlowSystemTest, ABufferOfSize0IsRefusedAndUsesNoHandle) {
  EXPECT_TRUE(IsNothing(scene.Core()->CreateCommandBuffer(0)));
  EXPECT_EQ(0x1000u, scene.AddBuffer(16));
}

// The last release through a view removes the first block's ID from the index. It then names
// nothing, not even in a stream in that block.
TEST_F(MatrixFlowSystemTest, AMemoryIDRemovedFromTheIndexGives4EvenInItsOwnBuffer) {
  EngineCore* core = scene.Core();
  EngineRuntime* runtime = scene.Runtime();
  const NativeValueInfo buffer = core->CreateCommandBuffer(64);
  ASSERT_EQ(0u, buffer.memoryID);
  const MemoryBlock other = runtime->Allocate(64);
  const auto execute = [&](const std::vector<uint32_t>& words) {
    uint32_t* stream = static_cast<uint32_t*>(buffer.pointer);
    stream[0] = static_cast<uint32_t>(4 * words.size());
    std::copy(words.begin(), words.end(), stream + 1);
    return core->ExecuteCommandBuffer(buffer.handle);
  };
  const uint32_t id = other.memoryID;
  ASSERT_EQ(0, execute({1000, 0, 60, 0, 56}));

  const NativeValueInfo viewed = runtime->CreateValue(16);
  const NativeValueInfo view = runtime->CreateView(viewed.pointer, 0, 16);
  runtime->ReleaseValue(viewed.handle);
  runtime->ReleaseValue(view.handle);
  ASSERT_EQ(nullptr, runtime->FindBlock(0).pointer);
  for (const std::vector<uint32_t>& words : std::vector<std::vector<uint32_t>>{
           {1000, 0, 60, id, 0},
           {1000, id, 0, 0, 60},
           {1001, id, 0, id, 0, 0, 60},
           {1000, 0, 0xFFFFFFFC, id, 0},  // its end wraps to 0
           {9000, 0, 0, 0, id, 0},        // of no bytes
           {1000, 0xFFFFFFFF, 60, id, 0},
           {1000, 0xFFFFFFFF, 0xFFFFFFFC, id, 0},
       }) {
    EXPECT_EQ(4, execute(words)) << testing::PrintToString(words);
  }
  EXPECT_EQ(0, execute({1000, id, 4, id, 0}));
  runtime->Release(other);
  core->ReleaseCommandBuffer(buffer.handle);
}

TEST_F(MatrixFlowSystemTest, ANewReaderCoversItsBlockAndHasNoLimits) {
  const uint32_t buffer = scene.AddBuffer(100);
  EXPECT_EQ(100u, scene.Reader(buffer).Capacity());
  EXPECT_EQ(0u, scene.Reader(buffer).Position());
  EXPECT_EQ(0u, scene.Reader(buffer).LimitCount());
}

TEST_F(MatrixFlowSystemTest, AReleasedHandleIsIssuedAgain) {
  const uint32_t first = scene.AddBuffer(64);
  const uint32_t second = scene.AddBuffer(64);
  const uint32_t firstID = scene.IDOf(first);
  scene.ReleaseBuffer(first);
  EXPECT_EQ(nullptr, scene.Runtime()->FindBlock(firstID).pointer);
  EXPECT_NE(nullptr, scene.Runtime()->FindBlock(scene.IDOf(second)).pointer);
  EXPECT_EQ(first, scene.AddBuffer(64));
  EXPECT_NE(firstID, scene.IDOf(first));
  EXPECT_EQ(0, Execute(first));
}

TEST_F(MatrixFlowSystemTest, AnyHandleOfItsKeyReleasesABufferAndUnknownOnesAreIgnored) {
  EngineCore* core = scene.Core();
  const NativeValueInfo info = core->CreateCommandBuffer(64);
  core->ReleaseCommandBuffer(0);
  core->ReleaseCommandBuffer(0x9000);
  core->ReleaseCommandBuffer(5);
  EXPECT_NE(nullptr, scene.Runtime()->FindBlock(info.memoryID).pointer);
  core->ReleaseCommandBuffer(info.handle + 7);
  EXPECT_EQ(nullptr, scene.Runtime()->FindBlock(info.memoryID).pointer);
  core->ReleaseCommandBuffer(info.handle);
  EXPECT_EQ(1, Execute(info.handle));
}

TEST_F(MatrixFlowSystemTest, ABufferThatGrowsMovesWithItsContent) {
  const uint32_t buffer = scene.AddBuffer(40);
  const uint32_t block = scene.AddFloats({1, 2});
  scene.Write(buffer, {1001, block, 0, block, 4, block, 0});
  EXPECT_EQ(0, Execute(buffer));
  EXPECT_EQ(0, Execute(buffer));
  const uint32_t oldID = scene.IDOf(buffer);
  // The scene compares the whole content: the old bytes, and zeros after them.
  const NativeValueInfo info = scene.Resize(buffer, 800);
  EXPECT_EQ(buffer, info.handle);
  EXPECT_EQ(800u, info.size);
  EXPECT_NE(oldID, info.memoryID);
  EXPECT_EQ(28u, scene.Word(info.memoryID, 0));
  EXPECT_EQ(1001u, scene.Word(info.memoryID, 4));
  EXPECT_EQ(0u, scene.Word(info.memoryID, 40));
  EXPECT_EQ(nullptr, scene.Runtime()->FindBlock(oldID).pointer);
  EXPECT_EQ(800u, scene.Runtime()->FindBlock(info.memoryID).size);
  EXPECT_EQ(800u, scene.Reader(buffer).Capacity());
  EXPECT_EQ(0u, scene.Reader(buffer).LimitCount()) << "a reader of its own";
  EXPECT_EQ(0, Execute(buffer));
  EXPECT_EQ(7.0f, scene.Float(block, 0));
}

TEST_F(MatrixFlowSystemTest, ABufferMovesEvenWithinItsSizeClass) {
  const uint32_t buffer = scene.AddBuffer(33);
  const uint32_t oldID = scene.IDOf(buffer);
  const NativeValueInfo info = scene.Resize(buffer, 34);
  EXPECT_EQ(34u, info.size);
  EXPECT_NE(oldID, info.memoryID);
}

TEST_F(MatrixFlowSystemTest, ABufferNeverShrinks) {
  const uint32_t buffer = scene.AddBuffer(100);
  EXPECT_EQ(0, Execute(buffer));
  const uint32_t memoryID = scene.IDOf(buffer);
  void* pointer = scene.Runtime()->FindBlock(memoryID).pointer;
  for (const uint32_t size : {100u, 99u, 1u, 0u}) {
    const NativeValueInfo info = scene.Resize(buffer, size);
    EXPECT_EQ(buffer, info.handle);
    EXPECT_EQ(100u, info.size);
    EXPECT_EQ(memoryID, info.memoryID);
    EXPECT_EQ(pointer, info.pointer);
  }
  EXPECT_EQ(1u, scene.Reader(buffer).LimitCount()) << "the same reader";
}

TEST_F(MatrixFlowSystemTest, ResizingAnUnknownBufferReturnsAllZero) {
  EXPECT_TRUE(IsNothing(scene.Core()->ResizeCommandBuffer(0x5000, 64)));
  EXPECT_TRUE(IsNothing(scene.Core()->ResizeCommandBuffer(0, 64)));
  const uint32_t buffer = scene.AddBuffer(64);
  scene.ReleaseBuffer(buffer);
  EXPECT_TRUE(IsNothing(scene.Core()->ResizeCommandBuffer(buffer, 640)));
}

TEST_F(MatrixFlowSystemTest, AHandleWithAnElementPartResizesTheBufferOfItsKey) {
  const NativeValueInfo old = scene.Core()->CreateCommandBuffer(64);
  const NativeValueInfo info = scene.Core()->ResizeCommandBuffer(old.handle + 9, 128);
  EXPECT_EQ(old.handle, info.handle);
  EXPECT_EQ(128u, info.size);
  scene.Core()->ReleaseCommandBuffer(old.handle);
}

TEST_F(MatrixFlowSystemTest, ReferencesToABufferThatMovedGive4) {
  const uint32_t target = scene.AddBuffer(64);
  const uint32_t block = scene.AddFloats({1});
  const uint32_t buffer = scene.AddBuffer(64);
  const uint32_t oldID = scene.IDOf(target);
  scene.Write(buffer, {1000, oldID, 60, block, 0});
  EXPECT_EQ(0, Execute(buffer));
  scene.Resize(target, 128);
  EXPECT_EQ(1.0f, scene.Float(scene.IDOf(target), 60));
  EXPECT_EQ(4, Execute(buffer));
  scene.Write(buffer, {1000, scene.IDOf(target), 124, block, 0});
  EXPECT_EQ(0, Execute(buffer));
  EXPECT_EQ(1.0f, scene.Float(scene.IDOf(target), 124));
}

TEST_F(MatrixFlowSystemTest, CallsFindABufferThatMoved) {
  const uint32_t block = scene.AddFloats({1, 2});
  const uint32_t callee = scene.AddBuffer(64);
  const uint32_t buffer = scene.AddBuffer(64);
  scene.Write(callee, {1000, block, 0, block, 4});
  scene.Write(buffer, {1, callee});
  scene.Resize(callee, 700);
  EXPECT_EQ(0, Execute(buffer));
  EXPECT_EQ(2.0f, scene.Float(block, 0));
  scene.ReleaseBuffer(callee);
  EXPECT_EQ(1, Execute(buffer));
}

TEST_F(MatrixFlowSystemTest, EachBufferHoldsAReferenceOnTheCore) {
  EngineRuntime* runtime = new EngineRuntime(new MemoryAllocator);
  EngineCore* core = new EngineCore(runtime);
  runtime->DropReference();
  const NativeValueInfo small = core->CreateCommandBuffer(64);
  const NativeValueInfo large = core->CreateCommandBuffer(5000);
  core->DropReference();
  // The core lives on, and is destroyed with the last buffer: otherwise the leak checker reports
  // it.
  EXPECT_EQ(0, core->ExecuteCommandBuffer(small.handle));
  core->ReleaseCommandBuffer(small.handle);
  EXPECT_EQ(0, core->ExecuteCommandBuffer(large.handle));
  core->ReleaseCommandBuffer(large.handle);
}

}  // namespace
}  // namespace nq::engine
