// The result of a culling call.
#ifndef NQ_ENGINE_CULLING_CULLRESULT_H_
#define NQ_ENGINE_CULLING_CULLRESULT_H_

#include <cstdint>
#include <vector>

namespace nq::engine {

// The visible objects, nearest first.
struct CullResult {
  std::vector<uint32_t> objects;  // handles
  std::vector<float>
      distances;      // depth of the object at the same index, along the view from the eye
  uint32_t hash = 0;  // checksum of `objects` in their order; 0 if there are none
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_CULLING_CULLRESULT_H_
