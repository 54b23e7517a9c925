// A batch of entities under one handle.
#ifndef NQ_ENGINE_ENTITY_ENTITYPOOL_H_
#define NQ_ENGINE_ENTITY_ENTITYPOOL_H_

#include <cstdint>

#include "Common/Def/AlignedArray.h"
#include "Common/Def/HandlerValue.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

class EntitySystem;

// 1 to 4095 entities of one kind. Owns their records, their arrays in the transform tree and, as a
// BlockValue, the block of shared records that the script sees. Element i's handle is the batch's
// key or-ed with i.
//
// The destructor cleans the entities from the first to the last, removes them from the root list,
// frees the records, and releases the shared block.
class EntityPool final : public BlockValue {
 public:
  using BlockValue::BlockValue;
  ~EntityPool() override;

  // Allocates the shared block and constructs the entities. Called once, right after construction;
  // `count` is not 0.
  void CreateEntities(EntitySystem* system, bool isThreeD, uint32_t count);

  // The entity at `index`, which is below Count().
  Entity* table(uint32_t index) const { return arrays.EntityAt(index); }

  bool isThreeD() const { return arrays.isThreeD; }
  uint32_t Count() const { return arrays.count; }

 private:
  EntitySystem* system = nullptr;
  TransformBatch arrays;  // the tree's pointers into the arrays below

  // Destroyed from the last to the first.
  AlignedArray<TransformLinks> links;
  AlignedArray<TransformMatrix> localMatrices;
  AlignedArray<TransformMatrix> worldMatrices;
  AlignedArray<LocalVersion> localVersions;
  AlignedArray<uint32_t> worldVersions;
  AlignedArray<uint8_t> entities;  // the records
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITYPOOL_H_
