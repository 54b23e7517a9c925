// How functions and records of this folder are shared with JavaScript (lib/wasm).
#ifndef NQ_WASM_INTERFACE_H_
#define NQ_WASM_INTERFACE_H_

#include <cstdint>

// A function that JavaScript calls by its name.
#define NQ_EXPORT(name) extern "C" __attribute__((visibility("default"), export_name(#name)))

// A function that JavaScript provides.
#define NQ_IMPORT(name) extern "C" __attribute__((import_module("nq"), import_name(#name)))

namespace nq::engine {

// What creating functions write: 4 words at a fixed address. All zero if nothing was created.
struct CreatedRecord {
  uint32_t handle;
  uint32_t size;
  uint32_t memoryID;
  uint32_t pointer;
};

// What culling functions write. Valid until the next call.
struct CulledRecord {
  uint32_t count;
  uint32_t hash;
  uint32_t objects;    // address of `count` handles
  uint32_t distances;  // address of `count` floats
};

// Kinds of objects, for releasing them.
enum class ObjectKind : uint32_t {
  kEntities = 0,
  kCulling = 1,
  kAnimator = 2,
  kSkinning = 3,
  kClip = 4,
  kBones = 5,
  kBinding = 6,
  kController = 7,
  kState = 8,
  kCommandBuffer = 9,
};

}  // namespace nq::engine

#endif  // NQ_WASM_INTERFACE_H_
