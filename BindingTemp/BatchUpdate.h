// The common implementation of the batch update methods: one operation over many handles, on the
// workers.
#ifndef NQ_BINDINGTEMP_BATCHUPDATE_H_
#define NQ_BINDINGTEMP_BATCHUPDATE_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Task.h"
#include "Common/Def/Unaligned.h"
#include "Common/Def/WorkerPool.h"
#include "jsbinding/v8/arguments.h"

namespace nq::engine {

// Calls `operation(Target*, handle)` for each handle in `bytes`: a count word n and n handles. A
// single handle runs on the calling thread; several are posted to the first pool of the target's
// Runtime(), one task each, while the calling thread only waits. A count of 0, or one that exceeds
// the buffer, does nothing, even if `target` is null: it is used only after that check. The first
// word is read without a null check: an argument that is no buffer faults here.
//
// The order of the calls is undefined, so the work of one handle must not depend on another's. The
// list is split into one part per concurrent task, and the tasks of the parts are interleaved to
// avoid false sharing: adjacent handles mostly work on adjacent memory.
template <typename Target, void (*operation)(Target* target, uint32_t handle)>
void BatchUpdate(Target* target, const vx::Bytes& bytes) {
  const uint8_t* words = bytes.data;
  // Read as volatile before the copy below: a compiler may assume that a copied pointer is not null
  // (undefined behaviour). This access is kept, and faults.
  static_cast<void>(*static_cast<const volatile uint8_t*>(words));
  // In size_t: a count of 0x3FFFFFFF must not wrap to a small size.
  const size_t n = ReadWord(words, 0);
  if (n == 0 || n * kWordBytes + kWordBytes > bytes.length) {
    return;
  }
  if (n == 1) {
    operation(target, ReadWord(words, 1));
    return;
  }
  std::vector<Task> tasks;
  tasks.reserve(n);
  WorkerPool* pool = target->Runtime()->FirstPool();
  const size_t parts = pool->Parallelism();
  const size_t part = (n + parts - 1) / parts;
  for (size_t first = 1; first <= part; ++first) {
    for (size_t index = first; index <= n; index += part) {
      tasks.emplace_back([target, words, index] { operation(target, ReadWord(words, index)); });
    }
  }
  pool->PostAll(tasks.data(), tasks.size());
  pool->WaitIdle();
}

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BATCHUPDATE_H_
