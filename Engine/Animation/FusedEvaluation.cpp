// Gathering of what a controller evaluates, and the pass over its bones.
#include "Engine/Animation/FusedEvaluation.h"

#include <algorithm>
#include <limits>

#include "Common/Def/Platform.h"
#include "Common/Def/Unaligned.h"
#include "Common/Def/Vectors.h"
#include "Engine/Animation/AnimationClipModel.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/AnimatorControllerStateModel.h"
#include "Engine/Animation/BoneRun.h"
#include "Engine/Animation/EntityPoseWriter.h"
#include "Engine/Animation/FourQuaternions.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

constexpr uint32_t kLanes = 4;

inline __m128 NoLane() {
  return _mm_setzero_ps();
}
inline __m128 EveryLane() {
  return _mm_castsi128_ps(_mm_set1_epi32(-1));
}

// True if a lane of `mask` is set.
inline bool Any(__m128 mask) {
  return SignBits(mask) != 0;
}

// The mask whose lane i is bit i.
inline __m128 LanesOf(uint32_t bits) {
  const __m128i lane = _mm_setr_epi32(1, 2, 4, 8);
  const __m128i set = _mm_and_si128(_mm_set1_epi32(static_cast<int32_t>(bits)), lane);
  return _mm_castsi128_ps(_mm_cmpeq_epi32(set, lane));
}

// What slots without a sample read.
const ClipSample* NoSample() {
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  static const ClipSample none = {{kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN},
                                  true};
  return &none;
}

// Rest rotations of four slots; those above the last one repeat it.
FourQuaternions RestRotations(RestPoses* restPoses, uint32_t slot) {
  const uint32_t last = restPoses->SlotCount() - 1;
  const auto of = [=](uint32_t i) {
    return RestRotation(&restPoses->Value(std::min(slot + i, last)));
  };
  return TransposeFour(of(0), of(1), of(2), of(3));
}

// The rest pose of a number, or null.
TransformValue* FindRest(RestPoses* restPoses, uint32_t number) {
  const uint32_t slot = restPoses->FindRecent(number);
  return slot == RestPoses::kNoSlot ? nullptr : &restPoses->Value(slot);
}

// Completes the channels of a bone in an override layer. False without a rest pose.
NQ_NO_INLINE bool CompleteRows(RestPoses* restPoses, PoseRow* rows) {
  float value[8];
  float weight[8];
  for (uint32_t half = 0; half < 2; ++half) {
    _mm_storeu_ps(value + 4 * half, rows[half].value);
    _mm_storeu_ps(weight + 4 * half, rows[half].weight);
  }
  const auto find = [restPoses](uint32_t number) { return FindRest(restPoses, number); };
  if (!CompleteChannels(value, weight, find)) {
    return false;
  }
  rows[0].value = _mm_loadu_ps(value);
  rows[1].value = _mm_loadu_ps(value + 4);
  return true;
}

// The rotations by which those of `lanes` are completed: of the rest poses of number scale z. False
// without one.
NQ_NO_INLINE bool FindRestRotations(RestPoses* restPoses, const float* scaleZ, int lanes,
                                    FourQuaternions* out) {
  __m128 resting[kLanes];
  for (uint32_t i = 0; i < kLanes; ++i) {
    resting[i] = _mm_setzero_ps();
    if ((lanes >> i & 1) != 0) {
      TransformValue* rest = FindRest(restPoses, TruncateToU32(scaleZ[i]));
      if (rest == nullptr) {
        return false;
      }
      resting[i] = RestRotation(rest);
    }
  }
  *out = TransposeFour(resting[0], resting[1], resting[2], resting[3]);
  return true;
}

// True if an animated channel is NaN.
inline bool HasNaN(const PoseRow& row) {
  return Any(_mm_andnot_ps(IsNumber(row.value), IsNumber(row.weight)));
}

// The second of four lanes.
inline float SecondLane(__m128 lanes) {
  return _mm_cvtss_f32(_mm_shuffle_ps(lanes, lanes, _MM_SHUFFLE(1, 1, 1, 1)));
}

}  // namespace

