// The system of command buffers of arithmetic over shared memory.
#ifndef NQ_ENGINE_MATRIXFLOW_MATRIXFLOWSYSTEM_H_
#define NQ_ENGINE_MATRIXFLOW_MATRIXFLOWSYSTEM_H_

namespace nq::engine {

class EngineCore;

// Holds no command buffers yet. Script thread only.
class MatrixFlowSystem {
 public:
  explicit MatrixFlowSystem(EngineCore* core) : core(core) {}
  virtual ~MatrixFlowSystem() = default;
  MatrixFlowSystem(const MatrixFlowSystem&) = delete;
  MatrixFlowSystem& operator=(const MatrixFlowSystem&) = delete;

  EngineCore* const core;  // not counted
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_MATRIXFLOW_MATRIXFLOWSYSTEM_H_
