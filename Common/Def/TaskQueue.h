// The tasks that wait for a worker.
#ifndef NQ_COMMON_DEF_TASKQUEUE_H_
#define NQ_COMMON_DEF_TASKQUEUE_H_

#include <cstddef>
#include <utility>
#include <vector>

#include "Common/Def/Task.h"

namespace nq::engine {

// First in, first out. Memory is kept, so that steady work allocates nothing.
//
// To take a task is the one thing that all workers do to shared data between any two tasks, and
// what one processor writes the others must fetch. So it writes one pointer, which stands at the
// start of the queue, beside the lock ahead of it, and leaves the place of the task as it is.
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

  // Moves `count` tasks behind those that are there.
  void Append(Task* tasks, size_t count) {
    const size_t waiting = static_cast<size_t>(back - front);
    std::vector<Place> grown;
    std::vector<Place>* to = &places;
    if (places.size() < waiting + count) {
      grown.resize(waiting + count);
      to = &grown;
    }
    Task* const first = reinterpret_cast<Task*>(to->data());
    // Towards the start, or into other memory: no task is written over one that is still to be
    // moved.
    for (size_t i = 0; i < waiting; ++i) {
      new (first + i) Task(Task::Relocate(front + i));
    }
    for (size_t i = 0; i < count; ++i) {
      new (first + waiting + i) Task(std::move(tasks[i]));
    }
    if (to == &grown) {
      places.swap(grown);
    }
    front = first;
    back = first + waiting + count;
  }

  // The task at the front, of at least one.
  Task Take() { return Task::Relocate(front++); }

 private:
  struct Place {
    alignas(Task) unsigned char bytes[sizeof(Task)];
  };

  Task* front = nullptr;
  Task* back = nullptr;
  std::vector<Place> places;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_TASKQUEUE_H_
