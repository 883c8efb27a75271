#include "olk_sat_utils/frames.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>

#include "unit/sat_utils_trace.h"
#include "vectors/frame_vectors.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const unsigned char* bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.c_str());
}

// The text with a last byte that makes the sum of all bytes the wanted one.
std::string with_sum(const std::string& text, unsigned wanted) {
  unsigned sum = 0;
  for (const char byte : text) sum += static_cast<unsigned char>(byte);
  return text + static_cast<char>(wanted - sum);
}

class CalcCkeckSum : public SatUtilsTraceTest {};

TEST_F(CalcCkeckSum, SkipsTheStx) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("\2AB"), 3), 0x83);
  EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(CalcCkeckSum, RefusesATextOfTwoCharacters) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("AB"), 2), 0);
  EXPECT_THAT(take_lines(),
              ElementsAre("INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL iBufLen[02] < pBuf[0002:AB]-3\n"));
}

TEST_F(CalcCkeckSum, RefusesEveryLengthOfATextBelowThreeCharacters) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(""), 1), 0);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("A"), 1), 0);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("AB"), INT_MAX), 0);
  EXPECT_THAT(
      take_lines(),
      ElementsAre("INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL iBufLen[01] < pBuf[0000:]-3\n",
                  "INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL iBufLen[01] < pBuf[0001:A]-3\n",
                  "INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL iBufLen[2147483647] < pBuf[0002:AB]-3\n"));
}

TEST_F(CalcCkeckSum, AcceptsALengthThreeBelowTheText) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("ABC"), 1), 0x41);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("ABCDE"), 2), 0x83);
  EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(CalcCkeckSum, RefusesALengthFourBelowTheText) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("ABCDE"), 1), 0);
  EXPECT_THAT(
      take_lines(),
      ElementsAre("INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL iBufLen[01] < pBuf[0005:ABCDE]-3\n"));
}

TEST_F(CalcCkeckSum, RefusesLengthZeroOfAnyText) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("ABC"), 0), 0);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(""), 0), 0);
  EXPECT_THAT(take_lines(),
              ElementsAre("INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL iBufLen[00] < pBuf[0003:ABC]-3\n",
                          "INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL iBufLen[00] < pBuf[0000:]-3\n"));
}

TEST_F(CalcCkeckSum, ANegativeLengthCountsAsHugeAndSumsNothing) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("ABC"), -1), 0);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("ABC"), INT_MIN), 0);
  EXPECT_THAT(take_lines(), IsEmpty());
}

// Both sides count as unsigned 64-bit numbers, also the text's length less 3.
TEST_F(CalcCkeckSum, ANegativeLengthIsLongEnoughForAShortTextUpToItsOwnWrap) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("AB"), -1), 0);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(""), -3), 0);
  EXPECT_THAT(take_lines(), IsEmpty());
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("AB"), -2), 0);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(""), -4), 0);
  EXPECT_THAT(take_lines(),
              ElementsAre("INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL iBufLen[-2] < pBuf[0002:AB]-3\n",
                          "INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL iBufLen[-4] < pBuf[0000:]-3\n"));
}

TEST_F(CalcCkeckSum, SkipsNoOtherControlByteInFront) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("\1AB"), 3), 0x84);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("\3AB"), 3), 0x86);
}

TEST_F(CalcCkeckSum, RefusesNull) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(nullptr, 5), 0);
  EXPECT_THAT(take_lines(), ElementsAre("INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL pBuf=NULL\n"));
}

TEST_F(CalcCkeckSum, NeverIsEtx) {
  const std::string text = with_sum("ABCD", 0x103);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(text), 5), 0x04);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(with_sum("ABCD", 0x104)), 5), 0x04);
  EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(CalcCkeckSum, ReportsTheClosingBraceAsPipe) {
  const std::string text = with_sum("ABCDE", 0x17D);
  ASSERT_EQ(text, "ABCDE.");
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(text), 6), 0x7D);
  EXPECT_THAT(take_lines(), ElementsAre("INF [SAT_API_CalcCkeckSum] ucCheckSum[7Dh]=PIPE iBufLen[06]\n"
                                        "\t   pBuf[0006:ABCDE.] ucCheckSum[}]\n"));
}

TEST_F(CalcCkeckSum, DoesNotReportTheRealPipe) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(with_sum("ABCDE", 0x17C)), 6), 0x7C);
  EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(CalcCkeckSum, ZeroIsReturnedWithoutAMessage) {
  const std::string text = with_sum("ABC", 0x100);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(text), 4), 0x00);
  EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(CalcCkeckSum, SumsEveryByteOfTheCountCheckSumAndEtxIncluded) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("\2AB\x83\x03"), 5), (0x41 + 0x42 + 0x83 + 0x03) & 0xFF);
}

