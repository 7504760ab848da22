// Digit writers: where the digits of a result go.
#pragma once

#include <memory>
#include <string>

#include "digits/pending_file.h"
#include "shell/file.h"
#include "shell/types.h"

namespace kelvane::DigitViewer {

// A sink of the digits after the point, in order.
class DigitWriter {
public:
  virtual ~DigitWriter() = default; // finishes like close, but cannot report a failure
  // The next `count` digits. Throws km_exception.
  virtual void write(const char* digits, u64 count) = 0;
  // Makes the file complete and lasting. Throws km_exception. A second call does nothing.
  virtual void close() = 0;
};

// A plain text file: the first digits with the point, then one character per digit, nothing else.
//
// It takes its name in close(), see pending_file.h. Errors: "Unable to create file.", "Error writing to
// file." with errno and the path.
class TextWriter final : public DigitWriter {
public:
  // first_digits is written up to and including its point; empty writes nothing; without a point
  // "No decimal place was found.". raw: write() receives digit values of `radix` instead of
  // characters ("Unsupported Radix" for others than 10 and 16).
  // staging: optional buffer of the caller in which digits are collected for large writes.
  TextWriter(std::wstring path, const std::string& first_digits, bool raw, int radix, char* staging = nullptr,
             u64 staging_bytes = 0, FileSystem& files = posix_files());
  ~TextWriter() override;
  TextWriter(const TextWriter&) = delete;
  TextWriter& operator=(const TextWriter&) = delete;

  void write(const char* digits, u64 count) override;
  void close() override;

private:
  void put(const char* text, u64 count); // characters to the file, past the staging buffer
  void flush();

  FileSystem& files_;
  int radix_; // 0: digits arrive as characters
  char* staging_;
  u64 staging_bytes_;
  u64 staged_ = 0;
  u64 position_ = 0; // bytes in the file
  int exceptions_at_start_;
  PendingFile file_;
};

// What the writer factory needs of a computation's settings.
struct OutputSettings {
  std::wstring folder;    // empty: the working directory
  std::string first_name; // "Pi"
  std::string
      second_name; // "Chudnovsky"; for compressed files with " - ", which keeps the file's number apart
  u64 digits_per_file = 0; // 0: text; ONE_FILE (kcd_format.h): one compressed file; else a set of them
};

// "first - Dec - second" ("Hex" for radix 16; any other radix is an internal error "Invalid Base").
std::wstring base_name(const OutputSettings& settings, int radix);
// The file that the digits go to; of a set the first one and how far the numbers go: "Pi0.kcd to 9.kcd".
std::wstring output_name(const OutputSettings& settings, int radix, u64 digits);

// A writer of raw digits for the settings: folder/base_name.txt, or compressed files from number 0 on.
// staging: as for TextWriter; compressed files need one of KCDWriter::LEAST_BUFFER bytes.
std::unique_ptr<DigitWriter> make_writer(const OutputSettings& settings, int radix,
                                         const std::string& first_digits, char* staging, u64 staging_bytes,
                                         FileSystem& files = posix_files());

} // namespace kelvane::DigitViewer
