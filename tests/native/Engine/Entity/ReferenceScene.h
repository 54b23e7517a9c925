// A slow, recursive model of entities and of a frame's passes, to compare the engine with.
#ifndef NQ_TESTS_NATIVE_ENGINE_ENTITY_REFERENCESCENE_H_
#define NQ_TESTS_NATIVE_ENGINE_ENTITY_REFERENCESCENE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace nq::engine {

// 16 floats, column-major. One operation at a time, each rounded to single precision.
void ReferenceLocalMatrix3D(const uint8_t* record, float* out);
void ReferenceLocalMatrix2D(const uint8_t* record, float* out);
void ReferenceProduct(const float* a, const float* b, float* out);

struct ReferenceEntity {
  uint32_t handle = 0;
  bool isThreeD = false;
  uintptr_t address = 0;  // of the engine's entity; only its order counts
  uint8_t* record = nullptr;
  ReferenceEntity* parent = nullptr;
  ReferenceEntity* boundTo = nullptr;
  std::vector<ReferenceEntity*> children;
  std::map<uintptr_t, ReferenceEntity*> boundEntities;
  float local[16] = {};
  float world[16] = {};
  uint32_t worldVersion = 0;
  uint32_t localVersion = 0;
  bool visiting = false;
  uint32_t dirtyState = 2;
  bool active = true;
  std::string name;
};

struct ReferenceBatch {
  std::vector<uint8_t> block;
  std::vector<std::unique_ptr<ReferenceEntity>> entities;
};

class ReferenceScene {
 public:
  static constexpr uint32_t kWords = 12288;

  // A batch under a key that the engine issued. `addresses` are those of the engine's entities.
  void Create(uint32_t key, bool isThreeD, const std::vector<uintptr_t>& addresses);
  void Release(uint32_t key);

  ReferenceEntity* Find(uint32_t handle);

  void RunCommands(bool deep);
  void Refresh();
  void RefreshEntity(uint32_t handle);

  // The operations that a program may call between frames; `depth` starts at 0.
  void MarkListed(bool deep);
  void MarkDirty(ReferenceEntity* entity, bool deep);
  void MarkSubtree(ReferenceEntity* entity);
  void UpdateTree(ReferenceEntity* entity, size_t depth);
  void UpdateWorldSubtree(ReferenceEntity* entity, size_t depth);
  void RefreshChain(ReferenceEntity* entity);

  std::map<uint32_t, ReferenceBatch> batches;
  std::vector<ReferenceEntity*> roots;
  std::vector<uint32_t> dirtyWords = std::vector<uint32_t>(kWords);
  std::vector<uint32_t> commandWords = std::vector<uint32_t>(kWords);
  std::string log;

  // A walk went around a parent cycle: the engine would have ended the process, and the state of
  // this scene is meaningless.
  bool wentRoundCycle = false;

 private:
  void Attach(ReferenceEntity* parent, ReferenceEntity* child);
  void InsertAt(ReferenceEntity* parent, ReferenceEntity* child, uint32_t index);
  void Detach(ReferenceEntity* entity);
  void Bind(ReferenceEntity* entity, ReferenceEntity* bone);
  void Unbind(ReferenceEntity* entity);
  void Reset(ReferenceEntity* entity);
  void ResetSubtree(ReferenceEntity* entity);
  void Sync();
  void Bump(ReferenceEntity* entity);
  void ComputeWorld(ReferenceEntity* entity);
  void Publish(ReferenceEntity* entity);
  void UpdateLocal(ReferenceEntity* entity);
  void UpdateBound(ReferenceEntity* bone);
  size_t EntityCount() const;
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_ENTITY_REFERENCESCENE_H_
