// A wrapper class for tests: binding, memory reports, collection.
#include "tests/addon/TestAddon.h"

namespace nq::test {

namespace {

uint32_t destroyedProbes = 0;

class Probe final : public vx::BindingBase {
 public:
  ~Probe() override {
    ++destroyedProbes;
    if (asksForObjectAtEnd) {
      Object();
    }
  }

  static void Register() {
    vx::ClassTemplateBuilder<Probe> builder;
    builder.Inherit<vx::BindingBase>();
    builder.Install("Probe");
  }

  // The state that a subclass sees at the end of Wrap.
  void OnWrapped() override {
    ++wrappedCalls;
    objectSeen = !Object().IsEmpty() && vx::Unwrap<Probe>(Object()) == this;
  }

  uint32_t wrappedCalls = 0;
  bool objectSeen = false;
  bool asksForObjectAtEnd = false;
};

Probe* ProbeArg(const vx::CallbackInfo& info) {
  return vx::Unwrap<Probe>(ObjectArg(info, 0));
}

void WrapProbe(Probe* probe, v8::Isolate* isolate, v8::Local<v8::Object> object, int64_t amount) {
  probe->Wrap(isolate, object, vx::internal::type_id<Probe>(), amount);
}

// newProbe(amount): a wrapped object that reports `amount` bytes.
void NewProbeOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  Probe::Register();
  v8::Local<v8::Object> object = vx::NewInstance<Probe>(isolate);
  WrapProbe(new Probe(), isolate, object, Uint32Arg(info, 0));
  info.GetReturnValue().Set(object);
}

// probeState(probe): {wrappedCalls, objectSeen}.
void ProbeStateOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  const Probe* probe = ProbeArg(info);
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  Set(isolate, result, "wrappedCalls", Number(isolate, probe->wrappedCalls));
  Set(isolate, result, "objectSeen", v8::Boolean::New(isolate, probe->objectSeen));
  info.GetReturnValue().Set(result);
}

// adjustMemory(probe, delta): signed.
void AdjustMemoryOp(const vx::CallbackInfo& info) {
  ProbeArg(info)->AdjustMemory(static_cast<int32_t>(Uint32Arg(info, 1)));
}

// objectOf(probe): the JavaScript object that the wrapper holds.
void ObjectOfOp(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(ProbeArg(info)->Object());
}

// interfaceOf(probe, class): true if the base's QueryInterface returns a pointer for it.
void InterfaceOfOp(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(
      ProbeArg(info)->QueryInterface(TypeInfoNamed(StringArg(info, 1))->name) != nullptr);
}

void DestroyedProbesOp(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(destroyedProbes);
}

// externalMemory(): the bytes currently reported to V8.
void ExternalMemoryOp(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(
      static_cast<double>(info.GetIsolate()->AdjustAmountOfExternalAllocatedMemory(0)));
}

// keepCollectedWrappers(value): the calling thread's switch that prevents deletion.
void KeepCollectedWrappersOp(const vx::CallbackInfo& info) {
  vx::internal::KeepCollectedWrappers() = vx::ReadBool(info.GetIsolate(), vx::Arg(info, 0));
}

// Access to a private field, for the one assertion that no sequence of calls reaches. An explicit
// instantiation may name private members.
template <typename Tag, typename Tag::Type member>
struct PrivateAccess {
  friend typename Tag::Type Field(Tag) { return member; }
};

struct IsolateTag {
  using Type = v8::Isolate* vx::BindingBase::*;
  friend Type Field(IsolateTag);
};

template struct PrivateAccess<IsolateTag, &vx::BindingBase::isolate_>;

// Operations that end the process, each by the assertion that it is named after.

void WrapWithMemoryOp(const vx::CallbackInfo& info) {
  Probe::Register();
  Probe* probe = new Probe();
  WrapProbe(probe, info.GetIsolate(), vx::NewInstance<Probe>(info.GetIsolate()), 16);
  WrapProbe(probe, info.GetIsolate(), vx::NewInstance<Probe>(info.GetIsolate()), 16);
}

void WrapTwiceOp(const vx::CallbackInfo& info) {
  Probe::Register();
  Probe* probe = new Probe();
  WrapProbe(probe, info.GetIsolate(), vx::NewInstance<Probe>(info.GetIsolate()), 0);
  WrapProbe(probe, info.GetIsolate(), vx::NewInstance<Probe>(info.GetIsolate()), 0);
}

void WrapWithObjectOp(const vx::CallbackInfo& info) {
  Probe::Register();
  Probe* probe = new Probe();
  WrapProbe(probe, info.GetIsolate(), vx::NewInstance<Probe>(info.GetIsolate()), 0);
  probe->*Field(IsolateTag()) = nullptr;
  WrapProbe(probe, info.GetIsolate(), vx::NewInstance<Probe>(info.GetIsolate()), 0);
}

void WrapPlainObjectOp(const vx::CallbackInfo& info) {
  WrapProbe(new Probe(), info.GetIsolate(), v8::Object::New(info.GetIsolate()), 16);
}

void ObjectBeforeWrapOp(const vx::CallbackInfo& /*info*/) {
  Probe probe;
  probe.Object();
}

// objectAtEnd(probe): the probe reads its object in its destructor, when that has been released.
void ObjectAtEndOp(const vx::CallbackInfo& info) {
  ProbeArg(info)->asksForObjectAtEnd = true;
}

}  // namespace

void InstallWrapperOps(v8::Local<v8::Object> exports) {
  Install(exports, "newProbe", NewProbeOp);
  Install(exports, "probeState", ProbeStateOp);
  Install(exports, "adjustMemory", AdjustMemoryOp);
  Install(exports, "objectOf", ObjectOfOp);
  Install(exports, "interfaceOf", InterfaceOfOp);
  Install(exports, "destroyedProbes", DestroyedProbesOp);
  Install(exports, "externalMemory", ExternalMemoryOp);
  Install(exports, "keepCollectedWrappers", KeepCollectedWrappersOp);
  Install(exports, "wrapWithMemory", WrapWithMemoryOp);
  Install(exports, "wrapTwice", WrapTwiceOp);
  Install(exports, "wrapWithObject", WrapWithObjectOp);
  Install(exports, "wrapPlainObject", WrapPlainObjectOp);
  Install(exports, "objectBeforeWrap", ObjectBeforeWrapOp);
  Install(exports, "objectAtEnd", ObjectAtEndOp);
}

}  // namespace nq::test
