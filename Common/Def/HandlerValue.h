// The base classes of values behind handles, and the record that creation returns.
#ifndef NQ_COMMON_DEF_HANDLERVALUE_H_
#define NQ_COMMON_DEF_HANDLERVALUE_H_

#include <cstdint>

#include "Common/Def/HandlerOwner.h"
#include "Common/Def/MemoryBlock.h"

namespace nq::engine {

// What creating operations return and wrappers keep. Plain values. All zero means failure; a value
// without a block sets only `handle`.
struct NativeValueInfo {
  uint32_t handle = 0;    // the value's key
  uint32_t size = 0;      // bytes in the block
  uint32_t memoryID = 0;  // the block's unique number
  void* pointer = nullptr;
};

// Base of all values behind handles. Holds one counted reference on the owner of its table. The
// destructor drops it as its very last step: that may delete the owner, and the table with it.
class HandlerValue {
 public:
  HandlerValue(HandlerOwner* owner, uint32_t handle) : owner(owner), handle(handle) {
    owner->AddReference();
  }
  virtual ~HandlerValue() { owner->DropReference(); }
  HandlerValue(const HandlerValue&) = delete;
  HandlerValue& operator=(const HandlerValue&) = delete;

  HandlerOwner* const owner;
  const uint32_t handle;  // the key under which the table issued the value
};

// A value that holds a block of shared memory, its own or a view of another value's. The destructor
// releases the block to the allocator.
class BlockValue : public HandlerValue {
 public:
  using HandlerValue::HandlerValue;
  ~BlockValue() override;

  // Makes this value a view: `length` bytes at `offset` from `base`, the start of a block on which
  // the caller has taken a reference; this value's destructor drops it. The view's memoryID stays
  // 0.
  virtual void SetView(void* base, uint32_t offset, uint32_t length);

  // Allocates a zeroed block of `size` bytes, and returns its start; null for a size of 0.
  virtual void* Allocate(uint32_t size);

  // The record that describes this value to its creator.
  NativeValueInfo Info() const;

  MemoryBlock block;
  bool isView = false;
  void* viewBase = nullptr;  // start of the viewed block
};

// The value type of the runtime's own table.
class NativeValue final : public BlockValue {
 public:
  using BlockValue::BlockValue;

  // Prints "[NQ_INFO][OPV]: " and "NativeValue %d dealloc\n" with the key.
  ~NativeValue() override;

  void SetView(void* base, uint32_t offset, uint32_t length) override;
  void* Allocate(uint32_t size) override;

  void* data = nullptr;   // the same address as block.pointer
  uint32_t reserved = 0;  // stays zero
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_HANDLERVALUE_H_