// The samples of four slots.
struct FusedEvaluation::FourSamples {
  const ClipSample* of[kLanes];
  __m128 present;  // lanes that have one

  NQ_FORCE_INLINE FourSamples(const Samples& from, uint32_t slot) {
    if (slot + kLanes <= from.orderEnd) {
      for (uint32_t i = 0; i < kLanes; ++i) {
        of[i] = from.samples + slot + i;
      }
      present = EveryLane();
      return;
    }
    uint32_t lanes = 0;
    for (uint32_t i = 0; i < kLanes; ++i) {
      const uint32_t position = from.bySlot->At(slot + i);
      const bool has = position < from.count;
      of[i] = has ? from.samples + position : NoSample();
      lanes |= (has ? 1u : 0u) << i;
    }
    present = LanesOf(lanes);
  }

  FourQuaternions Rotations() const {
    const auto rotation = [this](uint32_t i) {
      return _mm_loadu_ps(of[i]->channel + kRotationChannel);
    };
    return TransposeFour(rotation(0), rotation(1), rotation(2), rotation(3));
  }
};

// The rotations of four bones, of a state or of a layer: TargetPose side by side.
struct FusedEvaluation::FourRotations {
  __m128 present;  // bones that have a pose at all
  __m128 weight;   // NaN: not rotated
  FourQuaternions rotation;

  static FourRotations None() { return FourRotations{NoLane(), PoseRow().weight, ZeroFour()}; }

  // Adds rotations with weights `w` in the lanes of `mask`. `isFirst`: nothing was added yet.
  NQ_FORCE_INLINE void Add(const FourQuaternions& q, __m128 w, __m128 mask, bool isFirst) {
    weight = Select(mask, _mm_add_ps(Touched(weight), w), weight);
    rotation = isFirst ? FirstFour(q, w, mask) : AddFour(rotation, q, w, mask);
  }

  // Completes an override layer, where the values of scale z are `scaleZ`. False if a rest pose
  // would have to be inserted.
  NQ_FORCE_INLINE bool CompleteOverride(RestPoses* restPoses, const float* scaleZ) {
    const __m128 partial = _mm_cmplt_ps(weight, _mm_set1_ps(1.0f));
    if (Any(partial)) {
      FourQuaternions rest;
      if (!FindRestRotations(restPoses, scaleZ, SignBits(partial), &rest)) {
        return false;
      }
      rotation = AddFour(rotation, rest, _mm_sub_ps(_mm_set1_ps(1.0f), weight), partial);
    }
    rotation = NormaliseFour(rotation);
    return true;
  }

  void CompleteAdditive() { rotation = ScaledFour(rotation, weight); }
};

FusedEvaluation::Samples::Samples(const SlotSamples* bySlot, const SampleMap& map)
    : bySlot(bySlot),
      samples(map.Data()),
      count(map.Size()),
      orderEnd(bySlot->isInOrder ? std::min(map.Size(), bySlot->end) : 0) {}

bool FusedEvaluation::Run(AnimatorControllerModel* controller, AnimationClipBinding* binding) {
  if (!Gather(controller, binding)) {
    return false;
  }
  EntityPoseWriter writer(&controller->core->Entities()->Tree());
  for (uint32_t slot = 0; slot < slotEnd; slot += kBlock) {
    if (!PoseBlock(slot, std::min(kBlock, slotEnd - slot), &binding->defaults, &writer)) {
      return false;
    }
  }
  return true;
}

