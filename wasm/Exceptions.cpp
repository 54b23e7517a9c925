// What the C++ library of this platform lacks: it is built without exceptions and threads.
#include <cstddef>
#include <cstdlib>

extern "C" {

// Nothing catches exceptions: a thrown one ends the instance.
void* __cxa_allocate_exception(size_t /*size*/) {
  std::abort();
}
[[noreturn]] void __cxa_throw(void* /*thrown*/, void* /*type*/, void (* /*destructor*/)(void*)) {
  std::abort();
}

// The one thread never ends.
int __cxa_thread_atexit(void (* /*destructor*/)(void*), void* /*object*/, void* /*module*/) {
  return 0;
}

}  // extern "C"
