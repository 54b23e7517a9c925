// The intrusive reference count.
#include "Common/Def/RefCounted.h"

#include <gtest/gtest.h>

namespace nq::engine {
namespace {

class Counted : public RefCounted {
 public:
  explicit Counted(int* deleted) : deleted(deleted) {}
  ~Counted() override { ++*deleted; }

 private:
  int* const deleted;
};

TEST(RefCountedTest, TheCreatorHoldsTheFirstReferenceAndDroppingTheLastDeletesTheObject) {
  int deleted = 0;
  RefCounted* object = new Counted(&deleted);
  EXPECT_EQ(object->ReferenceCount(), 1u);
  object->AddReference();
  object->AddReference();
  EXPECT_EQ(object->ReferenceCount(), 3u);
  object->DropReference();
  EXPECT_EQ(object->ReferenceCount(), 2u);
  object->DropReference();
  EXPECT_EQ(object->ReferenceCount(), 1u);
  EXPECT_EQ(deleted, 0);
  object->DropReference();
  EXPECT_EQ(deleted, 1);
}

}  // namespace
}  // namespace nq::engine
