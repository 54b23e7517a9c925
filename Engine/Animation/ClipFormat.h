// The binary format of an animation clip, as the script passes it.
//
// A ClipHeader, `curveCount` ClipCurves, then the ClipKeys of all curves, one run per curve, in the
// order of the curves. Little-endian; all fields are 4 bytes wide and 4-byte aligned relative to
// the start.
#ifndef NQ_ENGINE_ANIMATION_CLIPFORMAT_H_
#define NQ_ENGINE_ANIMATION_CLIPFORMAT_H_

#include <cstddef>
#include <cstdint>

namespace nq::engine {

struct ClipHeader {
  uint32_t keyDataOffset;  // bytes from the start to the first key: 16 + 12 * curveCount
  float framesPerSecond;   // used as an integer, after truncation
  uint32_t frameCount;     // the wrap period of all sampling, in frames
  uint32_t curveCount;
};
static_assert(sizeof(ClipHeader) == 16, "clip header");

struct ClipCurve {
  uint32_t targetIndex;  // from 0; each player of the clip maps it to an entity
  uint32_t sampleType;   // SampleType
  uint32_t keyCount;     // may be 0
};
static_assert(sizeof(ClipCurve) == 12, "clip curve");

// A key of a curve. Keys of a channel are in ascending order of frames; nothing sorts them.
struct ClipKey {
  uint32_t frame;
  float value;
  float inTangent;   // slope on arrival at the key, in units of the value per second
  float outTangent;  // slope on leaving it; infinite for a step
};
static_assert(sizeof(ClipKey) == 16, "clip key");

// What a curve animates. Euler angles and the imaginary parts of a quaternion share their channels;
// only a key of kQuaternionW distinguishes the two.
enum SampleType : uint32_t {
  kPositionX = 1,
  kPositionY = 2,
  kPositionZ = 3,
  kScaleX = 4,
  kScaleY = 5,
  kScaleZ = 6,
  kEulerX = 7,
  kEulerY = 8,
  kEulerZ = 9,
  kQuaternionW = 10,
  kQuaternionX = 11,
  kQuaternionY = 12,
  kQuaternionZ = 13,
};

// Channels of a track: position x, y, z, scale x, y, z, rotation x, y, z, w. The first six, and the
// four after them, are in the order of an entity's record.
constexpr uint32_t kClipChannels = 10;
constexpr uint32_t kScaleChannel = 3;
constexpr uint32_t kRotationChannel = 6;
constexpr uint32_t kRotationWChannel = 9;

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_CLIPFORMAT_H_
