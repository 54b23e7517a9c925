// Parsing of clips, and sampling of all their tracks.
#include "Engine/Animation/AnimationClipModel.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <map>

#include "Common/Def/Assert.h"
#include "Common/Def/Log.h"
#include "Common/Def/Unaligned.h"

namespace nq::engine {

namespace {

constexpr char kSource[] = "..\\..\\Engine\\Animation\\AnimationClipModel";
constexpr int kSampleTypeLine = 328;
constexpr int kHeaderLine = 364;
constexpr int kContentLine = 377;

constexpr uint32_t kNoChannel = 0xFFFFFFFFu;

uint32_t ChannelOf(uint32_t sampleType) {
  switch (sampleType) {
    case kPositionX:
    case kPositionY:
    case kPositionZ:
      return sampleType - kPositionX;
    case kScaleX:
    case kScaleY:
    case kScaleZ:
      return kScaleChannel + (sampleType - kScaleX);
    case kEulerX:
    case kEulerY:
    case kEulerZ:
      return kRotationChannel + (sampleType - kEulerX);
    case kQuaternionW:
      return kRotationWChannel;
    case kQuaternionX:
    case kQuaternionY:
    case kQuaternionZ:
      return kRotationChannel + (sampleType - kQuaternionX);
    default:
      return kNoChannel;
  }
}

// Appends a key to the channel of its sample type.
void StoreKey(const ClipKey& key, uint32_t sampleType, ClipTrack* track) {
  const uint32_t channel = ChannelOf(sampleType);
  if (channel == kNoChannel) {
    NQ_LOG("[NQ_FATAL][Engine]: ", "wrong sample type\n");
    FailAssertion("0", kSource, kSampleTypeLine);
  }
  track->isQuaternion = track->isQuaternion || sampleType == kQuaternionW;
  track->channels[channel].push_back(key);
}

uint64_t NextSerial() {
  static std::atomic<uint64_t> lastSerial{0};
  return ++lastSerial;
}

ClipShape ShapeOf(const std::vector<ClipTrack>& tracks) {
  ClipShape shape;
  const auto hasKeys = [](const std::vector<ClipKey>& keys) { return !keys.empty(); };
  for (const ClipTrack& track : tracks) {
    const auto first = track.channels.begin();
    const auto rotation = first + kRotationChannel;
    const bool rotates = std::any_of(rotation, first + kRotationWChannel, hasKeys);
    shape.moves.push_back(std::any_of(first, rotation, hasKeys) ? 1 : 0);
    shape.hasAngles = shape.hasAngles || (rotates && !track.isQuaternion);
  }
  return shape;
}

}  // namespace

AnimationClipModel::AnimationClipModel(const uint8_t* data, uint32_t size)
    : serial(NextSerial()), parsed(size <= sizeof(ClipHeader)) {
  if (size > sizeof(ClipHeader)) {
    raw = std::make_unique<uint8_t[]>(size);
    std::memcpy(raw.get(), data, size);
    rawSize = size;
  }
}

void AnimationClipModel::Parse() {
  MutexLock held(lock);
  if (parsed.load(std::memory_order_relaxed)) {
    return;
  }
  const ClipHeader header = ReadUnaligned<ClipHeader>(raw.get());
  rate = TruncateToU32(header.framesPerSecond);
  frames = header.frameCount;
  // In 32 bits, like the offset itself.
  constexpr uint32_t kHeaderBytes = sizeof(ClipHeader);
  constexpr uint32_t kCurveBytes = sizeof(ClipCurve);
  if (header.curveCount * kCurveBytes + kHeaderBytes != header.keyDataOffset) {
    NQ_LOG("[NQ_FATAL][Engine]: ", "animation clip header data error\n");
    FailAssertion("0", kSource, kHeaderLine);
  }
  const auto failContent = [] {
    NQ_LOG("[NQ_FATAL][Engine]: ", "animation clip content data error\n");
    FailAssertion("0", kSource, kContentLine);
  };
  std::map<uint32_t, ClipTrack> byTarget;
  uint64_t keyOffset = header.keyDataOffset;
  for (uint32_t c = 0; c < header.curveCount; ++c) {
    const uint64_t curveOffset = sizeof(ClipHeader) + uint64_t{kCurveBytes} * c;
    // The bytes can't hold that many curves.
    if (curveOffset + kCurveBytes > rawSize) {
      failContent();
    }
    const ClipCurve curve = ReadUnaligned<ClipCurve>(raw.get() + curveOffset);
    ClipTrack* track = &byTarget[curve.targetIndex];
    for (uint32_t k = 0; k < curve.keyCount; ++k) {
      if (keyOffset + sizeof(ClipKey) > rawSize) {
        failContent();
      }
      StoreKey(ReadUnaligned<ClipKey>(raw.get() + keyOffset), curve.sampleType, track);
      keyOffset += sizeof(ClipKey);
    }
  }
  std::vector<ClipTrack> ordered;
  ordered.reserve(byTarget.size());
  for (auto& [target, track] : byTarget) {
    targets.push_back(target);
    ordered.push_back(std::move(track));
  }
  timelines.Build(ordered);
  shape = ShapeOf(ordered);
  raw.reset();
  parsed.store(true, std::memory_order_release);
}

void AnimationClipModel::SampleAllAt(float time, SampleMap* samples) const {
  // Samples of this clip are without numbers in the same channels.
  const bool isOther = samples->Serial() != serial;
  ClipSample* room = samples->Reset(targets.data(), static_cast<uint32_t>(targets.size()), serial);
  if (isOther) {
    timelines.Clear(room);
  }
  timelines.SampleKeyed(time, rate, room);
}

const SampleMap& AnimationClipModel::SampleAtFrame(uint32_t frame) {
  EnsureParsed();
  MutexLock held(lock);
  if (frames == 0) {
    return emptySamples;
  }
  const uint32_t wrapped = frame % frames;
  const auto entered = frameCache.try_emplace(wrapped);
  if (entered.second) {
    SampleAllAt(static_cast<float>(wrapped), &entered.first->second);
  }
  return entered.first->second;
}

void AnimationClipModel::SampleAtTime(float time, SampleMap* samples) {
  EnsureParsed();
  MutexLock held(lock);
  if (frames == 0) {
    samples->Reset(nullptr, 0, 0);
    return;
  }
  const float period = static_cast<float>(frames);
  // Inside the clip the remainder of the modulo is the time itself.
  const bool isInside = time >= 0.0f && time < period;
  const float wrapped =
      isInside
          ? time
          : static_cast<float>(std::fmod(static_cast<double>(time), static_cast<double>(period)));
  SampleAllAt(wrapped, samples);
}

SampleMap AnimationClipModel::SampleAtTime(float time) {
  SampleMap samples;
  SampleAtTime(time, &samples);
  return samples;
}

}  // namespace nq::engine