TEST_F(CalcCkeckSum, SumsBytesBehindTheStringTerminatorToo) {
  const std::string text("ABC\0\x10", 5);
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(text), 5), 0x41 + 0x42 + 0x43 + 0x10);
}

TEST_F(CalcCkeckSum, ASecondStxIsAnOrdinaryByte) {
  EXPECT_EQ(SAT_API_CalcCkeckSum(bytes("\x02\x02\x02\x02"), 4), 6);
}

TEST_F(CalcCkeckSum, ReadsNoByteBehindTheGivenLength) {
  const std::unique_ptr<unsigned char[]> exact(new unsigned char[4]{'A', 'B', 'C', 0});
  EXPECT_EQ(SAT_API_CalcCkeckSum(exact.get(), 4), 0xC6);
}

TEST_F(CalcCkeckSum, ValuesOfEverySum) {
  for (unsigned sum = 0; sum < 256; ++sum) {
    const std::string text = with_sum("\2xyz", sum + 2);
    EXPECT_EQ(SAT_API_CalcCkeckSum(bytes(text), static_cast<int>(text.size())), sum == 3 ? 4 : sum);
  }
}

class CreatePacket : public SatUtilsTraceTest {
 protected:
  // The frame made of the message, in a buffer of the smallest size that is promised to do.
  std::string create(const std::string& message, int expected_length) {
    const std::size_t room = message.size() + 2;
    const std::unique_ptr<unsigned char[]> packet(new unsigned char[room]);
    std::memset(packet.get(), 0xEE, room);
    int stored_length = -77;
    const int length =
        SAT_API_CreatePacket(bytes(message), static_cast<int>(message.size()), packet.get(), &stored_length);
    EXPECT_EQ(length, expected_length);
    EXPECT_EQ(stored_length, expected_length);
    for (std::size_t i = static_cast<std::size_t>(expected_length); i < room; ++i) {
      EXPECT_EQ(packet[i], 0xEE) << "written behind the frame at " << i;
    }
    return {reinterpret_cast<char*>(packet.get()), static_cast<std::size_t>(expected_length)};
  }
};

