// Gathering of what a controller evaluates, and the pass over its bones.
#include "Engine/Animation/FusedEvaluation.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "Common/Def/Platform.h"
#include "Common/Def/Unaligned.h"
#include "Common/Def/Vectors.h"
#include "Engine/Animation/AnimationClipModel.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/AnimatorControllerStateModel.h"
#include "Engine/Animation/EntityPoseWriter.h"
#include "Engine/Animation/FourLocalMatrices.h"
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
  return _mm_movemask_ps(mask) != 0;
}

inline bool AreAll(__m128 mask) {
  return _mm_movemask_ps(mask) == (1 << kLanes) - 1;
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

// Completes the channels of an override layer, and copies scale z of each bone. False without a
// rest pose.
NQ_NO_INLINE bool CompleteRows(RestPoses* restPoses, PoseRow (*rows)[2], float* scaleZ) {
  for (uint32_t i = 0; i < kLanes; ++i) {
    float value[8];
    float weight[8];
    for (uint32_t half = 0; half < 2; ++half) {
      _mm_storeu_ps(value + 4 * half, rows[i][half].value);
      _mm_storeu_ps(weight + 4 * half, rows[i][half].weight);
    }
    const auto find = [restPoses](uint32_t number) { return FindRest(restPoses, number); };
    if (IsPartial(rows[i][0].weight, rows[i][1].weight) && !CompleteChannels(value, weight, find)) {
      return false;
    }
    for (uint32_t half = 0; half < 2; ++half) {
      rows[i][half].value = _mm_loadu_ps(value + 4 * half);
    }
    scaleZ[i] = value[kScaleZChannel];
  }
  return true;
}

// The rotations by which the rotations of `lanes` are completed: those of the rest poses of number
// scale z. False without one.
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

}  // namespace

// The samples of four slots.
struct FourSamples {
  const ClipSample* of[kLanes];
  __m128 present;  // lanes that have one

  template <typename Samples>
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

// Positions and scales of four bones; none unless `kMoves`.
template <bool kMoves>
struct FourRows {
  PoseRow of[kLanes][2];
};
template <>
struct FourRows<false> {};

// The poses of four bones, of a state or of a layer: TargetPose side by side, but positions and
// scales are bone by bone. Most bones only rotate: `kMoves` is false if all four do.
template <bool kMoves>
struct FourPoses {
  __m128 present = NoLane();  // bones that have a pose at all
  __m128 rotationWeight = PoseRow().weight;
  FourQuaternions rotation = ZeroFour();
  FourRows<kMoves> rows;
  bool isEmpty = true;  // no rotation was added

  // Adds rotations with weights `w` in the lanes of `mask`.
  NQ_FORCE_INLINE void AddRotations(const FourQuaternions& q, __m128 w, __m128 mask) {
    rotationWeight = Select(mask, _mm_add_ps(Touched(rotationWeight), w), rotationWeight);
    rotation = isEmpty ? FirstFour(q, w, mask) : AddFour(rotation, q, w, mask);
    isEmpty = false;
  }

  // Adds a state's poses to those of its layer.
  NQ_FORCE_INLINE void AddState(const FourPoses& pose, float weight) {
    const __m128 s = _mm_set1_ps(weight);
    const __m128 w = pose.rotationWeight;
    present = _mm_or_ps(present, pose.present);
    // The rotation was already weighted when it was added to the state's pose, and is weighted
    // again.
    AddRotations(pose.rotation, _mm_mul_ps(w, s),
                 _mm_and_ps(IsNumber(w), _mm_cmpneq_ps(w, _mm_setzero_ps())));
    if constexpr (kMoves) {
      for (uint32_t i = 0; i < kLanes; ++i) {
        rows.of[i][0] = AddStateRow(pose.rows.of[i][0], s, rows.of[i][0]);
        rows.of[i][1] = AddStateRow(pose.rows.of[i][1], s, rows.of[i][1]);
      }
    }
  }

  // Completes an override layer. False if a rest pose would have to be inserted.
  NQ_FORCE_INLINE bool CompleteOverride(RestPoses* restPoses) {
    float scaleZ[kLanes] = {};
    if constexpr (kMoves) {
      if (!CompleteRows(restPoses, rows.of, scaleZ)) {
        return false;
      }
    }
    const __m128 partial = _mm_cmplt_ps(rotationWeight, _mm_set1_ps(1.0f));
    if (Any(partial)) {
      FourQuaternions rest;
      if (!FindRestRotations(restPoses, scaleZ, _mm_movemask_ps(partial), &rest)) {
        return false;
      }
      rotation = AddFour(rotation, rest, _mm_sub_ps(_mm_set1_ps(1.0f), rotationWeight), partial);
    }
    rotation = NormaliseFour(rotation);
    return true;
  }

