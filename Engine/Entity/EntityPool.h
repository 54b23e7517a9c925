// A batch of entities under one handle.
#ifndef NQ_ENGINE_ENTITY_ENTITYPOOL_H_
#define NQ_ENGINE_ENTITY_ENTITYPOOL_H_

#include <cstdint>

#include "Common/Def/HandlerValue.h"
#include "Engine/Entity/Entity.h"

namespace nq::engine {

class EntitySystem;

// 1 to 4095 entities of one kind. Owns their records, their transform nodes and, as a BlockValue,
// the block of shared records that script sees. Element i's handle is the batch's key or-ed with i.
//
// The destructor cleans the entities from the first to the last, takes them out of the root list,
// frees the records, and gives the shared block back.
class EntityPool final : public BlockValue {
 public:
  using BlockValue::BlockValue;
  ~EntityPool() override;

  // Allocates the shared block and constructs the entities. Once, right after construction; `count`
  // is not 0.
  void CreateEntities(EntitySystem* system, bool isThreeD, uint32_t count);

  // The entity at position `index`, which is below Count().
  Entity* table(uint32_t index) const {
    return reinterpret_cast<Entity*>(records + static_cast<size_t>(index) * recordStride);
  }

  bool isThreeD() const { return threeD; }
  uint32_t Count() const { return count; }

  // Contiguous, in order of position.
  TransformNode* Nodes() const { return nodes; }

 private:
  bool threeD = false;
  uint32_t count = 0;
  uint32_t recordStride = 0;
  uint8_t* records = nullptr;
  TransformNode* nodes = nullptr;
  EntitySystem* system = nullptr;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITYPOOL_H_
