#include "records/recording.h"

#include <gmock/gmock.h>

#include "device/crypto.h"
#include "device/functions.h"
#include "line/frame.h"
#include "records/masked_traffic.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"

namespace emulator {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr auto kFromTill = Direction::from_till;
constexpr auto kToTill = Direction::to_till;

std::string all_bytes() {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  return bytes;
}

TEST(RecordingLine, IsReadable) {
  EXPECT_EQ(to_recording_line({1.5, kFromTill, make_frame("ConsultarSAT|000042")}),
            "1.500000 PC->SAT \\x02ConsultarSAT|000042E\\x03");
  EXPECT_EQ(to_recording_line({0, kToTill, "\x06"}), "0.000000 SAT->PC \\x06");
}

TEST(RecordingLine, KeepsEveryByte) {
  for (const std::string& bytes :
       {all_bytes(), std::string("  two blanks  "), std::string("\\x02"), std::string(" ")}) {
    const auto records = parse_recording(to_recording_line({0.25, kToTill, bytes}) + "\n");
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].bytes, bytes);
    EXPECT_EQ(records[0].direction, kToTill);
    EXPECT_EQ(records[0].seconds, 0.25);
  }
}

TEST(ParseRecording, SkipsCommentsAndNamesWrongLines) {
  EXPECT_TRUE(parse_recording("# comment\n\n").empty());
  for (const char* text : {"# x\nnothing", "\n0 PC>SAT x", "\n0 PC->SAT", "\n0 PC->SAT \\", "\nx PC->SAT y",
                           "\n0 PC->SAT \\xg1", "\n0 PC->SAT \\x1"}) {
    try {
      parse_recording(text);
      ADD_FAILURE() << text;
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), HasSubstr("line 2: ")) << text;
    }
  }
}

void mask(std::vector<RecordedBytes>& records) {
  TrafficMask().apply(records);
}

// The text of one frame as a masked recording holds it.
std::string masked_text(Direction direction, const std::string& text) {
  std::vector<RecordedBytes> records{{0, direction, make_frame(text)}};
  mask(records);
  const std::string& frame = records[0].bytes;
  EXPECT_EQ(frame.size(), text.size() + 3);
  std::string masked = frame.substr(1, text.size());
  EXPECT_EQ(frame, make_frame(masked));
  return masked;
}

TEST(MaskedTraffic, HidesCodesAndPeopleInCommands) {
  const auto masked = [](const char* text) { return masked_text(kFromTill, text); };
  EXPECT_EQ(masked("ConsultarStatusOperacional|000001|segredo1"),
            "ConsultarStatusOperacional|000001|xxxxxxxx");
  EXPECT_EQ(masked("AtivarSAT|000001|1|segredo1|11222333000181|35"),
            "AtivarSAT|000001|1|xxxxxxxx|00000000000000|35");
  EXPECT_EQ(masked("TrocarCodigoDeAtivacao|000001|antigo12|1|novo1234|novo1234"),
            "TrocarCodigoDeAtivacao|000001|xxxxxxxx|1|xxxxxxxx|xxxxxxxx");
  EXPECT_EQ(masked("ConsultarSAT|000001"), "ConsultarSAT|000001");
  EXPECT_EQ(masked("Inventada"), "xxxxxxxxx");
  EXPECT_EQ(masked("EnviarDadosVenda|000001|segredo1|<CFe><dest><CPF>52998224725</CPF></dest></CFe>"),
            "EnviarDadosVenda|000001|xxxxxxxx|<CFe/>                                        ");
}

TEST(MaskedTraffic, LeavesDocumentsThatCanBeRead) {
  for (const std::size_t size : {30U, 31U, 32U, 200U}) {
    const std::string xml = "<CFe><CPF>52998224725</CPF>" + std::string(size, 'A');
    std::string base64 = base64_encode(xml);
    for (std::size_t at = 76; at < base64.size(); at += 78) base64.insert(at, "\r\n");
    const std::string masked =
        masked_text(kToTill, "000001|06000|0000|Ana|||" + base64 +
                                 "|20260301100000|CFe35260311222333000181599000000010000011234564|10.00|"
                                 "52998224725|QUJDREVGR0g=");
    const auto fields = split_fields(masked);
    EXPECT_EQ(fields[3], "xxx");
    EXPECT_EQ(fields[6].size(), base64.size());
    EXPECT_EQ(base64_decode(fields[6])->size(), xml.size());
    EXPECT_THAT(*base64_decode(fields[6]), testing::MatchesRegex("<CFe/> *"));
    EXPECT_EQ(fields[7], "20260301100000");
    EXPECT_EQ(fields[8], "CFe35260300000000000000000000000000000000004564");
    EXPECT_EQ(fields[9], "10.00");
    EXPECT_EQ(fields[10], "00000000000");
    EXPECT_EQ(fields[11], "PENGZS8+ICA=");
  }
  EXPECT_EQ(masked_text(kToTill, "000001|08000|SAT em operacao||"), "000001|08000|SAT em operacao||");
}

