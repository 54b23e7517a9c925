# The native suites as a WebAssembly program, nq_tests.wasm, which tests/wasm/run.js runs in Node.js.

set(NQ_GTEST_SOURCES /usr/src/googletest CACHE PATH "Folder of GoogleTest's sources")
# In the cache: GoogleTest's options replace other variables.
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(gtest_disable_pthreads ON CACHE BOOL "" FORCE)
add_subdirectory("${NQ_GTEST_SOURCES}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
foreach(target gtest gmock gtest_main)
  target_compile_definitions(${target} PUBLIC GTEST_HAS_PTHREAD=0 GTEST_HAS_EXCEPTIONS=0
                             GTEST_HAS_STREAM_REDIRECTION=0 GTEST_HAS_DEATH_TEST=0)
  target_compile_options(${target} PRIVATE -w)
endforeach()

# Suites of threads, processes and files alone are left out as a whole, single tests by
# tests/wasm/left-out.txt.
file(GLOB_RECURSE NQ_TEST_SOURCES CONFIGURE_DEPENDS tests/native/*.cpp)
list(FILTER NQ_TEST_SOURCES EXCLUDE REGEX "/(MutexTest|WorkerPoolTest|AnimationThreadsTest|LogAndAssertTest|MatrixFlowRandomCorpusTest|FuzzCorpusTest|FuzzPlays)\\.cpp$")
add_executable(nq_tests ${NQ_TEST_SOURCES} tests/wasm/InlinePoolTest.cpp
               tests/wasm/Platform.cpp wasm/Exceptions.cpp)
nq_configure(nq_tests)
target_include_directories(nq_tests BEFORE PRIVATE tests/wasm/include)
target_link_libraries(nq_tests PRIVATE nq_core gmock gtest gtest_main)
target_compile_options(nq_tests PRIVATE -O1 -Wno-unused)
target_compile_definitions(nq_tests PRIVATE _WASI_EMULATED_SIGNAL)
target_link_libraries(nq_tests PRIVATE wasi-emulated-signal)
target_precompile_headers(nq_tests PRIVATE tests/wasm/Platform.h)
target_link_options(nq_tests PRIVATE -O0 -Wl,--wrap=vprintf
    -Wl,--stack-first,-z,stack-size=${NQ_WASM_STACK_BYTES},--max-memory=2147483648)
set_source_files_properties(wasm/Exceptions.cpp PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
set_target_properties(nq_tests PROPERTIES SUFFIX .wasm)
