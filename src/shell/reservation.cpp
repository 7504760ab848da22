// Reservation on Linux. See reservation.h.

#include "shell/reservation.h"

#include <cerrno>
#include <sys/mman.h>

#include "shell/exception.h"
#include "shell/thread.h"

namespace kelvane {

namespace {

constexpr u64 PAGE = 4096;
constexpr u64 HUGE_PAGE = u64{1} << 21;
constexpr u64 LEAST_SHARE = u64{16} << 20; // bytes worth a thread of their own

#ifndef MADV_POPULATE_WRITE // Linux 5.14
constexpr int MADV_POPULATE_WRITE = 23;
#endif

u64 round_to_page(u64 size) {
  return (size + PAGE - 1) & ~(PAGE - 1);
}

struct Range {
  u8* start;
  u64 size; // multiple of PAGE
  u64 threads;
  bool refused;
};

// Writes zeros to a range. Asking for the pages by a system call, where it exists, reports a shortage as an
// error; a plain write to a page that the system cannot supply would end the process without a word.
void commit(Range& range) {
  if (range.threads > 1 && range.size >= 2 * LEAST_SHARE) {
    const u64 half = (range.size / 2) & ~(HUGE_PAGE - 1);
    Range first{range.start, half, range.threads / 2, false};
    Range second{range.start + half, range.size - half, range.threads - range.threads / 2, false};
    fork_join(first, second, commit);
    range.refused = first.refused || second.refused;
    return;
  }
  if (madvise(range.start, range.size, MADV_POPULATE_WRITE) == 0) return;
  if (errno == ENOMEM || errno == EFAULT) {
    range.refused = true;
    return;
  }
  // Fresh pages are zero: one write makes the page resident.
  for (u64 i = 0; i < range.size; i += PAGE) static_cast<volatile u8*>(range.start)[i] = 0;
}

[[noreturn]] void refuse() {
  fatal("Insufficient Memory or address space.");
}

} // namespace

u8* reserve_memory(u64 size, u64 threads) {
  const u64 length = round_to_page(size == 0 ? 1 : size);
  if (length < size || length + HUGE_PAGE < length) refuse();
  void* mapping =
      mmap(nullptr, length + HUGE_PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) refuse();

  // Cut the part that begins on a huge page.
  auto* raw = static_cast<u8*>(mapping);
  const u64 head = (HUGE_PAGE - reinterpret_cast<std::uintptr_t>(raw) % HUGE_PAGE) % HUGE_PAGE;
  if (head != 0) munmap(raw, head);
  if (head != HUGE_PAGE) munmap(raw + head + length, HUGE_PAGE - head);
  u8* memory = raw + head;

  madvise(memory, length, MADV_HUGEPAGE); // advice: a system without huge pages says no
  Range whole{memory, length, threads == 0 ? 1 : threads, false};
  commit(whole);
  if (whole.refused) refuse();
  return memory;
}

void release_memory(u8* memory, u64 size) {
  munmap(memory, round_to_page(size == 0 ? 1 : size));
}

} // namespace kelvane
