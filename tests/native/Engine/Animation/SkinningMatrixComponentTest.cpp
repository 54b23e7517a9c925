// Products of bones and inverse bind matrices.
#include "Engine/Animation/SkinningMatrixComponent.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "Common/Def/Log.h"
#include "tests/native/Engine/Animation/AnimationScene.h"
#include "tests/native/Engine/Entity/ReferenceScene.h"

namespace nq::engine {
namespace {

constexpr uint32_t kPoison = 0x7A7A7A7Au;

const std::vector<float> kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

std::vector<float> RandomMatrices(AnimationRandom* random, size_t count) {
  std::vector<float> matrices;
  for (size_t i = 0; i < 16 * count; ++i) {
    matrices.push_back(random->Real(-2, 2));
  }
  return matrices;
}

class SkinningMatrixComponentTest : public AnimationSceneTest {
 protected:
  // A component for these bones, its results poisoned.
  uint32_t AddSkin(uint32_t bones, const std::vector<uint32_t>& entities) {
    const uint32_t count = static_cast<uint32_t>(entities.size());
    const uint32_t skin = scene.AddSkinning(count);
    std::memset(scene.SkinningBlockOf(skin) + 4 + 8 * count, 0x7A, 64 * count);
    scene.SetBones(skin, bones);
    for (uint32_t i = 0; i < count; ++i) {
      scene.SetBone(skin, i, i, entities[i]);
    }
    return skin;
  }

  // Rotated, translated and scaled 3D entities in a chain, refreshed.
  uint32_t AddBent(uint32_t count) {
    const uint32_t first = scene.Add3D(static_cast<int32_t>(count));
    scene.AddRoot(first);
    for (uint32_t i = 0; i < count; ++i) {
      Entity3DRecord& record = scene.Record3D(first + i);
      const float f = static_cast<float>(i + 1);
      record.rotation[0] = 0.3f * f;
      record.rotation[1] = -0.2f * f;
      scene.MoveTo(first + i, f, -f, 0.5f * f);
      scene.ScaleTo(first + i, 1, 1.25f, 0.75f);
      if (i != 0) {
        scene.Link(first + i - 1, first + i);
      }
      scene.Dirty(first + i);
    }
    scene.Refresh();
    return first;
  }

  // Equal numbers, not bits: a product with the identity loses the sign of a zero.
  static ::testing::AssertionResult Equal(const float* expected, const float* actual,
                                          size_t count) {
    for (size_t i = 0; i < count; ++i) {
      if (expected[i] != actual[i]) {
        return ::testing::AssertionFailure()
               << "element " << i << " is " << actual[i] << ", expected " << expected[i];
      }
    }
    return ::testing::AssertionSuccess();
  }