bool FusedEvaluation::Gather(AnimatorControllerModel* controller, AnimationClipBinding* binding) {
  ++run;
  touched = &controller->touched;
  touched->Begin();
  touched->Note(binding);
  binding->defaults.NoteTouched(touched);
  slotEnd = 0;
  clips.clear();
  states.clear();
  layers.clear();
  for (uint32_t index = 0; index < controller->layerCount; ++index) {
    const ControllerLayerRecord& record = controller->Layer(index);
    if (record.blendMode > kAdditiveLayer || record.firstState == kNoHandle) {
      continue;
    }
    const uint32_t stateBegin = static_cast<uint32_t>(states.size());
    if (!GatherLayer(*controller, record, binding)) {
      return false;
    }
    const bool additive = record.blendMode == kAdditiveLayer;
    const float* weights = nullptr;
    if (ControllerMask* mask = controller->masks.Find(index)) {
      weights = mask->WeightsBySlot(binding->defaults);
      mask->NoteTouched(touched);
    }
    layers.push_back(Layer{MergeOf(index, additive, record.weight), additive, record.weight,
                           weights, Range{stateBegin, static_cast<uint32_t>(states.size())}});
  }
  return true;
}

bool FusedEvaluation::GatherLayer(const AnimatorControllerModel& controller,
                                  const ControllerLayerRecord& record,
                                  AnimationClipBinding* binding) {
  const AnimationSystem* system = controller.core->Animation();
  const bool additive = record.blendMode == kAdditiveLayer;
  const AnimatorControllerStateModel* state =
      system->FindAnimatorControllerStateModel(record.firstState);
  // The general evaluation follows a chain that loops, for ever.
  for (uint32_t visited = 0; state != nullptr; ++visited) {
    touched->Note(state);
    touched->Note(state->data, ControllerStateBlockBytes(state->clipCount));
    const bool counts = state->Record().weight != 0.0f;
    if (visited == kMaxClips || (counts && !GatherState(*state, additive, binding))) {
      return false;
    }
    state = system->FindAnimatorControllerStateModel(state->Record().nextState);
  }
  return true;
}

bool FusedEvaluation::GatherState(const AnimatorControllerStateModel& state, bool additive,
                                  AnimationClipBinding* binding) {
  if (state.Record().fillDefaults != 0.0f) {
    return false;
  }
  const uint32_t clipBegin = static_cast<uint32_t>(clips.size());
  for (uint32_t k = 0; k < state.clipCount; ++k) {
    const ControllerClipRecord& entry = state.Clip(k);
    if (entry.weight != 0.0f && !GatherClip(entry, additive, binding)) {
      return false;
    }
  }
  states.push_back(
      State{state.Record().weight, Range{clipBegin, static_cast<uint32_t>(clips.size())}});
  return true;
}

bool FusedEvaluation::GatherClip(const ControllerClipRecord& entry, bool additive,
                                 AnimationClipBinding* binding) {
  AnimationClipModel* model = binding->core->Animation()->FindAnimationClipModel(entry.clipHandle);
  if (model == nullptr || !binding->HasList(entry.clipHandle)) {
    return true;
  }
  const ClipShape& shape = model->Shape();
  const SlotSamples* bySlot = binding->SamplesBySlot(entry.clipHandle, model);
  if (clips.size() == kMaxClips || shape.hasAngles || !bySlot->isUsable) {
    return false;
  }
  touched->Note(bySlot);
  SampleMap* map = &samples[clips.size()];
  model->SampleAtTime(entry.time, map);
  Clip clip;
  clip.own = Samples(bySlot, *map);
  clip.moves = shape.moves.data();
  clip.weight = entry.weight;
  if (additive && !FindReference(entry, binding, &clip)) {
    return false;
  }
  slotEnd = std::max(slotEnd, bySlot->end);
  clips.push_back(clip);
  return true;
}

bool FusedEvaluation::FindReference(const ControllerClipRecord& entry,
                                    AnimationClipBinding* binding, Clip* clip) {
  const bool isOwn = !binding->HasList(entry.referenceClip);
  const uint32_t handle = isOwn ? entry.clipHandle : entry.referenceClip;
  AnimationClipModel* model = binding->core->Animation()->FindAnimationClipModel(handle);
  if (model == nullptr || model->Shape().hasAngles) {
    return false;
  }
  const SampleMap* map = SampleReference(model, isOwn ? 0.0f : entry.referenceTime);
  if (map == nullptr) {
    return false;
  }
  clip->reference = Samples(binding->SamplesBySlot(handle, model), *map);
  return clip->reference.bySlot->isUsable;
}

