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
#include "Engine/Animation/BoneRun.h"
#include "Engine/Animation/EntityPoseWriter.h"
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
  const bool hasRotation = SignBits(_mm_cmpunord_ps(rotation, rotation)) == 0;
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

// How many of `count` samples, from the first on, have a complete quaternion. Of samples with
// angles the fourth number is never one.
uint32_t CountCompleteRotations(const ClipSample* samples, uint32_t count) {
  const auto rotation = [samples](uint32_t i) {
    return _mm_loadu_ps(samples[i].channel + kRotationChannel);
  };
  uint32_t i = 0;
  while (i + 4 <= count && AreAll(_mm_and_ps(_mm_cmpord_ps(rotation(i), rotation(i + 1)),
                                             _mm_cmpord_ps(rotation(i + 2), rotation(i + 3))))) {
    i += 4;
  }
  while (i < count && AreAll(_mm_cmpord_ps(rotation(i), rotation(i)))) {
    ++i;
  }
  return i;
}

// ApplyTo for entities whose samples have complete quaternions, but for the marks. `moves` are of
// their tracks, as in ClipShape.
void ApplyRun(const ClipSample* samples, const uint8_t* moves, const BoneRun& run) {
  const uint8_t* const end = moves + run.count;
  for (const uint8_t* moving = std::find(moves, end, 1); moving != end;
       moving = std::find(moving + 1, end, 1)) {
    const size_t i = static_cast<size_t>(moving - moves);
    const __m128 first = FirstRow(samples[i]);
    const __m128 second = SecondRow(samples[i]);
    ReplaceLanes(&run.records[i], first, IsNumber(first), second, IsNumber(second));
  }
  WriteRotations(run, samples->channel + kRotationChannel, sizeof(ClipSample) / sizeof(float));
}

