// Runs of clips, target lists and entity streams whose decisions are bytes.
#include "tests/native/Engine/Fuzz/FuzzPlays.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "Engine/Animation/AnimationClipModel.h"
#include "tests/native/Engine/Animation/ControllerScene.h"
#include "tests/native/Engine/Entity/ReferenceScene.h"
#include "tests/native/Engine/Entity/World.h"
#include "tests/native/Engine/MatrixFlow/MatrixFlowPlay.h"

namespace nq::engine {

namespace {

uint32_t WordAt(const uint8_t* bytes, size_t offset) {
  uint32_t word;
  std::memcpy(&word, bytes + offset, 4);
  return word;
}

float FloatOf(uint32_t word) {
  float number;
  std::memcpy(&number, &word, 4);
  return number;
}

// Whether a clip can be used: of no more than a header, or with a header that fits its curves,
// known types, and all keys.
bool IsUsable(const uint8_t* bytes, size_t size) {
  constexpr size_t kHeader = 16;
  constexpr size_t kCurve = 12;
  constexpr size_t kKey = 16;
  if (size <= kHeader) {
    return true;
  }
  const size_t curves = WordAt(bytes, 12);
  if (curves > size / kCurve || kHeader + curves * kCurve != WordAt(bytes, 0) ||
      kHeader + curves * kCurve > size) {
    return false;
  }
  size_t keys = 0;
  for (size_t c = 0; c < curves; ++c) {
    const size_t at = kHeader + c * kCurve;
    const uint32_t type = WordAt(bytes, at + 4);
    const uint32_t count = WordAt(bytes, at + 8);
    if (count != 0 && (type < 1 || type > 13)) {
      return false;
    }
    keys += count;
  }
  return keys <= (size - WordAt(bytes, 0)) / kKey;
}

// The first failed comparison, as text.
class Problem {
 public:
  void Expect(const ::testing::AssertionResult& result, const std::string& label) {
    if (!result && text.empty()) {
      text = label + ": " + result.message();
    }
  }
  void Expect(bool isSame, const std::string& label) {
    if (!isSame && text.empty()) {
      text = label;
    }
  }

  std::string text;
};

// A number of interest, or any bits.
float NumberOf(Choices* choices) {
  static const float kNumbers[] = {0, -0.0f, 1, -1, 0.5f, 2, 1e-7f, 1e30f, -1e30f, 1e-40f};
  const uint32_t choice = choices->Below(12);
  return choice < 10 ? kNumbers[choice] : FloatOf(choices->Word());
}

// Two scenes that the same words change.
class TwoScenes {
 public:
  TwoScenes() {
    Add(true, 6);
    Add(false, 3);
    Add(true, 2);
  }

  uint32_t HandleOf(Choices* choices) {
    static const uint32_t kOthers[] = {0, 0xFFFFFFFFu, 1, 7, 0x70000u, 0x1FFFu};
    return choices->Chance(92) ? handles[choices->Below(static_cast<uint32_t>(handles.size()))]
                               : kOthers[choices->Below(6)];
  }

  void WriteRecord(Choices* choices) {
    ReferenceEntity* entity = model.Find(handles[choices->Below(11)]);
    uint8_t* to = entity->record;
    const uint32_t first = entity->isThreeD ? 4 : 0;
    const uint32_t end = entity->isThreeD ? 44 : 20;
    if (entity->isThreeD) {
      to[0] = static_cast<uint8_t>(choices->Below(3));
    }
    for (uint32_t offset = first; offset < end; offset += 4) {
      const float number = NumberOf(choices);
      std::memcpy(to + offset, &number, 4);
    }
    std::memcpy(world.At(entity->handle).sharedRecord(), to, end);
  }

  // Whole commands, known and unknown ones.
  void WriteCommand(Choices* choices) {
    static const uint32_t kOperands[] = {0, 1, 2, 3, 1, 1, 2, 0, 1, 0, 1, 1, 0, 0};
    const uint32_t number = choices->Below(14);
    std::vector<uint32_t> words = {number};
    uint32_t operands = kOperands[number];
    if (number == 7 || number == 9) {
      const uint32_t count = choices->Below(4);
      words.push_back(count);
      operands = number == 7 ? 2 * count : count;
    }
    for (uint32_t i = 0; i < operands; ++i) {
      words.push_back(number == 3 && i == 2 ? choices->Below(5) : HandleOf(choices));
    }
    for (const uint32_t word : words) {
      model.commandWords[0] += 4;
      model.commandWords[model.commandWords[0] / 4] = word;
      world.Command({word});
    }
  }