const SampleMap* FusedEvaluation::SampleReference(AnimationClipModel* model, float time) {
  // Compared by bits: a time may be NaN.
  const uint32_t timeBits = ReadUnaligned<uint32_t>(&time);
  Reference* oldest = &references[0];
  for (Reference& reference : references) {
    if (reference.serial == model->serial && reference.timeBits == timeBits) {
      reference.run = run;
      return &reference.samples;
    }
    oldest = reference.run < oldest->run ? &reference : oldest;
  }
  if (oldest->run == run) {
    return nullptr;
  }
  model->SampleAtTime(time, &oldest->samples);
  oldest->serial = model->serial;
  oldest->timeBits = timeBits;
  oldest->run = run;
  return &oldest->samples;
}

// Bits of the lanes for which a clip may have positions or scales.
uint32_t FusedEvaluation::MovingLanes(uint32_t slot) const {
  uint32_t lanes = 0;
  for (const Clip& clip : clips) {
    if (slot + kLanes <= clip.own.orderEnd && ReadUnaligned<uint32_t>(clip.moves + slot) == 0) {
      continue;
    }
    for (uint32_t i = 0; i < kLanes; ++i) {
      const uint32_t position = clip.own.bySlot->At(slot + i);
      lanes |= (position < clip.own.count && clip.moves[position] != 0 ? 1u : 0u) << i;
    }
  }
  return lanes;
}

// Positions and scales of one bone, through all layers. `scales` receives scale z of each
// layer, kBlock apart.
bool FusedEvaluation::BlendMovingBone(uint32_t slot, RestPoses* restPoses, float* scales,
                                      PoseRow* rows) const {
  rows[0] = PoseRow();
  rows[1] = PoseRow();
  for (const Layer& layer : layers) {
    PoseRow sum[2];
    const float m = layer.mask == nullptr ? 1.0f : layer.mask[slot];
    for (uint32_t k = layer.states.begin; k < layer.states.end && m != 0.0f; ++k) {
      PoseRow pose[2];
      for (uint32_t c = states[k].clips.begin; c < states[k].clips.end; ++c) {
        AddChannels(clips[c], slot, m * clips[c].weight, layer.additive, pose);
      }
      const __m128 s = _mm_set1_ps(states[k].weight);
      sum[0] = AddStateRow(pose[0], s, sum[0]);
      sum[1] = AddStateRow(pose[1], s, sum[1]);
    }
    if (!layer.additive && IsPartial(sum[0].weight, sum[1].weight) &&
        !CompleteRows(restPoses, sum)) {
      return false;
    }
    *scales = SecondLane(sum[1].value);
    scales += kBlock;
    MergeRows(layer.merge, sum, layer.share, restPoses->Value(slot), rows);
  }
  return !HasNaN(rows[0]) && !HasNaN(rows[1]);
}

// Adds the channels of a clip's sample to the pose of its state.
void FusedEvaluation::AddChannels(const Clip& clip, uint32_t slot, float w, bool additive,
                                  PoseRow* pose) {
  const ClipSample* own = clip.own.Find(slot);
  const ClipSample* reference = additive ? clip.reference.Find(slot) : nullptr;
  if (own == nullptr || (additive && reference == nullptr)) {
    return;
  }
  __m128 first = FirstRow(*own);
  __m128 second = SecondRow(*own);
  if (additive) {
    first = WithoutReference(first, FirstRow(*reference));
    second = WithoutReference(second, SecondRow(*reference));
  }
  pose[0] = AddSampleRow(first, _mm_set1_ps(w), pose[0]);
  pose[1] = AddSampleRow(second, _mm_set1_ps(w), pose[1]);
}

