// What hosts differ in: every place where V8 or Node changed an interface that the library needs,
// in this one header, chosen by V8_MAJOR_VERSION. Nothing else looks at a version.
//
//   Node  12   18   20   22   24   26
//   V8     7   10   11   12   13   14
//   ABI   72  108  115  127  137  147
//
// Node 12 is the reference. Where another host shows script a difference, the comment states it.
#ifndef JSBINDING_V8_HOST_H_
#define JSBINDING_V8_HOST_H_

#include <node.h>
#include <v8.h>

#include <cstddef>
#include <memory>
#include <utility>

// The head of the module's entry, with the argument `exports`:
//   VX_MODULE_ENTRY { ... }
// The host looks it up by its name, node_register_module_vABI. On hosts newer than Node 12 that
// name alone makes the module context-aware.
#define VX_MODULE_ENTRY                                                           \
  extern "C" __attribute__((visibility("default"))) void NODE_MODULE_INITIALIZER( \
      v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, vx::host::EntryArgument)

// The module's record and the static constructor `registerName`, which passes it to the host when
// the library is loaded. Node 12 needs them; on newer hosts the entry is enough, and this is empty.
#if V8_MAJOR_VERSION < 8
#define VX_MODULE_RECORD(registerName, fileName, moduleName)                           \
  namespace {                                                                          \
  /* The host writes to it. */                                                         \
  node::node_module moduleRecord = {                                                   \
      NODE_MODULE_VERSION,     /* nm_version */                                        \
      0,                       /* nm_flags */                                          \
      nullptr,                 /* nm_dso_handle */                                     \
      fileName,                /* nm_filename */                                       \
      NODE_MODULE_INITIALIZER, /* nm_register_func */                                  \
      nullptr,                 /* nm_context_register_func */                          \
      moduleName,              /* nm_modname */                                        \
      nullptr,                 /* nm_priv */                                           \
      nullptr,                 /* nm_link */                                           \
  };                                                                                   \
  }                                                                                    \
  extern "C" __attribute__((visibility("default"), constructor)) void registerName() { \
    node_module_register(&moduleRecord);                                               \
  }                                                                                    \
  static_assert(true, "")
#else
#define VX_MODULE_RECORD(registerName, fileName, moduleName) static_assert(true, "")
#endif

namespace vx {

namespace internal {
struct BlockDeleter;
}

namespace host {

// Called once with the deleter of a block that was given away, when nothing refers to its memory
// any longer. Newer hosts can move the memory to another thread and may call there.
using BlockFinaliser = void (*)(internal::BlockDeleter* deleter);

// Last argument of the module's entry.
#if V8_MAJOR_VERSION < 8
using EntryArgument = void*;
#else
using EntryArgument = v8::Local<v8::Context>;
#endif

// The memory behind a buffer; null if it is empty or detached.
inline void* BufferData(v8::Local<v8::ArrayBuffer> buffer) {
#if V8_MAJOR_VERSION < 8
  return buffer->GetContents().Data();
#else
  return buffer->Data();
#endif
}

#if V8_MAJOR_VERSION >= 8
// A buffer over `data` whose memory ends by `deleter`.
inline v8::Local<v8::ArrayBuffer> NewBufferOver(v8::Isolate* isolate, void* data, size_t length,
                                                v8::BackingStore::DeleterCallback deleter,
                                                void* deleterData) {
  std::unique_ptr<v8::BackingStore> store =
      v8::ArrayBuffer::NewBackingStore(data, length, deleter, deleterData);
  return v8::ArrayBuffer::New(isolate, std::move(store));
}
#endif

// A buffer over memory that V8 never frees.
//
// On newer hosts script can move such memory to another buffer (structuredClone, postMessage,
// transfer), which leaves this one empty. A detach key makes that throw from V8 13 on. Older ones
// end the process at some ways to move a buffer with a key, so there is none, and the move is
// possible: the memory stays where it is, and is still native.
inline v8::Local<v8::ArrayBuffer> NewUnownedBuffer(v8::Isolate* isolate, void* data,
                                                   size_t length) {
#if V8_MAJOR_VERSION < 8
  return v8::ArrayBuffer::New(isolate, data, length, v8::ArrayBufferCreationMode::kExternalized);
#else
  v8::Local<v8::ArrayBuffer> buffer =
      NewBufferOver(isolate, data, length, v8::BackingStore::EmptyDeleter, nullptr);
#if V8_MAJOR_VERSION >= 13
  buffer->SetDetachKey(v8::Symbol::New(isolate));
#endif
  return buffer;
#endif
}

// Follows a buffer that was given away to the end of its memory.
#if V8_MAJOR_VERSION < 8
struct WeakBufferHolder {
  v8::Persistent<v8::ArrayBuffer> buffer;
  v8::Isolate* isolate;
  bool collected;
  BlockFinaliser finaliser;
  internal::BlockDeleter* deleter;

