// A table of blocks by memoryID.
#ifndef NQ_COMMON_DEF_BLOCKTABLE_H_
#define NQ_COMMON_DEF_BLOCKTABLE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Common/Def/MemoryBlock.h"

namespace nq::engine {

// A map from memoryID to block with a look-up of two loads. IDs only rise and are never reused, so
// the table has pages: a full page is freed with its last block. What remains is 8 bytes for every
// 256 IDs that were ever issued.
class BlockTable {
 public:
  // Inserts a block under its memoryID.
  void Enter(const MemoryBlock& block) {
    const size_t number = block.memoryID / kPageBlocks;
    if (number >= pages.size()) {
      pages.resize(number + 1);
      DropIfEmpty(number - 1);
    }
    if (pages[number] == nullptr) {
      pages[number] = std::make_unique<Page>();
    }
    Page* page = pages[number].get();
    page->blocks[block.memoryID % kPageBlocks] = block;
    ++page->count;
  }

  // Removes the block of an ID, if there is one.
  void Remove(uint32_t memoryID) {
    const size_t number = memoryID / kPageBlocks;
    if (Find(memoryID).pointer != nullptr) {
      Page* page = pages[number].get();
      page->blocks[memoryID % kPageBlocks] = MemoryBlock();
      --page->count;
      DropIfEmpty(number);
    }
  }

  // The block of an ID, or all zero.
  MemoryBlock Find(uint32_t memoryID) const {
    const size_t number = memoryID / kPageBlocks;
    const Page* page = number < pages.size() ? pages[number].get() : nullptr;
    return page == nullptr ? MemoryBlock() : page->blocks[memoryID % kPageBlocks];
  }

 private:
  static constexpr uint32_t kPageBlocks = 256;

  struct Page {
    MemoryBlock blocks[kPageBlocks];
    uint32_t count = 0;
  };

  // The last page is still being filled.
  void DropIfEmpty(size_t number) {
    if (number < pages.size() - 1 && pages[number] != nullptr && pages[number]->count == 0) {
      pages[number].reset();
    }
  }

  std::vector<std::unique_ptr<Page>> pages;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_BLOCKTABLE_H_
