# Native and script suites, all under ctest.

if(CMAKE_CROSSCOMPILING)
  # Debian's libraries are for this machine's CPU only; its package googletest has the sources.
  set(NQ_GTEST_SOURCES /usr/src/googletest CACHE PATH "Folder of GoogleTest's sources")
  set(INSTALL_GTEST OFF)
  add_subdirectory("${NQ_GTEST_SOURCES}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
else()
  find_package(GTest REQUIRED)
endif()
include(CheckCXXSourceCompiles)
include(GoogleTest)

# nq_runner(result program script): the command that runs PROGRAM. When cross-compiling, that is a
# shell script, written to SCRIPT, which starts PROGRAM in the emulator. It passes its own path in
# argv[0] and in the environment variable NQ_HOST, for programs that restart themselves.
function(nq_runner result program script)
  if(CMAKE_CROSSCOMPILING)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    file(WRITE "${script}" "#!/bin/sh\nNQ_HOST=\"$0\" exec ${emulator} -0 \"$0\" '${program}' \"$@\"\n")
    file(CHMOD "${script}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
         GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    set(${result} "${script}" PARENT_SCOPE)
  else()
    set(${result} "${program}" PARENT_SCOPE)
  endif()
endfunction()

# The pool takes two locks in an order that a lock-order checker reports though it can't deadlock
# (WorkerPool.cpp explains why), so that detection is off in every suite.
set(NQ_TSAN_OPTIONS "detect_deadlocks=0")

file(GLOB_RECURSE NQ_TEST_SOURCES CONFIGURE_DEPENDS tests/native/*.cpp)
if(NQ_TEST_SOURCES)
  # Optimising most tests takes longer than it saves; reference models, and tests that compare with
  # them over many random inputs, are optimised.
  set(NQ_LONG_TEST_SOURCES ${NQ_TEST_SOURCES})
  list(FILTER NQ_LONG_TEST_SOURCES INCLUDE REGEX
       "/(World|ComponentSystemTest|[A-Za-z0-9]*(Reference|Random|Model|Scene|Play|Stage|Sampling|Timelines|Trigonometry|Kernels|Batch|Fused|Crossfade|Culler|Versions)[A-Za-z0-9]*)\\.cpp$")
  list(REMOVE_ITEM NQ_TEST_SOURCES ${NQ_LONG_TEST_SOURCES})
  add_library(nq_long_tests OBJECT ${NQ_LONG_TEST_SOURCES})
  add_executable(nq_tests ${NQ_TEST_SOURCES} $<TARGET_OBJECTS:nq_long_tests>)
  foreach(target nq_long_tests nq_tests)
    nq_configure(${target})
    target_link_libraries(${target} PRIVATE nq_core GTest::gmock GTest::gtest GTest::gtest_main)
    # GoogleTest's headers take a quarter of the compile time of each test file.
    target_precompile_headers(${target} PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
  endforeach()
  target_compile_options(nq_tests PRIVATE -O0)
  # One variable: a list would be split at semicolons on its way to the tests.
  if(NQ_SANITIZE STREQUAL "thread")
    set(nativeEnvironment "TSAN_OPTIONS=${NQ_TSAN_OPTIONS}")
  else()
    set(nativeEnvironment "UBSAN_OPTIONS=print_stacktrace=1")
  endif()
  gtest_discover_tests(nq_tests
      DISCOVERY_MODE PRE_TEST
      DISCOVERY_TIMEOUT 120
      WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}"
      PROPERTIES TIMEOUT 300
                 ENVIRONMENT "${nativeEnvironment}")
  nq_runner(nativeRunner "${CMAKE_BINARY_DIR}/nq_tests" "${CMAKE_BINARY_DIR}/nq_tests.sh")
endif()

# Random command buffers against the reference implementation: a libFuzzer target if the compiler
# provides it, and a tool that regenerates its corpus. The interpreter is built again for it, with
# coverage instrumentation.
set(NQ_GAME_SOURCES
    tests/native/Engine/MatrixFlow/MatrixFlowPlay.cpp
    tests/native/Engine/MatrixFlow/MatrixFlowScene.cpp
    tests/native/Engine/MatrixFlow/ReferenceMatrixFlow.cpp)
add_executable(nq_fuzz_matrixflow_seeds EXCLUDE_FROM_ALL
    tests/fuzz/MatrixFlowSeeds.cpp ${NQ_GAME_SOURCES})
nq_configure(nq_fuzz_matrixflow_seeds)
target_link_libraries(nq_fuzz_matrixflow_seeds PRIVATE nq_core)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT NQ_SANITIZE)
  set(CMAKE_REQUIRED_FLAGS -fsanitize=fuzzer,address,undefined)
  check_cxx_source_compiles("#include <cstddef>
      extern \"C\" int LLVMFuzzerTestOneInput(const unsigned char*, size_t) { return 0; }"
      NQ_HAS_FUZZER)
  unset(CMAKE_REQUIRED_FLAGS)
  if(NQ_HAS_FUZZER)
    file(GLOB NQ_MATRIXFLOW_SOURCES CONFIGURE_DEPENDS Engine/MatrixFlow/*.cpp)
    add_executable(nq_fuzz_matrixflow
        tests/fuzz/MatrixFlowFuzzer.cpp ${NQ_GAME_SOURCES} ${NQ_MATRIXFLOW_SOURCES})
    nq_configure(nq_fuzz_matrixflow)
    target_compile_options(nq_fuzz_matrixflow PRIVATE -fsanitize=fuzzer,address,undefined
        -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g -O1)
    target_link_options(nq_fuzz_matrixflow PRIVATE -fsanitize=fuzzer,address,undefined)
    target_link_libraries(nq_fuzz_matrixflow PRIVATE nq_core)
    # New inputs and failing ones are written to the build folder.
    file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/fuzz-matrixflow")
    add_test(NAME fuzz.matrixflow
        COMMAND nq_fuzz_matrixflow -seed=1 -max_total_time=12 -max_len=600 -verbosity=0
                -print_final_stats=1 "-artifact_prefix=${CMAKE_BINARY_DIR}/fuzz-matrixflow-"
                "${CMAKE_BINARY_DIR}/fuzz-matrixflow" tests/fuzz/corpus/matrixflow
        WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}")
    set_tests_properties(fuzz.matrixflow PROPERTIES TIMEOUT 300)

    # Clips, target lists and entity streams against the reference models: the animation and entity
    # sources are built again, with coverage instrumentation, once for all three.
    file(GLOB NQ_FUZZED_SOURCES CONFIGURE_DEPENDS Engine/Animation/*.cpp Engine/Entity/*.cpp)
    add_library(nq_fuzzed OBJECT ${NQ_FUZZED_SOURCES}
        tests/native/Engine/Fuzz/FuzzPlays.cpp
        tests/native/Engine/Animation/AnimationScene.cpp
        tests/native/Engine/Animation/ControllerScene.cpp
        tests/native/Engine/Animation/ReferenceAnimation.cpp
        tests/native/Engine/Animation/ReferenceController.cpp
        tests/native/Engine/Entity/ReferenceScene.cpp
        tests/native/Engine/Entity/World.cpp
        ${NQ_GAME_SOURCES})
    nq_configure(nq_fuzzed)
    target_compile_options(nq_fuzzed PRIVATE -fsanitize=fuzzer-no-link,address,undefined
        -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g -O1)
    foreach(play clip=PlayClip targets=PlayTargetLists commands=PlayEntityStreams)
      string(REPLACE "=" ";" play "${play}")
      list(GET play 0 name)
      list(GET play 1 function)
      set(target nq_fuzz_${name})
      add_executable(${target} tests/fuzz/PlayFuzzer.cpp $<TARGET_OBJECTS:nq_fuzzed>)
      nq_configure(${target})
      target_compile_definitions(${target} PRIVATE NQ_FUZZ_PLAY=${function})
      target_compile_options(${target} PRIVATE -fsanitize=fuzzer,address,undefined -g -O1)
      target_link_options(${target} PRIVATE -fsanitize=fuzzer,address,undefined)
      target_link_libraries(${target} PRIVATE nq_core GTest::gmock GTest::gtest)
      file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/fuzz-${name}")
      add_test(NAME fuzz.${name}
          COMMAND ${target} -seed=1 -max_total_time=4 -max_len=1000 -verbosity=0
                  -close_fd_mask=1 -print_final_stats=1
                  "-artifact_prefix=${CMAKE_BINARY_DIR}/fuzz-${name}-"
                  "${CMAKE_BINARY_DIR}/fuzz-${name}" tests/fuzz/corpus/${name}
          WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}")
      set_tests_properties(fuzz.${name} PROPERTIES TIMEOUT 300)
    endforeach()
  endif()
endif()

if(NQ_BUILD_MODULE)
  # How a fault ends a process, and how much time and memory a test may use, depends on the
  # sanitizer.
  set(kind plain)
  set(timeout 600)
  if(CMAKE_CROSSCOMPILING)
    set(kind emulated)
    set(timeout 3600)
  elseif(NQ_SANITIZE)
    set(kind ${NQ_SANITIZE})
    # The host is not instrumented: LD_PRELOAD loads the sanitizer's runtime first.
    if(NQ_SANITIZE STREQUAL "address")
      set(runtime libasan.so)
    else()
      set(runtime libtsan.so)
    endif()
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${runtime}
                    OUTPUT_VARIABLE runtimePath OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT EXISTS "${runtimePath}")
      message(FATAL_ERROR "${CMAKE_CXX_COMPILER} has no ${runtime}.")
    endif()
    # The native runtime's last reference is kept on purpose, and the host leaks on an early exit,
    # so leak detection is on in the native suites only.
    set(sanitizerEnvironment
        "LD_PRELOAD=${runtimePath}"
        "ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1"
        "UBSAN_OPTIONS=print_stacktrace=1"
        "TSAN_OPTIONS=ignore_noninstrumented_modules=1:atexit_sleep_ms=0:${NQ_TSAN_OPTIONS}")
  endif()

  # nq_add_script_tests(prefix output node...): the script suites with the addons in folder OUTPUT,
  # run by the command NODE. Suites of command buffers need the module that exposes them to
  # JavaScript.
  file(GLOB_RECURSE NQ_SCRIPT_TESTS CONFIGURE_DEPENDS tests/script/*.test.js)
  # The longest ones start first, so that none runs alone at the end.
  set(longSuites programs.demo tools.bench lib.checked-animation tools.viewer lib.layout)
  function(nq_add_script_tests prefix output)
    set(environment
        "NQ_MODULE=${output}/nq_logic.node"
        "NQ_MATRIXFLOW_MODULE=${output}/nq_logic_matrixflow.node"
        "NQ_TEST_ADDON=${output}/nq_test_addon.node"
        "NQ_BUILD_KIND=${kind}" ${sanitizerEnvironment})
    foreach(file ${NQ_SCRIPT_TESTS})
      # Folder and name: engine.frame, lib.clip.
      file(RELATIVE_PATH name "${CMAKE_SOURCE_DIR}/tests/script" "${file}")
      string(REPLACE ".test.js" "" name "${name}")
      string(REPLACE "/" "." name "${name}")
      add_test(NAME ${prefix}.${name} COMMAND ${ARGN} "${file}"
               WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}")
      set_tests_properties(${prefix}.${name} PROPERTIES
          LABELS "${prefix}" TIMEOUT ${timeout} ENVIRONMENT "${environment}")
      if(name IN_LIST longSuites)
        set_tests_properties(${prefix}.${name} PROPERTIES COST 100)
      endif()
    endforeach()
  endfunction()

  if(NQ_NODE_DIR)
    nq_add_script_tests(script "${CMAKE_BINARY_DIR}" "${NQ_NODE_DIR}/bin/node" --expose-gc
                        "${CMAKE_SOURCE_DIR}/node_modules/mocha/bin/mocha" --timeout 120000)
  endif()
  # mocha's command line does not start on the newest hosts, but its API does.
  foreach(folder IN LISTS NQ_HOST_DIRS)
    nq_read_host("${folder}")
    set(output "${CMAKE_BINARY_DIR}/abi${NQ_HOST_ABI}")
    nq_runner(program "${folder}/bin/node" "${output}/node.sh")
    nq_add_script_tests(abi${NQ_HOST_ABI} "${output}"
                        "${program}" --expose-gc "${CMAKE_SOURCE_DIR}/tests/run-suites.js")
  endforeach()
endif()
