// Building of timelines, and sampling of them.
#include "Engine/Animation/ClipTimelines.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "Common/Def/Vectors.h"

namespace nq::engine {

namespace {

constexpr float kNoValue = std::numeric_limits<float>::quiet_NaN();

// The groups of a track: position, scale, rotation. The first two leave one lane unused.
struct GroupShape {
  uint8_t firstChannel;
  uint8_t channelCount;
};
constexpr GroupShape kGroups[] = {{0, 3}, {kScaleChannel, 3}, {kRotationChannel, 4}};

bool SameFrames(const std::vector<ClipKey>& keys, const std::vector<uint32_t>& frames) {
  return std::equal(keys.begin(), keys.end(), frames.begin(), frames.end(),
                    [](const ClipKey& key, uint32_t frame) { return key.frame == frame; });
}

std::vector<uint32_t> FramesOf(const std::vector<ClipKey>& keys) {
  std::vector<uint32_t> frames;
  frames.reserve(keys.size());
  for (const ClipKey& key : keys) {
    frames.push_back(key.frame);
  }
  return frames;
}

inline __m128 IsInfinite(__m128 v) {
  const __m128 magnitude = _mm_andnot_ps(_mm_set1_ps(-0.0f), v);
  return _mm_cmpeq_ps(magnitude, _mm_set1_ps(std::numeric_limits<float>::infinity()));
}

}  // namespace

void ClipTimelines::Build(const std::vector<ClipTrack>& tracks) {
  TimelinesByFrames byFrames;
  for (uint32_t t = 0; t < tracks.size(); ++t) {
    AddBlank(tracks[t]);
    const TimelineOfChannel timelineOf = FindTimelines(tracks[t], &byFrames);
    for (const GroupShape& shape : kGroups) {
      AddGroups(t, shape.firstChannel, shape.channelCount, timelineOf);
    }
  }
  for (Timeline& timeline : timelines) {
    timeline.LayOutKeys(tracks);
  }
}

void ClipTimelines::AddBlank(const ClipTrack& track) {
  ClipSample sample;
  std::fill(sample.channel, sample.channel + kClipChannels, kNoValue);
  sample.isQuaternion = track.isQuaternion;
  blank.push_back(sample);
}

ClipTimelines::TimelineOfChannel ClipTimelines::FindTimelines(const ClipTrack& track,
                                                              TimelinesByFrames* byFrames) {
  TimelineOfChannel timelineOf;
  timelineOf.fill(kNone);
  for (uint32_t channel = 0; channel < kClipChannels; ++channel) {
    const std::vector<ClipKey>& keys = track.channels[channel];
    if (keys.empty()) {
      continue;
    }
    // Adjacent channels mostly share their frames.
    const bool asBefore = channel != 0 && timelineOf[channel - 1] != kNone &&
                          SameFrames(keys, timelines[timelineOf[channel - 1]].frames);
    if (asBefore) {
      timelineOf[channel] = timelineOf[channel - 1];
      continue;
    }
    const auto entered = byFrames->emplace(FramesOf(keys), static_cast<uint32_t>(timelines.size()));
    if (entered.second) {
      timelines.emplace_back(entered.first->first);
    }
    timelineOf[channel] = entered.first->second;
  }
  return timelineOf;
}

void ClipTimelines::AddGroups(uint32_t track, uint8_t firstChannel, uint8_t channelCount,
                              const TimelineOfChannel& timelineOf) {
  for (uint32_t lane = 0; lane < channelCount; ++lane) {
    const uint32_t timeline = timelineOf[firstChannel + lane];
    if (timeline == kNone) {
      continue;
    }
    std::vector<Group>& groups = timelines[timeline].groups;
    const bool isNew = groups.empty() || groups.back().track != track ||
                       groups.back().firstChannel != firstChannel;
    if (isNew) {
      groups.push_back(Group{track, firstChannel, channelCount, 0, true});
    }
    groups.back().present = static_cast<uint8_t>(groups.back().present | 1u << lane);
  }
  // A group may write all four channels if those that are not its own have no keys, or are written
  // later by the same timeline.
  for (uint32_t lane = 0; lane < channelCount; ++lane) {
    const uint32_t timeline = timelineOf[firstChannel + lane];
    if (timeline == kNone) {
      continue;
    }
    Group& group = timelines[timeline].groups.back();
    for (uint32_t other = 0; other < 4; ++other) {
      const uint32_t owner = timelineOf[firstChannel + other];
      group.writesFour = group.writesFour && (owner == kNone || owner == timeline);
    }
  }
}

ClipTimelines::Timeline::Timeline(const std::vector<uint32_t>& keyFrames)
    : frames(keyFrames),
      times(keyFrames.begin(), keyFrames.end()),
      ascends(std::is_sorted(keyFrames.begin(), keyFrames.end())) {
  const float range = times.back() - times.front();
  keysPerFrame = range > 0.0f ? static_cast<float>(frames.size() - 1) / range : 0.0f;
}

void ClipTimelines::Timeline::LayOutKeys(const std::vector<ClipTrack>& tracks) {
  // A group's fourth lane may be the first channel of the track's next kind, which overwrites it.
  std::stable_sort(groups.begin(), groups.end(),
                   [](const Group& a, const Group& b) { return a.firstChannel < b.firstChannel; });
  for (uint32_t g = 0; g < groups.size(); ++g) {
    const bool continues = g != 0 && groups[g].writesFour && runs.back().writesFour &&
                           groups[g].firstChannel == groups[g - 1].firstChannel &&
                           groups[g].track == groups[g - 1].track + 1;
    if (continues) {
      ++runs.back().count;
    } else {
      runs.push_back(Run{g, 1, groups[g].writesFour});
    }
  }
  keys.resize(frames.size() * groups.size());
  Keys* cell = keys.data();
  for (size_t row = 0; row < frames.size(); ++row) {
    for (const Group& group : groups) {
      for (uint32_t lane = 0; lane < 4; ++lane) {
        ClipKey key{0, kNoValue, 0.0f, 0.0f};
        if ((group.present >> lane & 1u) != 0) {
          key = tracks[group.track].channels[group.firstChannel + lane][row];
        }
        cell->value[lane] = key.value;
        cell->inTangent[lane] = key.inTangent;
        cell->outTangent[lane] = key.outTangent;
        steps = steps || std::isinf(key.outTangent);
      }
      ++cell;
    }
  }
}

size_t ClipTimelines::Timeline::FirstAtOrAfter(float time) const {
  const size_t count = times.size();
  const auto isBefore = [time](float frame) { return !(frame >= time); };
  if (!ascends) {
    return std::find_if_not(times.begin(), times.end(), isBefore) - times.begin();
  }
  // Keys are mostly evenly spaced.
  const float guessed = std::ceil((time - times[0]) * keysPerFrame);
  if (guessed >= 1.0f && guessed < static_cast<float>(count)) {
    const size_t guess = static_cast<size_t>(guessed);
    if (isBefore(times[guess - 1]) && !isBefore(times[guess])) {
      return guess;
    }
  }
  return std::partition_point(times.begin(), times.end(), isBefore) - times.begin();
}

template <typename ValueOf>
NQ_FORCE_INLINE void ClipTimelines::StoreGroups(const Timeline& timeline, ClipSample* samples,
                                                ValueOf valueOf) {
  for (const Run& run : timeline.runs) {
    const Group& first = timeline.groups[run.group];
    ClipSample* sample = samples + first.track;
    if (run.writesFour) {
      for (uint32_t i = 0; i < run.count; ++i) {
        _mm_storeu_ps(sample[i].channel + first.firstChannel, valueOf(run.group + i));
      }
      continue;
    }
    float lanes[4];
    _mm_storeu_ps(lanes, valueOf(run.group));
    for (uint32_t lane = 0; lane < 4; ++lane) {
      if ((first.present >> lane & 1u) != 0) {
        sample->channel[first.firstChannel + lane] = lanes[lane];
      }
    }
  }
}

void ClipTimelines::SampleTimeline(const Timeline& timeline, float time, uint32_t framesPerSecond,
                                   ClipSample* samples) {
  const uint32_t* frames = timeline.frames.data();
  const CurvePosition position =
      PositionAt(time, timeline.FirstAtOrAfter(time), timeline.frames.size(),
                 [frames](size_t i) { return frames[i]; });
  const size_t groupCount = timeline.groups.size();
  const Keys* next = timeline.keys.data() + position.key * groupCount;
  if (position.holds) {
    StoreGroups(timeline, samples, [next](size_t g) { return _mm_load_ps(next[g].value); });
    return;
  }
  const Keys* previous = next - groupCount;
  const uint32_t previousFrame = frames[position.key - 1];
  const HermiteWeights w(time, previousFrame, frames[position.key] - previousFrame,
                         framesPerSecond);
  const __m128 previousWeight = _mm_set1_ps(w.previous);
  const __m128 nextWeight = _mm_set1_ps(w.next);
  const __m128 previousTangentWeight = _mm_set1_ps(w.previousTangent);
  const __m128 nextTangentWeight = _mm_set1_ps(w.nextTangent);
  const __m128 seconds = _mm_set1_ps(w.seconds);
  const auto smooth = [=](size_t g) {
    const __m128 fromPrevious = _mm_mul_ps(_mm_load_ps(previous[g].value), previousWeight);
    const __m128 fromNext = _mm_mul_ps(_mm_load_ps(next[g].value), nextWeight);
    const __m128 leaving =
        _mm_mul_ps(_mm_mul_ps(_mm_load_ps(previous[g].outTangent), previousTangentWeight), seconds);
    const __m128 arriving =
        _mm_mul_ps(_mm_mul_ps(_mm_load_ps(next[g].inTangent), nextTangentWeight), seconds);
    return _mm_add_ps(_mm_add_ps(_mm_add_ps(fromPrevious, fromNext), leaving), arriving);
  };
  if (!timeline.steps) {
    StoreGroups(timeline, samples, smooth);
    return;
  }
  // Kept on purpose: only out tangents decide whether a segment steps, not the in tangent at the
  // next key. Authored clips rely on it.
  StoreGroups(timeline, samples, [=](size_t g) {
    const __m128 step = _mm_or_ps(IsInfinite(_mm_load_ps(previous[g].outTangent)),
                                  IsInfinite(_mm_load_ps(next[g].outTangent)));
    return Select(step, _mm_load_ps(previous[g].value), smooth(g));
  });
}

void ClipTimelines::Sample(float time, uint32_t framesPerSecond, ClipSample* samples) const {
  Clear(samples);
  SampleKeyed(time, framesPerSecond, samples);
}

void ClipTimelines::Clear(ClipSample* samples) const {
  if (!blank.empty()) {
    std::memcpy(static_cast<void*>(samples), blank.data(), blank.size() * sizeof(ClipSample));
  }
}

void ClipTimelines::SampleKeyed(float time, uint32_t framesPerSecond, ClipSample* samples) const {
  for (const Timeline& timeline : timelines) {
    SampleTimeline(timeline, time, framesPerSecond, samples);
  }
}

}  // namespace nq::engine
