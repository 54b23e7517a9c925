// Lists of lines to prefetch: what they note, and that any address does.
#include "Engine/Animation/PrefetchList.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

namespace nq::engine {
namespace {

alignas(64) const uint8_t kBytes[8192] = {};

TEST(PrefetchListTest, NotesEachCacheLineOfAnObject) {
  struct Case {
    uint32_t offset;
    uint32_t bytes;
    uint32_t lines;
  };
  for (const Case& c : {Case{0, 0, 0}, Case{1, 0, 0}, Case{0, 1, 1}, Case{0, 64, 1}, Case{63, 1, 1},
                        Case{63, 2, 2}, Case{1, 64, 2}, Case{0, 129, 3}}) {
    PrefetchList list;
    list.Note(kBytes + c.offset, c.bytes);
    EXPECT_EQ(c.lines, list.Count()) << c.bytes << " from " << c.offset;
  }
}

TEST(PrefetchListTest, BeginStartsAnew) {
  PrefetchList list;
  list.Note(kBytes, 256);
  list.Begin();
  EXPECT_EQ(0u, list.Count());
  list.Note(kBytes, 64);
  EXPECT_EQ(1u, list.Count());
}

TEST(PrefetchListTest, IgnoresWhatIsBeyondItsCapacity) {
  PrefetchList list;
  list.Note(kBytes, 64);
  list.Note(kBytes, sizeof(kBytes));
  list.Note(kBytes, 64);
  EXPECT_EQ(PrefetchList::kCapacity, list.Count());
  list.Begin();
  EXPECT_EQ(0u, list.Count());
}

TEST(PrefetchListTest, PrefetchesAnyAddressEvenOfMemoryThatIsGone) {
  PrefetchList list;
  list.Note(nullptr, 64);
  list.Note(reinterpret_cast<const void*>(~uintptr_t{63}), 1);
  {
    const std::unique_ptr<uint8_t[]> gone(new uint8_t[4096]);
    list.Note(gone.get(), 64);
  }
  const uint32_t count = list.Count();
  EXPECT_LE(2u, count);
  list.Begin();
  EXPECT_EQ(0u, list.Count());
}

}  // namespace
}  // namespace nq::engine
