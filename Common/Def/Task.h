// The unit of work of a worker pool.
#ifndef NQ_COMMON_DEF_TASK_H_
#define NQ_COMMON_DEF_TASK_H_

#include <cstddef>
#include <cstring>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

namespace nq::engine {

// A movable callable without arguments or result. Unlike std::function it stores the callable
// inline, so that an array of tasks is one allocation whatever the tasks capture; callables that
// don't fit are rejected at compile time.
//
// A task without a callable, default-constructed or moved from, throws std::bad_function_call when
// it is run.
class Task {
 public:
  static constexpr size_t kCallableBytes = 32;

  Task() = default;

  template <typename Callable,
            typename = std::enable_if_t<!std::is_same<std::decay_t<Callable>, Task>::value>>
  Task(Callable&& callable) : operations(&kOperations<std::decay_t<Callable>>) {
    using Stored = std::decay_t<Callable>;
    static_assert(sizeof(Stored) <= kCallableBytes, "the callable captures too much");
    static_assert(alignof(Stored) <= alignof(std::max_align_t), "the callable is over-aligned");
    static_assert(std::is_nothrow_move_constructible<Stored>::value,
                  "moving a task must not throw");
    new (storage) Stored(std::forward<Callable>(callable));
  }

  Task(Task&& other) noexcept { TakeFrom(other); }

  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      Clear();
      TakeFrom(other);
    }
    return *this;
  }

  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;
  ~Task() { Clear(); }

  // Moves a task out of memory that holds none afterwards: `from` must not be destroyed. If the
  // callable is trivially copyable, nothing is written at `from`.
  static Task Relocate(Task* from) {
    Task task;
    task.CopyOrMove(*from);
    return task;
  }

  // Runs the callable.
  void operator()() {
    if (operations == nullptr) {
      throw std::bad_function_call();
    }
    operations->run(storage);
  }

  explicit operator bool() const { return operations != nullptr; }

 private:
  // The last two are null for trivially copyable callables: these are copied bytewise, and not
  // destroyed.
  struct Operations {
    void (*run)(void*);
    void (*moveTo)(void* from, void* to);  // leaves `from` destroyed
    void (*destroy)(void*);
  };

  template <typename Stored>
  static void Run(void* storage) {
    (*static_cast<Stored*>(storage))();
  }

  template <typename Stored>
  static void MoveTo(void* from, void* to) {
    Stored* stored = static_cast<Stored*>(from);
    new (to) Stored(std::move(*stored));
    stored->~Stored();
  }

  template <typename Stored>
  static void Destroy(void* storage) {
    static_cast<Stored*>(storage)->~Stored();
  }

  template <typename Stored>
  static constexpr Operations MakeOperations() {
    if (std::is_trivially_copyable<Stored>::value) {
      return Operations{&Run<Stored>, nullptr, nullptr};
    }
    return Operations{&Run<Stored>, &MoveTo<Stored>, &Destroy<Stored>};
  }

  template <typename Stored>
  static constexpr Operations kOperations = MakeOperations<Stored>();

  void TakeFrom(Task& other) {
    CopyOrMove(other);
    other.operations = nullptr;
  }

  // Leaves the callable of `other` destroyed.
  void CopyOrMove(Task& other) {
    operations = other.operations;
    if (operations == nullptr) {
      return;
    }
    if (operations->moveTo == nullptr) {
      std::memcpy(storage, other.storage, sizeof(storage));
    } else {
      operations->moveTo(other.storage, storage);
    }
  }

  void Clear() {
    if (operations != nullptr) {
      if (operations->destroy != nullptr) {
        operations->destroy(storage);
      }
      operations = nullptr;
    }
  }

  const Operations* operations = nullptr;
  alignas(std::max_align_t) unsigned char storage[kCallableBytes] = {};  // copied as a whole
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_TASK_H_
