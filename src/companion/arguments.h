// The command line of kelvane-digits.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "shell/types.h"

namespace kelvane::companion {

// A command line that cannot be carried out; what() says why.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Exit statuses.
enum Status {
  SUCCESS = 0,
  NEGATIVE = 1, // not found, different, files missing
  TROUBLE = 2,  // wrong usage, files that cannot be read or written, damaged files
};

struct Arguments {
  std::string command; // empty with help or version only
  std::vector<std::string> operands;
  bool help = false, version = false;
  bool quiet = false;   // -q: no progress
  bool grouped = false; // -g, print
  bool force = false;   // -f, convert
  u64 count = 10;       // -n, find
  u64 from = 1;         // -s, find
  u64 split = 0;        // -d, convert: digits per file
  std::string svg;      // -o, stats
};

// args: without the program's name. Throws UsageError.
Arguments parse_arguments(const std::vector<std::string>& args);

// "1,000,000" or "1000000"; what: for the message.
u64 parse_count(const std::string& text, const char* what);

// The help of one command, or of all when the name is empty.
std::string help_text(const std::string& command);

} // namespace kelvane::companion
