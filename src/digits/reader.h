// Digit readers: where the digits of a digit file come from.
#pragma once

#include <string>

#include "shell/file.h"
#include "shell/types.h"

namespace kelvane::DigitViewer {

// A source of the digits after the point. Positions count them from 0.
class DigitReader {
public:
  virtual ~DigitReader() = default;
  virtual void print_info() = 0;
  virtual int get_radix() = 0;
  virtual u64 get_digits() = 0;       // after the point; 0 when unknown
  virtual void set_raw(bool raw) = 0; // digits come as values 0..15 instead of characters
  // True when the digits [start, end) are there. start at or above end: "Invalid Parameters".
  virtual bool check_range(u64 start, u64 end) = 0;
  virtual std::string get_first_digits() = 0; // up to and including the point
  virtual void read(u64 position, char* out, u64 count) = 0;
  // Refills the reader's buffer with the next digits, for streams whose length is not known.
  virtual void reload();
};

// A text file as TextWriter makes it.
class TextReader final : public DigitReader {
public:
  // radix 0: found from the first 64 characters, 10 when all are decimal digits and points, 16 when
  // the first other one is a letter from a to f ("Invalid Digit" for any other character).
  // The point must be among the first 63 bytes.
  TextReader(std::wstring path, bool raw, int radix, FileSystem& files = posix_files());

  void print_info() override;
  int get_radix() override { return radix_; }
  u64 get_digits() override { return digits_; }
  void set_raw(bool raw) override { raw_ = raw; }
  bool check_range(u64 start, u64 end) override;
  std::string get_first_digits() override { return first_digits_; }
  // "Out of range." past the end, "Invalid Digit: " and the character for one that is no digit.
  // out must hold count bytes; its contents are unspecified after a failure.
  void read(u64 position, char* out, u64 count) override;

private:
  File file_;
  int radix_;
  bool raw_;
  std::string first_digits_; // its length is the offset of the digits in the file
  u64 digits_ = 0;
};

} // namespace kelvane::DigitViewer