TEST_F(CreatePacket, OfAMessageWithStxAppendsTwoBytes) {
  EXPECT_EQ(create("\2ABC", 6), "\2ABC\xC6\x03");
  EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(CreatePacket, OfAMessageWithoutStxOverwritesItsLastTwoBytes) {
  EXPECT_EQ(create(std::string("ABC\0\0", 5), 6), "\2ABC\xC6\x03");
  EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(CreatePacket, WithoutZeroBytesStillSumsTheWholeMessage) {
  EXPECT_EQ(create("ABCDE", 6),
            std::string("\2ABC") + static_cast<char>(0x41 + 0x42 + 0x43 + 0x44 + 0x45 - 0x100) + "\x03");
}

TEST_F(CreatePacket, OfTwoCharactersCarriesZeroBecauseTheChecksumIsRefused) {
  EXPECT_EQ(create(std::string("AB\0\0", 4), 5), std::string("\2AB\0\x03", 5));
  EXPECT_THAT(take_lines(),
              ElementsAre("INF [SAT_API_CalcCkeckSum] ucCheckSum[00h]=NULL iBufLen[04] < pBuf[0002:AB]-3\n",
                          "INF [SAT_API_CreatePacket]    pSatPkt[03]=[00h]rc-2=CHECKSUM=0x00!!!!!!\n",
                          "INF [SAT_API_CreatePacket]    pSatPkt[04]=[03h]rc-1=ETX\n",
                          "INF [SAT_API_CreatePacket]    rc[000005]WR\n\t *piSatPktLen[05]>> SAT-PC "
                          "pSatPkt[0003:\2AB<0x00><ETX>]\n"));
}

TEST_F(CreatePacket, WithZeroChecksumIsTracedAndReturned) {
  const std::string message = with_sum("\2ABC", 0x102);
  EXPECT_EQ(create(message, 7), message + std::string("\0\x03", 2));
  EXPECT_THAT(take_lines(),
              ElementsAre("INF [SAT_API_CreatePacket]    pSatPkt[05]=[00h]rc-2=CHECKSUM=0x00!!!!!!\n",
                          "INF [SAT_API_CreatePacket]    pSatPkt[06]=[03h]rc-1=ETX\n",
                          "INF [SAT_API_CreatePacket]    rc[000007]WR\n\t *piSatPktLen[07]>> SAT-PC "
                          "pSatPkt[0005:" +
                              message + "<0x00><ETX>]\n"));
}

TEST_F(CreatePacket, WithZeroChecksumIsShownUpToItsFirstZeroByte) {
  const std::string message = with_sum(std::string("\2ABC\0", 5), 0x102);
  EXPECT_EQ(create(message, 8), message + std::string("\0\x03", 2));
  EXPECT_THAT(take_lines(),
              ElementsAre("INF [SAT_API_CreatePacket]    pSatPkt[06]=[00h]rc-2=CHECKSUM=0x00!!!!!!\n",
                          "INF [SAT_API_CreatePacket]    pSatPkt[07]=[03h]rc-1=ETX\n",
                          "INF [SAT_API_CreatePacket]    rc[000008]WR\n\t *piSatPktLen[08]>> SAT-PC "
                          "pSatPkt[0004:\2ABC<0x00><ETX>]\n"));
}

TEST_F(CreatePacket, LetsTheChecksumSpeakFirst) {
  const std::string message = with_sum("\2ABCDE", 0x17D + 2);
  EXPECT_EQ(create(message, 9), message + "}\x03");
  EXPECT_THAT(take_lines(), ElementsAre("INF [SAT_API_CalcCkeckSum] ucCheckSum[7Dh]=PIPE iBufLen[07]\n"
                                        "\t   pBuf[0007:\2ABCDE.] ucCheckSum[}]\n"));
}

TEST_F(CreatePacket, OfTheStxAlone) {
  EXPECT_EQ(create("\2", 3), std::string("\x02\0\x03", 3));
}

TEST_F(CreatePacket, OfNoByteOfAMessageWithStxIsItsTwoClosingBytes) {
  const unsigned char message[] = "\2ABC";
  unsigned char packet[] = {0xEE, 0xEE, 0xEE};
  int length = -77;
  EXPECT_EQ(SAT_API_CreatePacket(message, 0, packet, &length), 2);
  EXPECT_EQ(length, 2);
  EXPECT_THAT(packet, ElementsAre(0x00, 0x03, 0xEE));
}

TEST_F(CreatePacket, OfOneByteOverwritesTheStx) {
  EXPECT_EQ(create("A", 2), std::string("\0\x03", 2));
}

TEST_F(CreatePacket, InPlace) {
  unsigned char buffer[8] = {'A', 'B', 'C', 0, 0, 0xEE, 0xEE, 0xEE};
  int length = 0;
  EXPECT_EQ(SAT_API_CreatePacket(buffer, 5, buffer, &length), 6);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 8), "\2ABC\xC6\x03\xEE\xEE");
}

std::string refusal(const void* message, const void* packet, const void* length) {
  char text[256];
  std::snprintf(text, sizeof text,
                "ERR [SAT_API_CreatePacket] rc[-00001]ER:INVALID_PARAM pSatMsg[%08Xh] pSatPkt[%08Xh] "
                "piSatPktLen[%08Xh]\n",
                static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(message)),
                static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(packet)),
                static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(length)));
  return text;
}

TEST_F(CreatePacket, RefusesEveryMissingPointer) {
  const unsigned char message[] = "\2ABC";
  unsigned char packet[8];
  int length = -77;
  log_only(kError);
  EXPECT_EQ(SAT_API_CreatePacket(nullptr, 4, packet, &length), -1);
  EXPECT_EQ(SAT_API_CreatePacket(message, 4, nullptr, &length), -1);
  EXPECT_EQ(SAT_API_CreatePacket(message, 4, packet, nullptr), -1);
  EXPECT_EQ(length, -77);
  EXPECT_THAT(take_lines(), ElementsAre(refusal(nullptr, packet, &length), refusal(message, nullptr, &length),
                                        refusal(message, packet, nullptr)));
}

TEST_F(CreatePacket, RefusesALengthThatFitsNoFrame) {
  const unsigned char with_stx[] = "\2ABC";
  const unsigned char without_stx[] = "ABC";
  unsigned char packet[8];
  std::memset(packet, 0xEE, sizeof packet);
  int length = -77;
  EXPECT_EQ(SAT_API_CreatePacket(with_stx, -1, packet, &length), -1);
  EXPECT_EQ(SAT_API_CreatePacket(without_stx, 0, packet, &length), -1);
  EXPECT_EQ(SAT_API_CreatePacket(without_stx, -1, packet, &length), -1);
  EXPECT_EQ(SAT_API_CreatePacket(without_stx, INT_MIN, packet, &length), -1);
  EXPECT_EQ(SAT_API_CreatePacket(without_stx, INT_MAX, packet, &length), -1);
  EXPECT_EQ(SAT_API_CreatePacket(without_stx, INT_MAX - 1, packet, &length), -1);
  EXPECT_EQ(length, -77);
  for (const unsigned char byte : packet) EXPECT_EQ(byte, 0xEE);
  EXPECT_THAT(take_lines(),
              ElementsAre(refusal(with_stx, packet, &length), refusal(without_stx, packet, &length),
                          refusal(without_stx, packet, &length), refusal(without_stx, packet, &length),
                          refusal(without_stx, packet, &length), refusal(without_stx, packet, &length)));
}

