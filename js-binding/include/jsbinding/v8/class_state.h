// Which classes a thread has installed, and their templates.
#ifndef JSBINDING_V8_CLASS_STATE_H_
#define JSBINDING_V8_CLASS_STATE_H_

#include <v8.h>

#include <map>

#include "jsbinding/v8/type_info.h"

namespace vx::internal {

// One for each class and thread: V8's handles belong to an isolate and its thread. Nothing
// uninstalls a class. The handle's destructor does not dispose it, since a thread's registry is
// destroyed after its isolate.
struct ClassState {
  bool installed = false;
  v8::Persistent<v8::FunctionTemplate> functionTemplate;  // empty until installed
};

inline std::map<const void*, ClassState>& ThreadClassStates() {
  static thread_local std::map<const void*, ClassState> states;
  return states;
}

// The calling thread's state of T.
template <typename T>
ClassState* class_state() {
  return &ThreadClassStates()[TypeKey<T>()];
}

}  // namespace vx::internal

#endif  // JSBINDING_V8_CLASS_STATE_H_
