// Going through all digits of a file, a block at a time: the next block is read while this one is used.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "digits/reader.h"
#include "shell/types.h"

namespace kelvane::companion {

// Digits per block. Two blocks for each file are all the memory that any command takes, whatever the size.
inline constexpr u64 BLOCK_DIGITS = u64{4} << 20;

// Runs both, the first on a thread of its own, and throws what either threw (the first's before the
// second's).
void run_both(const std::function<void()>& first, const std::function<void()>& second);

// Progress of long work on standard error, when that is a terminal and the work is longer than a second.
class Progress {
public:
  Progress(std::string label, u64 total, bool wanted);
  ~Progress(); // clears the line
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  void show(u64 done);

private:
  std::string label_;
  u64 total_;
  bool shown_;
  double start_, last_;
  size_t width_ = 0; // of the line on the screen
};

// A file that a command reads, under the name that the user gave it.
struct Source {
  std::string name;
  std::unique_ptr<DigitViewer::DigitReader> reader;

  // raw: digits as values instead of characters.
  Source(std::string name, bool raw);
  // As the reader's, with the name in failures that name no file.
  void read(u64 position, char* out, u64 count);
  // How far the digits reach. When no file of a set states it, that is where its last file ends, which is
  // told on standard error unless quiet.
  u64 length(bool quiet);
};

// The digits [start, end) in order. use(digits, count) returns false to stop. `beside` is called with the
// same blocks at the same time, on the thread that reads: for a second piece of work that takes less than
// use.
void for_each_block(Source& source, u64 start, u64 end, Progress& progress,
                    const std::function<bool(const char* digits, u64 count)>& use,
                    const std::function<void(const char* digits, u64 count)>& beside = {});

} // namespace kelvane::companion
