// Handles issued, released and reused.
#include "Common/Def/HandlerAllocator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <vector>

#include "tests/native/Common/Def/ChildProcess.h"

namespace nq::engine {
namespace {

// An owner without memory.
class PlainOwner : public HandlerOwner {
 public:
  EngineRuntime* Runtime() override { return nullptr; }
};

int deletedValues = 0;
std::vector<uint32_t> deletedKeys;

class CountedValue : public HandlerValue {
 public:
  using HandlerValue::HandlerValue;
  ~CountedValue() override {
    ++deletedValues;
    if (deletedKeys.size() < 100) {
      deletedKeys.push_back(handle);
    }
  }
};

class HandlerAllocatorTest : public testing::Test {
 protected:
  HandlerAllocatorTest() : owner(new PlainOwner), table(new HandlerAllocator<CountedValue>(owner)) {
    deletedValues = 0;
    deletedKeys.clear();
  }

  ~HandlerAllocatorTest() override {
    delete table;
    EXPECT_EQ(owner->ReferenceCount(), 1u);
    owner->DropReference();
  }

  uint32_t Take() {
    const CountedValue* value = table->Allocate();
    return value == nullptr ? 0 : value->handle;
  }

  void Take(uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
      ASSERT_NE(table->Allocate(), nullptr);
    }
  }

