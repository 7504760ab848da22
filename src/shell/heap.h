// Heap: first-fit allocator over one reserved block, with child heaps for the
// two halves of a parallel split. The reservation is committed when it is made;
// nothing inside a computation asks the system for memory.
//
// Layout of the managed range [start, end):
//   blocks grow up from start, the allocation table grows down from end
//   (16 bytes {base, size} per live allocation, sorted by base; free space is
//   the gaps between entries). Every block begins with an 8-byte header that
//   names its heap; block sizes are multiples of 8.
//
// Cost: allocate and free walk or search the table (few live blocks at a time).
#pragma once

#include "shell/types.h"

namespace kelvane {

class Heap {
public:
  Heap() = default;
  ~Heap(); // gives a root's reservation back; nothing for other heaps
  Heap(const Heap&) = delete;
  Heap& operator=(const Heap&) = delete;

  // Root heap over a new system reservation of `size` bytes, all of it written with zeros by
  // `threads` threads. Fatal "Insufficient Memory or address space." when the system refuses.
  void create_root(u64 size, u64 threads = 1);
  // Heap inside a block of `size` bytes taken from parent. Fatal "Memory Allocation Failure." when it does
  // not fit.
  void create_in(Heap& parent, u64 size);
  // Heap over the caller's buffer (8-byte aligned, else fatal "Alignment Error").
  void init(void* buffer, u64 size);

  // First fit. The block is 8-byte aligned; null when nothing fits.
  void* allocate(u64 size);
  // As allocate, but null is fatal ("Memory Allocation Failure.").
  void* allocate_or_die(u64 size);
  // Block whose address is a multiple of `alignment` (a power of two up to 4096): takes
  // aligned_footprint(size, alignment) bytes of the heap. Fatal when it does not fit.
  void* allocate_aligned(u64 size, u64 alignment = 64);
  static void free(void* pointer);
  // Fatal "Array Bounds Checking: ..." when the words directly in front of the block or behind it have been
  // written.
  static void free_aligned(void* pointer);

  // Bytes that a block of `size` bytes takes from a heap, its table entry included.
  static u64 footprint(u64 size) { return ((size + 7) & ~u64{7}) + 8 + 16; }
  // The same for allocate_aligned.
  static u64 aligned_footprint(u64 size, u64 alignment = 64) { return footprint(size + alignment + 24); }

  // Two child heaps of equal size for two parallel halves; n is the number of allocations of the
  // parent to leave table room for. Returns the first of two consecutive heaps; join with join_children.
  // Between the two calls the parent is not touched: neither allocations nor frees of its blocks.
  Heap* split(u64 n);
  void join_children();
  // Bytes of free space in the parent that give each child `child_size` bytes.
  static u64 split_footprint(u64 child_size, u64 n) {
    return footprint(2 * sizeof(Heap)) + 2 * ((child_size + 7) & ~u64{7}) + 32 * n + 32;
  }

  // Root: reports a leak, gives the block back. Child: live blocks move into the parent's table and
  // keep their addresses; fatal "Critical Internal Assertion Failure: APIs-448" when the table has no room.
  void destroy();

  u64 free_bytes() const; // the largest `size` that allocate would accept at the top
  u64 active() const { return active_; }
  u64 peak_active() const { return peak_active_; }
  u64 used_bytes() const { return static_cast<u64>(top_ - start_); }
  u64 peak_bytes() const { return static_cast<u64>(peak_top_ - start_); }
  void dump() const;

private:
  struct Entry {
    u8* base;
    u64 size;
  };
  // Entry i lies 16*(i+1) bytes below end.
  Entry* entry(u64 i) const { return reinterpret_cast<Entry*>(end_) - 1 - i; }
  void manage(u8* start, u8* end, Heap* parent);
  bool table_full() const { return static_cast<u64>(table_limit_ - top_) < sizeof(Entry); }
  void* place(u64 index, u8* base, u64 size);
  void insert(u64 index, u8* base, u64 size);
  u64 find(const u8* base) const; // first entry that does not lie below base
  void adopt(u8* base, u64 size);
  u8* end_of_blocks() const;

  Heap* parent_ = nullptr;
  u8* start_ = nullptr;
  u8* end_ = nullptr;
  u8* top_ = nullptr;
  u8* table_limit_ = nullptr;
  Heap* children_ = nullptr;
  u8* saved_top_ = nullptr;
  u64 active_ = 0;
  u64 peak_active_ = 0;
  u8* peak_top_ = nullptr;
  u8* block_ = nullptr; // what destroy gives back: a root's reservation, a child's block of the parent
  u64 reserved_ = 0;    // length of a root's reservation
};

// An aligned block of a heap, given back when its scope ends.
class HeapBlock {
public:
  HeapBlock(Heap& heap, u64 bytes) : data_(heap.allocate_aligned(bytes)) {}
  ~HeapBlock() { Heap::free_aligned(data_); }
  HeapBlock(const HeapBlock&) = delete;
  HeapBlock& operator=(const HeapBlock&) = delete;
  void* data() const { return data_; }
  u64* words() const { return static_cast<u64*>(data_); }

private:
  void* data_;
};

// Memory outside heaps: alignment up to 128 (more is an assertion failure), at least 8.
void* aligned_malloc(u64 size, u64 alignment);
void aligned_free(void* pointer);

// Places consecutive buffers in one work area, or only measures them.
//
// An algorithm writes its placement once, as a constructor that takes its buffers from a Layout;
// the memory query runs it over a null base and reads used(), the run runs it over the real
// buffer, so that the figure shown and the bytes used cannot differ.
class Layout {
public:
  static constexpr u64 ALIGNMENT = 64;

  Layout() = default; // measuring
  Layout(void* base, u64 size) : base_(static_cast<u8*>(base)), size_(size) {}

  // `count` elements of T, 64-byte aligned relative to the base (which must itself be so aligned). Every
  // buffer takes a multiple of 64 bytes. Past the end of a real area: fatal "Insufficient Allocated Space".
  template <class T> T* take(u64 count) { return static_cast<T*>(take_bytes(count * sizeof(T))); }
  void* take_bytes(u64 bytes);
  u64 used() const { return used_; }
  u64 left() const { return size_ - used_; }
  bool measuring() const { return base_ == nullptr; }

private:
  u8* base_ = nullptr;
  u64 size_ = 0;
  u64 used_ = 0;
};

} // namespace kelvane
