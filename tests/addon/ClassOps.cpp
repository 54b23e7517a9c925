// JavaScript classes and type records.
#include <thread>

#include "BindingTemp/BindingEngine.h"
#include "BindingTemp/BindingEngineAnimationClipBinding.h"
#include "BindingTemp/BindingEngineAnimatorController.h"
#include "BindingTemp/BindingEngineBase.h"
#include "BindingTemp/BindingEngineComponent.h"
#include "BindingTemp/BindingEngineDataModel.h"
#include "BindingTemp/BindingEngineEntity.h"
#include "BindingTemp/RegisterClasses.h"
#include "Engine/Entity/IEntity.h"
#include "tests/addon/TestAddon.h"

namespace nq::test {

vx::internal::TypeInfo* TypeInfoNamed(const std::string& name) {
  using vx::internal::type_id;
  if (name == "BindingBase") {
    return type_id<vx::BindingBase>();
  }
  if (name == "BindingEngineBase") {
    return type_id<engine::BindingEngineBase>();
  }
  if (name == "BindingEngine") {
    return type_id<engine::BindingEngine>();
  }
  if (name == "BindingEngineEntity") {
    return type_id<engine::BindingEngineEntity>();
  }
  if (name == "BindingEngineComponent") {
    return type_id<engine::BindingEngineComponent>();
  }
  if (name == "BindingEngineDataModel") {
    return type_id<engine::BindingEngineDataModel>();
  }
  if (name == "BindingEngineAnimationClipBinding") {
    return type_id<engine::BindingEngineAnimationClipBinding>();
  }
  if (name == "BindingEngineAnimatorControllerModel") {
    return type_id<engine::BindingEngineAnimatorControllerModel>();
  }
  if (name == "BindingEngineAnimatorControllerStateModel") {
    return type_id<engine::BindingEngineAnimatorControllerStateModel>();
  }
  if (name == "IEntity") {
    return type_id<engine::IEntity>();
  }
  return nullptr;
}

namespace {

// Classes for installation tests; each situation below uses different numbers, since a class is
// installed once per thread.
template <int number>
class Sample : public vx::BindingBase {};

void SampleMethod(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(info.Length());
}

template <int number>
void InstallSample(const char* className, const char* methodName) {
  vx::ClassTemplateBuilder<Sample<number>> builder;
  builder.AddMethod(methodName, SampleMethod);
  builder.Install(className);
}

template <typename T>
v8::Local<v8::Value> ConstructorOf(v8::Isolate* isolate) {
  const vx::internal::ClassState* state = vx::internal::class_state<T>();
  if (!state->installed) {
    return v8::Undefined(isolate);
  }
  return state->functionTemplate.Get(isolate)
      ->GetFunction(isolate->GetCurrentContext())
      .ToLocalChecked();
}

// {derived, base: constructors, isKindOfBase, isKindOfBindingBase, baseCount}.
template <int derived, int base>
v8::Local<v8::Object> Describe(v8::Isolate* isolate) {
  using vx::internal::type_id;
  const vx::internal::TypeInfo* info = type_id<Sample<derived>>();
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  Set(isolate, result, "derived", ConstructorOf<Sample<derived>>(isolate));
  Set(isolate, result, "base", ConstructorOf<Sample<base>>(isolate));
  Set(isolate, result, "isKindOfBase",
      v8::Boolean::New(isolate, info->IsKindOf(*type_id<Sample<base>>())));
  Set(isolate, result, "isKindOfBindingBase",
      v8::Boolean::New(isolate, info->IsKindOf(*type_id<vx::BindingBase>())));
  Set(isolate, result, "baseCount", Number(isolate, static_cast<double>(info->bases.size())));
  return result;
}

// inherit(situation): the effect of Inherit if both classes are installed, only the base, none, or
// only the derived one. Once per thread each.
void InheritOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  const std::string situation = StringArg(info, 0);
  if (situation == "both installed") {
    InstallSample<1>("Base1", "ofBase");
    InstallSample<2>("Derived1", "ofDerived");
    vx::ClassTemplateBuilder<Sample<2>> builder;
    builder.Inherit<Sample<1>>();
    info.GetReturnValue().Set(Describe<2, 1>(isolate));
  } else if (situation == "base installed") {
    InstallSample<3>("Base2", "ofBase");
    vx::ClassTemplateBuilder<Sample<4>> builder;
    builder.Inherit<Sample<3>>();
    builder.AddMethod("ofDerived", SampleMethod);
    builder.Install("Derived2");
    info.GetReturnValue().Set(Describe<4, 3>(isolate));
  } else if (situation == "none installed") {
    vx::ClassTemplateBuilder<Sample<6>> builder;
    builder.Inherit<Sample<5>>();
    builder.AddMethod("ofDerived", SampleMethod);
    builder.Install("Derived3");
    info.GetReturnValue().Set(Describe<6, 5>(isolate));
  } else if (situation == "derived installed") {
    InstallSample<8>("Derived4", "ofDerived");
    vx::ClassTemplateBuilder<Sample<8>> builder;
    builder.Inherit<Sample<7>>();
    info.GetReturnValue().Set(Describe<8, 7>(isolate));
  }
}

// flatBases(): a class's record with a base that itself has a base, after adding the same base
// twice: {baseCount, basesOfBases, isKindOfGrandparent, grandparentIsKindOf}.
void FlatBasesOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  vx::internal::TypeInfo grandparent{"grandparent", {}};
  vx::internal::TypeInfo parent{"parent", {}};
  vx::internal::TypeInfo child{"child", {}};
  parent.AddBase(grandparent);
  child.AddBase(parent);
  child.AddBase(parent);
  size_t basesOfBases = 0;
  for (const vx::internal::TypeInfo& base : child.bases) {
    basesOfBases += base.bases.size();
  }
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  Set(isolate, result, "baseCount", Number(isolate, static_cast<double>(child.bases.size())));
  Set(isolate, result, "basesOfBases", Number(isolate, static_cast<double>(basesOfBases)));
  Set(isolate, result, "isKindOfGrandparent",
      v8::Boolean::New(isolate, child.IsKindOf(grandparent)));
  Set(isolate, result, "grandparentIsKindOf",
      v8::Boolean::New(isolate, grandparent.IsKindOf(child)));
  info.GetReturnValue().Set(result);
}

