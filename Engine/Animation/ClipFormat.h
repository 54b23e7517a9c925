// The bytes of an animation clip as script hands them over.
//
// A ClipHeader, `curveCount` ClipCurves, then the ClipKeys of all curves, one run per curve, in the
// order of the curves. Little-endian, all fields 4 bytes wide and 4-aligned from the start.
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
  uint32_t targetIndex;  // from 0; what it stands for is decided by whoever plays the clip
  uint32_t sampleType;   // SampleType
  uint32_t keyCount;     // may be 0
};
static_assert(sizeof(ClipCurve) == 12, "clip curve");

// A point of a curve. Keys of a channel stand in ascending order of frames; nothing sorts them.
struct ClipKey {
  uint32_t frame;
  float value;
  float inTangent;   // slope arriving at the key, in units of the value per second
  float outTangent;  // slope leaving it; infinite for a step
};
static_assert(sizeof(ClipKey) == 16, "clip key");

// What a curve animates. Euler angles and the imaginary parts of a quaternion share their channels;
// only a key of kQuaternionW tells the two readings apart.
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

// Channels of a track: position x, y, z, scale x, y, z, rotation x, y, z, w. Six numbers and the
// four behind them stand in the order of an entity's record.
constexpr uint32_t kClipChannels = 10;
constexpr uint32_t kScaleChannel = 3;
constexpr uint32_t kRotationChannel = 6;
constexpr uint32_t kRotationWChannel = 9;

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_CLIPFORMAT_H_
