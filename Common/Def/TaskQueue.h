// The tasks that wait for a worker.
#ifndef NQ_COMMON_DEF_TASKQUEUE_H_
#define NQ_COMMON_DEF_TASKQUEUE_H_

#include <algorithm>
#include <cstddef>
#include <new>
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
    if (Empty() || count > static_cast<size_t>(Begin() + places.size() - back)) {
      MakeRoom(count);
    }
    for (size_t i = 0; i < count; ++i) {
      new (back++) Task(std::move(tasks[i]));
    }
  }

  // The task at the front, of at least one.
  Task Take() { return Task::Relocate(front++); }

 private:
  struct Place {
    alignas(Task) unsigned char bytes[sizeof(Task)];
  };

  Task* Begin() { return reinterpret_cast<Task*>(places.data()); }

  // Moves the tasks that wait to the start, in memory that has places for `count` more. While some
  // wait, at least as many places as tasks are moved are free afterwards, so that a task is moved a
  // few times in all, however many come one by one.
  void MakeRoom(size_t count) {
    const size_t waiting = static_cast<size_t>(back - front);
    const size_t needed = waiting + count;
    std::vector<Place> old;
    if (needed > (waiting == 0 ? places.size() : places.size() / 2)) {
      old.resize(std::max(needed, 2 * places.size()));
      old.swap(places);
    }
    // Towards the start, or into other memory: no task is written over one that is still to be
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
