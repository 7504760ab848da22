// Commands about files: what they are, and their conversion. See commands.h.

#include <algorithm>
#include <memory>

#include "companion/commands.h"
#include "companion/stream.h"
#include "digits/kcd_reader.h"
#include "digits/kcd_writer.h"
#include "shell/console.h"
#include "shell/exception.h"
#include "shell/file.h"

namespace kelvane::companion {

namespace {

using DigitViewer::DigitReader;
using DigitViewer::DigitWriter;
using DigitViewer::KCDReader;
using DigitViewer::KCDWriter;

constexpr u64 WRITE_BUFFER = u64{1} << 20;

std::string commas(u64 value) {
  return Console::format_commas(value);
}

void entry(const char* label, const std::string& value) {
  std::string line = label;
  line.resize(16, ' ');
  put(line + value + "\n");
}

// Adds "first" or "first to last" to a list that is cut when it becomes too long to read.
void add_range(std::string& list, u64 first, u64 last) {
  constexpr size_t LONGEST = 2000;
  if (list.size() > LONGEST + 4) return;
  if (!list.empty()) list += ", ";
  if (list.size() > LONGEST)
    list += "and more";
  else
    list += std::to_string(first) + (last > first ? " to " + std::to_string(last) : "");
}

// What opening every file of a set has shown.
struct SetState {
  std::string good, missing, damaged; // lists for the eye
  bool whole() const { return missing.empty() && damaged.empty(); }
};

// `numbers`: of the files that exist, ascending; `files`: how many there should be.
SetState check_set(KCDReader& set, const std::vector<u64>& numbers, u64 files, bool quiet) {
  SetState state;
  Progress progress("Checking", numbers.size(), !quiet);
  u64 next = 0; // the first number that has not been accounted for
  u64 good_from = 0, good_count = 0;
  const auto end_run = [&] {
    if (good_count > 0) add_range(state.good, good_from, good_from + good_count - 1);
    good_count = 0;
  };
  for (size_t i = 0; i < numbers.size(); ++i) {
    const u64 number = numbers[i];
    if (number > next) {
      end_run();
      add_range(state.missing, next, number - 1);
    }
    next = number + 1;
    try {
      set.open(number);
      if (good_count++ == 0) good_from = number;
    } catch (const km_exception& e) {
      end_run();
      state.damaged += "  " + path_to_narrow(set.path_of(number)) + ": " + e.what() + "\n";
    }
    progress.show(i + 1);
  }
  end_run();
  if (files > next) add_range(state.missing, next, files - 1);
  return state;
}

// The integer part and the first digits, as far as they can be read.
std::string beginning(DigitReader& reader, u64 length) {
  constexpr u64 SHOWN = 50;
  std::string digits(std::min(length, SHOWN), ' ');
  try {
    reader.read(0, digits.data(), digits.size());
  } catch (const km_exception& e) {
    return reader.get_first_digits() + " (" + e.what() + ")";
  }
  return reader.get_first_digits() + digits + (length > SHOWN ? "..." : "");
}

bool describe_set(KCDReader& set, bool quiet) {
  const u64 per_file = set.digits_per_file();
  std::vector<u64> numbers = set.numbers();
  if (numbers.empty()) numbers.push_back(set.common().id);
  u64 length = 0;
  try {
    length = set.find_length();
  } catch (const km_exception&) {
    // The last file is damaged, which the check tells.
  }
  const bool stated = set.states_total();
  const u64 files = length != 0 ? (length - 1) / per_file + 1 : numbers.back() + 1;
  const SetState state = check_set(set, numbers, files, quiet);

  entry("Format:", "compressed, version " + set.common().version);
  entry("Radix:", std::to_string(set.get_radix()));
  entry("Digits:", length == 0 ? "unknown" : commas(length) + (stated ? "" : " or more"));
  if (files > 1 || !stated) entry("Per file:", commas(per_file));
  entry("First digits:", beginning(set, length));
  entry("Files:", state.good);
  if (!state.missing.empty()) entry("Missing:", state.missing);
  if (!state.damaged.empty()) put("Damaged:\n" + state.damaged);
  if (!stated) put("The files are full to the last and do not state where the digits end.\n");
  return state.whole();
}

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// An existing file is replaced only when that was asked for.
void refuse_existing(const std::wstring& path, bool force) {
  if (!force && posix_files().kind(path) == PathKind::REGULAR)
    throw km_exception(ERROR_INVALID_PARAMETERS, nullptr, "The file exists. -f replaces it.", path);
}

std::unique_ptr<DigitWriter> make_writer(const Arguments& arguments, DigitReader& reader, char* buffer) {
  const std::string& target = arguments.operands[1];
  const std::wstring path = path_to_wide(target);
  const std::string first = reader.get_first_digits();
  const int radix = reader.get_radix();
  if (ends_with(target, ".txt")) {
    if (arguments.split != 0) throw UsageError("only compressed files can be split");
    refuse_existing(path, arguments.force);
    return std::make_unique<DigitViewer::TextWriter>(path, first, true, radix, buffer, WRITE_BUFFER);
  }
  if (!ends_with(target, ".kcd"))
    throw km_exception(ERROR_INVALID_EXTENSION, nullptr, "Invalid Extension", path);
  if (arguments.split == 0) {
    refuse_existing(path, arguments.force);
    return std::make_unique<KCDWriter>(path, first, radix, WRITE_BUFFER, buffer, nullptr);
  }
  const std::wstring base = path_to_wide(target.substr(0, target.size() - 4) + " - ");
  refuse_existing(DigitViewer::kcd_path(L"", base, 0), arguments.force);
  return std::make_unique<KCDWriter>(L"", base, first, arguments.split, 0, radix, WRITE_BUFFER, buffer,
                                     nullptr);
}

} // namespace

Status info(const Arguments& arguments) {
  Status status = SUCCESS;
  for (const std::string& name : arguments.operands) {
    if (&name != &arguments.operands.front()) put("\n");
    entry("File:", name);
    const Source source(name, false);
    DigitReader& reader = *source.reader;
    if (auto* const set = dynamic_cast<KCDReader*>(&reader)) {
      if (!describe_set(*set, arguments.quiet)) status = NEGATIVE;
      continue;
    }
    entry("Format:", "text");
    entry("Radix:", std::to_string(reader.get_radix()));
    entry("Digits:", commas(reader.get_digits()));
    entry("First digits:", beginning(reader, reader.get_digits()));
  }
  return status;
}

Status convert(const Arguments& arguments) {
  Source source(arguments.operands[0], true);
  const u64 length = source.length(arguments.quiet);
  if (length == 0)
    throw km_exception(ERROR_OUT_OF_RANGE, nullptr, "There are no digits after the point.",
                       path_to_wide(arguments.operands[0]));
  const auto buffer = std::make_unique<char[]>(WRITE_BUFFER);
  const auto writer = make_writer(arguments, *source.reader, buffer.get());
  {
    Progress progress("Converting", length, !arguments.quiet);
    for_each_block(source, 0, length, progress, [&](const char* digits, u64 count) {
      writer->write(digits, count);
      return true;
    });
  }
  writer->close();
  put(commas(length) + " digits written\n");
  return SUCCESS;
}

} // namespace kelvane::companion
