// The readers of compressed digit files: every offset, sets with gaps, and files that are not what they say.

#include "digits/kcd_reader.h"

#include <cerrno>
#include <functional>

#include "digits/kcd_testing.h"

namespace kelvane::DigitViewer {
namespace {

using test::expect_error;
using test::kcd_file;
using test::MemoryFiles;
using test::put_set;
using test::random_digits;
using test::raw;

// What f prints.
std::string printed(const std::function<void()>& f) {
  testing::internal::CaptureStdout();
  f();
  return testing::internal::GetCapturedStdout();
}

void replace(std::string& text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from;
  text.replace(at, from.size(), to);
}

TEST(KCDReader, EveryRangeOfASet) {
  for (const int radix : {10, 16})
    for (const u64 per_file : {u64{100}, u64{114}, ONE_FILE}) {
      MemoryFiles files;
      const std::string digits = random_digits(333, radix, per_file);
      put_set(files, L"/d/x", "31.", digits, radix, per_file);
      KCDReader reader(L"x", {L"/d"}, false, files);
      EXPECT_EQ(reader.get_radix(), radix);
      EXPECT_EQ(reader.get_first_digits(), "31.");
      EXPECT_EQ(reader.get_digits(), per_file == ONE_FILE ? 333 : 0) << "a full first file does not say";
      EXPECT_EQ(reader.find_length(), 333u);
      for (u64 start = 0; start <= 333; ++start)
        for (u64 end = start; end <= 333; ++end) {
          std::string out(end - start + 1, '?');
          reader.set_raw(end % 2 == 0);
          reader.read(start, out.data(), end - start);
          const std::string expected = digits.substr(start, end - start);
          ASSERT_EQ(out, (end % 2 == 0 ? raw(expected) : expected) + "?")
              << "radix " << radix << " digits per file " << per_file << " from " << start << " to " << end;
        }
      char out[2];
      expect_error([&] { reader.read(332, out, 2); }, -2147467256, "Out of range.");
      expect_error([&] { reader.read(~u64{0}, out, 2); }, -2147467256, "Out of range.");
    }
}

TEST(KCDReader, LargeBlocks) {
  MemoryFiles files;
  files.max_transfer = 5000;
  const std::string digits = random_digits(300001, 10, 5);
  put_set(files, L"x", "3.", digits, 10, 99999);
  KCDReader reader(L"x2.kcd", false, files);
  std::string out(digits.size(), '?');
  reader.read(0, out.data(), out.size());
  EXPECT_EQ(out, digits);
}

// A set whose files are all full says nowhere how long it is.
TEST(KCDReader, UnknownLength) {
  MemoryFiles files;
  const std::string digits = random_digits(500, 10, 6);
  put_set(files, L"x", "3.", digits, 10, 100);
  KCDReader reader(L"x", {}, false, files);
  EXPECT_EQ(reader.get_digits(), 0u);
  char out[600];
  expect_error([&] { reader.read(450, out, 60); }, ENOENT, "Unable to open file #5", L"x5.kcd");

  reader.reload();
  EXPECT_EQ(reader.stream_start(), 0u);
  EXPECT_EQ(std::string(reader.stream(), reader.stream_digits()), digits);
  expect_error([&] { reader.reload(); }, -2147467256, "No more digits left: 500");
  EXPECT_EQ(reader.find_length(), 500u);
  EXPECT_EQ(reader.get_digits(), 500u);

  files.put(L"x5.kcd", kcd_file("3.", digits + "12345", 10, 100, 5)); // the last one states it
  KCDReader longer(L"x", {}, true, files);
  longer.reload();
  EXPECT_EQ(std::string(longer.stream(), longer.stream_digits()), raw(digits + "12345"));
  EXPECT_EQ(longer.get_digits(), 505u);
}

TEST(KCDReader, TheStreamComesInPiecesOfItsBuffer) {
  MemoryFiles files;
  const std::string digits = random_digits(70'000'000, 10, 7);
  put_set(files, L"x", "3.", digits, 10, 30'000'001);
  KCDReader reader(L"x", {}, false, files);
  reader.reload();
  ASSERT_EQ(reader.stream_digits(), KCDReader::STREAM_BYTES);
  EXPECT_TRUE(digits.compare(0, reader.stream_digits(), reader.stream(), reader.stream_digits()) == 0);
  reader.reload();
  ASSERT_EQ(reader.stream_start(), KCDReader::STREAM_BYTES);
  ASSERT_EQ(reader.stream_digits(), digits.size() - KCDReader::STREAM_BYTES);
  EXPECT_TRUE(digits.compare(reader.stream_start(), reader.stream_digits(), reader.stream(),
                             reader.stream_digits()) == 0);
}

TEST(KCDReader, SeveralFoldersAndNames) {
  MemoryFiles files;
  const std::string digits = random_digits(250, 10, 8);
  files.put(L"/a/x1.kcd", kcd_file("3.", digits, 10, 100, 1));
  files.put(L"/b/x0.kcd", kcd_file("3.", digits, 10, 100, 0));
  files.put(L"/b/x2.kcd", kcd_file("3.", digits, 10, 100, 2));
  files.put(L"/b/x02.kcd", "other"); // not in the set
  files.put(L"/b/x.kcd", "other");
  files.put(L"/b/xx3.kcd", "other");
  KCDReader reader(L"x", {L"/a/", L"/b"}, false, files);
  EXPECT_EQ(reader.numbers(), (std::vector<u64>{0, 1, 2}));
  std::string out(250, '?');
  reader.read(0, out.data(), 250);
  EXPECT_EQ(out, digits);
  const std::string info = printed([&] { reader.print_info(); });
  for (const char* text : {"Name:   x\n", "max_id_length:      ", "Search Paths:\n/a/\n/b\n"})
    EXPECT_NE(info.find(text), std::string::npos) << text << " in\n" << info;

  // A file alone, under a name without its number.
  files.put(L"/c/pi.kcd", kcd_file("3.", digits, 10, ONE_FILE, 0));
  KCDReader one(L"/c/pi.kcd", false, files);
  EXPECT_EQ(one.get_digits(), 250u);
  EXPECT_EQ(one.numbers(), std::vector<u64>{0});
  EXPECT_TRUE(one.check_range(0, 250));
  expect_error([&] { KCDReader(L"/c/pi.txt", false, files); }, -2147479550, "Invalid Extension",
               L"/c/pi.txt");
  EXPECT_EQ(open_reader(L"/c/pi.kcd", false, files)->get_digits(), 250u);
  files.put(L"/c/pi.dat", "3.14");
  EXPECT_EQ(open_reader(L"/c/pi.dat", false, files)->get_digits(), 2u);
}

TEST(KCDReader, CheckRangeNamesWhatIsMissing) {
  MemoryFiles files;
  const std::string digits = random_digits(1050, 10, 9);
  put_set(files, L"/d/x", "3.", digits, 10, 100);
  const auto check = [&](u64 start, u64 end, bool good, const std::string& text) {
    KCDReader reader(L"x", {L"/d"}, false, files);
    bool result = !good;
    EXPECT_EQ(printed([&] { result = reader.check_range(start, end); }), text);
    EXPECT_EQ(result, good);
  };
  check(0, 1050, true, "");
  check(1000, 1051, false, "This digit stream does not have enough digits.\n");
  check(0, ~u64{0}, false, "This digit stream does not have enough digits.\n");
  files.remove(L"/d/x3.kcd");
  files.remove(L"/d/x5.kcd");
  const std::string missing = "The following needed files are missing or inaccessible:\n";
  check(300, 301, false, missing + "/d/x3.kcd\n");
  check(299, 600, false, missing + "/d/x3.kcd\n/d/x5.kcd\n");
  check(400, 500, true, "");
  files.put(L"/d/x4.kcd", files.text(L"/d/x4.kcd") + "!");
  check(200, 500, false, missing + "/d/x3.kcd\nCorrupt or inconsistent file:\n/d/x4.kcd\n");
  files.remove(L"/d/x10.kcd");
  std::string all;
  testing::internal::CaptureStdout();
  EXPECT_FALSE(KCDReader(L"x", {L"/d"}, false, files).check_range(0, ~u64{0}));
  EXPECT_LT(testing::internal::GetCapturedStdout().size(), 10000u) << "does not list what no disk could hold";
  KCDReader reader(L"x", {L"/d"}, false, files);
  expect_error([&] { reader.check_range(5, 5); }, -2147483647, "Invalid Parameters");
}

TEST(KCDReader, FilesOfASetMustAgree) {
  const std::string digits = random_digits(250, 10, 10);
  struct {
    const char *from, *to, *error;
  } const cases[] = {{"1.1.0", "1.0.0", "File version does not match."},
                     {"Base:\t10", "Base:\t16", "Radix does not match."},
                     {"Blocksize:\t100", "Blocksize:\t150", "Digits per file does not match."},
                     {"FirstDigits:\t3.", "FirstDigits:\t2.", "First digits do not match."},
                     {"BlockID:\t1", "BlockID:\t2", "Block id does not match."},
                     {"00000000000000000000", "00000000000000000199", "Total digit does not match."}};
  for (const auto& c : cases) {
    MemoryFiles files;
    put_set(files, L"x", "3.", digits, 10, 100);
    std::string text = files.text(L"x1.kcd");
    replace(text, c.from, c.to);
    files.put(L"x1.kcd", text);
    KCDReader reader(L"x", {}, false, files);
    EXPECT_EQ(reader.find_length(), 250u);
    char out[100];
    expect_error([&] { reader.read(100, out, 100); }, -2147475456, c.error, L"x1.kcd");
  }
  // A full file of an older, longer set beside a shorter one.
  MemoryFiles files;
  put_set(files, L"x", "3.", digits, 10, 100);
  files.put(L"x2.kcd", kcd_file("3.", random_digits(300, 10, 1), 10, 100, 2));
  files.put(L"x1.kcd", kcd_file("3.", digits.substr(0, 150), 10, 100, 1));
  KCDReader reader(L"x", {}, false, files);
  char out[50];
  reader.read(100, out, 50);
  EXPECT_EQ(reader.get_digits(), 150u);
  expect_error([&] { reader.open(2); }, -2147475456, "Total digit does not match.", L"x2.kcd");
}

TEST(KCDFile, MalformedHeaders) {
  const std::string digits = random_digits(250, 10, 11), good = kcd_file("3.", digits, 10, 100, 2);
  const std::string later = "This .kcd file is of a later format version.\n"
                            "This version of the digit viewer is unable to view this file.";
  const auto open = [](const std::string& text) {
    MemoryFiles files;
    files.put(L"f", text);
    KCDFile file(L"f", files);
    file.check_size();
    return file.header();
  };
  EXPECT_EQ(open(good).digits, 50u);
  EXPECT_EQ(open(good).words, 3u);

  struct {
    const char *from, *to;
    s32 code;
    std::string error;
  } const cases[] = {
      {"#Comp", "#comp", -2147479552, "Invalid File Format"},
      {"FileVersion:\t1.1.0\r\n", "", -2147479552, "No version # found."},
      {"FileVersion:\t", "Fileversion:\t", -2147479552, "No version # found."},
      {"1.1.0", "1.1.1", -2147479552, later},
      {"1.1.0", "", -2147479552, "No version # found."},
      {"Base:\t10", "Base:\t8", -2147479549, "Unsupported Radix"},
      {"Base:\t10", "Base:\t18446744073709551625", -2147479549, "Unsupported Radix"}, // 9 modulo 2^64
      {"Base:\t10\r\n", "", -2147479549, "Unsupported Radix"},
      {"Blocksize:\t100", "Blocksize:\t99", -2147479552, "Invalid Digits per File"},
      {"Blocksize:\t100\r\n", "", -2147479552, "Invalid Digits per File"},
      {"BlockID:\t2", "BlockID:\t3", -2147467256,
       "This file is out of range.\nStart:        300\nEnd:          400\nTotal Digits: 250\n"},
      {"BlockID:\t2", "BlockID:\t18446744073709551615", -2147467256,
       "This file is out of range.\nStart:        18446744073709551615\nEnd:          18446744073709551615\n"
       "Total Digits: 250\n"},
      {"00250", "00200", -2147467256,
       "This file is out of range.\nStart:        200\nEnd:          300\nTotal Digits: 200\n"},
      {"00250", "00000", -2147479552, "Error Reading File"}, // a full block is not there
      {"00250", "99999", -2147479552, "Error Reading File"},
      {"00250", "00258", -2147479552, "Error Reading File"}, // one word more than there is
      {"EndHeader", "EndHeaded", -2147479552, "Error Reading File"},
      {"EndHeader\r\n\r\n", "EndHeader\r\n \r\n", -2147479552, "Invalid File Format"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.from) + " -> " + c.to);
    std::string text = good;
    replace(text, c.from, c.to);
    expect_error([&] { open(text); }, c.code, c.error, L"f");
  }
  // Cut off anywhere: within the magic line another format, then an incomplete file.
  for (size_t n = 0; n < good.size(); ++n)
    expect_error([&] { open(good.substr(0, n)); }, -2147479552,
                 n < 24 ? "Invalid File Format" : "Error Reading File", L"f");
  expect_error([&] { open(good + "x"); }, -2147479552, "Error Reading File", L"f");
  expect_error([&] { open("#Compressed Digit File\r\n" + std::string(2 << 20, 'a')); }, -2147479552,
               "Invalid File Format", L"f");

