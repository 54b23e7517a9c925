// The numbers of the commands in the entity command stream.
#ifndef NQ_ENGINE_ENTITY_ENTITYCOMMANDS_H_
#define NQ_ENGINE_ENTITY_ENTITYCOMMANDS_H_

#include <cstdint>

namespace nq::engine {

// A command is its number and its operands, all 32-bit words. The comments list the operands.
enum class EntityCommand : uint32_t {
  kAddRoot = 1,              // handle
  kAddChild = 2,             // parent, child
  kInsertChild = 3,          // parent, child, index
  kRemoveFromParent = 4,     // handle
  kResetSubtree = 5,         // handle
  kBindToBone = 6,           // entity, bone
  kBindToBoneBatch = 7,      // n, n entities, n bones
  kUnbindFromBone = 8,       // handle
  kUnbindFromBoneBatch = 9,  // n, n handles
  kActivate = 10,            // handle
  kDeactivate = 11,          // handle
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITYCOMMANDS_H_
