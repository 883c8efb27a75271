#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "olk_utils/trace_log.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"
#include "support/virtual_clock.h"
#include "talvex/talvex.h"

// Every calloc of the library passes here: the linker is told to wrap it.
namespace {
int allocations_until_failure = -1;
int64_t milliseconds_per_allocation = 0;
}  // namespace
extern "C" void* __real_calloc(size_t count, size_t size);
extern "C" void* __wrap_calloc(size_t count, size_t size) {
  if (allocations_until_failure == 0) return nullptr;
  if (allocations_until_failure > 0) --allocations_until_failure;
  virtual_clock::advance_ms(milliseconds_per_allocation);
  return __real_calloc(count, size);
}

// An impossible size fails in a sanitizer build as it does elsewhere, instead of ending the process.
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1";
}

namespace {

using testing::ElementsAre;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kReleased[] = "ERR [] OLK_Base64DecTblFree  rc[000] free B64_DecTable OK\n";

class Base64 : public testing::Test {
 protected:
  Base64() { bTraceLogsEnabled = 1; }
  ~Base64() override {
    allocations_until_failure = -1;
    milliseconds_per_allocation = 0;
    OLK_Base64DecTblFree();
  }
  static std::vector<std::string> messages() { return trace_messages("olk_utils.log"); }
  ScratchDirectory directory_;
};
class Base64Encoder : public Base64 {};
class Base64Decoder : public Base64 {};
class Base64Table : public Base64 {};
class Base64SelfTest : public Base64 {};

const unsigned char* bytes_of(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// Heap memory of exactly the documented size, so that a sanitizer sees every byte outside.
std::unique_ptr<char[]> exact_buffer(size_t size, char fill = '#') {
  std::unique_ptr<char[]> buffer(new char[size]);
  std::memset(buffer.get(), fill, size);
  return buffer;
}

std::unique_ptr<char[]> exact_copy(const std::string& text) {
  auto copy = exact_buffer(text.size());
  std::memcpy(copy.get(), text.data(), text.size());
  return copy;
}

std::string encoded(const std::string& bytes) {
  const auto in = exact_copy(bytes);
  uint64_t length = 12345;
  const size_t expected_length = (bytes.size() + 2) / 3 * 4;
  const auto out = exact_buffer(expected_length + 1);
  const int result =
      OLK_Base64Encoder(reinterpret_cast<const unsigned char*>(in.get()), bytes.size(), out.get(), &length);
  EXPECT_EQ(result, static_cast<int>(expected_length));
  EXPECT_EQ(length, expected_length);
  EXPECT_EQ(out[expected_length], '\0');
  return {out.get(), expected_length};
}

struct Decoded {
  int result;
  std::string bytes;
};

// The text has no terminator behind it, the buffer exactly the documented room.
Decoded decoded(const std::string& text, char fill = '#') {
  const auto in = exact_copy(text);
  const size_t room = text.size() / 4 * 3 + 1;
  const auto out = exact_buffer(room, fill);
  uint64_t length = 12345;
  const int result =
      OLK_Base64Decoder(in.get(), text.size(), reinterpret_cast<unsigned char*>(out.get()), &length);
  EXPECT_EQ(length, static_cast<uint64_t>(result));
  if (length >= room) {
    ADD_FAILURE() << "length " << length << " does not fit";
    return {result, ""};
  }
  EXPECT_EQ(out[length], '\0');
  return {result, {out.get(), length}};
}

// A second implementation, over a string of bits.
std::string model_encoded(const std::string& bytes) {
  std::string bits;
  for (const char byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) bits += (static_cast<unsigned char>(byte) >> bit & 1) != 0 ? '1' : '0';
  }
  while (bits.size() % 6 != 0) bits += '0';
  std::string text;
  for (size_t i = 0; i < bits.size(); i += 6) text += kAlphabet[std::stoul(bits.substr(i, 6), nullptr, 2)];
  while (text.size() % 4 != 0) text += '=';
  return text;
}

std::string random_bytes(std::mt19937& random, size_t length) {
  std::uniform_int_distribution<int> byte(0, 255);
  std::string bytes(length, '\0');
  for (char& character : bytes) character = static_cast<char>(byte(random));
  return bytes;
}

std::string output_of(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return "";
  std::string output;
  char part[4096];
  for (size_t count = 0; (count = fread(part, 1, sizeof part, pipe)) > 0;) output.append(part, count);
  pclose(pipe);
  return output;
}

TEST_F(Base64Encoder, OneTwoAndThreeBytes) {
  EXPECT_EQ(encoded("Man"), "TWFu");
  EXPECT_EQ(encoded("Ma"), "TWE=");
  EXPECT_EQ(encoded("M"), "TQ==");
  EXPECT_TRUE(messages().empty());
}

TEST_F(Base64Encoder, PublishedTestVectors) {
  EXPECT_EQ(encoded("f"), "Zg==");
  EXPECT_EQ(encoded("fo"), "Zm8=");
  EXPECT_EQ(encoded("foo"), "Zm9v");
  EXPECT_EQ(encoded("foob"), "Zm9vYg==");
  EXPECT_EQ(encoded("fooba"), "Zm9vYmE=");
  EXPECT_EQ(encoded("foobar"), "Zm9vYmFy");
}

TEST_F(Base64Encoder, LengthZeroFails) {
  char out[8] = "before";
  uint64_t length = 7;
  EXPECT_EQ(OLK_Base64Encoder(bytes_of("x"), 0, out, &length), -1);
  EXPECT_STREQ(out, "before");
  EXPECT_THAT(messages(), ElementsAre("ERR [] OLK_Base64Encoder  rc[-01] BinLen[000000] <= 0 Fail!\n"));
}

TEST_F(Base64Encoder, NoOutputLengthPointerFails) {
  char out[8] = "before";
  EXPECT_EQ(OLK_Base64Encoder(bytes_of("Man"), 3, out, nullptr), -1);
  EXPECT_STREQ(out, "before");
  EXPECT_THAT(messages(),
              ElementsAre("ERR [] OLK_Base64Encoder  rc[-01] BinLen[000003] pztB64OutLen=null\n"));
}

TEST_F(Base64Encoder, NeitherOutputNorLengthPointerFails) {
  EXPECT_EQ(OLK_Base64Encoder(bytes_of("Man"), 3, nullptr, nullptr), -1);
  EXPECT_EQ(OLK_Base64Encoder(nullptr, 0, nullptr, nullptr), -1);
}

TEST_F(Base64Encoder, NullInputWithALengthFails) {
  char out[8] = "before";
  uint64_t length = 0;
  EXPECT_EQ(OLK_Base64Encoder(nullptr, 3, out, &length), -1);
  EXPECT_EQ(OLK_Base64Encoder(nullptr, 3, nullptr, &length), -1);
  EXPECT_STREQ(out, "before");
  const std::string line = "ERR [] OLK_Base64Encoder  rc[-01] BinLen[000003] pBinIn=null\n";
  EXPECT_THAT(messages(), ElementsAre(line, line));
}

TEST_F(Base64Encoder, WithoutOutputBufferTellsTheLength) {
  for (uint64_t count = 1; count <= 100; ++count) {
    uint64_t length = 0;
    const std::string bytes(count, 'x');
    EXPECT_EQ(OLK_Base64Encoder(bytes_of(bytes), count, nullptr, &length),
              static_cast<int>((count + 2) / 3 * 4));
    EXPECT_EQ(length, (count + 2) / 3 * 4);
  }
}

TEST_F(Base64Encoder, LengthCallWithoutMemoryFails) {
  allocations_until_failure = 0;
  uint64_t length = 7;
  EXPECT_EQ(OLK_Base64Encoder(bytes_of("Man"), 3, nullptr, &length), -1);
  EXPECT_EQ(length, 0U);
  EXPECT_THAT(messages(), ElementsAre("ERR [] OLK_Base64Encoder  rc[-01] BinLen[000003] calloc fail\n"));
}

TEST_F(Base64Encoder, LengthCallOfAnImpossibleSizeFails) {
  for (const uint64_t count : {UINT64_MAX, UINT64_MAX - 1, UINT64_MAX - 2, uint64_t{1} << 62}) {
    uint64_t length = 7;
    EXPECT_EQ(OLK_Base64Encoder(bytes_of("Man"), count, nullptr, &length), -1);
    EXPECT_EQ(length, 0U);
  }
  EXPECT_EQ(messages().front(), "ERR [] OLK_Base64Encoder  rc[-01] BinLen[2147483647] calloc fail\n");
}

TEST_F(Base64Encoder, EveryLengthUpTo600AgreesWithTheModel) {
  std::mt19937 random(64);
  for (size_t length = 1; length <= 600; ++length) {
    const std::string bytes = random_bytes(random, length);
    ASSERT_EQ(encoded(bytes), model_encoded(bytes)) << length;
  }
}

TEST_F(Base64Encoder, EveryLengthUpTo600AgreesWithTheSystemsEncoder) {
  std::mt19937 random(65);
  const std::string bytes = random_bytes(random, 600);
  write_file("bytes", bytes);
  const std::string lines = output_of("for n in $(seq 600); do head -c $n bytes | base64 -w 0; echo; done");
  size_t start = 0;
  for (size_t length = 1; length <= 600; ++length) {
    const size_t end = lines.find('\n', start);
    ASSERT_NE(end, std::string::npos) << "the system's base64 gave no line for length " << length;
    ASSERT_EQ(encoded(bytes.substr(0, length)), lines.substr(start, end - start)) << length;
    start = end + 1;
  }
}

TEST_F(Base64Encoder, EveryPairOfBytes) {
  for (int high = 0; high < 256; ++high) {
    for (int low = 0; low < 256; low += 5) {
      const std::string bytes = {static_cast<char>(high), static_cast<char>(low)};
      ASSERT_EQ(encoded(bytes), model_encoded(bytes));
    }
  }
}

TEST_F(Base64Decoder, OneAndTwoBytes) {
  const Decoded one = decoded("TQ==");
  EXPECT_EQ(one.result, 1);
  EXPECT_EQ(one.bytes, "M");
  const Decoded two = decoded("TWE=");
  EXPECT_EQ(two.result, 2);
  EXPECT_EQ(two.bytes, "Ma");
}

// The line at the end of a decode of "TWFu".
std::string done_line(const unsigned char* out, int milliseconds) {
  char done[160];
  std::snprintf(done, sizeof done,
                "WRN [] OLK_Base64Decoder  rc[003] Base64InLen[000004] pBinOutData[%08Xh] BinOutLen[000003] "
                "t[%d]ms (Done)\n",
                static_cast<unsigned>(reinterpret_cast<uintptr_t>(out)), milliseconds);
  return done;
}

TEST_F(Base64Decoder, ReleaseIsTracedBeforeTheEnd) {
  unsigned char out[4] = {};
  uint64_t length = 0;
  EXPECT_EQ(OLK_Base64Decoder("TWFu", 4, out, &length), 3);
  EXPECT_THAT(messages(), ElementsAre(kReleased, done_line(out, 0)));
}

TEST_F(Base64Decoder, EndTellsTheElapsedMilliseconds) {
  milliseconds_per_allocation = 7;  // the table's
  unsigned char out[4] = {};
  uint64_t length = 0;
  EXPECT_EQ(OLK_Base64Decoder("TWFu", 4, out, &length), 3);
  EXPECT_THAT(messages(), ElementsAre(kReleased, done_line(out, 7)));
}

TEST_F(Base64Decoder, ReleaseIsAnErrorLineAndTheEndIsNot) {
  bTraceLogsEnabled = 0;
  bErrorLogsEnabled = 1;
  decoded("TWFu");
  EXPECT_THAT(messages(), ElementsAre(kReleased));
}

TEST_F(Base64Decoder, FiveCharactersGetAWarningAndThreeBytes) {
  const Decoded result = decoded("TWFuT");
  EXPECT_EQ(result.result, 3);
  EXPECT_EQ(result.bytes, "Man");
  EXPECT_EQ(messages().front(),
            "WRN [] OLK_Base64Decoder  rc[-101] Base64InLen[000005] [(ztBase64InLen % 4)]=[1] Exp[0] Pay "
            "Attention!!!!\n");
  EXPECT_EQ(messages().size(), 3U);
}

TEST_F(Base64Decoder, OtherOddLengths) {
  EXPECT_EQ(decoded("T").result, 0);
  EXPECT_EQ(decoded("TW").result, 0);
  EXPECT_EQ(decoded("TWF").result, 0);
  EXPECT_EQ(decoded("TWFuTW").bytes, "Man");
  EXPECT_EQ(decoded("TWFuTWF").bytes, "Man");
  EXPECT_EQ(decoded("TWFu=").bytes, "Ma");
}

TEST_F(Base64Decoder, LengthNeverFallsBelowZero) {
  EXPECT_EQ(decoded("=").result, 0);
  EXPECT_EQ(decoded("==").result, 0);
  EXPECT_EQ(decoded("===").result, 0);
}

TEST_F(Base64Decoder, EmptyTextGivesLengthZero) {
  EXPECT_EQ(decoded("").result, 0);
  EXPECT_EQ(messages().size(), 2U);
}

TEST_F(Base64Decoder, PaddingCharactersAreTestedEachOnItsOwn) {
  EXPECT_EQ(decoded("TWE=").result, 2);
  EXPECT_EQ(decoded("TW=u").result, 2);
  EXPECT_EQ(decoded("TW==").result, 1);
  EXPECT_EQ(decoded("====").result, 1);
  EXPECT_EQ(decoded("T===").result, 1);
}

TEST_F(Base64Decoder, OtherCharactersCountAsZero) {
  EXPECT_EQ(decoded("!!!!").bytes, std::string(3, '\0'));
  EXPECT_EQ(decoded("T!Fu").bytes, "L\x01n");
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  std::string zeros_for_others = every;
  for (char& character : zeros_for_others) {
    if (character == '\0' || std::strchr(kAlphabet, character) == nullptr) character = 'A';
  }
  EXPECT_EQ(decoded(every).bytes, decoded(zeros_for_others).bytes);
  EXPECT_EQ(decoded(every).result, 192);
}

TEST_F(Base64Decoder, EqualsSignInTheOutputBufferBlanksTheCharacterAtThatPlace) {
  char out[4] = {'#', '=', '#', '#'};
  uint64_t length = 0;
  ASSERT_EQ(OLK_Base64Decoder("TWFu", 4, reinterpret_cast<unsigned char*>(out), &length), 3);
  EXPECT_EQ(std::string(out, 3), decoded("TAFu").bytes);

  // From the output length on the buffer is not looked at.
  char padded[4] = {'#', '=', '=', '='};
  ASSERT_EQ(OLK_Base64Decoder("TW==", 4, reinterpret_cast<unsigned char*>(padded), &length), 1);
  EXPECT_EQ(std::string(padded), "M");

  EXPECT_EQ(decoded("TWFu", '=').bytes, decoded("AAAu").bytes);
}

TEST_F(Base64Decoder, NullPointersAreInvalidParameters) {
  unsigned char out[8] = "before";
  uint64_t length = 7;
  EXPECT_EQ(OLK_Base64Decoder(nullptr, 4, out, &length), -101);
  EXPECT_EQ(OLK_Base64Decoder("TWFu", 4, nullptr, &length), -101);
  EXPECT_EQ(OLK_Base64Decoder("TWFu", 4, out, nullptr), -101);
  EXPECT_EQ(OLK_Base64Decoder(nullptr, 0, nullptr, nullptr), -101);
  EXPECT_STREQ(reinterpret_cast<char*>(out), "before");
  EXPECT_EQ(length, 7U);
  const std::string line = "ERR [] OLK_Base64Decoder  rc[-101] pztBinOutLen=null Invalid Parameter\n";
  EXPECT_THAT(messages(), ElementsAre(line, line, line, line));
}

TEST_F(Base64Decoder, RefusedDecodeReleasesATableOfTheHost) {
  ASSERT_EQ(OLK_Base64DecTblAlloc(), 0);
  EXPECT_EQ(OLK_Base64Decoder(nullptr, 4, nullptr, nullptr), -101);
  EXPECT_EQ(psB64_DecTable, nullptr);
  EXPECT_THAT(
      messages(),
      ElementsAre("ERR [] OLK_Base64Decoder  rc[-101] pztBinOutLen=null Invalid Parameter\n", kReleased));
}

TEST_F(Base64Decoder, UsesATableOfTheHostAndReleasesIt) {
  ASSERT_EQ(OLK_Base64DecTblAlloc(), 0);
  psB64_DecTable[static_cast<unsigned char>('-')] = 62;
  EXPECT_EQ(decoded("-AAA").bytes, std::string("\xF8\0\0", 3));
  EXPECT_EQ(psB64_DecTable, nullptr);
  EXPECT_EQ(decoded("-AAA").bytes, std::string(3, '\0'));
}

TEST_F(Base64Decoder, TwoDecodesInARow) {
  EXPECT_EQ(decoded("TWFu").bytes, "Man");
  EXPECT_EQ(psB64_DecTable, nullptr);
  EXPECT_EQ(decoded("TWE=").bytes, "Ma");
  EXPECT_EQ(psB64_DecTable, nullptr);
}

TEST_F(Base64Decoder, WithoutMemoryForTheTable) {
  allocations_until_failure = 0;
  unsigned char out[8] = "before";
  uint64_t length = 7;
  EXPECT_EQ(OLK_Base64Decoder("TWFu", 4, out, &length), -103);
  EXPECT_STREQ(reinterpret_cast<char*>(out), "before");
  EXPECT_THAT(
      messages(),
      ElementsAre("ERR [] OLK_Base64DecTblAlloc  rc[-01] calloc psB64_DecTable[00000000h]fail\n",
                  "ERR [] OLK_Base64Decoder  rc[-103] Base64InLen[000004] Alloc_Base64_DecTable() fail\n"));
}

TEST_F(Base64Decoder, InPlace) {
  char text[] = "Zm9vYmE=";
  uint64_t length = 0;
  EXPECT_EQ(OLK_Base64Decoder(text, 8, reinterpret_cast<unsigned char*>(text), &length), 5);
  EXPECT_STREQ(text, "fooba");
}

TEST_F(Base64Decoder, RoundTripOfEveryLengthUpTo600) {
  bTraceLogsEnabled = 0;
  std::mt19937 random(66);
  for (size_t length = 1; length <= 600; ++length) {
    const std::string bytes = random_bytes(random, length);
    ASSERT_EQ(decoded(model_encoded(bytes)).bytes, bytes) << length;
  }
}

TEST_F(Base64Decoder, GarbageOfEveryLengthStaysInBounds) {
  bTraceLogsEnabled = 0;
  std::mt19937 random(67);
  for (size_t length = 0; length <= 600; ++length) {
    for (const char fill : {'#', '='}) {
      const Decoded result = decoded(random_bytes(random, length), fill);
      EXPECT_LE(result.result, static_cast<int>(length / 4 * 3));
      EXPECT_GE(result.result, length < 4 ? 0 : static_cast<int>(length / 4 * 3) - 2);
    }
  }
  EXPECT_EQ(decoded(std::string(10000, '=')).result, 7498);
}

TEST_F(Base64Table, Alphabet) {
  EXPECT_EQ(sizeof pB64_EncTable, 64U);
  EXPECT_EQ(std::string(pB64_EncTable, sizeof pB64_EncTable), kAlphabet);
}

TEST_F(Base64Table, PaddingCounts) {
  EXPECT_THAT(mod_table, ElementsAre(0, 2, 1));
}

TEST_F(Base64Table, IsAbsentAtFirst) {
  EXPECT_EQ(psB64_DecTable, nullptr);
  EXPECT_EQ(OLK_Base64DecTblFree(), 1);
  EXPECT_TRUE(messages().empty());
}

TEST_F(Base64Table, ReversesTheAlphabet) {
  ASSERT_EQ(OLK_Base64DecTblAlloc(), 0);
  for (int byte = 0; byte < 256; ++byte) {
    const char* found = byte == 0 ? nullptr : std::strchr(kAlphabet, byte);
    EXPECT_EQ(psB64_DecTable[byte], found == nullptr ? 0 : found - kAlphabet) << byte;
  }
  EXPECT_EQ(OLK_Base64DecTblFree(), 0);
  EXPECT_EQ(psB64_DecTable, nullptr);
  EXPECT_EQ(OLK_Base64DecTblFree(), 1);
  EXPECT_THAT(messages(), ElementsAre(kReleased));
}

TEST_F(Base64Table, SecondCreationRenewsTheSameTable) {
  ASSERT_EQ(OLK_Base64DecTblAlloc(), 0);
  const unsigned char* first = psB64_DecTable;
  psB64_DecTable[static_cast<unsigned char>('-')] = 62;
  ASSERT_EQ(OLK_Base64DecTblAlloc(), 0);
  EXPECT_EQ(psB64_DecTable, first);
  EXPECT_EQ(psB64_DecTable[static_cast<unsigned char>('-')], 0);
}

TEST_F(Base64Table, CreationWithoutMemoryFails) {
  allocations_until_failure = 0;
  EXPECT_EQ(OLK_Base64DecTblAlloc(), -1);
  EXPECT_THAT(messages(),
              ElementsAre("ERR [] OLK_Base64DecTblAlloc  rc[-01] calloc psB64_DecTable[00000000h]fail\n"));
}

// Trace lines and printed lines without the source line numbers.
constexpr char kTracePrefix[] = "[] [../src/olk_utils/olk_utils] [OLK_Base64_Test01]";
std::string without_line_numbers(const std::string& printed) {
  return std::regex_replace(printed, std::regex(R"(\[\d{4}\] \[)"), "[] [");
}

std::vector<std::string> self_test_lines(const std::vector<std::string>& messages) {
  std::vector<std::string> own;
  for (const std::string& message : messages) {
    if (message.find("[OLK_Base64_Test01]") != std::string::npos) own.push_back(message);
  }
  return own;
}

struct SelfTest {
  int result;
  std::string printed;
};

SelfTest run_self_test() {
  testing::internal::CaptureStdout();
  const int result = OLK_Base64_Test01();
  std::fflush(stdout);
  return {result, without_line_numbers(testing::internal::GetCapturedStdout())};
}

TEST_F(Base64SelfTest, Matches) {
  const std::string prefix = kTracePrefix;
  const SelfTest test = run_self_test();
  EXPECT_EQ(test.result, 24);
  EXPECT_EQ(test.printed, prefix + " rc[-0001]      ClearDataIn[024:Testando Base64 Encoding]\n" + prefix +
                              " rc[00032]    Base64DataOut[032:VGVzdGFuZG8gQmFzZTY0IEVuY29kaW5n]\n" + prefix +
                              " rc[00024]     ClearDataOut[024:Testando Base64 Encoding]MATCH\n");
  EXPECT_THAT(
      self_test_lines(messages()),
      ElementsAre("INF " + prefix + " rc[-0001]WR:   ClearDataIn[024:Testando Base64 Encoding]\n",
                  "INF " + prefix + " rc[00032]OK: Base64DataOut[032:VGVzdGFuZG8gQmFzZTY0IEVuY29kaW5n]\n",
                  "INF " + prefix + " rc[00024]OK:  ClearDataOut[024:Testando Base64 Encoding]MATCH\n"));
}

TEST_F(Base64SelfTest, ReportsAMismatch) {
  const std::string prefix = kTracePrefix;
  ASSERT_EQ(OLK_Base64DecTblAlloc(), 0);
  psB64_DecTable[static_cast<unsigned char>('V')] = psB64_DecTable[static_cast<unsigned char>('Z')];
  const SelfTest test = run_self_test();
  EXPECT_EQ(test.result, 24);
  const std::string printed_line = " rc[00024]ER   ClearDataOut[024:dfstando Base64 Fncoding]MISMATCH\n";
  EXPECT_TRUE(test.printed.ends_with(prefix + printed_line)) << test.printed;
  EXPECT_EQ(self_test_lines(messages()).back(),
            "INF " + prefix + " rc[00024]ER:  ClearDataOut[024:dfstando Base64 Fncoding]MISMATCH\n");
}

TEST_F(Base64SelfTest, ReportsAFailedDecode) {
  const std::string prefix = kTracePrefix;
  allocations_until_failure = 0;
  const SelfTest test = run_self_test();
  EXPECT_EQ(test.result, -103);
  EXPECT_TRUE(test.printed.ends_with(prefix + " rc[-0103]ER:\n")) << test.printed;
  EXPECT_EQ(self_test_lines(messages()).back(), "ERR " + prefix + " rc[-0103]ER:\n");
}

}  // namespace