  PlainOwner* owner;
  HandlerAllocator<CountedValue>* table;
};

TEST_F(HandlerAllocatorTest, AFreshTableIssuesSlotsFromOne) {
  EXPECT_EQ(Take(), 0x1000u);
  EXPECT_EQ(Take(), 0x2000u);
  EXPECT_EQ(Take(), 0x3000u);
  EXPECT_EQ(table->Count(), 3u);
}

TEST_F(HandlerAllocatorTest, AValueKnowsItsKeyAndHoldsAReferenceOnTheOwner) {
  EXPECT_EQ(owner->ReferenceCount(), 1u);
  CountedValue* value = table->Allocate();
  EXPECT_EQ(value->handle, 0x1000u);
  EXPECT_EQ(value->owner, owner);
  EXPECT_EQ(owner->ReferenceCount(), 2u);
  table->Allocate();
  EXPECT_EQ(owner->ReferenceCount(), 3u);
  table->Release(0x1000);
  EXPECT_EQ(owner->ReferenceCount(), 2u);
}

TEST_F(HandlerAllocatorTest, FindReturnsTheValueOfAKeyOrNull) {
  CountedValue* first = table->Allocate();
  CountedValue* second = table->Allocate();
  EXPECT_EQ(table->Find(0x1000), first);
  EXPECT_EQ(table->Find(0x2000), second);
  EXPECT_EQ(table->Find(0), nullptr);
  EXPECT_EQ(table->Find(0x3000), nullptr);
  EXPECT_EQ(table->Find(0xFFFFF000u), nullptr);
  table->Release(0x1000);
  EXPECT_EQ(table->Find(0x1000), nullptr);
  EXPECT_EQ(table->Find(0x2000), second);
}

TEST_F(HandlerAllocatorTest, AReleasedKeyIsTheNextToBeIssued) {
  Take(3);
  table->Release(0x2000);
  EXPECT_EQ(deletedValues, 1);
  EXPECT_EQ(Take(), 0x2000u);
  EXPECT_EQ(Take(), 0x4000u);
}

TEST_F(HandlerAllocatorTest, OfSeveralReleasedKeysTheMostRecentIsReusedFirst) {
  Take(5);
  table->Release(0x4000);
  table->Release(0x1000);
  table->Release(0x3000);
  EXPECT_EQ(Take(), 0x3000u);
  EXPECT_EQ(Take(), 0x1000u);
  table->Release(0x5000);
  EXPECT_EQ(Take(), 0x5000u);
  EXPECT_EQ(Take(), 0x4000u);
  EXPECT_EQ(Take(), 0x6000u);
}

TEST_F(HandlerAllocatorTest, AnyElementOfABatchReleasesTheBatch) {
  Take(2);
  table->Release(0x2005);
  EXPECT_THAT(deletedKeys, testing::ElementsAre(0x2000u));
  EXPECT_EQ(table->Find(0x2000), nullptr);
  EXPECT_NE(table->Find(0x1000), nullptr);
  EXPECT_EQ(Take(), 0x2000u) << "issued without the element part";
}

TEST_F(HandlerAllocatorTest, UnknownHandlesAreIgnored) {
  Take(2);
  table->Release(0);
  table->Release(0x5);
  table->Release(0xFFF);
  table->Release(0x3000);
  table->Release(0xFFFFFFFFu);
  EXPECT_EQ(deletedValues, 0);
  table->Release(0x2000);
  table->Release(0x2000);
  EXPECT_EQ(deletedValues, 1);
  EXPECT_EQ(table->Count(), 1u);
  EXPECT_EQ(Take(), 0x2000u);
  EXPECT_EQ(Take(), 0x3000u) << "no key was kept twice";
}

TEST_F(HandlerAllocatorTest, AStaleHandleReachesTheNewValueOfItsSlot) {
  table->Allocate();
  table->Release(0x1000);
  CountedValue* fresh = table->Allocate();
  EXPECT_EQ(table->Find(0x1000), fresh);
  table->Release(0x1000);
  EXPECT_EQ(deletedValues, 2);
}

TEST_F(HandlerAllocatorTest, TheStackOfFreeKeysHolds4096AndFurtherOnesAreLost) {
  Take(5000);
  for (uint32_t slot = 1; slot <= 5000; ++slot) {
    table->Release(slot << 12);
    ASSERT_EQ(deletedValues, static_cast<int>(slot)) << "deleted whether the key is kept or not";
  }
  EXPECT_EQ(table->Count(), 0u);
  for (uint32_t slot = 4096; slot >= 1; --slot) {
    ASSERT_EQ(Take(), slot << 12);
  }
  // Slots 4097 to 5000 are not reused, and the counter never falls.
  EXPECT_EQ(Take(), 5001u << 12);
  EXPECT_EQ(Take(), 5002u << 12);
  EXPECT_EQ(table->Find(4097u << 12), nullptr);
}

TEST_F(HandlerAllocatorTest, AllSlotNumbersAreIssuedAndTheNextRequestOverflows) {
  for (uint32_t slot = 1; slot <= 0xFFFFF; ++slot) {
    ASSERT_EQ(Take(), slot << 12);
  }
  testing::internal::CaptureStdout();
  EXPECT_EQ(table->Allocate(), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[NQ_WARN][HandlerAllocator]: Handler overflow");
  EXPECT_THAT(WritesOf([this] { table->Allocate(); }),
              testing::ElementsAre("[NQ_WARN][HandlerAllocator]: ", "Handler overflow"));
  EXPECT_EQ(owner->ReferenceCount(), 1u + 0xFFFFF);

  // A released key can be issued again, but no other.
  table->Release(0xFFFFF123u);
  testing::internal::CaptureStdout();
  EXPECT_EQ(Take(), 0xFFFFF000u);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  testing::internal::CaptureStdout();
  EXPECT_EQ(table->Allocate(), nullptr);
  EXPECT_EQ(table->Allocate(), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[NQ_WARN][HandlerAllocator]: Handler overflow"
            "[NQ_WARN][HandlerAllocator]: Handler overflow");
}

TEST_F(HandlerAllocatorTest, ValuesAreVisitedInAscendingOrderOfKeys) {
  Take(5);
  table->Release(0x4000);
  table->Release(0x1000);
  Take(1);
  std::vector<uint32_t> keys;
  table->ForEach([&keys](CountedValue* value) { keys.push_back(value->handle); });
  EXPECT_THAT(keys, testing::ElementsAre(0x1000u, 0x2000u, 0x3000u, 0x5000u));
}

TEST_F(HandlerAllocatorTest, ReleaseAllDeletesRemainingValues) {
  Take(4);
  table->Release(0x2000);
  deletedKeys.clear();
  table->ReleaseAll();
  EXPECT_THAT(deletedKeys, testing::ElementsAre(0x1000u, 0x3000u, 0x4000u));
  EXPECT_EQ(table->Count(), 0u);
  EXPECT_EQ(owner->ReferenceCount(), 1u);
}

TEST_F(HandlerAllocatorTest, DestroyingATableDeletesItsValues) {
  auto* other = new HandlerAllocator<CountedValue>(owner);
  other->Allocate();
  other->Allocate();
  delete other;
  EXPECT_EQ(deletedValues, 2);
  EXPECT_EQ(owner->ReferenceCount(), 1u);
}

TEST_F(HandlerAllocatorTest, EachTableIssuesItsOwnSlots) {
  HandlerAllocator<CountedValue> other(owner);
  Take(3);
  EXPECT_EQ(other.Allocate()->handle, 0x1000u);
}

// An owner that contains its table, as the engine's owners do.
class OwnerOfATable : public HandlerOwner {
 public:
  explicit OwnerOfATable(bool* deleted) : table(this), deleted(deleted) {}
  ~OwnerOfATable() override { *deleted = true; }
  EngineRuntime* Runtime() override { return nullptr; }

  HandlerAllocator<CountedValue> table;

 private:
  bool* const deleted;
};

TEST_F(HandlerAllocatorTest, ReleasingTheLastValueMayDeleteTheOwnerAndTheTableItself) {
  bool deleted = false;
  auto* holder = new OwnerOfATable(&deleted);
  holder->table.Allocate();
  holder->table.Allocate();
  holder->DropReference();
  EXPECT_FALSE(deleted);
  holder->table.Release(0x1000);
  EXPECT_FALSE(deleted);
  holder->table.Release(0x2000);
  EXPECT_TRUE(deleted);
  EXPECT_EQ(deletedValues, 2);
}

}  // namespace
}  // namespace nq::engine
