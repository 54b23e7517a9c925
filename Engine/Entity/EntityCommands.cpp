// The reader of the entity command stream.
#include "Engine/Entity/EntityCommands.h"

#include "Common/Def/StreamReader.h"
#include "Common/Def/Unaligned.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

void EntitySystem::RunEntityCommands(bool deep) {
  if (ReadUnaligned<uint32_t>(entityCommandsBlock.pointer) == 0) {
    return;
  }
  StreamReader reader(entityCommandsBlock.pointer, entityCommandsBlock.size);
  reader.begin();
  // Only the boundary between commands is checked: a truncated command takes the words after the
  // limit as its operands.
  while (reader.checkRange(1, 1, 0) > 0) {
    switch (static_cast<EntityCommand>(reader.readU32())) {
      case EntityCommand::kAddRoot:
        AddRoot(reader.readU32());
        break;
      case EntityCommand::kAddChild: {
        const uint32_t parent = reader.readU32();
        const uint32_t child = reader.readU32();
        AddChild(parent, child);
        break;
      }
      case EntityCommand::kInsertChild: {
        const uint32_t parent = reader.readU32();
        const uint32_t child = reader.readU32();
        const uint32_t index = reader.readU32();
        InsertChild(parent, child, index);
        break;
      }
      case EntityCommand::kRemoveFromParent:
        RemoveFromParent(reader.readU32());
        break;
      case EntityCommand::kResetSubtree:
        ResetSubtree(reader.readU32());
        break;
      case EntityCommand::kBindToBone: {
        const uint32_t entity = reader.readU32();
        const uint32_t bone = reader.readU32();
        BindToBone(entity, bone);
        break;
      }
      case EntityCommand::kBindToBoneBatch: {
        const uint32_t n = reader.readU32();
        const uint8_t* entities = reader.currentPointer();
        const uint8_t* bones = entities + static_cast<size_t>(n) * kWordBytes;
        for (uint32_t i = 0; i < n; ++i) {
          BindToBone(ReadWord(entities, i), ReadWord(bones, i));
        }
        reader.skip(n * 2 * kWordBytes);
        break;
      }
      case EntityCommand::kUnbindFromBone:
        UnbindFromBone(reader.readU32());
        break;
      case EntityCommand::kUnbindFromBoneBatch: {
        const uint32_t n = reader.readU32();
        const uint8_t* handles = reader.currentPointer();
        for (uint32_t i = 0; i < n; ++i) {
          UnbindFromBone(ReadWord(handles, i));
        }
        reader.skip(n * kWordBytes);
        break;
      }
      case EntityCommand::kActivate:
        Activate(reader.readU32(), deep);
        break;
      case EntityCommand::kDeactivate:
        Deactivate(reader.readU32());
        break;
      default:
        // Kept on purpose: commands carry no length, so the operands of an unknown command are read
        // as commands. The command stream's results are fixed.
        break;
    }
  }
  WriteUnaligned(entityCommandsBlock.pointer, uint32_t{0});
}

}  // namespace nq::engine
