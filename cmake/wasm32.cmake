# Cross-compiles for WebAssembly, with the C library of WASI. Debian packages: clang-19, lld-19,
# libc++-19-dev-wasm32, libc++abi-19-dev-wasm32, libclang-rt-19-dev-wasm32, wasi-libc, libsimde-dev.
#
# The version is pinned: results must not change with the compiler, and the suites run on its code.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR wasm32)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_CXX_COMPILER_TARGET wasm32-wasi)

# Features that browsers have had since 2023, and Node since 16.
# Inner loops are force-inlined: inlining less of the rest makes the module 3 % smaller. Strength
# reduction of loops turns the constant offsets of loads and stores into additions.
set(CMAKE_CXX_FLAGS_INIT
    "-msimd128 -mbulk-memory -mnontrapping-fptoint -msign-ext")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_CXX_FLAGS_INIT} -mllvm -inline-threshold=60 -mllvm -disable-lsr")

# No shared libraries, no threads, no position-independent code.
set(NQ_WASM ON)