// lateBase(): a base added to a known base's record later is also added by the next AddBase,
// although the known base itself is not added again: [base count before, after].
void LateBaseOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  vx::internal::TypeInfo parent{"parent", {}};
  vx::internal::TypeInfo child{"child", {}};
  child.AddBase(parent);
  const size_t before = child.bases.size();
  parent.AddBase(vx::internal::TypeInfo{"late", {}});
  child.AddBase(parent);
  v8::Local<v8::Array> result = v8::Array::New(isolate);
  Set(isolate, result, 0, Number(isolate, static_cast<double>(before)));
  Set(isolate, result, 1, Number(isolate, static_cast<double>(child.bases.size())));
  info.GetReturnValue().Set(result);
}

double accessorValue = 0;
uint32_t accessorReads = 0;

void AccessorGetter(v8::Local<v8::Name> /*name*/, const v8::PropertyCallbackInfo<v8::Value>& info) {
  ++accessorReads;
  info.GetReturnValue().Set(accessorValue);
}

void AccessorSetter(v8::Local<v8::Name> /*name*/, v8::Local<v8::Value> value,
                    const v8::PropertyCallbackInfo<void>& info) {
  accessorValue = value->NumberValue(info.GetIsolate()->GetCurrentContext()).FromJust();
}

// accessorInstance(): an object of a class with the accessors "level" and "fixed", in this order;
// "fixed" has no setter.
void AccessorInstanceOp(const vx::CallbackInfo& info) {
  vx::ClassTemplateBuilder<Sample<9>> builder;
  builder.AddAccessor("level", AccessorGetter, AccessorSetter);
  builder.AddAccessor("fixed", AccessorGetter, nullptr);
  builder.Install("WithAccessors");
  info.GetReturnValue().Set(vx::NewInstance<Sample<9>>(info.GetIsolate()));
}

