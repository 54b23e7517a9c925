// Evaluation of animators.
#include "Engine/Animation/AnimatorComponent.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <vector>

#include "Common/Def/Assert.h"
#include "Common/Def/Log.h"
#include "Common/Def/Platform.h"
#include "Common/Def/Trigonometry.h"
#include "Common/Def/Truncate.h"
#include "Common/Def/Vectors.h"
#include "Engine/Animation/AnimationClipModel.h"
#include "Engine/Animation/AnimationRecord.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/EntityPoseWriter.h"
#include "Engine/Animation/FourLocalMatrices.h"
#include "Engine/Animation/FourQuaternions.h"
#include "Engine/Animation/PoseRows.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/Entity2D.h"
#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

// Prefetch distance in targets.
constexpr uint32_t kPrefetchTargets = 4;

inline void Replace(float* field, float value) {
  if (!std::isnan(value)) {
    *field = value;
  }
}

// Rotation of a record if the sample has none, only part of one, or Euler angles.
void WritePartOfRotation(const ClipSample& sample, Entity3DRecord* record) {
  const float* channel = sample.channel;
  if (!std::isnan(channel[kRotationWChannel])) {
    record->rotationMode = sample.isQuaternion ? 1 : 0;
  }
  const __m128 rotation = _mm_loadu_ps(channel + kRotationChannel);
  const __m128 isNumber = _mm_cmpord_ps(rotation, rotation);
  _mm_storeu_ps(record->rotation, Select(isNumber, rotation, _mm_loadu_ps(record->rotation)));
}

void Write2D(const ClipSample& sample, Entity2DRecord* record) {
  Replace(&record->position[0], sample.channel[0]);
  Replace(&record->position[1], sample.channel[1]);
  Replace(&record->scale[0], sample.channel[3]);
  Replace(&record->scale[1], sample.channel[4]);
  Replace(&record->rotation, sample.channel[8]);
}

// What a sample without a complete quaternion writes, and all that any sample writes to a 2D
// entity.
NQ_NO_INLINE void WriteUncommon(const ClipSample& sample, bool isThreeD, uint8_t* record,
                                float* local) {
  if (isThreeD) {
    WritePartOfRotation(sample, reinterpret_cast<Entity3DRecord*>(record));
    Entity3D::BuildOwnLocalMatrix(record, local);
  } else {
    Write2D(sample, reinterpret_cast<Entity2DRecord*>(record));
    Entity2D::BuildLocalMatrix(record, local);
  }
}

// Position and scale of a record are six consecutive numbers, as are channels 0 to 5.
// Force-inlined, so that the writer's fields stay in registers for a whole character.
NQ_FORCE_INLINE void ApplyTo(const EntityPoseWriter& writer, const ClipSample& sample) {
  const float* channel = sample.channel;
  const __m128 rotation = _mm_loadu_ps(channel + kRotationChannel);
  const bool hasRotation = _mm_movemask_ps(_mm_cmpunord_ps(rotation, rotation)) == 0;
  if (!writer.isThreeD()) {
    WriteUncommon(sample, false, writer.Record(), writer.LocalMatrix());
  } else {
    const __m128 first = FirstRow(sample);
    const __m128 second = SecondRow(sample);
    const PositionScale values = writer.Replace(first, IsNumber(first), second, IsNumber(second));
    if (hasRotation && sample.isQuaternion) {
      writer.WriteQuaternion(rotation, values);
    } else {
      WriteUncommon(sample, true, writer.Record(), writer.LocalMatrix());
    }
  }
  writer.Mark();
}