// Adds the rotations of a clip to those of its state. `isFirst`: those are still uninitialised.
NQ_FORCE_INLINE void FusedEvaluation::AddClipRotations(const Clip& clip, const Layer& layer,
                                                       uint32_t slot, bool isFirst,
                                                       FourRotations* rotations) {
  FourRotations sum = isFirst ? FourRotations::None() : *rotations;
  const FourSamples own(clip.own, slot);
  __m128 present = own.present;
  __m128 w = _mm_set1_ps(clip.weight);
  if (layer.mask != nullptr) {
    const __m128 m = _mm_loadu_ps(layer.mask + slot);
    present = _mm_and_ps(present, _mm_cmpneq_ps(m, _mm_setzero_ps()));
    w = _mm_mul_ps(m, w);
  }
  FourQuaternions q = own.Rotations();
  const __m128 rotates = AreNumbers(q);
  if (layer.additive) {
    const FourSamples reference(clip.reference, slot);
    const FourQuaternions r = reference.Rotations();
    present = _mm_and_ps(present, reference.present);
    q = Select(AreNumbers(r), MultiplyFour(q, Conjugate(r)), q);
  }
  sum.present = _mm_or_ps(sum.present, present);
  sum.Add(q, w, _mm_and_ps(present, rotates), isFirst);
  *rotations = sum;
}

// Adds the rotations of a state to those of its layer, of which it has the share `s`. They were
// already weighted when they were added to the state's, and are weighted again.
NQ_FORCE_INLINE void FusedEvaluation::AddStateRotations(const FourRotations& state, __m128 s,
                                                        bool isFirst, FourRotations* rotations) {
  FourRotations sum = isFirst ? FourRotations::None() : *rotations;
  const __m128 w = state.weight;
  sum.present = _mm_or_ps(sum.present, state.present);
  sum.Add(state.rotation, _mm_mul_ps(w, s),
          _mm_and_ps(IsNumber(w), _mm_cmpneq_ps(w, _mm_setzero_ps())), isFirst);
  *rotations = sum;
}

namespace {

// Stores what is not null in the entity that `writer` has selected, positions and scales where they
// are animated, builds its local matrix and marks it.
NQ_FORCE_INLINE void WriteBone(const PoseRow* rows, const __m128* rotation,
                               const EntityPoseWriter& writer) {
  const PoseRow first = rows == nullptr ? PoseRow() : rows[0];
  const PoseRow second = rows == nullptr ? PoseRow() : rows[1];
  const PositionScale values =
      writer.Replace(first.value, IsNumber(first.weight), second.value, IsNumber(second.weight));
  if (rotation != nullptr) {
    writer.WriteQuaternion(*rotation, values);
  } else {
    Entity3D::BuildOwnLocalMatrix(writer.Record(), writer.LocalMatrix());
  }
  writer.Mark();
}

// Merges the rotations of a layer. `hadRotation`: the lanes that have one already.
NQ_FORCE_INLINE FourQuaternions MergedRotations(Merge merge, const FourQuaternions& rotation,
                                                float weight, uint32_t slot, __m128 hadRotation,
                                                RestPoses* restPoses, const FourQuaternions& sum) {
  const __m128 share = _mm_set1_ps(weight);
  if (merge == Merge::kOverridePart) {
    const FourQuaternions rest = RestRotations(restPoses, slot);
    // NaN counts as the opposite hemisphere.
    const __m128 sameSide = _mm_cmpge_ps(DotFour(rotation, rest), _mm_setzero_ps());
    const __m128 sign = _mm_andnot_ps(sameSide, _mm_set1_ps(-0.0f));
    const auto blend = [=](__m128 component, __m128 resting) {
      const __m128 near = _mm_xor_ps(component, sign);
      return _mm_add_ps(resting, _mm_mul_ps(_mm_sub_ps(near, resting), share));
    };
    return NormaliseFour(FourQuaternions{blend(rotation.x, rest.x), blend(rotation.y, rest.y),
                                         blend(rotation.z, rest.z), blend(rotation.w, rest.w)});
  }
  const FourQuaternions delta = ScaledFour(rotation, share);
  if (merge == Merge::kOverrideWhole) {
    return delta;
  }
  if (merge == Merge::kAdditiveLater && AreAll(hadRotation)) {
    return MultiplyFour(delta, sum);
  }
  const __m128 keeps = merge == Merge::kAdditiveFirst ? NoLane() : hadRotation;
  return MultiplyFour(delta, Select(keeps, sum, RestRotations(restPoses, slot)));
}

}  // namespace

