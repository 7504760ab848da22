// See processors.h.

#include "diagnostics/processors.h"

#include <pthread.h>

namespace kelvane {

std::vector<u64> allowed_processors() {
  std::vector<u64> processors;
  cpu_set_t set;
  CPU_ZERO(&set);
  if (pthread_getaffinity_np(pthread_self(), sizeof set, &set) == 0) {
    for (u64 i = 0; i < CPU_SETSIZE; i++) {
      if (CPU_ISSET(i, &set)) processors.push_back(i);
    }
  }
  if (processors.empty()) processors.push_back(current_processor());
  return processors;
}

u64 current_processor() {
  const int processor = sched_getcpu();
  return processor < 0 ? 0 : static_cast<u64>(processor);
}

bool bind_to_processor(u64 processor) {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (processor >= CPU_SETSIZE) return false;
  CPU_SET(processor, &set);
  return pthread_setaffinity_np(pthread_self(), sizeof set, &set) == 0;
}

KeepAffinity::KeepAffinity() {
  CPU_ZERO(&set_);
  known_ = pthread_getaffinity_np(pthread_self(), sizeof set_, &set_) == 0;
}

KeepAffinity::~KeepAffinity() {
  if (known_) pthread_setaffinity_np(pthread_self(), sizeof set_, &set_);
}

} // namespace kelvane