  uint32_t Word(const float* results, size_t byte) {
    uint32_t word;
    std::memcpy(&word, reinterpret_cast<const uint8_t*>(results) + byte, 4);
    return word;
  }
};

TEST_F(SkinningMatrixComponentTest, ABlockHas72BytesPerBoneAnd4) {
  EXPECT_EQ(76u, scene.Core()->CreateSkinningMatrixComponent(1).size);
  EXPECT_EQ(724u, scene.Core()->CreateSkinningMatrixComponent(10).size);
  scene.Core()->ReleaseSkinningMatrixComponent(0x1000);
  scene.Core()->ReleaseSkinningMatrixComponent(0x2000);
}

TEST_F(SkinningMatrixComponentTest, ABlockReadsAsZeros) {
  const NativeValueInfo info = scene.Core()->CreateSkinningMatrixComponent(3);
  for (uint32_t i = 0; i < info.size; ++i) {
    ASSERT_EQ(0, static_cast<const uint8_t*>(info.pointer)[i]) << i;
  }
  const SkinningMatrixComponent* component =
      scene.Animation()->FindSkinningMatrixComponent(info.handle);
  EXPECT_EQ(3u, component->count);
  EXPECT_EQ(info.pointer, component->data);
  EXPECT_EQ(scene.Core(), component->core);
  scene.Core()->ReleaseSkinningMatrixComponent(info.handle);
}

TEST_F(SkinningMatrixComponentTest, ACountOf0CreatesNone) {
  const NativeValueInfo info = scene.Core()->CreateSkinningMatrixComponent(0);
  EXPECT_EQ(0u, info.handle);
  EXPECT_EQ(0u, info.size);
  EXPECT_EQ(0u, info.memoryID);
  EXPECT_EQ(nullptr, info.pointer);
  EXPECT_EQ(0x1000u, scene.AddSkinning(1)) << "no handle was used";
}

TEST_F(SkinningMatrixComponentTest, TheIdentityGivesTheWorldMatrix) {
  const uint32_t bone = AddBent(2) + 1;
  const uint32_t skin = AddSkin(scene.AddBones(kIdentity), {bone});
  scene.Skin(skin);
  EXPECT_TRUE(Equal(scene.At(bone).worldMatrix(), scene.ResultsOf(skin), 16));
}

TEST_F(SkinningMatrixComponentTest, TheBonesWorldMatrixMultipliesFromTheLeft) {
  // Scale by two in x, then translate by one; in the other order it would be two.
  std::vector<float> move = kIdentity;
  move[12] = 1;
  const uint32_t bone = scene.Add3D();
  scene.AddRoot(bone);
  scene.ScaleTo(bone, 2, 1, 1);
  scene.Settle({bone});
  const uint32_t skin = AddSkin(scene.AddBones(move), {bone});
  scene.Skin(skin);
  EXPECT_EQ(2.0f, scene.ResultsOf(skin)[0]);
  EXPECT_EQ(2.0f, scene.ResultsOf(skin)[12]);
}

TEST_F(SkinningMatrixComponentTest, EachBoneTakesTheMatrixOfItsIndex) {
  AnimationRandom random(3);
  const std::vector<float> matrices = RandomMatrices(&random, 4);
  const uint32_t first = AddBent(3);
  const uint32_t skin = AddSkin(scene.AddBones(matrices), {first + 2, first, first + 1, first});
  const uint32_t indices[] = {3, 0, 3, 1};
  const uint32_t entities[] = {first + 2, first, first + 1, first};
  for (uint32_t i = 0; i < 4; ++i) {
    scene.SetBone(skin, i, indices[i], entities[i]);
  }
  scene.Skin(skin);
  for (uint32_t i = 0; i < 4; ++i) {
    float product[16];
    ReferenceProduct(scene.At(entities[i]).worldMatrix(), &matrices[size_t{16} * indices[i]],
                     product);
    EXPECT_TRUE(SameFloats(product, scene.ResultsOf(skin) + size_t{16} * i, 16)) << i;
  }
}

TEST_F(SkinningMatrixComponentTest, A2DBoneGivesA3x3MatrixEvery36Bytes) {
  AnimationRandom random(4);
  const std::vector<float> matrices = RandomMatrices(&random, 2);
  const uint32_t first = scene.Add2D(2);
  for (uint32_t i = 0; i < 2; ++i) {
    Entity2DRecord& record = scene.Record2D(first + i);
    record.rotation = 0.5f;
    record.position[0] = 3;
    record.position[1] = static_cast<float>(i);
    scene.AddRoot(first + i);
  }
  scene.Settle({first, first + 1});
  const uint32_t skin = AddSkin(scene.AddBones(matrices), {first, first + 1});
  scene.Skin(skin);
  const int kept[9] = {0, 1, 3, 4, 5, 7, 12, 13, 15};
  for (uint32_t i = 0; i < 2; ++i) {
    float product[16];
    ReferenceProduct(scene.At(first + i).worldMatrix(), &matrices[size_t{16} * i], product);
    for (size_t k = 0; k < 9; ++k) {
      EXPECT_TRUE(SameFloat(product[kept[k]], scene.ResultsOf(skin)[9 * i + k])) << i << ' ' << k;
    }
  }
  for (size_t byte = 72; byte < 128; byte += 4) {
    EXPECT_EQ(kPoison, Word(scene.ResultsOf(skin), byte)) << "nothing else is written";
  }
}

TEST_F(SkinningMatrixComponentTest, MixedKindsOverwriteEachOthersResults) {
  const uint32_t solid = AddBent(1);
  const uint32_t flat = scene.Add2D();
  scene.AddRoot(flat);
  scene.Settle({flat});
  const std::vector<float> two = [] {
    std::vector<float> matrices = kIdentity;
    matrices.insert(matrices.end(), kIdentity.begin(), kIdentity.end());
    return matrices;
  }();
  const uint32_t skin = AddSkin(scene.AddBones(two), {solid, flat});
  scene.Skin(skin);
  const float* world = scene.At(solid).worldMatrix();
  EXPECT_TRUE(Equal(world, scene.ResultsOf(skin), 9));
  const float plane[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  EXPECT_TRUE(SameFloats(plane, scene.ResultsOf(skin) + 9, 9)) << "byte 36, not 64";
}

TEST_F(SkinningMatrixComponentTest, WorldMatricesAreReadAsLastComputed) {
  const uint32_t bone = AddBent(1);
  const uint32_t skin = AddSkin(scene.AddBones(kIdentity), {bone});
  const std::vector<float> before(scene.At(bone).worldMatrix(), scene.At(bone).worldMatrix() + 16);
  scene.MoveTo(bone, 50, 0, 0);
  std::memset(scene.Record3D(bone).worldMatrix, 0x5A, 64);
  scene.Dirty(bone);
  const uint32_t mark = scene.At(bone).dirtyState();
  scene.Skin(skin);
  EXPECT_TRUE(Equal(before.data(), scene.ResultsOf(skin), 16))
      << "of the entity, not of the record";
  EXPECT_EQ(mark, scene.At(bone).dirtyState());
  EXPECT_EQ(1u, scene.DirtyList().size());
  scene.Refresh();
  scene.Skin(skin);
  EXPECT_EQ(50.0f, scene.ResultsOf(skin)[12]);
}

TEST_F(SkinningMatrixComponentTest, InactiveBonesWithoutARootCountToo) {
  const uint32_t bone = scene.Add3D();
  scene.Deactivate(bone);
  scene.RunCommands();
  const uint32_t skin = AddSkin(scene.AddBones(kIdentity), {bone});
  scene.Skin(skin);
  for (size_t i = 0; i < 16; ++i) {
    EXPECT_EQ(0.0f, scene.ResultsOf(skin)[i]) << "nothing has computed it yet";
  }
}

TEST_F(SkinningMatrixComponentTest, TheScriptsPartOfTheBlockIsUnchanged) {
  const uint32_t first = AddBent(2);
  AnimationRandom random(5);
  const uint32_t skin = AddSkin(scene.AddBones(RandomMatrices(&random, 2)), {first, first + 1});
  const std::vector<uint8_t> before(scene.SkinningBlockOf(skin), scene.SkinningBlockOf(skin) + 20);
  scene.Skin(skin);
  EXPECT_EQ(0, std::memcmp(before.data(), scene.SkinningBlockOf(skin), 20));
}

TEST_F(SkinningMatrixComponentTest, TheModelMayBeChangedAtAnyTime) {
  const uint32_t bone = AddBent(1);
  std::vector<float> twice = kIdentity;
  twice[0] = 2;
  const uint32_t plain = scene.AddBones(kIdentity);
  const uint32_t other = scene.AddBones(twice);
  const uint32_t skin = AddSkin(plain, {bone});
  scene.Skin(skin);
  const float once = scene.ResultsOf(skin)[0];
  scene.SetBones(skin, other + 0xFFF);
  scene.Skin(skin);
  EXPECT_EQ(2 * once, scene.ResultsOf(skin)[0]) << "the element of the handle does not count";
}

TEST_F(SkinningMatrixComponentTest, ABoneWhoseIndexIsPastTheMatricesGetsNoResult) {
  const uint32_t first = AddBent(2);
  const uint32_t skin = AddSkin(scene.AddBones(kIdentity), {first, first + 1, first});
  scene.SetBone(skin, 1, 0xFFFFFFFFu, first + 1);
  scene.SetBone(skin, 2, 0, first);
  scene.Skin(skin);
  EXPECT_TRUE(Equal(scene.At(first).worldMatrix(), scene.ResultsOf(skin), 16));
  for (size_t byte = 64; byte < 128; byte += 4) {
    EXPECT_EQ(kPoison, Word(scene.ResultsOf(skin), byte));
  }
  EXPECT_TRUE(Equal(scene.At(first).worldMatrix(), scene.ResultsOf(skin) + 32, 16));
  scene.SetBones(skin, scene.AddBones({}));
  scene.Skin(skin);
  EXPECT_TRUE(Equal(scene.At(first).worldMatrix(), scene.ResultsOf(skin), 16)) << "as it was";
}

TEST_F(SkinningMatrixComponentTest, UnknownHandlesAreIgnored) {
  for (const uint32_t handle : {0u, 0x1000u, 0x5000u, 0xFFFFFFFFu}) {
    scene.Skin(handle);
  }
}

constexpr char kSource[] = "..\\..\\Engine\\Animation\\SkinningMatrixComponent";

TEST(SkinningMatrixComponentDeathTest, AnInvalidModelHandleIsFatal) {
  for (const uint32_t handle : {0u, 0x2000u, 0xFFFFFFFFu}) {
    EXPECT_TRUE(
        EndsWith("[NQ_FATAL][Engine]: bone inverse model not found\n", kSource, 22, [handle] {
          AnimationScene scene;
          scene.AddBones(kIdentity);
          const uint32_t skin = scene.AddSkinning(1);
          scene.SetBones(skin, handle);
          scene.SetBone(skin, 0, 0, scene.Add3D());
          scene.Skin(skin);
        }));
  }
}

TEST(SkinningMatrixComponentDeathTest, AReleasedModelIsFatalEvenWithoutEntities) {
  EXPECT_TRUE(EndsWith("[NQ_FATAL][Engine]: bone inverse model not found\n", kSource, 22, [] {
    AnimationScene scene;
    const uint32_t bones = scene.AddBones(kIdentity);
    const uint32_t skin = scene.AddSkinning(1);
    scene.SetBones(skin, bones);
    scene.ReleaseBones(bones);
    scene.Skin(skin);
  }));
}

// What the SIGABRT handler prints: the first words of three results.
const uint8_t* abortedResults;

void PrintResults(int) {
  for (size_t i = 0; i < 3; ++i) {
    uint32_t word;
    std::memcpy(&word, abortedResults + 64 * i, 4);
    std::fprintf(stdout, "%08X\n", word);
  }
  std::fflush(stdout);
  std::signal(SIGABRT, SIG_DFL);
}

TEST(SkinningMatrixComponentDeathTest, AMissingBoneIsFatalAndEarlierResultsRemain) {
  for (const bool wasReleased : {false, true}) {
    EXPECT_TRUE(EndsWith("[NQ_FATAL][Engine]: entity not found\n3F800000\n7A7A7A7A\n7A7A7A7A\n",
                         kSource, 27, [wasReleased] {
                           AnimationScene scene;
                           const uint32_t bone = scene.Add3D();
                           scene.AddRoot(bone);
                           scene.Settle({bone});
                           const uint32_t other = scene.Add3D();
                           const uint32_t skin = scene.AddSkinning(3);
                           scene.SetBones(skin, scene.AddBones(kIdentity));
                           scene.SetBone(skin, 0, 0, bone);
                           scene.SetBone(skin, 1, 0, wasReleased ? other : bone + 1);
                           scene.SetBone(skin, 2, 0, bone);
                           if (wasReleased) {
                             scene.Release(other);
                           }
                           uint8_t* results = scene.SkinningBlockOf(skin) + 4 + 24;
                           std::memset(results, 0x7A, 192);
                           abortedResults = results;
                           std::signal(SIGABRT, PrintResults);
                           scene.Skin(skin);
                         }));
  }
}

TEST(SkinningMatrixComponentDeathTest, AMissingBoneIsFatalEvenIfItsIndexIsInvalid) {
  EXPECT_TRUE(EndsWith("[NQ_FATAL][Engine]: entity not found\n", kSource, 27, [] {
    AnimationScene scene;
    const uint32_t skin = scene.AddSkinning(1);
    scene.SetBones(skin, scene.AddBones({}));
    scene.SetBone(skin, 0, 5, 0xFFFFFFFFu);
    scene.Skin(skin);
  }));
}

}  // namespace
}  // namespace nq::engine
