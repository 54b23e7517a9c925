// What the compiler and the operating system offer, decided in this one place: everything else asks
// for NQ_HAS_... or uses a macro from here. `npm run check -- layering` keeps other files free of
// attributes, builtins and tests of the platform.
//
// g++ and clang are known, clang also where it stands in for the compiler of Windows. Another
// compiler needs its own words for the attributes below.
#ifndef NQ_COMMON_DEF_PLATFORM_H_
#define NQ_COMMON_DEF_PLATFORM_H_

#include <cstddef>  // with the C library's own macros

#if !defined(__GNUC__) && !defined(__clang__)
#error "Common/Def/Platform.h knows the attributes of g++ and clang only: build with one of them."
#endif

// What Linux has and others have not. The build option NQ_PORTABLE leaves it out, so that what
// other systems would run is built and tested on Linux.
//   NQ_HAS_FUTEX            a word of memory that threads sleep on (Mutex.h)
//   NQ_HAS_ADAPTIVE_MUTEX   mutexes that are tried again for a moment before sleeping (Mutex.h)
//   NQ_HAS_CPU_AFFINITY     threads can be pinned, and their mask be asked for (CpuAffinity.h)
//   NQ_HAS_POSIX_MEMALIGN   aligned memory that free() takes (AlignedAlloc.h)
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

// x86-64, whose vector instructions are used by their own names; see Vectors.h.
#if defined(__x86_64__)
#define NQ_HAS_X86_VECTORS 1
#else
#define NQ_HAS_X86_VECTORS 0
#endif

// ------------------------------------------------------------------------------------- functions

// Inlined even where the compiler's estimate is against it: a call would pass vectors and state
// that are in registers through memory.
#define NQ_FORCE_INLINE inline __attribute__((always_inline))

// Kept out of its callers: what is rarely run, or what they would otherwise set up each time.
#define NQ_NO_INLINE __attribute__((noinline))

// A function that may use vectors of 256 bits: of floats, and of integers as well. Called only
// where HasWideVectors or HasWideIntegers says so. NQ_CPU_HAS is what these ask.
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

// Takes what printf takes: the text is argument `text`, counted from 1, and the values that go into
// it begin at argument `values`.
#define NQ_PRINTF_FORMAT(text, values) __attribute__((format(printf, text, values)))

// Attributes of clang's thread-safety analysis; Mutex.h has their names.
#if defined(__clang__)
#define NQ_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define NQ_THREAD_ATTRIBUTE(x)
#endif

// ---------------------------------------------------------------------------------------- memory

// A type whose accesses may overlap those of any other type.
#define NQ_MAY_ALIAS __attribute__((may_alias))

// Prefetches the cache line of an address, which may be any.
#define NQ_PREFETCH(address) __builtin_prefetch(address)
#define NQ_PREFETCH_FOR_WRITE(address) __builtin_prefetch(address, 1)

// A relaxed atomic store into memory that is not declared atomic.
#define NQ_STORE_RELAXED(pointer, value) __atomic_store_n(pointer, value, __ATOMIC_RELAXED)

// Ends the process where no code can get to.
#define NQ_TRAP() __builtin_trap()

#endif  // NQ_COMMON_DEF_PLATFORM_H_
