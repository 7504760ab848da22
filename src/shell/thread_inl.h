// The body of fork_join; see thread.h.
#pragma once

#include <exception>

#include "shell/exception.h"
#include "shell/thread.h"

namespace kelvane {

// Runs body() at a task's boundary: a km_exception is printed and its code returned, anything else is fatal.
template <class Body> s32 run_task_body(const Body& body) {
  try {
    body();
    return 0;
  } catch (const km_exception& e) {
    print_exception(e);
    return e.code != 0 ? e.code : -1;
  } catch (const std::exception& e) {
    print_std_error(e.what());
    fatal("FATAL ERROR: Unhandled exception in child thread.");
  } catch (...) {
    fatal("FATAL ERROR: Unhandled exception in child thread.");
  }
}

template <class Block, class F> s32 fork_join(Block& first, Block& second, const F& f) {
  struct Argument {
    Block* block;
    const F* f;
  } argument{&first, &f};
  Thread thread;
  Thread::start(
      thread,
      [](void* record) -> void* {
        auto* t = static_cast<Thread*>(record);
        auto* a = static_cast<Argument*>(t->argument);
        t->result = run_task_body([a] { (*a->f)(*a->block); });
        return nullptr;
      },
      &argument);
  const s32 second_result = run_task_body([&] { f(second); });
  if (thread.ran_inline == 0) Thread::join(thread);
  return thread.result != 0 ? thread.result : second_result;
}

} // namespace kelvane
