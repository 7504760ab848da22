// The writer of compressed digit files: every byte of its files, and disks that fail.

#include "digits/kcd_writer.h"

#include <cerrno>
#include <memory>

#include "digits/kcd_testing.h"

namespace kelvane::DigitViewer {
namespace {

using test::expect_error;
using test::kcd_file;
using test::MemoryFiles;
using test::random_digits;
using test::raw;

struct Target {
  std::string first = "3.";
  int radix = 10;
  u64 per_file = 100;
};

// Writes in pieces of random sizes up to `longest`.
void write(MemoryFiles& files, const Target& target, const std::string& digits, u64 longest, u64 seed = 1) {
  alignas(8) static char buffer[KCDWriter::LEAST_BUFFER];
  KCDWriter writer(L"/d", L"x", target.first, target.per_file, 0, target.radix, sizeof buffer, buffer,
                   nullptr, files);
  std::mt19937_64 random(seed);
  const std::string values = raw(digits);
  for (u64 done = 0; done < values.size();) {
    const u64 n = std::min<u64>(1 + random() % longest, values.size() - done);
    writer.write(values.data() + done, n);
    done += n;
  }
  writer.close();
}

void expect_files(const MemoryFiles& files, const Target& target, const std::string& digits) {
  const u64 count = (digits.size() - 1) / target.per_file + 1;
  for (u64 id = 0; id < count; ++id) {
    const std::wstring name = L"/d/x" + std::to_wstring(id) + L".kcd";
    ASSERT_TRUE(files.exists(name)) << id;
    ASSERT_EQ(files.text(name), kcd_file(target.first, digits, target.radix, target.per_file, id)) << id;
  }
  EXPECT_FALSE(files.exists(L"/d/x" + std::to_wstring(count) + L".kcd"));
}

TEST(KCDWriter, EveryByteOfItsFiles) {
  for (const int radix : {10, 16})
    for (const u64 per_file : {u64{100}, u64{190}, u64{160}, u64{1000}, ONE_FILE})
      for (const u64 count : {1u, 15u, 16u, 18u, 19u, 20u, 99u, 100u, 101u, 200u, 201u, 380u, 12345u})
        for (const u64 longest : {1u, 7u, 40u, 100000u}) {
          SCOPED_TRACE("radix " + std::to_string(radix) + " digits per file " + std::to_string(per_file) +
                       " digits " + std::to_string(count) + " pieces up to " + std::to_string(longest));
          const Target target{radix == 10 ? "3." : "a1.", radix, per_file};
          const std::string digits = random_digits(count, radix, count);
          MemoryFiles files;
          files.max_transfer = 1000;
          write(files, target, digits, longest);
          expect_files(files, target, digits);
          files.crash(); // what close() returned from survives
          expect_files(files, target, digits);
          if (::testing::Test::HasFatalFailure()) return;
        }
}

TEST(KCDWriter, StartNumberExactNameAndNoDigits) {
  MemoryFiles files;
  alignas(8) char buffer[KCDWriter::LEAST_BUFFER];
  int released = 0;
  const auto release = [&](void* p) { released += p == buffer ? 1 : 100; };
  const std::string digits = raw(random_digits(150, 10, 4));
  {
    KCDWriter set(L"/d/", L"y", "3.", 100, 7, 10, sizeof buffer, buffer, release, files);
    KCDWriter empty(L"/d/", L"z", "3.", 100, 0, 10, sizeof buffer, buffer, release, files);
    set.write(digits.data(), digits.size());
    set.close();
    set.close();
    expect_error([&] { set.write(digits.data(), 1); }, -2147467264, "This file is already closed.");
    KCDWriter one(L"/d/pi.kcd", "3.", 10, sizeof buffer, buffer, release, files);
    one.write(digits.data(), digits.size());
  }
  EXPECT_EQ(released, 3);
  EXPECT_NE(files.text(L"/d/y7.kcd").find("BlockID:\t7\r\n"), std::string::npos);
  EXPECT_NE(files.text(L"/d/y8.kcd").find("TotalDigits:\t00000000000000000850\r\n"), std::string::npos);
  EXPECT_NE(files.text(L"/d/pi.kcd")
                .find("TotalDigits:\t00000000000000000150\r\n\r\nBlocksize:\t18446744073709551615"),
            std::string::npos);
  EXPECT_FALSE(files.exists(L"/d/z0.kcd"));
}

TEST(KCDWriter, RefusesBadArguments) {
  MemoryFiles files;
  alignas(8) char buffer[KCDWriter::LEAST_BUFFER];
  const auto make = [&](std::string first, u64 per_file, int radix, u64 bytes) {
    KCDWriter(L"", L"x", std::move(first), per_file, 0, radix, bytes, buffer, nullptr, files);
  };
  make("3.", 100, 16, 4096);
  expect_error([&] { make("3.", 99, 10, 4096); }, -2147479552, "Invalid Digits per File");
  expect_error([&] { make("3.", 100, 8, 4096); }, -2147479549, "Unsupported Radix");
  expect_error([&] { make("3.", 100, 10, 4095); }, -2147483647, "Requested buffer size is too small.");
  expect_error([&] { make("3.\r\nBase:\t16", 100, 10, 4096); }, -2147479546, "Invalid Digit: \r");
}

// Wherever the disk becomes full, the failure is told and no file has its name.
TEST(KCDWriter, AFullDiskAnywhereInASet) {
  const Target target;
  const std::string digits = random_digits(1050, 10, 9);
  MemoryFiles whole;
  write(whole, target, digits, 5000);
  u64 bytes = 0;
  for (u64 id = 0; id <= 10; ++id) bytes += whole.text(L"/d/x" + std::to_wstring(id) + L".kcd").size();
  for (u64 room = 0; room < bytes; room += 13) {
    SCOPED_TRACE("room " + std::to_string(room));
    MemoryFiles files;
    files.capacity = room;
    const u64 fitting = room / (bytes / 10); // roughly: the file that did not fit is named
    try {
      write(files, target, digits, 300);
      FAIL() << "nothing thrown";
    } catch (const km_exception& e) {
      EXPECT_EQ(e.code, ENOSPC);
      EXPECT_STREQ(e.message, "Disk is Full");
      EXPECT_EQ(e.text, "Error writing to file.");
      EXPECT_EQ(e.wtext.substr(0, 4), L"/d/x");
      EXPECT_LE(std::max(fitting, u64{1}) - 1, std::stoull(e.wtext.substr(4)));
    }
    for (u64 id = 0; id <= 10; ++id) EXPECT_FALSE(files.exists(L"/d/x" + std::to_wstring(id) + L".kcd"));
  }
}

// A set whose renaming stops lacks its first file, so that it cannot be taken for a whole one.
TEST(KCDWriter, EveryStepMayFail) {
  const Target target;
  const std::string digits = random_digits(350, 10, 10);
  struct {
    const char* operation;
    int steps;
  } const cases[] = {{"open", 4}, {"write", 9}, {"sync", 4}, {"close", 4}, {"rename", 4}};
  for (const auto& c : cases)
    for (int step = 0; step < c.steps; ++step) {
      SCOPED_TRACE(std::string(c.operation) + " " + std::to_string(step));
      MemoryFiles files;
      files.fail_on = c.operation;
      files.fail_after = step;
      files.fail_times = 1;
      EXPECT_THROW(write(files, target, digits, 1000), km_exception);
      EXPECT_FALSE(files.exists(L"/d/x0.kcd"));
      files.crash();
      EXPECT_FALSE(files.exists(L"/d/x0.kcd"));
    }
}

TEST(KCDWriter, AnOlderSetIsReplacedWholeOrNotAtAll) {
  const std::string old_digits = random_digits(1000, 10, 11), digits = random_digits(300, 10, 12);
  MemoryFiles files;
  test::put_set(files, L"/d/x", "3.", old_digits, 10, 100);
  files.fail_on = "write";
  files.fail_after = 5;
  files.fail_times = 1;
  EXPECT_THROW(write(files, {}, digits, 1000), km_exception);
  expect_files(files, {}, old_digits);
  write(files, {}, digits, 1000);
  expect_files(files, {}, digits);
  for (u64 id = 3; id < 10; ++id)
    EXPECT_FALSE(files.exists(L"/d/x" + std::to_wstring(id) + L".kcd")) << "it would lengthen the new set";
}

} // namespace
} // namespace kelvane::DigitViewer