// accessorState(): {value, reads}.
void AccessorStateOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  Set(isolate, result, "value", Number(isolate, accessorValue));
  Set(isolate, result, "reads", Number(isolate, accessorReads));
  info.GetReturnValue().Set(result);
}

// installTwice(): installs a class under one name, then again with another name and method. Returns
// the constructors after each, as [first, second].
void InstallTwiceOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Array> result = v8::Array::New(isolate);
  InstallSample<10>("First", "ofFirst");
  Set(isolate, result, 0, ConstructorOf<Sample<10>>(isolate));
  InstallSample<10>("Second", "ofSecond");
  Set(isolate, result, 1, ConstructorOf<Sample<10>>(isolate));
  info.GetReturnValue().Set(result);
}

// registerClasses(): the wrapper layer's own sequence, in this addon's registries. Returns the
// constructors under the classes' JavaScript names, and engineBases, entityBases, componentBases,
// dataModelBases, bindingBases, controllerBases, stateBases: counts.
void RegisterClassesOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  engine::RegisterClasses();
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  Set(isolate, result, "Engine", ConstructorOf<engine::BindingEngine>(isolate));
  Set(isolate, result, "EngineEntity", ConstructorOf<engine::BindingEngineEntity>(isolate));
  Set(isolate, result, "EngineComponent", ConstructorOf<engine::BindingEngineComponent>(isolate));
  Set(isolate, result, "EngineDataModel", ConstructorOf<engine::BindingEngineDataModel>(isolate));
  Set(isolate, result, "EngineAnimationClipBinding",
      ConstructorOf<engine::BindingEngineAnimationClipBinding>(isolate));
  Set(isolate, result, "EngineAnimatorControllerModel",
      ConstructorOf<engine::BindingEngineAnimatorControllerModel>(isolate));
  Set(isolate, result, "EngineAnimatorControllerStateModel",
      ConstructorOf<engine::BindingEngineAnimatorControllerStateModel>(isolate));
  const auto setBases = [isolate, result](const char* name, const char* className) {
    const size_t count = TypeInfoNamed(className)->bases.size();
    Set(isolate, result, name, Number(isolate, static_cast<double>(count)));
  };
  setBases("engineBases", "BindingEngine");
  setBases("entityBases", "BindingEngineEntity");
  setBases("componentBases", "BindingEngineComponent");
  setBases("dataModelBases", "BindingEngineDataModel");
  setBases("bindingBases", "BindingEngineAnimationClipBinding");
  setBases("controllerBases", "BindingEngineAnimatorControllerModel");
  setBases("stateBases", "BindingEngineAnimatorControllerStateModel");
  info.GetReturnValue().Set(result);
}

// isKindOf(object, name): tests the record of a wrapped object against that of a class.
void IsKindOfOp(const vx::CallbackInfo& info) {
  const vx::internal::TypeInfo* record = static_cast<const vx::internal::TypeInfo*>(
      vx::internal::ReadPointerField(ObjectArg(info, 0), vx::kTypeInfoField));
  info.GetReturnValue().Set(record->IsKindOf(*TypeInfoNamed(StringArg(info, 1))));
}

// baseCount(object): number of bases in the record of a wrapped object.
void BaseCountOp(const vx::CallbackInfo& info) {
  const vx::internal::TypeInfo* record = static_cast<const vx::internal::TypeInfo*>(
      vx::internal::ReadPointerField(ObjectArg(info, 0), vx::kTypeInfoField));
  info.GetReturnValue().Set(static_cast<uint32_t>(record->bases.size()));
}

