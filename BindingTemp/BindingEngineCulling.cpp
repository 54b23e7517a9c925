// The culling methods of "Engine".
#include <cstdlib>
#include <cstring>

#include "BindingTemp/BindingEngine.h"
#include "BindingTemp/PublishSegment.h"
#include "Common/Def/Unaligned.h"
#include "Engine/Culling/CullResult.h"
#include "Engine/Culling/ViewVolume.h"

namespace nq::engine {

namespace {

constexpr int kPoseArguments = 10;  // mask, eye, target, up
constexpr int kFrustumArguments = kPoseArguments + 4;
constexpr int kOrthoArguments = kPoseArguments + 6;

// The optional list of objects to test; null to test all.
struct ObjectList {
  const uint32_t* handles = nullptr;
  uint32_t count = 0;
};

float ReadFloat(v8::Isolate* isolate, v8::Local<v8::Value> value) {
  return static_cast<float>(value->NumberValue(isolate->GetCurrentContext()).FromJust());
}

// Reads arguments in order, since their conversion may run JavaScript.
class ArgumentReader {
 public:
  ArgumentReader(v8::Isolate* isolate, const vx::CallbackInfo& info)
      : isolate(isolate), info(info) {}

  uint32_t Uint32() { return vx::ReadUint32(isolate, vx::Arg(info, next++)); }
  float Float() { return ReadFloat(isolate, vx::Arg(info, next++)); }
  Vector3 Vector() {
    Vector3 vector;
    vector.x = Float();
    vector.y = Float();
    vector.z = Float();
    return vector;
  }
  CameraPose Pose() {
    CameraPose pose;
    pose.eye = Vector();
    pose.target = Vector();
    pose.up = Vector();
    return pose;
  }