// Normalises the four rotation channels as a quaternion. With Euler angles the fourth is NaN, so
// all become NaN and no rotation is written to the entity.
void NormaliseRotation(ClipSample* sample) {
  float* q = sample->channel + kRotationChannel;
  const float length = sqrtF(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  _mm_storeu_ps(q, _mm_mul_ps(_mm_loadu_ps(q), _mm_set1_ps(1.0f / length)));
}

// Two clips that pose the same entities in the same order: their samples are blended four bones
// side by side, with the bits of BlendSample and NormaliseRotation.
class Crossfade {
 public:
  // `share` is that of `to`, from 0 to 1. `moves`: of which bones either clip has positions or
  // scales.
  Crossfade(const ClipSample* from, const ClipSample* to, float share, const uint8_t* moves,
            ClipSample* blended)
      : from(from), to(to), share(share), moves(moves), blended(blended) {}

  void Blend(uint32_t count) const {
    for (uint32_t i = 0; i + kLanes <= count; i += kLanes) {
      BlendFour(i);
    }
    // The last four overlap those before: what is blended twice is the same.
    const uint32_t rest = count % kLanes;
    if (rest != 0 && count > kLanes) {
      BlendFour(count - kLanes);
    } else if (rest != 0) {
      BlendSingly(0, rest);
    }
  }

 private:
  static constexpr uint32_t kLanes = 4;

  void BlendFour(uint32_t begin) const {
    FourQuaternions q;
    if (!BlendRotations(begin, &q)) {
      BlendSingly(begin, kLanes);
      return;
    }
    __m128 rotations[kLanes];
    StoreTransposed(q, rotations);
    for (uint32_t i = 0; i < kLanes; ++i) {
      BlendValues(begin + i);
      _mm_storeu_ps(blended[begin + i].channel + kRotationChannel, rotations[i]);
      blended[begin + i].isQuaternion = true;
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

  // Position and scale. Where neither clip has any, all are NaN, as in `from`.
  void BlendValues(uint32_t i) const {
    __m128 first = FirstRow(from[i]);
    __m128 second = SecondRow(from[i]);
    if (moves[i] != 0) {
      first = LerpFour(first, FirstRow(to[i]), share);
      second = LerpFour(second, SecondRow(to[i]), share);
    }
    _mm_store_ps(blended[i].channel, first);
    _mm_storel_pi(reinterpret_cast<__m64*>(blended[i].channel + 4), second);
  }

  NQ_NO_INLINE void BlendSingly(uint32_t begin, uint32_t length) const {
    for (uint32_t i = begin; i < begin + length; ++i) {
      blended[i] = from[i];
      BlendSample(&blended[i], to[i], share, false);
      NormaliseRotation(&blended[i]);
    }
  }

  const ClipSample* const from;
  const ClipSample* const to;
  const float share;
  const uint8_t* const moves;
  ClipSample* const blended;
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
  std::vector<ClipSample> blended;  // of two clips
  std::vector<uint8_t> moves;       // of `blended`
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
  const SampleMap& samples = Scratch::SampleOf(clip, &scratch->samples);
  if (samples.Size() == 0) {
    return;
  }
  const uint32_t* targets =
      reinterpret_cast<const uint32_t*>(data + AnimatorTargetsOffset(clipCount));
  const uint8_t* moves = clip.model->Shape().moves.data();
  EntityPoseWriter writer(&core->Entities()->Tree());
  const uint32_t first = clip.base + samples.Target(0);
  if (samples.IsDense() && first < entityCount) {
    const uint32_t count = std::min(samples.Size(), entityCount - first);
    Apply(samples.Data(), moves, targets + first, count, &writer);
    return;
  }
  for (uint32_t i = 0; i < samples.Size(); ++i) {
    const uint32_t entry = clip.base + samples.Target(i);
    if (entry < entityCount) {
      Apply(samples.Data() + i, moves + i, targets + entry, 1, &writer);
    }
  }
}

// Writes `count` samples to the entities of `handles`, as far as they exist. `moves` are those of
// their tracks, see ClipShape.
void AnimatorComponent::Apply(const ClipSample* samples, const uint8_t* moves,
                              const uint32_t* handles, uint32_t count, EntityPoseWriter* writer) {
  uint32_t complete = 0;  // up to which sample rotations are complete
  for (uint32_t i = 0; i < count;) {
    if (i >= complete) {
      complete = i + CountCompleteRotations(samples + i, count - i);
    }
    const uint32_t run = writer->SeekRun3D(handles + i, complete - i);
    if (run > 1) {
      ApplyRun(samples + i, moves + i, writer->Run(run));
      writer->MarkRun(run);
    } else if (writer->Seek(handles[i])) {
      if (count - i > kPrefetchTargets) {
        writer->Prefetch(handles[i + kPrefetchTargets]);
      }
      ApplyTo(*writer, samples[i]);
    } else {
      ++i;
      continue;
    }
    if (firstTarget == nullptr) {
      firstTarget = writer->Target();
      firstTargetHandle = handles[i];
    }
    i += std::max(run, 1u);
  }
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
  const std::vector<uint8_t>& fromMoves = from.model->Shape().moves;
  const std::vector<uint8_t>& toMoves = to.model->Shape().moves;
  scratch->moves.resize(count);
  std::transform(fromMoves.begin(), fromMoves.end(), toMoves.begin(), scratch->moves.begin(),
                 [](uint8_t a, uint8_t b) { return static_cast<uint8_t>(a | b); });
  if (scratch->blended.size() < count) {
    scratch->blended.resize(count);
  }
  const uint8_t* moves = scratch->moves.data();
  ClipSample* blended = scratch->blended.data();
  const float share = to.weight / (from.weight + to.weight);
  Crossfade(fromSamples.Data(), toSamples.Data(), share, moves, blended).Blend(count);
  EntityPoseWriter writer(&core->Entities()->Tree());
  Apply(blended, moves, targets + from.base, count, &writer);
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