// internalFields(object): {count, undefinedFields}.
void InternalFieldsOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Object> object = ObjectArg(info, 0);
  uint32_t undefinedFields = 0;
  for (int i = 0; i < object->InternalFieldCount(); ++i) {
    undefinedFields += vx::host::IsFieldUndefined(object, i) ? 1 : 0;
  }
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  Set(isolate, result, "count", Number(isolate, object->InternalFieldCount()));
  Set(isolate, result, "undefinedFields", Number(isolate, undefinedFields));
  info.GetReturnValue().Set(result);
}

// unwrap(object): the results of receiver checks, as {engine, entity, component, dataModel,
// binding, controller, state}, true where not null.
void UnwrapOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Object> object = ObjectArg(info, 0);
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  const auto set = [isolate, result](const char* name, const void* wrapper) {
    Set(isolate, result, name, v8::Boolean::New(isolate, wrapper != nullptr));
  };
  set("engine", vx::Unwrap<engine::BindingEngine>(object));
  set("entity", vx::Unwrap<engine::BindingEngineEntity>(object));
  set("component", vx::Unwrap<engine::BindingEngineComponent>(object));
  set("dataModel", vx::Unwrap<engine::BindingEngineDataModel>(object));
  set("binding", vx::Unwrap<engine::BindingEngineAnimationClipBinding>(object));
  set("controller", vx::Unwrap<engine::BindingEngineAnimatorControllerModel>(object));
  set("state", vx::Unwrap<engine::BindingEngineAnimatorControllerStateModel>(object));
  info.GetReturnValue().Set(result);
}

// unwrapUnchecked(object): true if field 1 holds a pointer, whatever class it is of.
void UnwrapUncheckedOp(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(vx::UnwrapUnchecked<engine::BindingEngine>(ObjectArg(info, 0)) !=
                            nullptr);
}

// withThirdField(object): an object with the two internal fields of another, and one more.
void WithThirdFieldOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Object> object = ObjectArg(info, 0);
  v8::Local<v8::ObjectTemplate> shape = v8::ObjectTemplate::New(isolate);
  shape->SetInternalFieldCount(vx::kInternalFieldCount + 1);
  v8::Local<v8::Object> result = shape->NewInstance(isolate->GetCurrentContext()).ToLocalChecked();
  for (int i = 0; i < vx::kInternalFieldCount; ++i) {
    vx::host::SetFieldPointer(result, i, vx::host::FieldPointer(object, i));
  }
  info.GetReturnValue().Set(result);
}

// builderWithoutIsolate(): on a thread that entered no isolate; fails an assertion.
void BuilderWithoutIsolateOp(const vx::CallbackInfo& /*info*/) {
  std::thread([] { vx::ClassTemplateBuilder<Sample<11>> builder; }).join();
}

}  // namespace

void InstallClassOps(v8::Local<v8::Object> exports) {
  Install(exports, "inherit", InheritOp);
  Install(exports, "flatBases", FlatBasesOp);
  Install(exports, "lateBase", LateBaseOp);
  Install(exports, "accessorInstance", AccessorInstanceOp);
  Install(exports, "accessorState", AccessorStateOp);
  Install(exports, "installTwice", InstallTwiceOp);
  Install(exports, "registerClasses", RegisterClassesOp);
  Install(exports, "isKindOf", IsKindOfOp);
  Install(exports, "baseCount", BaseCountOp);
  Install(exports, "internalFields", InternalFieldsOp);
  Install(exports, "unwrap", UnwrapOp);
  Install(exports, "unwrapUnchecked", UnwrapUncheckedOp);
  Install(exports, "withThirdField", WithThirdFieldOp);
  Install(exports, "builderWithoutIsolate", BuilderWithoutIsolateOp);
}

}  // namespace nq::test
