// Differences between hosts: every use of an interface that V8 or Node changed, in this one header,
// selected by V8_MAJOR_VERSION. Nothing else tests a version.
//
//   Node  12   18   20   22   24   26
//   V8     7   10   11   12   13   14
//   ABI   72  108  115  127  137  147
//
// Node 12 is the reference. If JavaScript sees a difference on another host, the comment states it.
#ifndef JSBINDING_V8_HOST_H_
#define JSBINDING_V8_HOST_H_

#include <node.h>
#include <v8.h>

#include <cstddef>
#include <memory>
#include <utility>

// The function head of the module's entry, with the parameter `exports`:
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

// Called once with the deleter of a block whose ownership was transferred, when nothing refers to
// its memory any longer. On newer hosts the memory can move to another thread, and this may be
// called there.
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
// A buffer over `data`, whose memory `deleter` releases.
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
// On newer hosts JavaScript can transfer such memory to another buffer (structuredClone,
// postMessage, transfer), which leaves this one empty. From V8 13 on a detach key makes that throw.
// With a key, older versions end the process in some kinds of transfer, so they get none, and the
// transfer is possible: the memory stays at its address, and native code still owns it.
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

// Tracks a buffer that owns its block until the memory is no longer used.
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
// The backing store owns the holder: JavaScript may transfer the memory to other buffers, and it
// lives as long as the last of them.
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

// A buffer that owns its memory: `finaliser`, unless it is null, is called with `deleter` once the
// memory is no longer reachable from JavaScript.
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

// The receiver of a call. No template here has a signature, so both names mean the same object.
template <typename Info>
v8::Local<v8::Object> Receiver(const Info& info) {
#if V8_MAJOR_VERSION < 13
  return info.Holder();
#else
  return info.This();
#endif
}

// True if an internal field holds `undefined`, as in objects created by `new` in JavaScript.
// `index` must be below the object's number of internal fields.
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

// A property of all instances with a getter and a setter callback.
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
