# nq_logic.wasm: the core with the functions of wasm/, loaded by lib/wasm.

# The instance's stack, at the start of its memory: an overflow is a fault, not a write into data.
set(NQ_WASM_STACK_BYTES 1048576)

# Memory that the module declares to need at least; JavaScript creates it, of the size that the
# program wants, up to 4 GiB.
set(NQ_WASM_LEAST_BYTES 2097152)
set(NQ_WASM_MOST_BYTES 4294967296)

file(GLOB NQ_WASM_SOURCES CONFIGURE_DEPENDS wasm/*.cpp)
# What is not in the inner loops of frames, and gets smaller by it.
set_source_files_properties(
    Common/Def/MemoryAllocator.cpp Common/Def/WorkerPool.cpp Engine/Animation/AnimationClipModel.cpp
    Engine/Animation/AnimationClipBinding.cpp Engine/Animation/AnimatorControllerModel.cpp
    Engine/Animation/StateEvaluation.cpp Engine/Entity/EngineCore.cpp Engine/Entity/EntityPool.cpp
    wasm/Interface.cpp
    PROPERTIES COMPILE_OPTIONS -Oz)
set_source_files_properties(
    Engine/Animation/ControllerEvaluation.cpp Engine/Animation/RestPoses.cpp
    Engine/Entity/Entity.cpp
    PROPERTIES COMPILE_OPTIONS -Os)
add_executable(nq_logic_wasm ${NQ_WASM_SOURCES})
nq_configure(nq_logic_wasm)
target_link_libraries(nq_logic_wasm PRIVATE nq_core c-printscan-no-floating-point)
# With -O clang would run wasm-opt where that is installed: the module must not depend on it. The log
# prints no floats, so printf need not be able to.
target_link_options(nq_logic_wasm PRIVATE
    -mexec-model=reactor -O0
    -Wl,--wrap=malloc,--wrap=calloc,--wrap=realloc,--wrap=posix_memalign,--wrap=aligned_alloc
    -Wl,--import-memory,--initial-memory=${NQ_WASM_LEAST_BYTES},--max-memory=${NQ_WASM_MOST_BYTES}
    -Wl,--stack-first,-z,stack-size=${NQ_WASM_STACK_BYTES}
    -Wl,--strip-all)
set_target_properties(nq_logic_wasm PROPERTIES OUTPUT_NAME nq_logic SUFFIX .wasm)
