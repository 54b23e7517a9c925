// Generation of random runs.
#include "tests/native/Engine/MatrixFlow/MatrixFlowPlay.h"

#include <limits>

namespace nq::engine {

namespace {

// Bit patterns of interesting numbers: ordinary, at the limits, and NaN.
const std::vector<uint32_t> kNumbers = {
    0x00000000, 0x80000000, 0x3F800000, 0xBF800000, 0x40000000, 0x3F000000, 0x40490FDB, 0xC2F60000,
    0x00800000, 0x007FFFFF, 0x00000001, 0x80800000, 0x7F7FFFFF, 0xFF7FFFFF, 0x7F800000, 0xFF800000,
    0x7FC00000, 0xFFC00000, 0x7F800001, 0xFFF12345, 0x33800000, 0x4B800001, 0x501502F9, 0x3DCCCCCD};

constexpr uint32_t kMostBlocks = 12;

class Game {
 public:
  Game(Choices* choices, PlayTally* tally) : choices(choices), tally(tally) {}

  std::string Play() {
    const uint32_t blockCount = 1 + choices->Below(4);
    for (uint32_t i = 0; i < blockCount; ++i) {
      AddBlock();
    }
    const uint32_t bufferCount = 1 + choices->Below(3);
    for (uint32_t i = 0; i < bufferCount; ++i) {
      buffers.push_back(
          scene.AddBuffer(choices->Of<uint32_t>({200, 60, 96, 130, 320, 513, 640, 700, 16, 4})));
    }
    for (const uint32_t memoryID : blocks) {
      Fill(memoryID);
    }
    for (const uint32_t buffer : buffers) {
      WriteStream(buffer);
    }
    const uint32_t steps = 1 + choices->Below(8);
    bool isDefined = true;
    for (uint32_t step = 0; step < steps && isDefined && scene.Problem().empty(); ++step) {
      isDefined = Step();
    }
    Count();
    return scene.Problem();
  }

 private:
  bool Step() {
    const uint32_t kind = choices->Below(16);
    const uint32_t buffer = choices->Of(buffers);
    if (kind < 9) {
      return Run(AnyHandle(buffer, 3));
    }
    switch (kind) {
      case 9:
        WriteStream(buffer);
        return Run(buffer);
      case 10:
        Scribble(choices->Chance(50) ? choices->Of(blocks) : scene.IDOf(buffer));
        return Run(buffer);
      case 11:
        // Truncates the stream, or extends it beyond what was written.
        scene.SetWord(scene.IDOf(buffer), 0, choices->Below(Size(scene.IDOf(buffer)) + 4));
        return Run(buffer);
      case 12:
        scene.Resize(buffer, choices->Below(900));
        ++tally->resizes;
        return Run(buffer);
      case 13:
        if (buffers.size() > 1) {
          const size_t which = choices->Below(static_cast<uint32_t>(buffers.size()));
          released = buffers[which];
          scene.ReleaseBuffer(released);
          buffers.erase(buffers.begin() + static_cast<std::ptrdiff_t>(which));
        }
        return Run(buffers[0]);
      case 14:
        if (blocks.size() > 1) {
          const size_t which = choices->Below(static_cast<uint32_t>(blocks.size()));
          scene.ReleaseBlock(blocks[which]);
          blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(which));
        }
        return Run(buffer);
      default:
        if (blocks.size() < kMostBlocks) {
          Fill(AddBlock());
        }
        return Run(buffer);
    }
  }

  bool Run(uint32_t handle) {
    int32_t code;
    if (!scene.Execute(handle, &code)) {
      ++tally->undefined;
      return false;
    }
    ++tally->runs;
    ++tally->codes[code];
    return true;
  }

  void Count() {
    const ReferenceMatrixFlow& reference = scene.Reference();
    for (const auto& entry : reference.performed) {
      tally->performed[entry.first] += entry.second;
    }
    tally->selfWrites += reference.selfWrites;
    tally->slackWrites += reference.slackWrites;
    tally->reentries += reference.reentries;
    tally->wraps += reference.wraps;
  }

  uint32_t AddBlock() {
    blocks.push_back(scene.AddBlock(
        choices->Of<uint32_t>({128, 200, 64, 12, 20, 36, 4, 8, 13, 1, 48, 100, 300, 640, 700})));
    return blocks.back();
  }

  // 0 if there is no such block.
  uint32_t Size(uint32_t memoryID) {
    const auto found = scene.Reference().blocks.find(memoryID);
    return found == scene.Reference().blocks.end() ? 0 : found->second.size;
  }

  // Numbers, or words that are valid in a stream.
  uint32_t AnyWord() {
    switch (choices->Below(8)) {
      case 0:
        return choices->Word();
      case 1:
        return AnyType();
      case 2:
        return choices->Of(blocks);
      case 3:
        return 4 * choices->Below(64);
      default:
        return choices->Of(kNumbers);
    }
  }

  void Fill(uint32_t memoryID) {
    const uint32_t shift = choices->Chance(80) ? 0 : choices->Below(4);
    for (uint32_t at = shift; at + 4 <= Size(memoryID) && at < 160; at += 4) {
      scene.SetWord(memoryID, at, AnyWord());
    }
  }

  void Scribble(uint32_t memoryID) {
    const uint32_t size = Size(memoryID);
    if (size >= 4) {
      scene.SetWord(memoryID, choices->Below(size - 3), AnyWord());
    } else {
      scene.SetByte(memoryID, choices->Below(size), static_cast<uint8_t>(choices->Below(256)));
    }
  }

