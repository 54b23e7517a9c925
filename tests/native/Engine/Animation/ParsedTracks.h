// Reconstructs the tracks of a clip from their layout.
#ifndef NQ_TESTS_NATIVE_ENGINE_ANIMATION_PARSEDTRACKS_H_
#define NQ_TESTS_NATIVE_ENGINE_ANIMATION_PARSEDTRACKS_H_

#include <cstdint>
#include <map>
#include <vector>

#include "Engine/Animation/AnimationClipModel.h"
#include "Engine/Animation/ClipTimelines.h"

namespace nq::engine {

struct ParsedTracks {
  // The tracks that were laid out.
  static std::vector<ClipTrack> Of(const ClipTimelines& laidOut) {
    std::vector<ClipTrack> tracks(laidOut.blank.size());
    for (size_t t = 0; t < tracks.size(); ++t) {
      tracks[t].isQuaternion = laidOut.blank[t].isQuaternion;
    }
    for (const ClipTimelines::Timeline& timeline : laidOut.timelines) {
      const ClipTimelines::Keys* keys = timeline.keys.data();
      for (const uint32_t frame : timeline.frames) {
        for (const ClipTimelines::Group& group : timeline.groups) {
          for (uint32_t lane = 0; lane < 4; ++lane) {
            if ((group.present >> lane & 1u) != 0) {
              tracks[group.track].channels[group.firstChannel + lane].push_back(
                  ClipKey{frame, keys->value[lane], keys->inTangent[lane], keys->outTangent[lane]});
            }
          }
          ++keys;
        }
      }
    }
    return tracks;
  }

  // Those of a parsed model that no task uses, by target index.
  static std::map<uint32_t, ClipTrack> Of(const AnimationClipModel& model) {
    std::map<uint32_t, ClipTrack> result;
    const std::vector<ClipTrack> ordered = Of(model.timelines);
    for (size_t i = 0; i < model.targets.size(); ++i) {
      result[model.targets[i]] = ordered[i];
    }
    return result;
  }
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_ANIMATION_PARSEDTRACKS_H_