// The rotations of a block: of the current state and layer, and final ones.
struct FusedEvaluation::BlockRotations {
  FourRotations state[kGroups];
  FourRotations layer[kGroups];
  FourRotations merged[kGroups];
};

// The final rotations of a block, bone by bone.
struct FusedEvaluation::BlockPoses {
  __m128 rotations[kBlock];
  uint64_t present = 0;  // bits of the bones that have a pose at all
  uint64_t rotates = 0;  // and of those whose rotation is animated
  static_assert(kBlock == 64, "a bit for each bone");

  // Adds a group. False if an animated rotation is NaN.
  bool Add(const FourRotations& four, uint32_t group) {
    const __m128 isRotated = IsNumber(four.weight);
    StoreTransposed(four.rotation, rotations + group * kLanes);
    present |= uint64_t{static_cast<uint32_t>(SignBits(four.present))} << group * kLanes;
    rotates |= uint64_t{static_cast<uint32_t>(SignBits(isRotated))} << group * kLanes;
    return !Any(_mm_andnot_ps(AreNumbers(four.rotation), isRotated));
  }

  bool IsPresent(uint32_t bone) const { return (present >> bone & 1) != 0; }
  bool Rotates(uint32_t bone) const { return (rotates >> bone & 1) != 0; }

  // How many bones from one on, and before `end`, have a pose and are rotated.
  uint32_t RotatingCount(uint32_t bone, uint32_t end) const {
    uint64_t bits = (present & rotates) >> bone;
    uint32_t count = 0;
    for (; (bits & 1) != 0 && bone + count < end; bits >>= 1) {
      ++count;
    }
    return count;
  }
};

void FusedEvaluation::SumLayerRotations(const Layer& layer, uint32_t slot, uint32_t groups,
                                        BlockRotations* rotations) const {
  bool isFirstState = true;
  for (uint32_t k = layer.states.begin; k < layer.states.end; ++k) {
    const Range range = states[k].clips;
    if (range.begin == range.end) {
      continue;
    }
    for (uint32_t c = range.begin; c < range.end; ++c) {
      for (uint32_t g = 0; g < groups; ++g) {
        AddClipRotations(clips[c], layer, slot + g * kLanes, c == range.begin,
                         &rotations->state[g]);
      }
    }
    const __m128 s = _mm_set1_ps(states[k].weight);
    for (uint32_t g = 0; g < groups; ++g) {
      AddStateRotations(rotations->state[g], s, isFirstState, &rotations->layer[g]);
    }
    isFirstState = false;
  }
  if (isFirstState) {
    std::fill(rotations->layer, rotations->layer + groups, FourRotations::None());
  }
}

bool FusedEvaluation::CompleteRotations(const Layer& layer, uint32_t groups, const float* scales,
                                        RestPoses* restPoses, FourRotations* rotations) {
  for (uint32_t g = 0; g < groups; ++g) {
    if (layer.additive) {
      rotations[g].CompleteAdditive();
    } else if (!rotations[g].CompleteOverride(restPoses, scales + g * kLanes)) {
      return false;
    }
  }
  return true;
}