  static void FirstPass(const v8::WeakCallbackInfo<WeakBufferHolder>& info) {
    WeakBufferHolder* holder = info.GetParameter();
    if (!holder->collected) {
      holder->collected = true;
      holder->buffer.Reset();
      info.SetSecondPassCallback(SecondPass);
    }
  }

  static void SecondPass(const v8::WeakCallbackInfo<WeakBufferHolder>& info) {
    WeakBufferHolder* holder = info.GetParameter();
    if (holder->finaliser != nullptr) {
      holder->finaliser(holder->deleter);
    }
    delete holder;
  }
};
#else
// The backing store owns the holder: script may move the memory on to other buffers, and it lives
// as long as the last of them.
struct BackingStoreHolder {
  BlockFinaliser finaliser;
  internal::BlockDeleter* deleter;

  static void End(void* /*data*/, size_t /*length*/, void* deleterData) {
    BackingStoreHolder* holder = static_cast<BackingStoreHolder*>(deleterData);
    if (holder->finaliser != nullptr) {
      holder->finaliser(holder->deleter);
    }
    delete holder;
  }
};
#endif

// A buffer over memory that goes with it: `finaliser`, unless it is null, is called with `deleter`
// once the memory is no longer reachable from script.
inline v8::Local<v8::ArrayBuffer> NewOwnedBuffer(v8::Isolate* isolate, void* data, size_t length,
                                                 BlockFinaliser finaliser,
                                                 internal::BlockDeleter* deleter) {
#if V8_MAJOR_VERSION < 8
  v8::Local<v8::ArrayBuffer> buffer = NewUnownedBuffer(isolate, data, length);
  WeakBufferHolder* holder = new WeakBufferHolder{v8::Persistent<v8::ArrayBuffer>(isolate, buffer),
                                                  isolate, false, finaliser, deleter};
  holder->buffer.SetWeak(holder, WeakBufferHolder::FirstPass, v8::WeakCallbackType::kParameter);
  return buffer;
#else
  return NewBufferOver(isolate, data, length, BackingStoreHolder::End,
                       new BackingStoreHolder{finaliser, deleter});
#endif
}

// The receiver of a call. No template here has a signature, so both name the same object.
template <typename Info>
v8::Local<v8::Object> Receiver(const Info& info) {
#if V8_MAJOR_VERSION < 13
  return info.Holder();
#else
  return info.This();
#endif
}

// Whether an internal field holds `undefined`, as the fields of an object do that script made by
// `new`. `index` must be below the object's count of internal fields.
inline bool IsFieldUndefined(v8::Local<v8::Object> object, int index) {
#if V8_MAJOR_VERSION < 12
  return object->GetInternalField(index)->IsUndefined();
#else
  return object->GetInternalField(index).As<v8::Value>()->IsUndefined();
#endif
}

inline void* FieldPointer(v8::Local<v8::Object> object, int index) {
#if V8_MAJOR_VERSION < 14
  return object->GetAlignedPointerFromInternalField(index);
#else
  return object->GetAlignedPointerFromInternalField(index, v8::kEmbedderDataTypeTagDefault);
#endif
}

inline void SetFieldPointer(v8::Local<v8::Object> object, int index, void* pointer) {
#if V8_MAJOR_VERSION < 14
  object->SetAlignedPointerInInternalField(index, pointer);
#else
  object->SetAlignedPointerInInternalField(index, pointer, v8::kEmbedderDataTypeTagDefault);
#endif
}

// A property of all instances that is read and written by callbacks.
inline void SetAccessor(v8::Local<v8::ObjectTemplate> instances, v8::Local<v8::String> name,
                        v8::AccessorNameGetterCallback getter,
                        v8::AccessorNameSetterCallback setter) {
#if V8_MAJOR_VERSION < 13
  instances->SetAccessor(name, getter, setter);
#else
  instances->SetNativeDataProperty(name, getter, setter);
#endif
}

}  // namespace host

}  // namespace vx

#endif  // JSBINDING_V8_HOST_H_
