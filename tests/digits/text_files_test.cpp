// The text writer and reader: layout, errors to the letter, and disks that fail.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "digits/files_testing.h"
#include "digits/reader.h"
#include "digits/writer.h"
#include "shell/exception.h"
#include "shell/memory_files.h"

namespace kelvane::DigitViewer {
namespace {

using test::expect_error;
using test::MemoryFiles;
using test::raw;

TEST(TextWriter, WritesPrefixAndDigitsThroughAnyStaging) {
  const std::string digits(50000, '7'), hex = "0123456789abcdef";
  for (const u64 staging_bytes : {0u, 1u, 7u, 1000u, 100000u}) {
    MemoryFiles files;
    std::vector<char> staging(staging_bytes);
    char* const buffer = staging_bytes == 0 ? nullptr : staging.data();
    {
      TextWriter writer(L"out/d", "3.99", true, 10, buffer, staging_bytes, files); // only up to the point
      writer.write(raw("14159").data(), 5);
      writer.write(nullptr, 0);
      EXPECT_FALSE(files.exists(L"out/d"));
      const std::string values = raw(digits);
      writer.write(values.data(), values.size());
      EXPECT_EQ(values, raw(digits)) << "the caller's digits were changed";
    }
    EXPECT_EQ(files.text(L"out/d"), "3.14159" + digits) << "staging " << staging_bytes;
    EXPECT_FALSE(files.exists(L"out/d.incomplete"));
    TextWriter characters(L"c", "", false, 0, buffer, staging_bytes, files); // no prefix, no conversion
    characters.write(digits.data(), digits.size());
    characters.close();
    characters.close();
    EXPECT_EQ(files.text(L"c"), digits);
    TextWriter hexadecimal(L"h", "f.", true, 16, buffer, staging_bytes, files);
    hexadecimal.write(raw(hex).data(), hex.size());
    hexadecimal.close();
    EXPECT_EQ(files.text(L"h"), "f." + hex);
    expect_error([&] { hexadecimal.write("1", 1); }, -2147467264, "This file is already closed.");
  }
}

TEST(TextWriter, RefusesBadArguments) {
  MemoryFiles files;
  expect_error([&] { TextWriter(L"f", "31", true, 10, nullptr, 0, files); }, -2147483647,
               "No decimal place was found.");
  expect_error([&] { TextWriter(L"f", "3.", true, 8, nullptr, 0, files); }, -2147479549, "Unsupported Radix");
  EXPECT_FALSE(files.exists(L"f.incomplete"));
}

TEST(TextWriter, FullDiskRaisesAndKeepsOldResult) {
  MemoryFiles files;
  files.put(L"pi.txt", "3.14 of an earlier run");
  files.capacity = 22 + 40;
  const std::string digits(100, '1');
  {
    TextWriter writer(L"pi.txt", "3.", false, 10, nullptr, 0, files);
    expect_error([&] { writer.write(digits.data(), digits.size()); }, ENOSPC, "Error writing to file.",
                 L"pi.txt");
    expect_error([&] { writer.write(digits.data(), 1); }, -2147467264, "This file is already closed.");
  }
  EXPECT_EQ(files.text(L"pi.txt"), "3.14 of an earlier run");
  EXPECT_EQ(files.text(L"pi.txt.incomplete"), "3." + digits.substr(0, 38)); // what fitted is not removed
}

// A buffered writer fails late; whichever step fails, the final name never holds a partial file.
TEST(TextWriter, EveryLateFailureIsReported) {
  struct {
    const char* operation;
    const char* text;
  } const cases[] = {{"write", "Error writing to file."},
                     {"sync", "Error writing to file."},
                     {"close", "Unable to close file."},
                     {"rename", "Unable to rename file."}};
  for (const auto& c : cases) {
    MemoryFiles files;
    char staging[64];
    TextWriter writer(L"x", "", false, 10, staging, sizeof staging, files);
    writer.write("123", 3);
    files.fail_on = c.operation;
    files.fail_times = 1;
    expect_error([&] { writer.close(); }, EIO, c.text, L"x");
    EXPECT_FALSE(files.exists(L"x")) << c.operation;
  }
  MemoryFiles files;
  files.fail_on = "open";
  files.fail_error = EACCES;
  files.fail_times = 1;
  expect_error([&] { TextWriter(L"x", "3.", true, 10, nullptr, 0, files); }, EACCES, "Unable to create file.",
               L"x");
}

TEST(TextWriter, AClosedFileSurvivesAPowerFailureAndAnInterruptedOneIsNotTakenForWhole) {
  MemoryFiles files;
  TextWriter writer(L"x", "3.", false, 10, nullptr, 0, files);
  writer.write("14", 2);
  writer.close();
  files.crash();
  ASSERT_TRUE(files.exists(L"x"));
  EXPECT_EQ(files.text(L"x"), "3.14");
  try {
    TextWriter other(L"y", "2.", false, 10, nullptr, 0, files);
    other.write("71", 2);
    throw km_exception(1, "digits stop");
  } catch (const km_exception&) {
  }
  EXPECT_FALSE(files.exists(L"y"));
  EXPECT_EQ(files.text(L"y.incomplete"), "2.71");
}

TEST(WriterFactory, NamesFiles) {
  OutputSettings settings{L"", "Log(2)", "Machin 1"};
  EXPECT_EQ(output_name(settings, 10, 1000), L"Log(2) - Dec - Machin 1.txt");
  settings.folder = L"/d";
  EXPECT_EQ(output_name(settings, 16, 1000), L"/d/Log(2) - Hex - Machin 1.txt");
  MemoryFiles files;
  make_writer(settings, 16, "0.", nullptr, 0, files)->write("\x0f", 1);
  EXPECT_EQ(files.text(L"/d/Log(2) - Hex - Machin 1.txt"), "0.f");

  settings.second_name = "Machin 1 - ";
  settings.digits_per_file = 100;
  EXPECT_EQ(output_name(settings, 10, 100), L"/d/Log(2) - Dec - Machin 1 - 0.kcd");
  EXPECT_EQ(output_name(settings, 10, 101), L"/d/Log(2) - Dec - Machin 1 - 0.kcd to 1.kcd");
  char staging[4096];
  make_writer(settings, 10, "0.", staging, sizeof staging, files)->write(raw("123").data(), 3);
  EXPECT_TRUE(files.exists(L"/d/Log(2) - Dec - Machin 1 - 0.kcd"));
}

TEST(TextReader, ReadsRangesOfBothRadices) {
  MemoryFiles files;
  std::string digits;
  for (u64 i = 0; i < 200000; ++i) digits += static_cast<char>('0' + i * i % 7);
  files.put(L"dec", "31." + digits);
  files.put(L"hex", "f." + digits + "abc");
  files.max_transfer = 1000;
  TextReader dec(L"dec", false, 0, files), hex(L"hex", false, 16, files);
  EXPECT_EQ(dec.get_radix(), 10);
  EXPECT_EQ(dec.get_digits(), 200000u);
  EXPECT_EQ(dec.get_first_digits(), "31.");
  EXPECT_EQ(hex.get_digits(), 200003u);
  for (const auto& [position, count] :
       std::vector<std::pair<u64, u64>>{{0, 200000}, {65535, 2}, {199999, 1}, {200000, 0}}) {
    std::string out(count, '?');
    dec.read(position, out.data(), count);
    EXPECT_EQ(out, digits.substr(position, count));
    dec.set_raw(true);
    dec.read(position, out.data(), count);
    EXPECT_EQ(out, raw(digits.substr(position, count)));
    dec.set_raw(false);
  }
  char out[8];
  hex.read(200000, out, 3);
  EXPECT_EQ(std::string(out, 3), "abc");
  EXPECT_TRUE(dec.check_range(0, 200000));
  EXPECT_FALSE(dec.check_range(0, 200001));
  expect_error([&] { dec.check_range(5, 5); }, -2147483647, "Invalid Parameters");
  expect_error([&] { dec.read(199999, out, 2); }, -2147467256, "Out of range.");
  expect_error([&] { dec.read(~u64{0}, out, 2); }, -2147467256, "Out of range.");
  expect_error([&] { dec.reload(); }, -2147467264,
               "DigitReader::reload() does not support unknown sizes.\n"
               "You must override this function when total_digits could be 0.");
}

TEST(TextReader, PointAndRadixDetection) {
  MemoryFiles files;
  const auto open = [&](const std::string& text, int radix) {
    files.put(L"f", text);
    return TextReader(L"f", false, radix, files);
  };
  EXPECT_EQ(open(std::string(62, '1') + ".5", 10).get_digits(), 1u); // the point is the 63rd byte
  EXPECT_EQ(open(std::string(62, '1') + ".", 0).get_digits(), 0u);
  expect_error([&] { open(std::string(63, '1') + ".5", 10); }, -2147479547,
               "A decimal place was not found within the first 63 bytes of the file.");
  expect_error([&] { open("12345", 10); }, -2147479552, "Unexpected End of File");
  expect_error([&] { open("", 0); }, -2147479552, "Unexpected End of File");
  expect_error([&] { open("3.1", 12); }, -2147479549, "Unsupported Radix");
  expect_error([&] { TextReader(L"none", false, 0, files); }, ENOENT, "Unable to open file.", L"none");

  const std::string start = "3." + std::string(61, '4'); // 63 characters: the 64th still counts
  EXPECT_EQ(open(start + "4f", 0).get_radix(), 10);
  EXPECT_EQ(open(start + "f4", 0).get_radix(), 16);
  EXPECT_EQ(open("a.", 0).get_radix(), 16);
  for (const char* text : {"3.F", "3.g", "3,1", "3.1\n"})
    expect_error([&] { open(text, 0); }, -2147479546, "Invalid Digit");

  char out[4];
  expect_error([&] { open("3.14x5", 10).read(0, out, 4); }, -2147479546, "Invalid Digit: x");
  expect_error([&] { open("3.14a5", 10).read(1, out, 3); }, -2147479546, "Invalid Digit: a");
}

} // namespace
} // namespace kelvane::DigitViewer
