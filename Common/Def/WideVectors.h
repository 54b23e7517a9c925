// What vectors of 256 bits this processor has. Functions that use them carry the attribute
// target("avx") or target("avx2"), and are called only where it has them. The answers cost a load
// and a test: the processor was asked when the program started.
#ifndef NQ_COMMON_DEF_WIDEVECTORS_H_
#define NQ_COMMON_DEF_WIDEVECTORS_H_

namespace nq::engine {

// Of floating-point numbers: target("avx").
inline bool HasWideVectors() {
  return __builtin_cpu_supports("avx") != 0;
}

// Of integers as well: target("avx2").
inline bool HasWideIntegers() {
  return __builtin_cpu_supports("avx2") != 0;
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_WIDEVECTORS_H_
