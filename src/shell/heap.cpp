// The first-fit allocator. See heap.h.

#include "shell/heap.h"

#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>

#include "shell/console.h"
#include "shell/exception.h"
#include "shell/reservation.h"

namespace kelvane {

namespace {

constexpr u64 HEADER = 8; // pointer to the owning heap, in front of the caller's bytes

// Block size of a request, 0 when it exceeds the address space.
u64 block_size(u64 size) {
  const u64 rounded = (size + 7) & ~u64{7};
  return rounded < size || rounded + HEADER < rounded ? 0 : rounded + HEADER;
}

void set_owner(u8* base, Heap* owner) {
  std::memcpy(base, &owner, sizeof owner);
}

// Aligned address inside a block that was taken `alignment + 8` bytes larger; the word before it holds
// the block's address.
void* align_inside(void* block, u64 alignment) {
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  const std::uintptr_t aligned = ((address + 8) & ~static_cast<std::uintptr_t>(alignment - 1)) + alignment;
  auto* result = reinterpret_cast<u8*>(block) + (aligned - address);
  std::memcpy(result - 8, &block, sizeof block);
  return result;
}

void* block_of_aligned(void* pointer) {
  void* block = nullptr;
  std::memcpy(&block, static_cast<u8*>(pointer) - 8, sizeof block);
  return block;
}

// An aligned block: a guard, its size, its address, the caller's bytes, a guard. The guards depend on their
// place, so that what was copied there from another block is not taken for them, and the one in front on
// the two words behind it, each of which it determines.
constexpr u64 FRONT_BYTES = 3 * sizeof(u64), GUARD_BYTES = sizeof(u64);
u64 guard_at(const u8* place) {
  return 0xA5C396E78B2D4F10u ^ reinterpret_cast<std::uintptr_t>(place);
}
u64 front_guard(const u8* pointer, u64 size, u64 address) {
  return guard_at(pointer) ^ (size * 0x9E3779B97F4A7C15u) ^ std::rotl(address, 32);
}

void set_guards(u8* pointer, u64 size) {
  u64 front[3] = {0, size, 0};
  std::memcpy(&front[2], pointer - 8, 8);
  front[0] = front_guard(pointer, size, front[2]);
  std::memcpy(pointer - FRONT_BYTES, front, FRONT_BYTES);
  const u64 guard = guard_at(pointer + size);
  std::memcpy(pointer + size, &guard, sizeof guard);
}

void check_guards(const u8* pointer) {
  u64 front[3], guard = 0;
  std::memcpy(front, pointer - FRONT_BYTES, FRONT_BYTES);
  const u64 size = front[1];
  if (front[0] != front_guard(pointer, size, front[2]))
    fatal_wide(L"Array Bounds Checking: An array under-run has been detected.");
  std::memcpy(&guard, pointer + size, sizeof guard);
  if (guard != guard_at(pointer + size))
    fatal_wide(L"Array Bounds Checking: An array over-run has been detected.");
}

} // namespace

Heap::~Heap() {
  if (reserved_ != 0) release_memory(block_, reserved_);
}

void Heap::manage(u8* start, u8* end, Heap* parent) {
  parent_ = parent;
  start_ = top_ = peak_top_ = start;
  end_ = table_limit_ = end;
  children_ = nullptr;
  saved_top_ = nullptr;
  active_ = peak_active_ = 0;
  block_ = nullptr;
  reserved_ = 0;
}

void Heap::create_root(u64 size, u64 threads) {
  const u64 rounded = (size + 7) & ~u64{7};
  if (rounded < size) fatal("Insufficient Memory or address space.");
  u8* memory = reserve_memory(rounded, threads);
  manage(memory, memory + rounded, nullptr);
  block_ = memory;
  reserved_ = rounded;
}

void Heap::create_in(Heap& parent, u64 size) {
  auto* memory = static_cast<u8*>(parent.allocate_or_die(size));
  manage(memory, memory + ((size + 7) & ~u64{7}), &parent);
  block_ = memory;
}

void Heap::init(void* buffer, u64 size) {
  if (reinterpret_cast<std::uintptr_t>(buffer) % 8 != 0) fatal("Alignment Error");
  auto* memory = static_cast<u8*>(buffer);
  manage(memory, memory + (size & ~u64{7}), nullptr);
}

void* Heap::allocate(u64 size) {
  const u64 need = block_size(size);
  if (need == 0 || table_full()) return nullptr;

  u8* gap = start_;
  for (u64 i = 0; i < active_; i++) {
    const Entry* next = entry(i);
    if (static_cast<u64>(next->base - gap) >= need) return place(i, gap, need);
    gap = next->base + next->size;
  }
  if (static_cast<u64>(table_limit_ - top_) - sizeof(Entry) < need) return nullptr;
  return place(active_, top_, need);
}

void* Heap::place(u64 index, u8* base, u64 size) {
  insert(index, base, size);
  set_owner(base, this);
  return base + HEADER;
}

void* Heap::allocate_or_die(u64 size) {
  void* result = allocate(size);
  if (result == nullptr) fatal_alloc();
  return result;
}

// One word more in front than the caller's address needs leaves room for the guard, the size and the address.
void* Heap::allocate_aligned(u64 size, u64 alignment) {
  const u64 total = size + alignment + 16 + GUARD_BYTES;
  if (total < size) fatal_alloc();
  auto* block = static_cast<u8*>(allocate_or_die(total));
  auto* result = static_cast<u8*>(align_inside(block + 8, alignment));
  set_guards(result, size);
  return result;
}

void Heap::insert(u64 index, u8* base, u64 size) {
  // Entry i lies below entry i - 1: those from `index` on move down by one slot.
  const u64 moved = (active_ - index) * sizeof(Entry);
  table_limit_ -= sizeof(Entry);
  std::memmove(table_limit_, table_limit_ + sizeof(Entry), moved);
  *entry(index) = {base, size};
  active_++;
  if (active_ > peak_active_) peak_active_ = active_;
  top_ = end_of_blocks();
  if (top_ > peak_top_) peak_top_ = top_;
}

u8* Heap::end_of_blocks() const {
  return active_ == 0 ? start_ : entry(active_ - 1)->base + entry(active_ - 1)->size;
}

u64 Heap::find(const u8* base) const {
  u64 low = 0;
  for (u64 high = active_; low < high;) {
    const u64 middle = low + (high - low) / 2;
    if (entry(middle)->base < base) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

void Heap::free(void* pointer) {
  if (pointer == nullptr) return;
  u8* base = static_cast<u8*>(pointer) - HEADER;
  Heap* heap = nullptr;
  std::memcpy(&heap, base, sizeof heap);
  const u64 index = heap->find(base);
  if (index == heap->active_ || heap->entry(index)->base != base) {
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"Heap::free()", L"The pointer is not an allocated block.");
  }
  const u64 moved = (heap->active_ - index - 1) * sizeof(Entry);
  std::memmove(heap->table_limit_ + sizeof(Entry), heap->table_limit_, moved);
  heap->table_limit_ += sizeof(Entry);
  heap->active_--;
  heap->top_ = heap->end_of_blocks();
}

void Heap::free_aligned(void* pointer) {
  if (pointer == nullptr) return;
  check_guards(static_cast<u8*>(pointer));
  Heap::free(static_cast<u8*>(block_of_aligned(pointer)) - 8);
}

// The children's blocks lie in the parent's free space without an entry of their own; the 32 n + 32 bytes
// left between them and the table are for the blocks that outlive the children.
Heap* Heap::split(u64 n) {
  auto* records = static_cast<u8*>(allocate_or_die(2 * sizeof(Heap)));
  const u64 space = static_cast<u64>(table_limit_ - top_);
  if (n > space / 32 || space < 32 * n + 32) fatal_alloc();
  const u64 half = (space - 32 * n - 32) / 2 & ~u64{7};

  auto* first = new (records) Heap;
  auto* second = new (records + sizeof(Heap)) Heap;
  first->manage(top_, top_ + half, this);
  second->manage(top_ + half, top_ + 2 * half, this);
  children_ = first;
  saved_top_ = top_;
  top_ += 2 * half; // nothing of the parent's may land in the children's space
  return first;
}

void Heap::join_children() {
  Heap* children = children_;
  if (children == nullptr) return;
  for (int i = 0; i < 2; i++) {
    if (children[i].peak_top_ > peak_top_) peak_top_ = children[i].peak_top_;
    children[i].destroy();
  }
  children_ = nullptr;
  saved_top_ = nullptr;
  Heap::free(children); // and with it top becomes the end of the last live block
}

// Takes over a child's live block.
void Heap::adopt(u8* base, u64 size) {
  u8* occupied = top_; // during a split: the end of the children's space
  if (table_full()) fatal("Critical Internal Assertion Failure: APIs-448");
  insert(find(base), base, size);
  set_owner(base, this);
  if (children_ != nullptr) top_ = occupied;
}

void Heap::destroy() {
  join_children();
  if (parent_ != nullptr) {
    // A child made by create_in gives its own block up first: the survivors lie inside it.
    if (block_ != nullptr) Heap::free(block_);
    for (u64 i = 0; i < active_; i++) parent_->adopt(entry(i)->base, entry(i)->size);
  } else {
    if (active_ != 0) Console::print_colored("Memory leak detected\n", 'R');
    if (reserved_ != 0) release_memory(block_, reserved_);
  }
  manage(nullptr, nullptr, nullptr);
}

u64 Heap::free_bytes() const {
  const u64 space = static_cast<u64>(table_limit_ - top_);
  return space < sizeof(Entry) + HEADER ? 0 : space - sizeof(Entry) - HEADER;
}

void Heap::dump() const {
  const auto pointer = [](const char* label, const void* p) {
    Console::print(label);
    Console::print_pointer(p);
  };
  const auto number = [](const char* label, u64 value) {
    Console::print(label);
    Console::print_commas(value);
    Console::print("\n");
  };
  Console::print("Heap Table Dump:\n");
  pointer("Parent              : ", parent_);
  Console::print("\n");
  number("Total Size          : ", static_cast<u64>(end_ - start_));
  number("Active Allocations  : ", active_);
  number("Peak Allocations    : ", peak_active_);
  number("Current Usage       : ", used_bytes());
  number("Peak Heap Usage     : ", peak_bytes());
  pointer("Start : ", start_);
  pointer("\nEnd   : ", end_);
  Console::print("\n");
  if (active_ == 0) {
    Console::print("No Active Allocations\n\n");
    return;
  }
  u64 gaps = 0;
  const u8* end = start_;
  for (u64 i = 0; i < active_; i++) {
    const Entry* e = entry(i);
    const auto gap = static_cast<u64>(e->base - end);
    if (gap != 0) Console::print("Free Space:   ( " + Console::format_commas(gap) + " )\n");
    gaps += gap;
    pointer("Base: ", e->base);
    pointer("   Size: ", reinterpret_cast<const void*>(e->size));
    Console::print("   ( " + Console::format_commas(e->size) + " )\n");
    end = e->base + e->size;
  }
  pointer("Table Limit         : ", table_limit_);
  Console::print("\n");
  number("Fragmentation       : ", gaps);
  Console::print("\n");
}

void* aligned_malloc(u64 size, u64 alignment) {
  if (alignment > 128) {
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"aligned_malloc()", L"The alignment is too large.");
  }
  if (alignment < 8) alignment = 8;
  const u64 total = size + alignment + 8;
  void* block = total < size ? nullptr : std::malloc(total);
  if (block == nullptr) fatal_alloc();
  return align_inside(block, alignment);
}

void aligned_free(void* pointer) {
  if (pointer != nullptr) std::free(block_of_aligned(pointer));
}

void* Layout::take_bytes(u64 bytes) {
  const u64 offset = used_;
  const u64 taken = (bytes + ALIGNMENT - 1) & ~(ALIGNMENT - 1);
  used_ += taken;
  if (base_ == nullptr) return nullptr;
  if (taken < bytes || taken > size_ - offset) fatal("Insufficient Allocated Space");
  return base_ + offset;
}

} // namespace kelvane