  void WriteDirty(Choices* choices) {
    for (uint32_t count = choices->Below(50); count > 0; --count) {
      const uint32_t handle = HandleOf(choices);
      model.dirtyWords[++model.dirtyWords[0]] = handle;
      world.Dirty(handle);
    }
  }

  // False if the model went around a parent cycle: the engine would overflow its stack.
  bool Refresh(Choices* choices) {
    const bool isSingle = choices->Chance(15);
    const uint32_t handle = HandleOf(choices);
    if (isSingle) {
      model.RefreshEntity(handle);
    } else {
      model.Refresh();
    }
    if (model.wentRoundCycle) {
      return false;
    }
    if (isSingle) {
      world.Core()->RefreshEntity(handle);
    } else {
      world.Refresh();
    }
    return true;
  }

  void Compare(Problem* problem) {
    constexpr size_t kBytes = size_t{4} * ReferenceScene::kWords;
    problem->Expect(std::memcmp(model.dirtyWords.data(), world.DirtyWords(), kBytes) == 0,
                    "dirty list");
    problem->Expect(std::memcmp(model.commandWords.data(), world.CommandWords(), kBytes) == 0,
                    "command stream");
    std::vector<uint32_t> roots;
    for (const ReferenceEntity* root : model.roots) {
      roots.push_back(root->handle);
    }
    problem->Expect(roots == world.Roots(), "roots");
    for (const uint32_t handle : handles) {
      const ReferenceEntity& expected = *model.Find(handle);
      const Entity& entity = world.At(handle);
      const std::string label = "entity " + std::to_string(handle) + ", ";
      problem->Expect(expected.active == entity.active(), label + "active");
      problem->Expect(expected.dirtyState == entity.dirtyState(), label + "dirty state");
      const uint32_t parent = expected.parent == nullptr ? 0 : expected.parent->handle;
      problem->Expect(parent == world.ParentOf(handle), label + "parent");
      const uint32_t bone = expected.boundTo == nullptr ? 0 : expected.boundTo->handle;
      problem->Expect(bone == world.BoneOf(handle), label + "bone");
      std::vector<uint32_t> children;
      for (const ReferenceEntity* child : expected.children) {
        children.push_back(child->handle);
      }
      problem->Expect(children == world.ChildrenOf(handle), label + "children");
      problem->Expect(SameFloats(expected.local, entity.localMatrix(), 16), label + "local matrix");
      problem->Expect(SameFloats(expected.world, entity.worldMatrix(), 16), label + "world matrix");
    }
  }

 private:
  void Add(bool isThreeD, int32_t count) {
    const NativeValueInfo info = world.AddRaw(isThreeD, count);
    std::vector<uintptr_t> addresses;
    for (uint32_t i = 0; i < static_cast<uint32_t>(count); ++i) {
      handles.push_back(info.handle + i);
      addresses.push_back(reinterpret_cast<uintptr_t>(&world.At(info.handle + i)));
    }
    model.Create(info.handle, isThreeD, addresses);
  }

  World world;
  ReferenceScene model;
  std::vector<uint32_t> handles;
};

}  // namespace

std::string PlayClip(const uint8_t* data, size_t size, bool* used) {
  *used = false;
  if (size < 1) {
    return "";
  }
  const size_t count = data[0] % 8;
  const size_t first = 1 + 4 * count;
  if (size < first || !IsUsable(data + first, size - first)) {
    return "";
  }
  *used = true;
  // In a block of its own, so that a read beyond it shows.
  const std::vector<uint8_t> bytes(data + first, data + size);
  AnimationClipModel model(bytes.data(), static_cast<uint32_t>(bytes.size()));
  Problem problem;
  if (bytes.size() <= 16) {
    problem.Expect(model.TrackCount() == 0 && model.SampleAtTime(1).Size() == 0, "a short clip");
    return problem.text;
  }
  const ReferenceClip clip(bytes);
  problem.Expect(clip.tracks.size() == model.TrackCount(), "tracks");
  SampleMap reused;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t word = WordAt(data, 1 + 4 * i);
    const float time = FloatOf(word);
    const std::string label = "time " + std::to_string(time);
    problem.Expect(SameSamples(clip.SampleAtTime(time), model.SampleAtTime(time)), label);
    problem.Expect(SameSamples(clip.SampleAtFrame(word), model.SampleAtFrame(word)),
                   "frame " + std::to_string(word));
    model.SampleAtTime(time, &reused);
    problem.Expect(SameSamples(clip.SampleAtTime(time), reused), label + ", reused samples");
  }
  return problem.text;
}