// Normalises the four rotation channels as a quaternion. With Euler angles the fourth is NaN, so
// all become NaN and no rotation is written to the entity.
void NormaliseRotation(ClipSample* sample) {
  float* q = sample->channel + kRotationChannel;
  const float length = sqrtF(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  _mm_storeu_ps(q, _mm_mul_ps(_mm_loadu_ps(q), _mm_set1_ps(1.0f / length)));
}

// Two clips that pose the same entities in the same order: their samples are blended four bones
// side by side and written at once, with the bits of BlendSample and NormaliseRotation.
class Crossfade {
 public:
  // `handles` of the samples' entities, ascending. `share` is that of `to`, from 0 to 1.
  Crossfade(const SampleMap& from, const SampleMap& to, float share, const uint32_t* handles)
      : from(from.Data()), to(to.Data()), count(from.Size()), share(share), handles(handles) {}

  void Write(EntityPoseWriter* writer) const {
    for (uint32_t i = 0; i + kLanes <= count; i += kLanes) {
      Prefetch(i + kLanes, *writer);
      WriteFour(i, writer);
    }
    // The last four overlap those before: what is written twice is the same.
    const uint32_t rest = count % kLanes;
    if (rest != 0 && count > kLanes) {
      WriteFour(count - kLanes, writer);
    } else if (rest != 0) {
      WriteSingly(0, rest, writer);
    }
  }

 private:
  static constexpr uint32_t kLanes = 4;

  void Prefetch(uint32_t begin, const EntityPoseWriter& writer) const {
    for (uint32_t i = begin; i < begin + kLanes && i < count; ++i) {
      writer.Prefetch(handles[i]);
    }
  }

  void WriteFour(uint32_t begin, EntityPoseWriter* writer) const {
    FourQuaternions q;
    if (!BlendRotations(begin, &q)) {
      WriteSingly(begin, kLanes, writer);
    } else if (handles[begin + kLanes - 1] - handles[begin] == kLanes - 1 &&
               writer->SeekRun3D(handles[begin], kLanes)) {
      // Handles ascend, so these are consecutive.
      const PositionScale four[kLanes] = {
          SeekAndWriteValues(begin, writer), SeekAndWriteValues(begin + 1, writer),
          SeekAndWriteValues(begin + 2, writer), SeekAndWriteValues(begin + 3, writer)};
      writer->Seek(handles[begin]);
      WriteFourRotations(q, four, writer);
    } else {
      WriteScattered(begin, q, writer);
    }
  }

  // False if rotations are missing, are no quaternions, or have to be blended one by one.
  bool BlendRotations(uint32_t begin, FourQuaternions* q) const {
    const ClipSample* a = from + begin;
    const bool areQuaternions =
        a[0].isQuaternion && a[1].isQuaternion && a[2].isQuaternion && a[3].isQuaternion;
    const FourQuaternions first = Rotations(a);
    const FourQuaternions second = Rotations(to + begin);
    if (!areQuaternions || !AreAll(_mm_and_ps(AreNumbers(first), AreNumbers(second))) ||
        !SlerpFour(first, second, share, q)) {
      return false;
    }
    *q = NormaliseFour(*q);
    return AreAll(AreNumbers(*q));
  }

  static FourQuaternions Rotations(const ClipSample* samples) {
    const auto of = [samples](uint32_t i) {
      return _mm_loadu_ps(samples[i].channel + kRotationChannel);
    };
    return TransposeFour(of(0), of(1), of(2), of(3));
  }

  // Writes the position and scale of the selected 3D entity. Force-inlined: a call would return the
  // values through memory.
  NQ_FORCE_INLINE PositionScale WriteValues(uint32_t i, const EntityPoseWriter& writer) const {
    const __m128 first = LerpFour(FirstRow(from[i]), FirstRow(to[i]), share);
    const __m128 second = LerpFour(SecondRow(from[i]), SecondRow(to[i]), share);
    return writer.Replace(first, IsNumber(first), second, IsNumber(second));
  }

  NQ_FORCE_INLINE PositionScale SeekAndWriteValues(uint32_t i, EntityPoseWriter* writer) const {
    writer->Seek(handles[i]);
    return WriteValues(i, *writer);
  }

  NQ_NO_INLINE void WriteScattered(uint32_t begin, const FourQuaternions& q,
                                   EntityPoseWriter* writer) const {
    __m128 quaternions[kLanes];
    StoreTransposed(q, quaternions);
    for (uint32_t i = 0; i < kLanes; ++i) {
      if (writer->Seek(handles[begin + i]) && writer->isThreeD()) {
        writer->WriteQuaternion(quaternions[i], WriteValues(begin + i, *writer));
        writer->Mark();
      } else {
        WriteSingly(begin + i, 1, writer);
      }
    }
  }

  NQ_NO_INLINE void WriteSingly(uint32_t begin, uint32_t length, EntityPoseWriter* writer) const {
    for (uint32_t i = begin; i < begin + length; ++i) {
      if (writer->Seek(handles[i])) {
        ClipSample blended = from[i];
        BlendSample(&blended, to[i], share, false);
        NormaliseRotation(&blended);
        ApplyTo(*writer, blended);
      }
    }
  }

  const ClipSample* const from;
  const ClipSample* const to;
  const uint32_t count;
  const float share;
  const uint32_t* const handles;
};

// True if each number is above the one before it.
bool Ascends(const uint32_t* numbers, uint32_t count) {
  bool ascends = true;
  for (uint32_t i = 1; i < count; ++i) {
    ascends = ascends && numbers[i - 1] < numbers[i];
  }
  return ascends;
}

}  // namespace

