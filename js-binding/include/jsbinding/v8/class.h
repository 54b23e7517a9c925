// Ties native objects to JavaScript objects: wrappers, class templates, receiver checks. The main
// header of the library.
//
// The life of a class, once per thread: a ClassTemplateBuilder is created, receives its base and
// methods, and is installed. The life of a wrapper: created with `new`, bound to a JavaScript
// object by Wrap, from then on reached through that object, and deleted when the object has been
// collected.
//
// Thread safety: everything runs on the thread of the isolate. The registries are thread-local: a
// second thread with its own isolate gets its own classes.
#ifndef JSBINDING_V8_CLASS_H_
#define JSBINDING_V8_CLASS_H_

#include <v8.h>

#include <cstdint>
#include <string>
#include <vector>

#include "jsbinding/v8/arguments.h"
#include "jsbinding/v8/array_buffer.h"
#include "jsbinding/v8/assert.h"
#include "jsbinding/v8/class_state.h"
#include "jsbinding/v8/host.h"
#include "jsbinding/v8/type_info.h"

namespace vx {

// The internal fields of the JavaScript object of a wrapped class.
constexpr int kTypeInfoField = 0;  // internal::TypeInfo* of the wrapper's class
constexpr int kWrapperField = 1;   // the wrapper, as a BindingBase*
constexpr int kInternalFieldCount = 2;

namespace internal {

// While set on a thread, wrappers are not deleted there when their objects are collected. For a
// shutdown path; nothing sets it.
inline bool& KeepCollectedWrappers() {
  static thread_local bool keep = false;
  return keep;
}

inline v8::Local<v8::String> NewString(v8::Isolate* isolate, const char* text) {
  return v8::String::NewFromUtf8(isolate, text, v8::NewStringType::kNormal).ToLocalChecked();
}

// An internal field as an aligned pointer. Null if nothing native was stored: a field of an object
// created by `new` in JavaScript holds `undefined`, which must not be read as a pointer. `index`
// must be below the object's number of internal fields.
inline void* ReadPointerField(v8::Local<v8::Object> object, int index) {
  return host::IsFieldUndefined(object, index) ? nullptr : host::FieldPointer(object, index);
}

}  // namespace internal

// Base of every wrapper. The JavaScript object owns the wrapper, by a weak V8 handle: the
// destructor runs in the second pass of the weak callback, and may call V8 only as far as such a
// callback may.
class BindingBase {
 public:
  BindingBase() = default;
  BindingBase(const BindingBase&) = delete;
  BindingBase& operator=(const BindingBase&) = delete;

  virtual ~BindingBase() {
    if (!thisObject_.IsEmpty()) {
      thisObject_.Reset();
    }
    // Every AdjustMemory has been undone.
    VX_ASSERT(v8MemoryAdjustSize_ == init_memory_adjust_size_);
    if (isolate_ != nullptr) {
      isolate_->AdjustAmountOfExternalAllocatedMemory(-v8MemoryAdjustSize_);
    }
    isolate_ = nullptr;
  }

  // Called at the end of Wrap.
  virtual void OnWrapped() {}

  // Reports `delta` bytes more, or fewer, to V8. All calls must sum to zero when the wrapper is
  // deleted.
  virtual void AdjustMemory(int32_t delta) {
    isolate_->AdjustAmountOfExternalAllocatedMemory(static_cast<int64_t>(delta));
    v8MemoryAdjustSize_ += delta;
    VX_ASSERT(v8MemoryAdjustSize_ >= 0);
  }

  // The sub-object that implements the type of that name, or null.
  virtual void* QueryInterface(const std::string& typeName) {
    static_cast<void>(typeName);
    return nullptr;
  }

