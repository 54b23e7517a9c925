// Runs of a clip, of target lists and of entity streams whose decisions are bytes, in the engine
// and in the reference models, for fuzzing and for tests of its corpus. They keep to what
// docs/contract.md allows: input that is undefined or ends the process is left out.
#ifndef NQ_TESTS_NATIVE_ENGINE_FUZZ_FUZZPLAYS_H_
#define NQ_TESTS_NATIVE_ENGINE_FUZZ_FUZZPLAYS_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace nq::engine {

// Each returns the first difference between the engine and the reference, or an empty string.
// `used` receives whether the input was allowed.

// A count of times, these times, and the bytes of a clip. Clips whose use ends the process are left
// out.
std::string PlayClip(const uint8_t* data, size_t size, bool* used);

// Decisions on target lists for a new binding and its updates.
std::string PlayTargetLists(const uint8_t* data, size_t size, bool* used);

// Decisions on records, commands and dirty lists of a few frames. A run ends before a parent cycle.
std::string PlayEntityStreams(const uint8_t* data, size_t size, bool* used);

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_FUZZ_FUZZPLAYS_H_