void ApplySample(const ClipSample& sample, Entity* entity) {
  EntityPoseWriter writer(&entity->system->Tree());
  writer.Seek(entity->handle);
  ApplyTo(writer, sample);
}

// A clip that takes part in an update.
struct AnimatorComponent::ActiveClip {
  AnimationClipModel* model;
  float time;
  float weight;
  uint32_t base;  // index of the clip's first entry in the target table
};

// A thread's working memory, reused by its updates.
struct AnimatorComponent::Scratch {
  // The blend so far for one entity.
  struct BlendEntry {
    ClipSample sample;
    uint32_t handle;
    float totalWeight;
  };

  std::vector<ActiveClip> active;
  SampleMap samples;
  SampleMap otherSamples;
  std::vector<BlendEntry> entries;

  // Empty until a handle is neither at its expected position nor above all others. Then the slots
  // of an open-addressing hash table over `entries`: position + 1, or 0 for a free slot. The size
  // is a power of two, at most half full.
  std::vector<uint32_t> slots;
  bool usesSlots = false;

  // Whole frames come from the clip's cache, others go to `room`.
  static const SampleMap& SampleOf(const ActiveClip& clip, SampleMap* room) {
    if (IsWhole(clip.time)) {
      return clip.model->SampleAtFrame(TruncateToU32(clip.time));
    }
    clip.model->SampleAtTime(clip.time, room);
    return *room;
  }

  void Clear() {
    entries.clear();
    usesSlots = false;
  }

  // The position of a handle's entry, `expected` being tried first; the size of `entries` if there
  // is none. Clips of one character mostly list the same entities, in the same, ascending order.
  size_t Find(uint32_t handle, size_t expected, uint32_t entityCount) {
    if (expected < entries.size() && entries[expected].handle == handle) {
      return expected;
    }
    const bool isAbove = entries.empty() || entries.back().handle < handle;
    if (!usesSlots) {
      if (isAbove) {
        return entries.size();
      }
      EnterSlots(entityCount);
    }
    const uint32_t position = *SlotOf(handle);
    return position == 0 ? entries.size() : position - 1;
  }

  void Add(const ClipSample& sample, uint32_t handle, float weight) {
    entries.push_back(BlendEntry{sample, handle, weight});
    if (usesSlots) {
      *SlotOf(handle) = static_cast<uint32_t>(entries.size());
    }
  }

 private:
  void EnterSlots(uint32_t entityCount) {
    usesSlots = true;
    size_t size = 16;
    while (size < size_t{2} * entityCount) {
      size *= 2;
    }
    slots.assign(size, 0);
    for (size_t i = 0; i < entries.size(); ++i) {
      *SlotOf(entries[i].handle) = static_cast<uint32_t>(i + 1);
    }
  }

  // The slot of a handle's entry, or the free slot where it belongs.
  uint32_t* SlotOf(uint32_t handle) {
    const size_t mask = slots.size() - 1;
    size_t slot = (handle * 0x9E3779B1u >> 7) & mask;
    while (slots[slot] != 0 && entries[slots[slot] - 1].handle != handle) {
      slot = (slot + 1) & mask;
    }
    return &slots[slot];
  }
};

// Called once per update: each access to a thread-local variable is a function call.
AnimatorComponent::Scratch* AnimatorComponent::ThreadScratch() {
  thread_local Scratch scratch;
  return &scratch;
}

void AnimatorComponent::Update() {
  Scratch* scratch = ThreadScratch();
  firstTarget = nullptr;
  firstTargetHandle = 0;
  scratch->active.clear();
  const AnimatorClipRecord* records = reinterpret_cast<const AnimatorClipRecord*>(data);
  const AnimationSystem* system = core->Animation();
  uint32_t base = 0;
  for (uint32_t c = 0; c < clipCount; ++c) {
    const AnimatorClipRecord& record = records[c];
    AnimationClipModel* model = system->FindAnimationClipModel(record.clipHandle);
    if (model == nullptr) {
      NQ_LOG("[NQ_FATAL][Engine]: ", "AnimationClipModel not found\n");
      FailAssertion("0", "..\\..\\Engine\\Animation\\AnimatorComponent", 29);
    }
    if (record.weight > 0.0f && record.weight <= 1.0f) {
      scratch->active.push_back(ActiveClip{model, record.time, record.weight, base});
    }
    base += model->TrackCount();
  }
  if (scratch->active.size() == 1) {
    ApplyOne(scratch->active[0], scratch);
  } else if (!scratch->active.empty() && !ApplyCrossfade(scratch)) {
    ApplyBlend(scratch);
  }
}

