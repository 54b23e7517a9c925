// An adapter of the benchmarks for a native animation runtime, and a runtime itself: the textbook's
// operations in plain C++, one bone after the other.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "bench/native/AnimationPeer.h"

namespace nq::bench {
namespace {

struct Transform {
  float rotation[4];  // x, y, z, w
  float position[3];
};

struct Matrix {
  float m[16];
};

// `to` at `share`, on the shorter way, normalised.
Transform Mix(const Transform& from, const Transform& to, float share) {
  float dot = 0;
  for (int i = 0; i < 4; ++i) {
    dot += from.rotation[i] * to.rotation[i];
  }
  const float sign = dot < 0 ? -1.0f : 1.0f;
  Transform mixed;
  float square = 0;
  for (int i = 0; i < 4; ++i) {
    mixed.rotation[i] = from.rotation[i] * (1 - share) + to.rotation[i] * (share * sign);
    square += mixed.rotation[i] * mixed.rotation[i];
  }
  const float scale = 1 / std::sqrt(square);
  for (float& number : mixed.rotation) {
    number *= scale;
  }
  for (int i = 0; i < 3; ++i) {
    mixed.position[i] = from.position[i] * (1 - share) + to.position[i] * share;
  }
  return mixed;
}

Matrix ToMatrix(const Transform& t) {
  const auto [x, y, z, w] = t.rotation;
  return Matrix{{1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w), 0,
                 2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w), 0,
                 2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y), 0,
                 t.position[0], t.position[1], t.position[2], 1}};
}

Matrix Multiply(const Matrix& a, const Matrix& b) {
  Matrix product;
  for (int column = 0; column < 4; ++column) {
    for (int row = 0; row < 4; ++row) {
      float sum = 0;
      for (int i = 0; i < 4; ++i) {
        sum += a.m[4 * i + row] * b.m[4 * column + i];
      }
      product.m[4 * column + row] = sum;
    }
  }
  return product;
}

class PlainPeer final : public AnimationPeer {
 public:
  void Prepare(const PeerModel& theModel, uint32_t characters) override {
    model = theModel;
    bones = static_cast<uint32_t>(model.parents.size());
    for (std::vector<Transform>& pose : poses) {
      pose.resize(size_t{characters} * bones);
    }
    matrices.resize(size_t{characters} * bones);
    skins.resize(size_t{characters} * bones);
  }

  void Sample(uint32_t character, uint32_t pose, uint32_t clipIndex, float seconds) override {
    const PeerClip& clip = model.clips[clipIndex];
    const float at = seconds * clip.keysPerSecond;
    const uint32_t key = std::min(static_cast<uint32_t>(at), clip.keys - 2);
    const Transform* from = reinterpret_cast<const Transform*>(clip.numbers.data()) + key * bones;
    Transform* to = poses[pose].data() + size_t{character} * bones;
    for (uint32_t bone = 0; bone < bones; ++bone) {
      to[bone] = Mix(from[bone], from[bones + bone], at - static_cast<float>(key));
    }
  }

  void Blend(uint32_t character, float share) override {
    const size_t first = size_t{character} * bones;
    for (size_t i = first; i < first + bones; ++i) {
      poses[0][i] = Mix(poses[0][i], poses[1][i], share);
    }
  }

  void ComputeMatrices(uint32_t character) override {
    const size_t first = size_t{character} * bones;
    for (uint32_t bone = 0; bone < bones; ++bone) {
      const Matrix local = ToMatrix(poses[0][first + bone]);
      const uint32_t parent = model.parents[bone];
      matrices[first + bone] = parent < bones ? Multiply(matrices[first + parent], local) : local;
    }
  }

  void ComputeSkin(uint32_t character) override {
    const size_t first = size_t{character} * bones;
    const Matrix* inverses = reinterpret_cast<const Matrix*>(model.inverseBinds.data());
    for (uint32_t bone = 0; bone < bones; ++bone) {
      skins[first + bone] = Multiply(matrices[first + bone], inverses[bone]);
    }
  }

  void ReadMatrix(uint32_t character, uint32_t bone, float* out) const override {
    std::copy_n(matrices[size_t{character} * bones + bone].m, 16, out);
  }
  void ReadSkin(uint32_t character, uint32_t bone, float* out) const override {
    std::copy_n(skins[size_t{character} * bones + bone].m, 16, out);
  }

 private:
  PeerModel model;
  uint32_t bones = 0;
  std::vector<Transform> poses[2];
  std::vector<Matrix> matrices;
  std::vector<Matrix> skins;
};

}  // namespace

std::unique_ptr<AnimationPeer> CreateAnimationPeer() {
  return std::make_unique<PlainPeer>();
}

}  // namespace nq::bench