TEST_F(CreatePacket, MakesTheGoldenFrames) {
  log_only(0);
  int count = 0;
  for (const FrameVector& vector : read_frame_vectors(TALVEX_VECTORS_DIR "/frames.txt")) {
    if (!vector.is_valid) continue;
    ++count;
    const int length = static_cast<int>(vector.bytes.size());
    EXPECT_EQ(create(vector.bytes.substr(0, vector.bytes.size() - 2), length), vector.bytes)
        << vector.comment;
  }
  EXPECT_GE(count, 25);
}

TEST_F(CreatePacket, MakesNoDamagedFrame) {
  log_only(0);
  int count = 0;
  for (const FrameVector& vector : read_frame_vectors(TALVEX_VECTORS_DIR "/frames.txt")) {
    if (vector.is_valid || vector.bytes.size() < 4) continue;
    ++count;
    const int length = static_cast<int>(vector.bytes.size());
    EXPECT_NE(create(vector.bytes.substr(0, vector.bytes.size() - 2), length), vector.bytes)
        << vector.comment;
  }
  EXPECT_GE(count, 4);
}

class DecodeSatCmd : public SatUtilsTraceTest {};

TEST_F(DecodeSatCmd, IsRefusedForAnyInput) {
  unsigned char command[] = "\2AB\x83\x03";
  EXPECT_EQ(SAT_API_DecodeSatCmd(command, 5), -1);
  EXPECT_EQ(SAT_API_DecodeSatCmd(command, 0), -1);
  EXPECT_EQ(SAT_API_DecodeSatCmd(command, -5), -1);
  EXPECT_STREQ(reinterpret_cast<char*>(command), "\2AB\x83\x03");
  EXPECT_THAT(take_lines(), IsEmpty());
}

TEST_F(DecodeSatCmd, ReportsNull) {
  log_only(kError);
  EXPECT_EQ(SAT_API_DecodeSatCmd(nullptr, 5), -1);
  EXPECT_THAT(take_lines(), ElementsAre("ERR [SAT_API_DecodeSatCmd] rc[-001]ER:    pSatCmdParam=NULL\n"));
}

TEST(ShowHexText, HasTwoUpperCaseDigitsForEachByte) {
  const unsigned char data[] = {0x00, 0x02, 0x7C, 0xAB, 0xEF, 0xFF};
  EXPECT_STREQ(ShowHex(data, 6), "00027CABEFFF");
}

TEST(ShowHexText, IsEmptyWithoutBytes) {
  const unsigned char data[] = {0x11};
  ShowHex(data, 1);
  EXPECT_STREQ(ShowHex(data, 0), "");
  EXPECT_STREQ(ShowHex(data, -1), "");
  EXPECT_STREQ(ShowHex(nullptr, 5), "");
}

TEST(ShowHexText, StopsAfter2044Bytes) {
  std::string data(3000, '\0');
  std::iota(data.begin(), data.end(), '\0');
  const std::string text = ShowHex(bytes(data), 3000);
  ASSERT_EQ(text.size(), 4088u);
  EXPECT_EQ(text.substr(0, 6), "000102");
  EXPECT_EQ(text.substr(4084), "FAFB");
  EXPECT_EQ(std::strlen(ShowHex(bytes(data), 2044)), 4088u);
  EXPECT_EQ(std::strlen(ShowHex(bytes(data), 2043)), 4086u);
}

TEST(ShowHexText, IsOverwrittenByTheNextCall) {
  const unsigned char data[] = {0x12, 0x34};
  const char* const text = ShowHex(data, 2);
  EXPECT_EQ(ShowHex(data + 1, 1), text);
  EXPECT_STREQ(text, "34");
}

TEST(FrameVectors, EndWithTheirOnlyEtx) {
  for (const FrameVector& vector : read_frame_vectors(TALVEX_VECTORS_DIR "/frames.txt")) {
    ASSERT_GE(vector.bytes.size(), 2u);
    EXPECT_EQ(vector.bytes.front(), kStx) << vector.comment;
    EXPECT_EQ(vector.bytes.find(kEtx), vector.bytes.size() - 1) << vector.comment;
  }
}

}  // namespace