void FusedEvaluation::MergeLayerRotations(const Layer& layer, uint32_t slot, uint32_t groups,
                                          RestPoses* restPoses, BlockRotations* rotations) {
  for (uint32_t g = 0; g < groups; ++g) {
    const FourRotations& own = rotations->layer[g];
    FourRotations* sum = &rotations->merged[g];
    sum->present = _mm_or_ps(sum->present, own.present);
    const __m128 rotates = IsNumber(own.weight);
    if (!Any(rotates)) {
      continue;
    }
    const FourQuaternions merged =
        MergedRotations(layer.merge, own.rotation, layer.share, slot + g * kLanes,
                        IsNumber(sum->weight), restPoses, sum->rotation);
    sum->rotation = AreAll(rotates) ? merged : Select(rotates, merged, sum->rotation);
    sum->weight = Select(rotates, _mm_setzero_ps(), sum->weight);
  }
}

bool FusedEvaluation::BlendMovingBones(uint32_t slot, uint32_t groups, RestPoses* restPoses) {
  scaleZ.assign(layers.size() * kBlock, 0.0f);
  for (uint32_t g = 0; g < groups; ++g) {
    moving[g] = MovingLanes(slot + g * kLanes);
    for (uint32_t i = 0; i < kLanes && moving[g] >> i != 0; ++i) {
      const uint32_t bone = g * kLanes + i;
      const bool moves = (moving[g] >> i & 1) != 0;
      if (moves && !BlendMovingBone(slot + bone, restPoses, &scaleZ[bone], rows[bone])) {
        return false;
      }
    }
  }
  return true;
}

bool FusedEvaluation::BlendRotations(uint32_t slot, uint32_t groups, RestPoses* restPoses,
                                     BlockRotations* rotations) const {
  std::fill(rotations->merged, rotations->merged + groups, FourRotations::None());
  const float* scales = scaleZ.data();
  for (const Layer& layer : layers) {
    SumLayerRotations(layer, slot, groups, rotations);
    if (!CompleteRotations(layer, groups, scales, restPoses, rotations->layer)) {
      return false;
    }
    MergeLayerRotations(layer, slot, groups, restPoses, rotations);
    scales += kBlock;
  }
  return true;
}

bool FusedEvaluation::PoseBlock(uint32_t slot, uint32_t slots, RestPoses* restPoses,
                                EntityPoseWriter* writer) {
  const uint32_t groups = (slots + kLanes - 1) / kLanes;
  BlockRotations rotations;
  if (!BlendMovingBones(slot, groups, restPoses) ||
      !BlendRotations(slot, groups, restPoses, &rotations)) {
    return false;
  }
  BlockPoses poses;
  for (uint32_t g = 0; g < groups; ++g) {
    if (!poses.Add(rotations.merged[g], g)) {
      return false;
    }
  }
  WriteBlock(poses, restPoses->Numbers() + slot, kLanes * groups, writer);
  return true;
}

void FusedEvaluation::WriteBlock(const BlockPoses& poses, const uint32_t* numbers, uint32_t bones,
                                 EntityPoseWriter* writer) const {
  // There may be fewer numbers than bones: lanes beyond the last slot have no pose.
  for (uint32_t i = 0; i < bones;) {
    const uint32_t run = writer->SeekRun3D(numbers + i, poses.RotatingCount(i, bones));
    if (run > 1) {
      WriteRun(poses, i, writer->Run(run));
      writer->MarkRun(run);
      i += run;
      continue;
    }
    // Some numbers may be those of entities that are gone.
    if (poses.IsPresent(i) && writer->Seek(numbers[i]) && writer->isThreeD()) {
      WriteBone(Moves(i) ? rows[i] : nullptr, poses.Rotates(i) ? &poses.rotations[i] : nullptr,
                *writer);
    }
    ++i;
  }
}

void FusedEvaluation::WriteRun(const BlockPoses& poses, uint32_t begin, const BoneRun& run) const {
  for (uint32_t i = 0; i < run.count; ++i) {
    if (Moves(begin + i)) {
      const PoseRow* pose = rows[begin + i];
      ReplaceLanes(&run.records[i], pose[0].value, IsNumber(pose[0].weight), pose[1].value,
                   IsNumber(pose[1].weight));
    }
  }
  WriteRotations(run, reinterpret_cast<const float*>(&poses.rotations[begin]), kLanes);
}

}  // namespace nq::engine
