// The header of a compressed digit file (extension ".kcd"), and the rules that connect its fields.
//
// A file is a text header, one byte of value 0, and a body of 64-bit words, least significant byte first.
// Each word packs 19 decimal or 16 hexadecimal digits, the first one most significant. A long expansion may
// be a set of files of Blocksize digits each, numbered by BlockID: file k holds the digits after the point
// from k Blocksize to (k + 1) Blocksize - 1. docs/FORMATS.md shows it byte by byte.
#pragma once

#include <string>

#include "shell/file.h"
#include "shell/types.h"

namespace kelvane::DigitViewer {

inline constexpr const char* KCD_MAGIC = "#Compressed Digit File";
inline constexpr const char* KCD_VERSION = "1.1.0";
inline constexpr const wchar_t* KCD_EXTENSION = L".kcd";
inline constexpr u64 LEAST_DIGITS_PER_FILE = 100;
inline constexpr u64 ONE_FILE = ~u64{0}; // Blocksize of a stream that is kept in one file
inline constexpr u64 TOTAL_DIGITS_WIDTH = 20;

struct KCDHeader {
  std::string version;
  int radix = 0;
  std::string first_digits;  // up to and including the point
  u64 total_digits = 0;      // of the whole stream; 0: unknown
  u64 digits_per_file = 0;   // Blocksize, lowered to total_digits when larger
  u64 id = 0;                // BlockID
  u64 length = 0;            // bytes up to the body
  u64 total_position = 0;    // offset of the value of TotalDigits; set by kcd_header_text only
  u64 digits_per_word = 0;   // 19 or 16
  u64 start = 0, digits = 0; // the file's digits are [start, start + digits) of the stream
  u64 words = 0;             // of the body
};

// The header as a writer makes it, with TotalDigits 0; sets length and total_position.
// Reads first_digits, radix, digits_per_file and id.
std::string kcd_header_text(KCDHeader& header);

// Reads and checks the header of an open file. Unknown keys are ignored. Throws, with the path:
//   "Invalid File Format"      the first line is not the magic one, or the header does not end
//   "Error Reading File"       the file ends inside the header
//   "No version # found.", "This .kcd file is of a later format version. ...", "Invalid Digits per File",
//   "This file is out of range. ...", "Unsupported Radix"
// The size of the body is not looked at. Cost: one or few small reads, at most 1 MiB.
KCDHeader read_kcd_header(const File& file);

// Whether the file begins as a compressed digit file does.
bool has_kcd_magic(const File& file);

constexpr u64 kcd_words(u64 digits, u64 digits_per_word) {
  return (digits - 1) / digits_per_word + 1;
}

} // namespace kelvane::DigitViewer