  // Binds this object to `obj`, which has two internal fields. `amount`, the bytes to report to V8
  // for this object, is the wrapper's own size.
  void Wrap(v8::Isolate* isolate, v8::Local<v8::Object> obj, internal::TypeInfo* typeInfo,
            int64_t amount) {
    VX_ASSERT(v8MemoryAdjustSize_ == 0);
    VX_ASSERT(!isolate_);
    VX_ASSERT(thisObject_.IsEmpty());
    VX_ASSERT(obj->InternalFieldCount() > 0);
    isolate_ = isolate;
    v8MemoryAdjustSize_ = amount;
    init_memory_adjust_size_ = amount;
    host::SetFieldPointer(obj, kTypeInfoField, typeInfo);
    host::SetFieldPointer(obj, kWrapperField, this);
    typeInfo_ = typeInfo;
    thisObject_.Reset(isolate, obj);
    thisObject_.SetWeak(this, FirstPass, v8::WeakCallbackType::kParameter);
    isolate->AdjustAmountOfExternalAllocatedMemory(amount);
    OnWrapped();
  }

  // The JavaScript object.
  v8::Local<v8::Object> Object() const {
    VX_ASSERT(isolate_);
    VX_ASSERT(!thisObject_.IsEmpty());
    return v8::Local<v8::Object>::New(isolate_, thisObject_);
  }

  internal::TypeInfo* typeInfo() const { return typeInfo_; }

 private:
  static void FirstPass(const v8::WeakCallbackInfo<BindingBase>& info) {
    BindingBase* wrapper = info.GetParameter();
    if (wrapper != nullptr && !wrapper->collected_) {
      wrapper->collected_ = true;
      wrapper->thisObject_.Reset();
      info.SetSecondPassCallback(SecondPass);
    }
  }

  static void SecondPass(const v8::WeakCallbackInfo<BindingBase>& info) {
    if (!internal::KeepCollectedWrappers()) {
      delete info.GetParameter();
    }
  }

  internal::TypeInfo* typeInfo_ = nullptr;
  v8::Persistent<v8::Object> thisObject_;  // weak once wrapped
  v8::Isolate* isolate_ = nullptr;         // null until wrapped and again after destruction
  int64_t v8MemoryAdjustSize_ = 0;         // bytes currently reported to V8
  int64_t init_memory_adjust_size_ = 0;    // bytes reported by Wrap
  bool collected_ = false;
};

// The wrapper of class T behind `object`, or null if the object was not created by native code, or
// wraps a class that is neither T nor derived from it.
template <typename T>
T* Unwrap(v8::Local<v8::Object> object) {
  if (object->InternalFieldCount() != kInternalFieldCount) {
    return nullptr;
  }
  const internal::TypeInfo* typeInfo =
      static_cast<const internal::TypeInfo*>(internal::ReadPointerField(object, kTypeInfoField));
  if (typeInfo == nullptr || !typeInfo->IsKindOf(*internal::type_id<T>())) {
    return nullptr;
  }
  return static_cast<T*>(
      static_cast<BindingBase*>(internal::ReadPointerField(object, kWrapperField)));
}

// Field 1 of `object`, whatever class it wraps; null if nothing native was stored there. An object
// without such a field ends the process by V8's own fatal error.
template <typename T>
T* UnwrapUnchecked(v8::Local<v8::Object> object) {
  if (object->InternalFieldCount() <= kWrapperField) {
    // V8's inlined getters check no bounds. Its setters do, and report before they write.
    host::SetFieldPointer(object, kWrapperField, nullptr);
  }
  return static_cast<T*>(
      static_cast<BindingBase*>(internal::ReadPointerField(object, kWrapperField)));
}

// The native function of a method: `self` is null if the receiver is of the wrong class. A static
// function, not a member function, so that a null receiver is defined behaviour until it is used.
template <typename T>
using Method = void (*)(T* self, v8::Isolate* isolate, const CallbackInfo& info);

// The common method callback: scope, receiver check, call - even for a null receiver.
template <typename T, Method<T> method>
void Callback(const CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::HandleScope scope(isolate);
  method(Unwrap<T>(host::Receiver(info)), isolate, info);
}

// The same without the receiver check.
template <typename T, Method<T> method>
void UncheckedCallback(const CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::HandleScope scope(isolate);
  method(UnwrapUnchecked<T>(host::Receiver(info)), isolate, info);
}

// Builds the JavaScript class of T. Lives only during one registration. The JavaScript constructor
// does nothing native: `new` on it creates an object with two empty internal fields.
template <typename T>
class ClassTemplateBuilder {
 public:
  ClassTemplateBuilder() : isolate_(v8::Isolate::GetCurrent()) {
    VX_ASSERT(isolate_ != nullptr);
    v8::HandleScope scope(isolate_);
    v8::Local<v8::FunctionTemplate> created = v8::FunctionTemplate::New(isolate_);
    created->InstanceTemplate()->SetInternalFieldCount(kInternalFieldCount);
    functionTemplate.Reset(isolate_, created);
  }
  ~ClassTemplateBuilder() { functionTemplate.Reset(); }
  ClassTemplateBuilder(const ClassTemplateBuilder&) = delete;
  ClassTemplateBuilder& operator=(const ClassTemplateBuilder&) = delete;