TEST(MaskedTraffic, FillsWhatStandsOutsideOfFramesAndKeepsTheAnswers) {
  std::vector<RecordedBytes> records{
      {0, kToTill, "segredo1\x06seg\x15" + make_frame("Ana Lima|1") + "redo1"}};
  mask(records);
  EXPECT_EQ(records[0].bytes, "xxxxxxxx\x06xxx\x15" + make_frame("xxxxxxxx|0") + "xxxxx");
}

TEST(MaskedTraffic, HidesCodesWhereverTheyStand) {
  std::vector<RecordedBytes> records{
      {0, kFromTill, make_frame("ExtrairLogs|000001|20260301")},
      {1, kToTill, make_frame("000001|15001|Codigo invalido||")},
      {2, kFromTill, make_frame("TesteFimAFim|000002|20260301|<CFe/>")},
      {3, kToTill, make_frame("000002|09000|Emitido com sucesso|||QUJD|20260301100000")}};
  mask(records);
  EXPECT_THAT(records[3].bytes, HasSubstr("|xxxxxxxx100000"));
}

TEST(MaskedTraffic, KeepsLengthsPiecesAndRightAndWrongChecksums) {
  const std::string good = make_frame("ConsultarStatusOperacional|000001|segredo1");
  const std::string bad = spoil_checksum(good);
  std::vector<RecordedBytes> records{{0, kFromTill, bad.substr(0, 30)},
                                     {1, kToTill, "\x06"},
                                     {2, kFromTill, bad.substr(30)},
                                     {3, kFromTill, good}};
  mask(records);
  EXPECT_EQ(records[0].bytes.size(), 30U);
  const std::string first = records[0].bytes + records[2].bytes, second = records[3].bytes;
  EXPECT_EQ(second, make_frame("ConsultarStatusOperacional|000001|xxxxxxxx"));
  EXPECT_EQ(first.substr(0, first.size() - 2), second.substr(0, second.size() - 2));
  EXPECT_NE(first, second);
  EXPECT_EQ(records[1].bytes, "\x06");
}

TEST(MaskedTraffic, HidesFramesThatBrokeOff) {
  const std::string frame = make_frame("ConsultarStatusOperacional|000001|segredo1");
  std::vector<RecordedBytes> records{{0, kFromTill, frame.substr(0, 40) + frame},
                                     {1, kFromTill, frame.substr(0, 41)}};
  mask(records);
  for (const auto& record : records) {
    EXPECT_THAT(record.bytes, Not(HasSubstr("segredo"))) << record.bytes;
    EXPECT_THAT(record.bytes, Not(HasSubstr("segr"))) << record.bytes;
  }
}

TEST(Recorder, WritesLinesThatCanBeReadBack) {
  const ScratchDirectory scratch;
  {
    Recorder recorder("day.txt", false);
    recorder.record(kFromTill, "abc");
    EXPECT_THAT(read_file("day.txt"), HasSubstr("PC->SAT abc\n"));  // at once: a killed emulator leaves it
    recorder.record(kToTill, "\x06");
  }
  const auto records = parse_recording(read_file("day.txt"));
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[1].bytes, "\x06");
  EXPECT_GE(records[1].seconds, records[0].seconds);
}

TEST(Recorder, PersonalDataNeverReachTheFileOfAMaskedRecording) {
  const ScratchDirectory scratch;
  const std::string frame = make_frame("ConsultarStatusOperacional|000001|segredo1");
  Recorder recorder("day.txt", true);
  recorder.record(kFromTill, frame.substr(0, 38));
  EXPECT_THAT(read_file("day.txt"), Not(HasSubstr("PC->SAT")));
  recorder.record(kFromTill, frame.substr(38));
  EXPECT_THAT(read_file("day.txt"), HasSubstr("xxx"));
  EXPECT_THAT(read_file("day.txt"), Not(HasSubstr("seg")));
}

TEST(Recorder, AnUnfinishedFrameIsHiddenAtTheEnd) {
  const ScratchDirectory scratch;
  {
    Recorder recorder("day.txt", true);
    recorder.record(kFromTill,
                    "\x02"
                    "ConsultarStatusOperacional|000001|segre");
  }
  EXPECT_THAT(read_file("day.txt"), HasSubstr("PC->SAT \\x02xxx"));
  EXPECT_THAT(read_file("day.txt"), Not(HasSubstr("seg")));
}

}  // namespace
}  // namespace emulator