  void CompleteAdditive() { rotation = ScaledFour(rotation, rotationWeight); }
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
  RestPoses* restPoses = &binding->defaults;
  EntityPoseWriter writer(&controller->core->Entities()->Tree());
  for (uint32_t slot = 0; slot < slotEnd; slot += kLanes) {
    const bool isPosed = AnyMoves(slot) ? PoseFour<true>(slot, restPoses, &writer)
                                        : PoseFour<false>(slot, restPoses, &writer);
    if (!isPosed) {
      return false;
    }
  }
  return true;
}

bool FusedEvaluation::Gather(AnimatorControllerModel* controller, AnimationClipBinding* binding) {
  ++run;
  slotEnd = 0;
  clips.clear();
  states.clear();
  layers.clear();
  for (uint32_t index = 0; index < controller->layerCount; ++index) {
    const ControllerLayerRecord& record = controller->Layer(index);
    if (record.blendMode > kAdditiveLayer || record.firstState == kNoHandle) {
      continue;
    }
    if (!GatherLayer(*controller, record, binding)) {
      return false;
    }
    const bool additive = record.blendMode == kAdditiveLayer;
    ControllerMask* mask = controller->masks.Find(index);
    layers.push_back(Layer{MergeOf(index, additive, record.weight), additive, record.weight,
                           mask == nullptr ? nullptr : mask->WeightsBySlot(binding->defaults),
                           static_cast<uint32_t>(states.size())});
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
  for (uint32_t k = 0; k < state.clipCount; ++k) {
    const ControllerClipRecord& entry = state.Clip(k);
    if (entry.weight != 0.0f && !GatherClip(entry, additive, binding)) {
      return false;
    }
  }
  states.push_back(State{state.Record().weight, static_cast<uint32_t>(clips.size())});
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
  Reference* oldest = &references[0];
  for (Reference& reference : references) {
    // The bits: a time may be NaN.
    if (reference.serial == model->serial &&
        std::memcmp(&reference.time, &time, sizeof(time)) == 0) {
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
  oldest->time = time;
  oldest->run = run;
  return &oldest->samples;
}

// True if a clip may have positions or scales for one of four slots.
bool FusedEvaluation::AnyMoves(uint32_t slot) const {
  for (const Clip& clip : clips) {
    if (slot + kLanes <= clip.own.orderEnd) {
      if (ReadUnaligned<uint32_t>(clip.moves + slot) != 0) {
        return true;
      }
      continue;
    }
    for (uint32_t i = 0; i < kLanes; ++i) {
      const uint32_t position = clip.own.bySlot->At(slot + i);
      if (position < clip.own.count && clip.moves[position] != 0) {
        return true;
      }
    }
  }
  return false;
}

// Adds the samples of a clip to the poses of its state.
template <bool kMoves>
NQ_FORCE_INLINE void FusedEvaluation::AddClip(const Clip& clip, const Layer& layer, uint32_t slot,
                                              FourPoses<kMoves>* pose) {
  const FourSamples own(clip.own, slot);
  __m128 present = own.present;
  __m128 w = _mm_set1_ps(clip.weight);
  if (layer.mask != nullptr) {
    const __m128 m = _mm_loadu_ps(layer.mask + slot);
    present = _mm_and_ps(present, _mm_cmpneq_ps(m, _mm_setzero_ps()));
    w = _mm_mul_ps(m, w);
  }
  if (!Any(present)) {
    return;
  }
  FourQuaternions q = own.Rotations();
  const __m128 rotates = AreNumbers(q);
  __m128 rows[kLanes][2];
  if (kMoves) {
    for (uint32_t i = 0; i < kLanes; ++i) {
      rows[i][0] = FirstRow(*own.of[i]);
      rows[i][1] = SecondRow(*own.of[i]);
    }
  }
  if (layer.additive) {
    const FourSamples reference(clip.reference, slot);
    present = _mm_and_ps(present, reference.present);
    const FourQuaternions r = reference.Rotations();
    q = Select(AreNumbers(r), MultiplyFour(q, Conjugate(r)), q);
    if (kMoves) {
      for (uint32_t i = 0; i < kLanes; ++i) {
        rows[i][0] = WithoutReference(rows[i][0], FirstRow(*reference.of[i]));
        rows[i][1] = WithoutReference(rows[i][1], SecondRow(*reference.of[i]));
      }
    }
  }
  pose->present = _mm_or_ps(pose->present, present);
  pose->AddRotations(q, w, _mm_and_ps(present, rotates));
  if constexpr (kMoves) {
    float weights[kLanes];
    _mm_storeu_ps(weights, w);
    for (uint32_t i = 0; i < kLanes; ++i) {
      if ((_mm_movemask_ps(present) >> i & 1) != 0) {
        const __m128 weight = _mm_set1_ps(weights[i]);
        pose->rows.of[i][0] = AddSampleRow(rows[i][0], weight, pose->rows.of[i][0]);
        pose->rows.of[i][1] = AddSampleRow(rows[i][1], weight, pose->rows.of[i][1]);
      }
    }
  }
}

namespace {

// Merges the rotations of a layer. `hadRotation`: the lanes that have one already.
NQ_FORCE_INLINE FourQuaternions MergeRotations(Merge merge, const FourQuaternions& rotation,
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

// True if the numbers of four slots follow each other.
inline bool AreConsecutive(const RestPoses& restPoses, uint32_t slot) {
  const uint32_t first = restPoses.Number(slot);
  return restPoses.Number(slot + 1) == first + 1 && restPoses.Number(slot + 2) == first + 2 &&
         restPoses.Number(slot + 3) == first + 3;
}

// True if an animated channel of a pose is NaN.
inline bool HasNaN(const PoseRow& row) {
  return Any(_mm_andnot_ps(IsNumber(row.value), IsNumber(row.weight)));
}

}  // namespace

template <bool kMoves>
bool FusedEvaluation::PoseFour(uint32_t slot, RestPoses* restPoses, EntityPoseWriter* writer) {
  __m128 present = NoLane();
  __m128 rotates = NoLane();
  FourQuaternions rotation = ZeroFour();
  FourRows<kMoves> rows;
  const Clip* clip = clips.data();
  const State* state = states.data();
  for (const Layer& layer : layers) {
    FourPoses<kMoves> sum;
    for (const State* end = states.data() + layer.stateEnd; state != end; ++state) {
      FourPoses<kMoves> pose;
      for (const Clip* clipEnd = clips.data() + state->clipEnd; clip != clipEnd; ++clip) {
        AddClip<kMoves>(*clip, layer, slot, &pose);
      }
      sum.AddState(pose, state->weight);
    }
    if (!Any(sum.present)) {
      continue;
    }
    if (layer.additive) {
      sum.CompleteAdditive();
    } else if (!sum.CompleteOverride(restPoses)) {
      return false;
    }
    const __m128 turned = IsNumber(sum.rotationWeight);
    const FourQuaternions merged =
        MergeRotations(layer.merge, sum.rotation, layer.share, slot, rotates, restPoses, rotation);
    rotation = AreAll(turned) ? merged : Select(turned, merged, rotation);
    rotates = _mm_or_ps(rotates, turned);
    present = _mm_or_ps(present, sum.present);
    if constexpr (kMoves) {
      for (uint32_t i = 0; i < kLanes; ++i) {
        if ((_mm_movemask_ps(sum.present) >> i & 1) != 0) {
          MergeRows(layer.merge, sum.rows.of[i], layer.share, restPoses->Value(slot + i),
                    rows.of[i]);
        }
      }
    }
  }

  if (Any(_mm_andnot_ps(AreNumbers(rotation), rotates))) {
    return false;
  }
  if (!kMoves && AreAll(present) && AreAll(rotates) && AreConsecutive(*restPoses, slot) &&
      writer->SeekRun3D(restPoses->Number(slot), kLanes)) {
    WriteFourRotations(rotation, writer);
    return true;
  }
  __m128 rotations[kLanes];
  StoreTransposed(rotation, rotations);
  for (uint32_t i = 0; i < kLanes; ++i) {
    if ((_mm_movemask_ps(present) >> i & 1) == 0) {
      continue;
    }
    PoseRow channels[2];
    if constexpr (kMoves) {
      channels[0] = rows.of[i][0];
      channels[1] = rows.of[i][1];
      if (HasNaN(channels[0]) || HasNaN(channels[1])) {
        return false;
      }
    }
    // Some numbers may be those of entities that are gone.
    if (writer->Seek(restPoses->Number(slot + i)) && writer->isThreeD()) {
      const bool hasRotation = (_mm_movemask_ps(rotates) >> i & 1) != 0;
      WritePose(channels[0], channels[1], hasRotation, rotations[i], *writer);
    }
  }
  return true;
}

}  // namespace nq::engine