  uint32_t AnyType() {
    if (choices->Chance(97)) {
      return static_cast<uint32_t>(kReferenceCommands[choices->Below(kReferenceCommandCount)].type);
    }
    return choices->Of<uint32_t>({0, 2, 7, 999, 1005, 1999, 2005, 3005, 4005, 5004, 6005, 7000,
                                  8999, 9001, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFFFC18});
  }

  // Usually a handle of an existing buffer.
  uint32_t AnyHandle(uint32_t likely, uint32_t percentOdd) {
    if (!choices->Chance(percentOdd)) {
      return likely + (choices->Chance(10) ? choices->Below(4096) : 0);
    }
    return choices->Of<uint32_t>({0, 5, 0x7FFFF000, 0xFFFFFFFF, 0x50000, released});
  }

  uint32_t AnyBlock() {
    return choices->Chance(80) ? choices->Of(blocks) : scene.IDOf(choices->Of(buffers));
  }

  // Two words. Mostly a position where `bytes` fit; also unaligned, at the very end, and just
  // beyond.
  void AppendReference(std::vector<uint32_t>* words, uint32_t proves, uint32_t bytes) {
    uint32_t memoryID = AnyBlock();
    for (int i = 0; i < 3 && Size(memoryID) < bytes; ++i) {
      memoryID = AnyBlock();
    }
    const uint32_t size = Size(memoryID);
    const uint32_t room = size >= bytes ? size - bytes : 0;
    uint32_t offset = 4 * choices->Below(room / 4 + 1);
    switch (choices->Below(32)) {
      case 0:
        offset = choices->Below(room + 1);
        break;
      case 1:
        offset = room;
        break;
      case 2:
        offset = size - proves;
        break;
      case 3:
        offset = choices->Chance(20) ? size - proves + 1 : size - proves;
        break;
      case 4:
        offset = choices->Chance(10) ? 0u - choices->Below(70) : offset;
        break;
      case 5:
        memoryID = choices->Chance(10) ? choices->Word() : memoryID;
        break;
      case 6:
        memoryID = choices->Chance(10) ? choices->Below(40) : memoryID;
        break;
      default:
        break;
    }
    words->push_back(memoryID);
    words->push_back(offset);
  }

  // Sometimes the last reference equals one of the others, or overlaps it.
  void MayOverlap(std::vector<uint32_t>* words) {
    if (choices->Chance(25)) {
      const size_t size = words->size();
      const size_t other = size - (choices->Chance(50) ? 4 : 6);
      (*words)[size - 2] = (*words)[other];
      (*words)[size - 1] = (*words)[other + 1];
      if (choices->Chance(30)) {
        const uint32_t size4 = Size((*words)[other]);
        (*words)[size - 1] = choices->Below(size4 / 2 + 1);
      }
    }
  }

  void AppendCommand(std::vector<uint32_t>* words) {
    const uint32_t type = AnyType();
    words->push_back(type);
    for (const ReferenceCommand& command : kReferenceCommands) {
      if (static_cast<uint32_t>(command.type) != type) {
        continue;
      }
      if (command.operation == '@') {
        words->push_back(AnyHandle(choices->Of(buffers), 3));
      } else if (command.operation == 'b') {
        const uint32_t count =
            choices->Chance(90)
                ? choices->Below(8)
                : choices->Of<uint32_t>({0, 20, 0x40000000, 0x80000001, 0x3FFFFFFF, 1000});
        words->push_back(count);
        AppendReference(words, 4 * count, 4 * (count & 15));
        AppendReference(words, 4 * count, 4 * (count & 15));
      } else {
        AppendReference(words, command.proves, command.bytes);
        AppendReference(words, command.proves, command.bytes);
        if (command.operation != 'c' && command.operation != 'i') {
          AppendReference(words, command.proves, command.bytes);
          MayOverlap(words);
        } else if (command.operation == 'i' && choices->Chance(30)) {
          (*words)[words->size() - 2] = (*words)[words->size() - 4];
        }
      }
    }
  }

  void WriteStream(uint32_t buffer) {
    const uint32_t memoryID = scene.IDOf(buffer);
    const uint32_t size = Size(memoryID);
    const uint32_t most = choices->Below(12);
    std::vector<uint32_t> words;
    for (uint32_t i = 0; i < most; ++i) {
      const size_t before = words.size();
      AppendCommand(&words);
      if (4 + 4 * words.size() > size) {
        words.resize(before);
      }
    }
    scene.Write(buffer, words);
    const uint32_t length = static_cast<uint32_t>(4 * words.size());
    switch (choices->Below(40)) {
      case 0:
        scene.SetWord(memoryID, 0, choices->Below(length + 1));
        break;
      case 1:
        scene.SetWord(memoryID, 0, length + choices->Below(16));
        break;
      case 2:
        scene.SetWord(memoryID, 0, choices->Of<uint32_t>({0x80000000, 0xFFFFFFFF, 0xFFFFFFFC, 1}));
        break;
      default:
        break;
    }
  }

  Choices* const choices;
  PlayTally* const tally;
  MatrixFlowScene scene;
  std::vector<uint32_t> blocks;
  std::vector<uint32_t> buffers;
  uint32_t released = 0xABC000;
};

}  // namespace

uint32_t Choices::Word() {
  uint32_t word = 0;
  for (int i = 0; i < 4; ++i) {
    word = word << 8 | Byte();
  }
  return word;
}

uint8_t Choices::Byte() {
  uint8_t byte = 0;
  if (isRandom) {
    byte = static_cast<uint8_t>(random() >> 24);
  } else if (used < bytes.size()) {
    byte = bytes[used++];
  }
  made.push_back(byte);
  return byte;
}

std::string PlayMatrixFlow(Choices* choices, PlayTally* tally) {
  return Game(choices, tally).Play();
}

}  // namespace nq::engine
