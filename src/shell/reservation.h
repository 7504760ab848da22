// The one system reservation of a computation: anonymous memory on huge pages, committed at once.
#pragma once

#include "shell/types.h"

namespace kelvane {

// `size` bytes of zeros, aligned to 2 MiB, every page of it resident: the pages are claimed by up to
// `threads` threads, since the zero-filling is limited by one core otherwise. Resident size: size rounded up
// to the page. Fatal "Insufficient Memory or address space." when the system refuses.
u8* reserve_memory(u64 size, u64 threads);
void release_memory(u8* memory, u64 size);

} // namespace kelvane
