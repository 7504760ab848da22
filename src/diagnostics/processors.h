// Which processors the program may use, and which of them a thread runs on.
#pragma once

#include <sched.h>
#include <vector>

#include "shell/types.h"

namespace kelvane {

// The numbers of the processors that this thread may run on, ascending; at least one.
std::vector<u64> allowed_processors();
u64 current_processor();
// Binds the calling thread, without a word when the system refuses.
bool bind_to_processor(u64 processor);

// Keeps the calling thread's set of processors and restores it.
class KeepAffinity {
public:
  KeepAffinity();
  ~KeepAffinity();
  KeepAffinity(const KeepAffinity&) = delete;
  KeepAffinity& operator=(const KeepAffinity&) = delete;

private:
  cpu_set_t set_;
  bool known_;
};

} // namespace kelvane
