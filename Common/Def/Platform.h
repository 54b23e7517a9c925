// What the compiler and the operating system support, decided in this one file: all other files
// test NQ_HAS_... or use a macro from here. `npm run check -- layering` keeps other files free of
// attributes, builtins and platform tests.
//
// g++ and clang are supported, clang also in place of Windows' own compiler. Another compiler needs
// its own spelling of the attributes below.
#ifndef NQ_COMMON_DEF_PLATFORM_H_
#define NQ_COMMON_DEF_PLATFORM_H_

#include <cstddef>  // with the C library's own macros

#if !defined(__GNUC__) && !defined(__clang__)
#error "Common/Def/Platform.h knows the attributes of g++ and clang only: build with one of them."
#endif

// Linux features that other systems lack. The build option NQ_PORTABLE turns them off, so that the
// code for other systems is built and tested on Linux.
//   NQ_HAS_THREADS          threads, which WebAssembly lacks (Thread.h)
//   NQ_HAS_FUTEX            futexes: threads sleep on a word of memory (Mutex.h)
//   NQ_HAS_ADAPTIVE_MUTEX   mutexes that spin for a moment before sleeping (Mutex.h)
//   NQ_HAS_CPU_AFFINITY     threads can be pinned, and their affinity mask read (CpuAffinity.h)
//   NQ_HAS_POSIX_MEMALIGN   aligned memory that free() accepts (AlignedAlloc.h)
#if defined(__wasm__)
#define NQ_HAS_THREADS 0
#else
#define NQ_HAS_THREADS 1
#endif
#if defined(__linux__) && !defined(NQ_PORTABLE)
#define NQ_HAS_FUTEX 1
#define NQ_HAS_CPU_AFFINITY 1
#define NQ_HAS_POSIX_MEMALIGN 1
#else
#define NQ_HAS_FUTEX 0
#define NQ_HAS_CPU_AFFINITY 0
#define NQ_HAS_POSIX_MEMALIGN 0
#endif
#if NQ_HAS_FUTEX && defined(__GLIBC__)
#define NQ_HAS_ADAPTIVE_MUTEX 1
#else
#define NQ_HAS_ADAPTIVE_MUTEX 0
#endif

// x86-64: SIMD by its own intrinsics; see Vectors.h.
#if defined(__x86_64__)
#define NQ_HAS_X86_VECTORS 1
#else
#define NQ_HAS_X86_VECTORS 0
#endif

// WebAssembly: SIMDe's functions, but for those that it has no instruction for; see Vectors.h.
#if defined(__wasm_simd128__)
#define NQ_HAS_WASM_VECTORS 1
#else
#define NQ_HAS_WASM_VECTORS 0
#endif

// ------------------------------------------------------------------------------------- functions

// Force-inlined even against the compiler's heuristics: a call would pass vectors and state that
// are in registers through memory.
#define NQ_FORCE_INLINE inline __attribute__((always_inline))

// Before a loop: the compiler does not unroll it.
#define NQ_NO_UNROLL _Pragma("GCC unroll 1")

// Not inlined: rarely run code, or code whose setup callers would otherwise repeat each time.
#define NQ_NO_INLINE __attribute__((noinline))

// Functions that may use 256-bit vectors: AVX for floats, AVX2 for integers as well. Call them only
// if HasWideVectors or HasWideIntegers returns true; these test NQ_CPU_HAS.
#if NQ_HAS_X86_VECTORS
#define NQ_TARGET_AVX __attribute__((target("avx")))
#define NQ_TARGET_AVX2 __attribute__((target("avx2")))
#else
#define NQ_TARGET_AVX
#define NQ_TARGET_AVX2
#endif
#if NQ_HAS_X86_VECTORS && !defined(NQ_PORTABLE)
#define NQ_CPU_HAS(feature) (__builtin_cpu_supports(feature) != 0)
#else
#define NQ_CPU_HAS(feature) false
#endif

// Takes printf arguments: argument `text`, counted from 1, is the format string, and the values
// start at argument `values`.
#define NQ_PRINTF_FORMAT(text, values) __attribute__((format(printf, text, values)))

// Attributes of clang's thread-safety analysis; Mutex.h has their names.
#if defined(__clang__)
#define NQ_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define NQ_THREAD_ATTRIBUTE(x)
#endif

// ---------------------------------------------------------------------------------------- memory

// A type that may alias any other type.
#define NQ_MAY_ALIAS __attribute__((may_alias))

// Prefetches the cache line of an address, which need not be valid.
#define NQ_PREFETCH(address) __builtin_prefetch(address)
#define NQ_PREFETCH_FOR_WRITE(address) __builtin_prefetch(address, 1)

// The same for an address at which there is or was an object. WebAssembly has no prefetch
// instruction, so there it is a load that nothing waits for, of memory that never shrinks.
#if defined(__wasm__)
#define NQ_PREFETCH_OBJECT(address) \
  __asm__ volatile("local.get %0\n i32.load8_u 0\n drop" : : "r"(address))
#else
#define NQ_PREFETCH_OBJECT(address) NQ_PREFETCH(address)
#endif

// A relaxed atomic store into memory that is not declared atomic.
#define NQ_STORE_RELAXED(pointer, value) __atomic_store_n(pointer, value, __ATOMIC_RELAXED)

// Ends the process in unreachable code.
#define NQ_TRAP() __builtin_trap()

#endif  // NQ_COMMON_DEF_PLATFORM_H_
