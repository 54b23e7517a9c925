// The classes of the values behind handles, and the record that creation returns.
#ifndef NQ_COMMON_DEF_HANDLERVALUE_H_
#define NQ_COMMON_DEF_HANDLERVALUE_H_

#include <cstdint>

#include "Common/Def/HandlerOwner.h"
#include "Common/Def/MemoryBlock.h"

namespace nq::engine {

// What creating operations return and script wrappers keep. Plain values. All zero means failure;
// `handle` alone is set for a value without a block.
struct NativeValueInfo {
  uint32_t handle = 0;    // the value's key
  uint32_t size = 0;      // bytes in the block
  uint32_t memoryID = 0;  // the block's number
  void* pointer = nullptr;
};

// Root of all values behind handles. Holds one counted reference on the owner of its table, which
// the destructor drops as its very last step: that may delete the owner, and the table with it.
class HandlerValue {
 public:
  HandlerValue(HandlerOwner* owner, uint32_t handle) : owner(owner), handle(handle) {
    owner->AddReference();
  }
  virtual ~HandlerValue() { owner->DropReference(); }
  HandlerValue(const HandlerValue&) = delete;
  HandlerValue& operator=(const HandlerValue&) = delete;

  HandlerOwner* const owner;
  const uint32_t handle;  // the key under which the value was issued
};

// A value that holds a block of shared memory, its own or a view of another value's. The destructor
// gives the block back to the allocator.
class BlockValue : public HandlerValue {
 public:
  using HandlerValue::HandlerValue;
  ~BlockValue() override;

  // Makes this value a view: `length` bytes at `offset` behind `base`, the start of a block on
  // which the caller has taken a reference that this value's destructor drops. The view's memoryID
  // stays 0.
  virtual void SetView(void* base, uint32_t offset, uint32_t length);

  // Takes a block of `size` bytes, zeroed, and returns its start; null for a size of 0.
  virtual void* Allocate(uint32_t size);

  // The record that describes this value to its creator.
  NativeValueInfo Info() const;

  MemoryBlock block;
  bool isView = false;
  void* viewBase = nullptr;  // start of the viewed block
};

// The plain value of the runtime's own table.
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
