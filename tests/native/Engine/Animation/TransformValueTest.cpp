// Snapshots of entities' records, and writing them back.
#include "Engine/Animation/TransformValue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "tests/native/Engine/Animation/AnimationScene.h"
#include "tests/native/Engine/Entity/ReferenceScene.h"

namespace nq::engine {
namespace {

class TransformValueTest : public AnimationSceneTest {
 protected:
  // An entity whose record holds consecutive numbers: rotation 1 to 4, position 5 to 7, scale 8 to
  // 10.
  uint32_t AddNumbered(uint8_t rotationMode) {
    const uint32_t handle = scene.Add3D();
    Entity3DRecord& record = scene.Record3D(handle);
    record.rotationMode = rotationMode;
    float next = 1;
    for (float& number : record.rotation) {
      number = next++;
    }
    for (float& number : record.position) {
      number = next++;
    }
    for (float& number : record.scale) {
      number = next++;
    }
    return handle;
  }
};

TEST_F(TransformValueTest, TheDefaultIsTheIdentity) {
  TransformValue value;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(0.0f, value.position[i]);
    EXPECT_EQ(1.0f, value.scale[i]);
    EXPECT_EQ(0.0f, value.euler()[i]);
    EXPECT_EQ(0.0f, value.EulerAngles()[i]);
  }
  EXPECT_TRUE(value.storedAsQuaternion);
  EXPECT_TRUE(value.eulerValid);
  EXPECT_TRUE(value.quaternionValid());
  const float identity[4] = {1, 0, 0, 0};
  EXPECT_TRUE(SameFloats(identity, value.quaternion(), 4));
  EXPECT_TRUE(SameFloats(identity, value.Quaternion(), 4));
}

TEST_F(TransformValueTest, ASnapshotOfAQuaternionIsReversed) {
  for (const uint8_t mode : {1, 2, 0x80, 0xFF}) {
    TransformValue value = TransformValue::FromEntity(&scene.At(AddNumbered(mode)));
    EXPECT_TRUE(SameFloats({7, 6, 5}, value.position));
    EXPECT_TRUE(SameFloats({10, 9, 8}, value.scale));
    EXPECT_TRUE(SameFloats({4, 3, 2, 1}, value.quaternion()));
    EXPECT_TRUE(SameFloats({0, 0, 0}, value.euler()));
    EXPECT_TRUE(value.storedAsQuaternion);
    EXPECT_TRUE(value.quaternionValid());
    EXPECT_FALSE(value.eulerValid);
  }
}

TEST_F(TransformValueTest, ASnapshotOfAnglesIsReversed) {
  TransformValue value = TransformValue::FromEntity(&scene.At(AddNumbered(0)));
  EXPECT_TRUE(SameFloats({7, 6, 5}, value.position));
  EXPECT_TRUE(SameFloats({10, 9, 8}, value.scale));
  EXPECT_TRUE(SameFloats({3, 2, 1}, value.euler()));
  EXPECT_TRUE(SameFloats({0, 0, 0, 0}, value.quaternion()));
  EXPECT_FALSE(value.storedAsQuaternion);
  EXPECT_FALSE(value.quaternionValid());
  EXPECT_TRUE(value.eulerValid);
}

TEST_F(TransformValueTest, AQuaternionHasNoAngles) {
  TransformValue value = TransformValue::FromEntity(&scene.At(AddNumbered(1)));
  EXPECT_TRUE(SameFloats({0, 0, 0}, value.EulerAngles()));
  EXPECT_TRUE(value.eulerValid);
  EXPECT_TRUE(SameFloats({4, 3, 2, 1}, value.Quaternion())) << "it stays";
}

TEST_F(TransformValueTest, InvalidAnglesAreZeroedWhenRead) {
  TransformValue value = TransformValue::FromEntity(&scene.At(AddNumbered(0)));
  EXPECT_TRUE(SameFloats({3, 2, 1}, value.EulerAngles())) << "valid ones stay";
  TransformValue both;
  both.rotation.euler[1] = 0.5f;
  EXPECT_TRUE(SameFloats({0, 0.5f, 0}, both.EulerAngles())) << "whichever form goes back";
  value.eulerValid = false;
  EXPECT_TRUE(SameFloats({0, 0, 0}, value.EulerAngles()));
}

// q(y) * q(x) * q(z): about one axis at a time.
TEST_F(TransformValueTest, AnglesAreConvertedToAQuaternionWhenRead) {
  const float s = std::sin(0.25f);
  const float c = std::cos(0.25f);
  for (int axis = 0; axis < 3; ++axis) {
    const uint32_t handle = AddNumbered(0);
    float angles[3] = {0, 0, 0};
    angles[axis] = 0.5f;
    std::copy(angles, angles + 3, scene.Record3D(handle).rotation);
    TransformValue value = TransformValue::FromEntity(&scene.At(handle));
    const float* wzyx = value.Quaternion();
    EXPECT_TRUE(value.quaternionValid());
    EXPECT_NEAR(c, wzyx[0], 1e-7f);
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(i == axis ? s : 0.0f, wzyx[3 - i], 1e-7f) << axis;
    }
    EXPECT_TRUE(SameFloats({angles[2], angles[1], angles[0]}, value.EulerAngles()));
    EXPECT_FALSE(value.storedAsQuaternion) << "angles go back";
  }
}

