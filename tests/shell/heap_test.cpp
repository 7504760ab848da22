#include "shell/heap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "shell/console.h"
#include "shell/reservation.h"
#include "support/capture.h"
#include "support/short.h"

namespace kelvane {
namespace {

const std::string WAIT = "Press ENTER to continue . . .";

// A heap over a buffer of its own.
struct Area {
  explicit Area(u64 size) : words(size / 8) { heap.init(words.data(), size); }
  std::vector<u64> words;
  Heap heap;
};

TEST(Heap, FootprintsAddUpExactly) {
  const u64 sizes[] = {1, 8, 13, 4096, 0};
  u64 total = 0;
  for (const u64 size : sizes) total += Heap::footprint(size);
  for (const u64 alignment : {u64{8}, u64{64}, u64{4096}}) total += Heap::aligned_footprint(100, alignment);
  const auto fill = [&](Heap& heap) {
    for (const u64 size : sizes) {
      if (heap.allocate(size) == nullptr) return false;
    }
    for (const u64 alignment : {u64{8}, u64{64}, u64{4096}}) {
      void* p = heap.allocate_aligned(100, alignment);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignment, 0u);
      std::memset(p, 0xFF, 100);
    }
    return true;
  };
  Area exact(total);
  EXPECT_TRUE(fill(exact.heap));
  EXPECT_EQ(exact.heap.free_bytes(), 0u);
  EXPECT_EQ(exact.heap.allocate(0), nullptr);
  EXPECT_EQ(exact.heap.active(), 8u);
  EXPECT_EQ(capture([&] {
              Area small(total - 8);
              fill(small.heap);
            }).output,
            "\n\nMemory Allocation Failure.\n\n" + WAIT);
}

TEST(Heap, WritesBesideABlockAreFoundWhenItIsFreed) {
  // Offset of the byte that is damaged, for blocks of 100 bytes.
  const auto damage = [](s64 offset, u64 alignment) {
    return capture([=] {
             Area a(10000);
             auto* p = static_cast<u8*>(a.heap.allocate_aligned(100, alignment));
             p[offset] ^= 1;
             Heap::free_aligned(p);
           })
        .output;
  };
  for (const u64 alignment : {u64{8}, u64{64}, u64{4096}}) {
    for (const s64 inside : {0, 99}) EXPECT_EQ(damage(inside, alignment), "") << inside;
    for (const s64 behind : {100, 107})
      EXPECT_EQ(damage(behind, alignment),
                "\n\nArray Bounds Checking: An array over-run has been detected.\n\n" + WAIT)
          << behind;
    for (s64 before = -24; before < 0; before++)
      EXPECT_EQ(damage(before, alignment),
                "\n\nArray Bounds Checking: An array under-run has been detected.\n\n" + WAIT)
          << before;
  }
}

TEST(Heap, FreeBytesIsTheLargestRequest) {
  for (const u64 size : {u64{24}, u64{1000}, u64{1 << 16}}) {
    Area a(size);
    const u64 largest = a.heap.free_bytes();
    EXPECT_EQ(a.heap.allocate(largest + 1), nullptr) << size;
    EXPECT_NE(a.heap.allocate(largest), nullptr) << size;
  }
  Area tiny(16);
  EXPECT_EQ(tiny.heap.allocate(0), nullptr);
  EXPECT_EQ(tiny.heap.allocate(~u64{0}), nullptr);
  EXPECT_EQ(tiny.heap.allocate(~u64{7}), nullptr);
}

TEST(Heap, HolesAreFilledFirst) {
  Area a(4096);
  void* p[4];
  for (void*& block : p) block = a.heap.allocate(100);
  const u64 used = a.heap.used_bytes();
  Heap::free(p[1]);
  EXPECT_NE(a.heap.allocate(105), p[1]) << "112 bytes with its header: too large for the hole";
  EXPECT_EQ(a.heap.allocate(90), p[1]);
  Heap::free(p[0]);
  EXPECT_EQ(a.heap.allocate(8), p[0]) << "the gap before the first block";
  EXPECT_GT(a.heap.used_bytes(), used);
}

TEST(Heap, TopFallsWithTheLastBlocks) {
  Area a(4096);
  void* low = a.heap.allocate(64);
  void* middle = a.heap.allocate(64);
  void* high = a.heap.allocate(64);
  const u64 peak = a.heap.used_bytes();
  Heap::free(middle);
  EXPECT_EQ(a.heap.used_bytes(), peak);
  Heap::free(high);
  EXPECT_EQ(a.heap.used_bytes(), 72u);
  Heap::free(low);
  EXPECT_EQ(a.heap.used_bytes(), 0u);
  EXPECT_EQ(a.heap.peak_bytes(), peak);
  EXPECT_EQ(a.heap.peak_active(), 3u);
}

// Random allocations and frees against a map of what must be live.
TEST(Heap, RandomUseKeepsBlocksApart) {
  const u64 seed = 20260101;
  std::mt19937_64 random(seed);
  for (int round = 0; round < scale(20); round++) {
    Area a(1 << 14);
    std::map<u8*, u64> live; // address, size
    for (int step = 0; step < 2000; step++) {
      if (live.empty() || random() % 5 < 3) {
        const u64 size = random() % (u64{1} << random() % 11);
        const bool aligned = random() % 4 == 0 && a.heap.free_bytes() > size + 88;
        auto* p = static_cast<u8*>(aligned ? a.heap.allocate_aligned(size) : a.heap.allocate(size));
        if (p == nullptr) continue;
        std::memset(p, static_cast<int>(size & 0x7F), size);
        live[p] = aligned ? size | u64{1} << 32 : size;
      } else {
        auto victim = std::next(live.begin(), static_cast<s64>(random() % live.size()));
        const u64 size = victim->second & 0xFFFFFFFF;
        for (u64 i = 0; i < size; i++) {
          ASSERT_EQ(victim->first[i], size & 0x7F)
              << "seed " << seed << " round " << round << " step " << step;
        }
        (victim->second >> 32 != 0 ? Heap::free_aligned : Heap::free)(victim->first);
        live.erase(victim);
      }
      ASSERT_EQ(a.heap.active(), live.size());
    }
    for (const auto& [p, size] : live) (size >> 32 != 0 ? Heap::free_aligned : Heap::free)(p);
    EXPECT_EQ(a.heap.used_bytes(), 0u);
    EXPECT_EQ(a.heap.free_bytes(), u64{(1 << 14) - 24});
  }
}

TEST(Heap, SplitGivesEqualHalvesAndKeepsSurvivors) {
  const u64 n = 3, half = 1000;
  Area a(Heap::footprint(50) + Heap::split_footprint(half, n));
  void* own = a.heap.allocate(50);
  Heap* child = a.heap.split(n);
  EXPECT_EQ(child[0].free_bytes(), half - 24);
  EXPECT_EQ(child[1].free_bytes(), half - 24);

  child[0].allocate(30);
  void* result0 = child[0].allocate(200);
  void* result1 = child[1].allocate(300);
  std::memset(result0, 1, 200);
  std::memset(result1, 2, 300);
  Heap* grandchild = child[1].split(1);
  void* result2 = grandchild[1].allocate(40);
  std::memset(result2, 3, 40);
  child[1].join_children();
  a.heap.join_children();

  EXPECT_EQ(a.heap.active(), 5u);
  Heap::free(result0); // every block now belongs to the parent
  Heap::free(own);
  for (int i = 0; i < 300; i++) ASSERT_EQ(static_cast<u8*>(result1)[i], 2);
  for (int i = 0; i < 40; i++) ASSERT_EQ(static_cast<u8*>(result2)[i], 3);
  Heap::free(result1);
  Heap::free(result2);
  EXPECT_EQ(a.heap.active(), 1u);
  EXPECT_GE(a.heap.peak_bytes(), half + 300);
  EXPECT_NE(a.heap.allocate(170), nullptr) << "the room of the two records is free again";
}

TEST(Heap, SplitFailures) {
  const std::string text = "\n\nMemory Allocation Failure.\n\n" + WAIT;
  EXPECT_EQ(capture([] {
              Area a(1000);
              a.heap.split(100);
            }).output,
            text);
  EXPECT_EQ(capture([] {
              Area a(1000);
              a.heap.split(~u64{0} / 8);
            }).output,
            text);
  // More survivors than the room left for them.
  const Captured c = capture([] {
    Area a(4096);
    Heap* child = a.heap.split(0);
    for (int i = 0; i < 3; i++) child[1].allocate(8);
    a.heap.join_children();
  });
  EXPECT_EQ(c.output, "\n\nCritical Internal Assertion Failure: APIs-448\n\n" + WAIT);
  EXPECT_EQ(c.status, 1);
}

TEST(Heap, ChildInABlock) {
  Area a(4096);
  void* before = a.heap.allocate(10);
  Heap child;
  child.create_in(a.heap, 1000);
  EXPECT_EQ(a.heap.active(), 2u);
  void* lost = child.allocate(100);
  auto* kept = static_cast<u8*>(child.allocate(200));
  std::memset(kept, 7, 200);
  Heap::free(lost);
  child.destroy();
  EXPECT_EQ(a.heap.active(), 2u) << "the child's block went, its live block came";
  void* fill = a.heap.allocate(90);
  EXPECT_LT(fill, static_cast<void*>(kept)) << "the space before the survivor is free";
  for (int i = 0; i < 200; i++) ASSERT_EQ(kept[i], 7);
  Heap::free(kept);
  Heap::free(fill);
  Heap::free(before);
  EXPECT_EQ(a.heap.used_bytes(), 0u);
  EXPECT_EQ(capture([] {
              Area b(100);
              Heap too_large;
              too_large.create_in(b.heap, 100);
            }).output,
            "\n\nMemory Allocation Failure.\n\n" + WAIT);
}

TEST(Heap, Root) {
  Heap root;
  const u64 size = (u64{70} << 20) + 5;
  root.create_root(size, 4);
  EXPECT_EQ(root.free_bytes(), size + 3 - 24);
  auto* words = static_cast<u64*>(root.allocate(root.free_bytes()));
  for (u64 i = 0; i < (size - 32) / 8; i += 97) ASSERT_EQ(words[i], 0u) << i;
  Heap::free(words);
  root.destroy();

  EXPECT_EQ(capture([] {
              Heap leaking;
              leaking.create_root(1 << 20);
              leaking.allocate(1);
              leaking.destroy();
            }).output,
            "Memory leak detected\n");
  const std::string refused = "\n\nInsufficient Memory or address space.\n\n" + WAIT;
  for (const u64 absurd : {u64{1} << 60, ~u64{0}, ~u64{0} - 5000}) {
    EXPECT_EQ(capture([=] {
                Heap huge;
                huge.create_root(absurd, 2);
              }).output,
              refused);
  }
}

TEST(Heap, MisuseIsCaught) {
  EXPECT_EQ(capture([] {
              Heap heap;
              u64 buffer[100];
              heap.init(reinterpret_cast<u8*>(buffer) + 4, 400);
            }).output,
            "\n\nAlignment Error\n\n" + WAIT);
  const Captured twice = capture([] {
    Area a(1000);
    void* p = a.heap.allocate(8);
    Heap::free(p);
    Heap::free(p);
  });
  EXPECT_NE(twice.status, 0);
  EXPECT_NE(twice.output.find("Invalid Function Parameters:   Heap::free()"), std::string::npos);
}

TEST(Heap, Dump) {
  const Captured c = capture([] {
    Area a(2000);
    a.heap.dump();
    void* first = a.heap.allocate(1000);
    a.heap.allocate(16);
    Heap::free(first);
    a.heap.dump();
  });
  EXPECT_NE(c.output.find("No Active Allocations\n\n"), std::string::npos) << c.output;
  EXPECT_NE(c.output.find("Peak Allocations    : 2\n"), std::string::npos) << c.output;
  EXPECT_NE(c.output.find("Free Space:   ( 1,008 )\nBase: 0x"), std::string::npos) << c.output;
  EXPECT_NE(c.output.find("   Size: 0x18   ( 24 )\nTable Limit         : 0x"), std::string::npos) << c.output;
  EXPECT_NE(c.output.find("\nFragmentation       : 1,008\n\n"), std::string::npos) << c.output;
}

TEST(AlignedMalloc, AlignsAndRefuses) {
  for (const u64 alignment : {u64{0}, u64{1}, u64{8}, u64{16}, u64{64}, u64{128}}) {
    void* p = aligned_malloc(100, alignment);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % (alignment < 8 ? 8 : alignment), 0u);
    std::memset(p, 1, 100);
    aligned_free(p);
  }
  EXPECT_NE(
      capture([] { aligned_malloc(1, 256); }).output.find("Invalid Function Parameters:   aligned_malloc()"),
      std::string::npos);
  EXPECT_EQ(capture([] { aligned_malloc(~u64{0}, 64); }).output, "\n\nMemory Allocation Failure.\n\n" + WAIT);
}

// The same placement measured and run.
struct Buffers {
  u64* a;
  u32* b;
  double* c;
  explicit Buffers(Layout& l) : a(l.take<u64>(3)), b(l.take<u32>(17)), c(l.take<double>(8)) {}
};

TEST(Layout, MeasuredAndRunAgree) {
  Layout measuring;
  const Buffers nothing(measuring);
  EXPECT_EQ(nothing.a, nullptr);
  EXPECT_EQ(measuring.used(), 64u + 128 + 64);

  alignas(64) u8 memory[256];
  Layout run(memory, measuring.used());
  const Buffers buffers(run);
  EXPECT_EQ(static_cast<void*>(buffers.a), memory);
  EXPECT_EQ(static_cast<void*>(buffers.b), memory + 64);
  EXPECT_EQ(static_cast<void*>(buffers.c), memory + 192);
  EXPECT_EQ(run.left(), 0u);
  for (const u64 size : {u64{255}, u64{64}, u64{0}}) {
    EXPECT_EQ(capture([&] {
                Layout small(memory, size);
                const Buffers too_many(small);
              }).output,
              "\n\nInsufficient Allocated Space\n\n" + WAIT)
        << size;
  }
}

} // namespace
} // namespace kelvane