 private:
  v8::Isolate* const isolate;
  const vx::CallbackInfo& info;
  int next = 0;
};

// Reads the list, which is used only as the argument directly after `required` ones, and if it is
// an ArrayBuffer. False if it is rejected: no memory, fewer than 5 bytes, a count of 0 or one that
// exceeds the buffer.
bool ReadList(const vx::CallbackInfo& info, int required, ObjectList* list) {
  if (info.Length() != required + 1 || !info[required]->IsArrayBuffer()) {
    return true;
  }
  const vx::Bytes bytes = vx::ReadBytes(info[required]);
  if (bytes.data == nullptr || bytes.length < kCullingListMinBytes) {
    return false;
  }
  const uint32_t* words = reinterpret_cast<const uint32_t*>(bytes.data);
  list->count = words[0];
  list->handles = words + 1;
  return list->count != 0 && list->count <= bytes.length / sizeof(uint32_t) - 1;
}

// The common part of all calls: the result, owned by the core, or null if the call is rejected.
const CullResult* CullFrustum(BindingEngine* self, v8::Isolate* isolate,
                              const vx::CallbackInfo& info) {
  if (info.Length() < kFrustumArguments) {
    return nullptr;
  }
  ArgumentReader arguments(isolate, info);
  const uint32_t mask = arguments.Uint32();
  const CameraPose pose = arguments.Pose();
  PerspectiveLens lens;
  lens.fov = arguments.Float();
  lens.aspect = arguments.Float();
  lens.near = arguments.Float();
  lens.far = arguments.Float();
  ObjectList list;
  if (!ReadList(info, kFrustumArguments, &list)) {
    return nullptr;
  }
  return &self->Core()->CullWithFrustum(mask, pose, lens, list.handles, list.count);
}

const CullResult* CullOrtho(BindingEngine* self, v8::Isolate* isolate,
                            const vx::CallbackInfo& info) {
  if (info.Length() < kOrthoArguments) {
    return nullptr;
  }
  ArgumentReader arguments(isolate, info);
  const uint32_t mask = arguments.Uint32();
  const CameraPose pose = arguments.Pose();
  OrthographicLens lens;
  lens.left = arguments.Float();
  lens.right = arguments.Float();
  lens.bottom = arguments.Float();
  lens.top = arguments.Float();
  lens.near = arguments.Float();
  lens.far = arguments.Float();
  ObjectList list;
  if (!ReadList(info, kOrthoArguments, &list)) {
    return nullptr;
  }
  return &self->Core()->CullOrtho(mask, pose, lens, list.handles, list.count);
}

// A buffer that owns a copy of `bytes` bytes.
v8::Local<v8::ArrayBuffer> CopyToScript(v8::Isolate* isolate, const void* source, size_t bytes) {
  void* block = std::malloc(bytes);
  if (block == nullptr) {
    std::abort();
  }
  std::memcpy(block, source, bytes);
  return vx::NewGivenAwayBuffer(isolate, block, bytes);
}

// Returns the result as a new object. Everything is read from the result before a property is set:
// a setter on the prototype may run JavaScript that culls again.
void ReturnObject(v8::Isolate* isolate, const vx::CallbackInfo& info, const CullResult* result) {
  if (result == nullptr || result->objects.empty()) {
    info.GetReturnValue().SetNull();
    return;
  }
  const size_t count = result->objects.size();
  v8::Local<v8::Object> object = v8::Object::New(isolate);
  v8::Local<v8::ArrayBuffer> objects =
      CopyToScript(isolate, result->objects.data(), count * sizeof(uint32_t));
  v8::Local<v8::ArrayBuffer> distances =
      CopyToScript(isolate, result->distances.data(), count * sizeof(float));
  v8::Local<v8::Integer> hash = v8::Integer::NewFromUnsigned(isolate, result->hash);
  SetProperty(isolate, object, "objects", objects);
  SetProperty(isolate, object, "distances", distances);
  SetProperty(isolate, object, "hash", hash);
  info.GetReturnValue().Set(object);
}

}  // namespace

bool BindingEngine::StoreCullResult(v8::Isolate* isolate, const CullResult& result) {
  const uint32_t count = static_cast<uint32_t>(result.objects.size());
  if (count == 0) {
    return false;
  }
  const bool grows = count > cullingResultCapacity;
  if (grows) {
    cullingResultCapacity = count + kCullingResultSlack;
    cullingResultBuffer =
        std::realloc(cullingResultBuffer, CullingResultBytes(cullingResultCapacity));
    if (cullingResultBuffer == nullptr) {
      std::abort();
    }
  }
  uint8_t* buffer = static_cast<uint8_t*>(cullingResultBuffer);
  WriteUnaligned(buffer + kCullingResultHashOffset, result.hash);
  WriteUnaligned(buffer + kCullingResultCountOffset, count);
  const size_t listBytes = count * sizeof(uint32_t);
  std::memcpy(buffer + kCullingResultObjectsOffset, result.objects.data(), listBytes);
  std::memcpy(buffer + kCullingResultObjectsOffset + listBytes, result.distances.data(), listBytes);
  if (grows) {
    // Last: if JavaScript has replaced the property by a setter, that may cull again.
    PublishBuffer(isolate, Object(), "cullingResult", buffer,
                  CullingResultBytes(cullingResultCapacity));
  }
  return grows;
}

void BindingEngine::frustumCullingFunc(BindingEngine* self, v8::Isolate* isolate,
                                       const vx::CallbackInfo& info) {
  ReturnObject(isolate, info, CullFrustum(self, isolate, info));
}

void BindingEngine::frustumCullingV2Func(BindingEngine* self, v8::Isolate* isolate,
                                         const vx::CallbackInfo& info) {
  const CullResult* result = CullFrustum(self, isolate, info);
  if (result == nullptr) {
    info.GetReturnValue().SetNull();
  } else {
    info.GetReturnValue().Set(self->StoreCullResult(isolate, *result));
  }
}

void BindingEngine::orthoCullingFunc(BindingEngine* self, v8::Isolate* isolate,
                                     const vx::CallbackInfo& info) {
  ReturnObject(isolate, info, CullOrtho(self, isolate, info));
}

void BindingEngine::orthoCullingV2Func(BindingEngine* self, v8::Isolate* isolate,
                                       const vx::CallbackInfo& info) {
  const CullResult* result = CullOrtho(self, isolate, info);
  if (result == nullptr) {
    info.GetReturnValue().SetNull();
  } else {
    info.GetReturnValue().Set(self->StoreCullResult(isolate, *result));
  }
}

}  // namespace nq::engine