TEST_F(TransformValueTest, AQuaternionIsWrittenBack) {
  const uint32_t handle = AddNumbered(0xFF);
  const TransformValue value = TransformValue::FromEntity(&scene.At(handle));
  Entity3DRecord before = scene.Record3D(handle);
  std::memset(&scene.Record3D(handle), 0x5A, 44);
  value.WriteTo(&scene.At(handle));
  before.rotationMode = 1;
  std::memset(before.unused, 0x5A, sizeof(before.unused));
  EXPECT_EQ(0, std::memcmp(&before, &scene.Record3D(handle), sizeof(before)));
}

TEST_F(TransformValueTest, AnglesAreWrittenBackWithoutTheFourthWord) {
  const uint32_t handle = AddNumbered(0);
  const TransformValue value = TransformValue::FromEntity(&scene.At(handle));
  Entity3DRecord before = scene.Record3D(handle);
  std::memset(&scene.Record3D(handle), 0x5A, 44);
  value.WriteTo(&scene.At(handle));
  std::memset(&before.rotation[3], 0x5A, 4);
  std::memset(before.unused, 0x5A, sizeof(before.unused));
  EXPECT_EQ(0, std::memcmp(&before, &scene.Record3D(handle), sizeof(before)));
}

TEST_F(TransformValueTest, TheDefaultIsWrittenBackAsAQuaternion) {
  const uint32_t handle = AddNumbered(0);
  TransformValue().WriteTo(&scene.At(handle));
  const Entity3DRecord& record = scene.Record3D(handle);
  EXPECT_EQ(1, record.rotationMode);
  EXPECT_TRUE(SameFloats({0, 0, 0, 1}, record.rotation));
  EXPECT_TRUE(SameFloats({0, 0, 0}, record.position));
  EXPECT_TRUE(SameFloats({1, 1, 1}, record.scale));
}

//   top
//    └ middle
//       ├ entity
//       │  └ below
//       └ sibling
TEST_F(TransformValueTest, WritingBuildsTheLocalMatrixAndMarksAncestors) {
  const uint32_t top = scene.Add3D(5);
  const uint32_t middle = top + 1;
  const uint32_t entity = top + 2;
  scene.AddRoot(top);
  scene.Link(top, middle);
  scene.Link(middle, entity);
  scene.Link(entity, top + 3);
  scene.Link(middle, top + 4);
  scene.Refresh();
  TransformValue value;
  value.position[0] = 3;  // z
  value.position[2] = 1;  // x
  value.scale[1] = 2;     // y
  value.WriteTo(&scene.At(entity));
  float local[16];
  ReferenceLocalMatrix3D(scene.At(entity).sharedRecord(), local);
  EXPECT_EQ(1.0f, local[12]);
  EXPECT_EQ(3.0f, local[14]);
  EXPECT_EQ(2.0f, local[5]);
  EXPECT_TRUE(SameFloats(local, scene.At(entity).localMatrix(), 16));
  const uint32_t marks[] = {1, 1, 2, 0, 0};
  for (uint32_t i = 0; i < 5; ++i) {
    EXPECT_EQ(marks[i], scene.At(top + i).dirtyState()) << i;
  }
  EXPECT_TRUE(scene.DirtyList().empty());
  EXPECT_EQ(1u, scene.At(entity).worldVersion()) << "nothing is computed";
}

TEST_F(TransformValueTest, ARoundTripKeepsEveryBit) {
  AnimationRandom random(7);
  const uint32_t from = scene.Add3D();
  const uint32_t to = scene.Add3D();
  for (int i = 0; i < 2000; ++i) {
    Entity3DRecord& record = scene.Record3D(from);
    record.rotationMode = static_cast<uint8_t>(random.Below(2));
    for (float* number = record.rotation; number != record.worldMatrix; ++number) {
      *number = random.Odd(-5, 5);
    }
    std::memset(&scene.Record3D(to), 0x5A, 44);
    const TransformValue value = TransformValue::FromEntity(&scene.At(from));
    const TransformValue copy = value;
    copy.WriteTo(&scene.At(to));
    const Entity3DRecord& written = scene.Record3D(to);
    const size_t rotationWords = record.rotationMode == 0 ? 3 : 4;
    ASSERT_EQ(record.rotationMode, written.rotationMode);
    ASSERT_TRUE(SameFloats(record.rotation, written.rotation, rotationWords));
    ASSERT_TRUE(SameFloats(record.position, written.position, 6));
    float local[16];
    ReferenceLocalMatrix3D(reinterpret_cast<const uint8_t*>(&written), local);
    ASSERT_TRUE(SameFloats(local, scene.At(to).localMatrix(), 16));
  }
}

}  // namespace
}  // namespace nq::engine