std::string PlayTargetLists(const uint8_t* data, size_t size, bool* used) {
  *used = true;
  // Words after each list: an update reads up to the bound of the creation.
  constexpr uint32_t kWords = 40;
  Choices choices(data, size);
  ControllerScene scene;
  const uint32_t entities = scene.Add3D(5);
  const uint32_t flat = scene.Add2D(1);
  std::vector<uint32_t> clips;
  for (int i = 0; i < 3; ++i) {
    clips.push_back(scene.AddClip(10, {Constant(0, 1, 1), Constant(2, 1, 1)}));
  }
  uint32_t exact = 0;  // words of the groups of the last lists
  const auto listsOf = [&] {
    TargetLists lists{Groups{}};
    lists.clipCount = 1 + choices.Below(4);
    const uint32_t odd[] = {0, kHole, 5, 0x70000u, flat};
    for (uint32_t c = 0; c < lists.clipCount; ++c) {
      lists.words.push_back(choices.Chance(97) ? clips[choices.Below(3)] : odd[choices.Below(4)]);
    }
    for (uint32_t c = 0; c < lists.clipCount; ++c) {
      const uint32_t count = choices.Below(6);
      lists.words.push_back(choices.Chance(97) ? count : odd[choices.Below(4)]);
      for (uint32_t i = 0; i < count; ++i) {
        lists.words.push_back(choices.Chance(85) ? entities + choices.Below(5)
                                                 : odd[choices.Below(5)]);
      }
    }
    exact = lists.TargetWords();
    // Words that follow are read where a group is too long.
    while (lists.TargetWords() < kWords) {
      lists.words.push_back(choices.Below(5));
    }
    return lists;
  };
  Problem problem;
  const TargetLists first = listsOf();
  const uint32_t words = choices.Chance(70) ? exact : 1 + choices.Below(kWords - 2);
  const uint32_t binding = scene.Bind(first, choices.Chance(70) ? 1 : choices.Below(4), words);
  if (binding == 0) {
    return "a binding is missing";
  }
  problem.Expect(scene.SameBinding(binding), "a new binding");
  for (uint32_t step = choices.Below(5); step > 0; --step) {
    for (uint32_t i = 0; i < 5; ++i) {
      scene.MoveTo(entities + i, NumberOf(&choices), 1, 2);
    }
    const uint32_t removed = choices.Below(4);
    const uint32_t kept = choices.Below(4);
    scene.Rebind(binding, listsOf(), removed, kept, choices.Below(4));
    problem.Expect(scene.Same(true), "entities after an update");
    problem.Expect(scene.SameBinding(binding), "a binding after an update");
  }
  return problem.text;
}

std::string PlayEntityStreams(const uint8_t* data, size_t size, bool* used) {
  *used = true;
  Choices choices(data, size);
  TwoScenes scenes;
  Problem problem;
  for (uint32_t frame = 1 + choices.Below(4); frame > 0; --frame) {
    for (uint32_t count = choices.Below(6); count > 0; --count) {
      scenes.WriteRecord(&choices);
    }
    for (uint32_t count = choices.Below(16); count > 0; --count) {
      scenes.WriteCommand(&choices);
    }
    scenes.WriteDirty(&choices);
    if (!scenes.Refresh(&choices)) {
      break;
    }
    scenes.Compare(&problem);
    if (!problem.text.empty()) {
      break;
    }
  }
  return problem.text;
}

}  // namespace nq::engine
