// The shape of the batch update methods: one operation over many handles, on the workers.
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

// Calls `operation(Target*, handle)` for each handle in `bytes`: a count word n and n handles. One
// handle is done on the calling thread; several are posted to the first pool of the target's
// Runtime(), a task each, while the calling thread waits and takes no part. A count of 0, or one
// that exceeds the buffer, does nothing, whatever the target: it may be null, and is used behind
// that guard only. The first word is read without a look at the pointer: what is no buffer faults
// here.
//
// The order of the calls is not defined, so the work of one handle must not depend on another's.
// The tasks of a list's parts, one for each task that can run at once, are queued in turns: handles
// side by side in the list mostly work on memory side by side, and processors that are at it at the
// same time would fetch each other's.
template <typename Target, void (*operation)(Target* target, uint32_t handle)>
void BatchUpdate(Target* target, const vx::Bytes& bytes) {
  const uint8_t* words = bytes.data;
  // Read as volatile ahead of the copy below: a compiler may take a copied null for impossible, and
  // go on with anything; this access stays, and faults.
  static_cast<void>(*static_cast<const volatile uint8_t*>(words));
  // In the host's width: a count of 0x3FFFFFFF must not wrap to a small size.
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
