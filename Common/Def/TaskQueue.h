// The queue of tasks that wait for a worker.
#ifndef NQ_COMMON_DEF_TASKQUEUE_H_
#define NQ_COMMON_DEF_TASKQUEUE_H_

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>
#include <vector>

#include "Common/Def/Task.h"

namespace nq::engine {

// First in, first out. Memory is reused, so that steady work allocates nothing.
//
// Taking a task is the only write that all workers make to shared data between any two tasks, and
// each such write costs the other CPUs a cache miss. So Take writes one pointer, at the start of
// the queue, next to the lock before it, and does not write to the task's memory.
class TaskQueue {
 public:
  TaskQueue() = default;
  TaskQueue(const TaskQueue&) = delete;
  TaskQueue& operator=(const TaskQueue&) = delete;
  ~TaskQueue() {
    while (!Empty()) {
      Take();
    }
  }

  bool Empty() const { return front == back; }

  // Moves `count` tasks to the end of the queue.
  void Append(Task* tasks, size_t count) {
    if (Empty() || count > static_cast<size_t>(Begin() + places.size() - back)) {
      MakeRoom(count);
    }
    for (size_t i = 0; i < count; ++i) {
      new (back++) Task(std::move(tasks[i]));
    }
  }

  // Removes the first task; the queue must not be empty.
  Task Take() { return Task::Relocate(front++); }

 private:
  struct Place {
    alignas(Task) unsigned char bytes[sizeof(Task)];
  };

  Task* Begin() { return reinterpret_cast<Task*>(places.data()); }

  // Moves the waiting tasks to the start, in memory with space for `count` more. While some wait,
  // at least as many places as tasks are moved are free afterwards: amortised, each task is moved a
  // few times, however many are appended one by one.
  void MakeRoom(size_t count) {
    const size_t waiting = static_cast<size_t>(back - front);
    const size_t needed = waiting + count;
    std::vector<Place> old;
    if (needed > (waiting == 0 ? places.size() : places.size() / 2)) {
      old.resize(std::max(needed, 2 * places.size()));
      old.swap(places);
    }
    // Moves towards the start, or into other memory: no task overwrites one that is yet to be
    // moved.
    Task* const first = Begin();
    for (size_t i = 0; i < waiting; ++i) {
      new (first + i) Task(Task::Relocate(front + i));
    }
    front = first;
    back = first + waiting;
  }

  Task* front = nullptr;
  Task* back = nullptr;
  std::vector<Place> places;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_TASKQUEUE_H_