  // Records Base as T's base class, and lets T's template inherit from Base's if Base is installed.
  template <typename Base>
  void Inherit() {
    internal::ClassState* own = internal::class_state<T>();
    internal::ClassState* base = internal::class_state<Base>();
    if (own->installed) {
      if (!own->functionTemplate.IsEmpty() && !base->functionTemplate.IsEmpty()) {
        v8::HandleScope scope(isolate_);
        own->functionTemplate.Get(isolate_)->Inherit(base->functionTemplate.Get(isolate_));
      }
    } else if (base->installed) {
      baseTemplate = &base->functionTemplate;
    }
    internal::type_id<T>()->AddBase(*internal::type_id<Base>());
  }

  void AddMethod(const char* name, v8::FunctionCallback callback) {
    methods.push_back(MethodEntry{name, callback, v8::DontDelete});
  }

  void AddAccessor(const char* name, v8::AccessorNameGetterCallback getter,
                   v8::AccessorNameSetterCallback setter) {
    accessors.push_back(AccessorEntry{name, getter, setter});
  }

  // Completes the class under its JavaScript name; does nothing if the thread has installed T
  // already.
  void Install(const char* className) {
    internal::ClassState* state = internal::class_state<T>();
    if (state->installed) {
      return;
    }
    v8::HandleScope scope(isolate_);
    v8::Local<v8::FunctionTemplate> created = functionTemplate.Get(isolate_);
    created->SetClassName(internal::NewString(isolate_, className));
    for (const MethodEntry& method : methods) {
      created->PrototypeTemplate()->Set(internal::NewString(isolate_, method.name),
                                        v8::FunctionTemplate::New(isolate_, method.callback),
                                        method.attributes);
    }
    for (const AccessorEntry& accessor : accessors) {
      host::SetAccessor(created->InstanceTemplate(), internal::NewString(isolate_, accessor.name),
                        accessor.getter, accessor.setter);
    }
    if (baseTemplate != nullptr) {
      created->Inherit(baseTemplate->Get(isolate_));
    }
    state->functionTemplate.Reset(isolate_, created);
    internal::type_id<T>()->AddBase(*internal::type_id<BindingBase>());
    state->installed = true;
  }

 private:
  struct MethodEntry {
    const char* name;
    v8::FunctionCallback callback;
    v8::PropertyAttribute attributes;
  };

  struct AccessorEntry {
    const char* name;
    v8::AccessorNameGetterCallback getter;
    v8::AccessorNameSetterCallback setter;
  };

  v8::Isolate* const isolate_;
  v8::Persistent<v8::FunctionTemplate> functionTemplate;
  std::vector<MethodEntry> methods;
  std::vector<AccessorEntry> accessors;
  v8::Persistent<v8::FunctionTemplate>* baseTemplate = nullptr;
};

// A new JavaScript object of class T, which is installed in this thread.
template <typename T>
v8::Local<v8::Object> NewInstance(v8::Isolate* isolate) {
  v8::Local<v8::Context> context = isolate->GetCurrentContext();
  return internal::class_state<T>()
      ->functionTemplate.Get(isolate)
      ->GetFunction(context)
      .ToLocalChecked()
      ->NewInstance(context)
      .ToLocalChecked();
}

}  // namespace vx

#endif  // JSBINDING_V8_CLASS_H_