  // What is tolerated: unknown keys, other line ends, the older version, a long header.
  std::string text = good;
  replace(text, "Base:", "Remark:\tx\ty\r\nno tab\r\nLong:\t" + std::string(10000, 'l') + "\r\nBase:");
  replace(text, "1.1.0", "1.0.0");
  replace(text, "EndHeader\r\n\r\n", "EndHeader\n");
  EXPECT_EQ(open(text).digits, 50u);
  MemoryFiles files;
  expect_error([&] { KCDFile(L"none", files); }, ENOENT, "Unable to open file.", L"none");
  expect_error([&] { KCDFile(L"/", posix_files()); }, EISDIR, "Error Reading File", L"/");
}

TEST(KCDFile, BodyErrors) {
  MemoryFiles files;
  std::string text = kcd_file("3.", random_digits(250, 10, 12), 10, ONE_FILE, 0);
  files.put(L"f", text);
  const KCDFile file(L"f", files);
  u64 words[20];
  char out[300];
  file.read_words(0, words, 14);
  const std::string signature = "\nKCDFile::read_words(u64 position, u64* words, u64 count)";
  expect_error([&] { file.read_words(13, words, 2); }, -2147467256,
               "Read out of bounds.\nRequested Range: 13 - 15\nAvailable Range: 0 - 14" + signature, L"f");
  expect_error([&] { file.read_words(~u64{0}, words, 2); }, -2147467256,
               "Read out of bounds.\nRequested Range: 18446744073709551615 - 18446744073709551615\n"
               "Available Range: 0 - 14" +
                   signature,
               L"f");
  expect_error([&] { file.read_chars(249, out, 2, true); }, -2147467256, "Out of range.", L"f");
  // A word that is no 19 digits, and a body that is shorter than the header says.
  for (int byte = 0; byte < 8; ++byte) text[text.size() - 16 + static_cast<size_t>(byte)] = '\xff';
  files.put(L"g", text);
  const KCDFile bad(L"g", files);
  bad.read_chars(0, out, 228, false);
  expect_error([&] { bad.read_chars(0, out, 229, false); }, -2147479546, "Invalid Digit: 228", L"g");
  replace(text, "00250", "99999");
  files.put(L"h", text);
  const KCDFile cut(L"h", files);
  expect_error([&] { cut.read_words(14, words, 1); }, -2147479552, "Error Reading File", L"h");
  replace(text, "00000000000000099999", "18446744073709551615");
  files.put(L"i", text);
  expect_error([&] { KCDFile(L"i", files).read_words(970881267037344820, words, 1); }, -2147479552,
               "Error Reading File", L"i");
}

} // namespace
} // namespace kelvane::DigitViewer