void AnimatorComponent::ApplyOne(const ActiveClip& clip, Scratch* scratch) {
  const uint32_t* targets =
      reinterpret_cast<const uint32_t*>(data + AnimatorTargetsOffset(clipCount));
  EntityPoseWriter writer(&core->Entities()->Tree());
  const SampleMap& samples = Scratch::SampleOf(clip, &scratch->samples);
  const uint32_t count = samples.Size();
  Entity* first = nullptr;
  uint32_t firstHandle = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t entry = clip.base + samples.Target(i);
    if (entry < entityCount && writer.Seek(targets[entry])) {
      if (entityCount - entry > kPrefetchTargets) {
        writer.Prefetch(targets[entry + kPrefetchTargets]);
      }
      ApplyTo(writer, samples.Sample(i));
      if (first == nullptr) {
        first = writer.Target();
        firstHandle = targets[entry];
      }
    }
  }
  firstTarget = first;
  firstTargetHandle = firstHandle;
}

// Two clips with the same targets, each of them once. False for all others.
bool AnimatorComponent::ApplyCrossfade(Scratch* scratch) {
  if (scratch->active.size() != 2) {
    return false;
  }
  const ActiveClip& from = scratch->active[0];
  const ActiveClip& to = scratch->active[1];
  const uint32_t count = from.model->TrackCount();
  // The tables of targets are in order of target indices, which ascend.
  const auto hasTable = [this, count](const ActiveClip& clip) {
    return clip.model->TrackCount() == count && clip.model->Targets().back() == count - 1 &&
           count <= entityCount && clip.base <= entityCount - count;
  };
  const uint32_t* targets =
      reinterpret_cast<const uint32_t*>(data + AnimatorTargetsOffset(clipCount));
  if (count == 0 || !hasTable(from) || !hasTable(to) ||
      std::memcmp(targets + from.base, targets + to.base, count * sizeof(*targets)) != 0 ||
      !Ascends(targets + from.base, count)) {
    return false;
  }
  const SampleMap& fromSamples = Scratch::SampleOf(from, &scratch->samples);
  const SampleMap& toSamples = Scratch::SampleOf(to, &scratch->otherSamples);
  if (fromSamples.Size() != count || toSamples.Size() != count) {
    return false;  // a clip without frames
  }
  EntityPoseWriter writer(&core->Entities()->Tree());
  const uint32_t* handles = targets + from.base;
  const uint32_t* first =
      std::find_if(handles, handles + count, [&writer](uint32_t h) { return writer.Seek(h); });
  if (first != handles + count) {
    firstTarget = writer.Target();
    firstTargetHandle = *first;
  }
  const float share = to.weight / (from.weight + to.weight);
  Crossfade(fromSamples, toSamples, share, handles).Write(&writer);
  return true;
}

// The share of each further contribution is its weight divided by the sum so far. So the result is
// the weighted mean, whatever the weights sum up to.
void AnimatorComponent::ApplyBlend(Scratch* scratch) {
  const uint32_t* targets =
      reinterpret_cast<const uint32_t*>(data + AnimatorTargetsOffset(clipCount));
  const bool many = scratch->active.size() > 2;
  scratch->Clear();
  std::vector<Scratch::BlendEntry>& entries = scratch->entries;
  for (const ActiveClip& clip : scratch->active) {
    const SampleMap& samples = Scratch::SampleOf(clip, &scratch->samples);
    size_t expected = 0;
    for (uint32_t i = 0; i < samples.Size(); ++i) {
      const uint32_t entry = clip.base + samples.Target(i);
      if (entry >= entityCount) {
        continue;
      }
      const uint32_t handle = targets[entry];
      const size_t position = scratch->Find(handle, expected, entityCount);
      expected = position + 1;
      if (position == entries.size()) {
        scratch->Add(samples.Sample(i), handle, clip.weight);
        continue;
      }
      Scratch::BlendEntry& blended = entries[position];
      blended.totalWeight += clip.weight;
      BlendSample(&blended.sample, samples.Sample(i), clip.weight / blended.totalWeight, many);
    }
  }

  // The entities are distinct, so the order of the writes matters only for which is first.
  EntityPoseWriter writer(&core->Entities()->Tree());
  for (Scratch::BlendEntry& entry : entries) {
    if (writer.Seek(entry.handle)) {
      NormaliseRotation(&entry.sample);
      ApplyTo(writer, entry.sample);
      if (firstTarget == nullptr || entry.handle < firstTargetHandle) {
        firstTarget = writer.Target();
        firstTargetHandle = entry.handle;
      }
    }
  }
}

}  // namespace nq::engine
