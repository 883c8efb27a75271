#include "records/recording.h"

#include <gmock/gmock.h>

#include "device/crypto.h"
#include "device/functions.h"
#include "line/frame.h"
#include "records/masking.h"
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

TEST(MaskCommand, HidesCodesAndPeople) {
  EXPECT_EQ(mask_command("ConsultarStatusOperacional|000001|segredo1"),
            "ConsultarStatusOperacional|000001|xxxxxxxx");
  EXPECT_EQ(mask_command("AtivarSAT|000001|1|segredo1|11222333000181|35"),
            "AtivarSAT|000001|1|xxxxxxxx|11222333000181|35");
  EXPECT_EQ(mask_command("TrocarCodigoDeAtivacao|000001|antigo12|1|novo1234|novo1234"),
            "TrocarCodigoDeAtivacao|000001|xxxxxxxx|1|xxxxxxxx|xxxxxxxx");
  EXPECT_EQ(mask_command("ConsultarSAT|000001"), "ConsultarSAT|000001");
  EXPECT_EQ(mask_command("Inventada"), "Inventada");
  const std::string masked = mask_command(
      "EnviarDadosVenda|000001|segredo1|<CFe><emit><CNPJ>11222333000181</CNPJ></emit><dest><CPF>52998224725</CPF>"
      "<xNome>Ana Lima</xNome></dest><entrega><xLgr>Rua 7</xLgr></entrega><infAdic><infCpl>Ana</infCpl></infAdic></CFe>");
  EXPECT_EQ(
      masked,
      "EnviarDadosVenda|000001|xxxxxxxx|<CFe><emit><CNPJ>11222333000181</CNPJ></emit><dest><CPF>00000000000</CPF>"
      "<xNome>XXX XXXX</xNome></dest><entrega><xLgr>XXX 0</xLgr></entrega><infAdic><infCpl>XXX</infCpl></infAdic></CFe>");
}

TEST(MaskReply, HidesPeopleInsideBase64) {
  const std::string xml = "<CFe><dest><CPF>52998224725</CPF></dest></CFe>";
  std::string base64 = base64_encode(xml);
  base64.insert(20, "\r\n");
  const std::string masked =
      mask_reply("000001|06000|0000|m|||" + base64 + "|20260301100000|CFe1|10.00|52998224725|QUJD");
  EXPECT_THAT(masked, Not(HasSubstr("52998224725")));
  const auto fields = split_fields(masked);
  EXPECT_EQ(fields[6].substr(20, 2), "\r\n");
  EXPECT_EQ(fields[6].size(), base64.size());
  EXPECT_EQ(*base64_decode(fields[6]), "<CFe><dest><CPF>00000000000</CPF></dest></CFe>");
  EXPECT_EQ(fields[10], "00000000000");
  EXPECT_EQ(fields[11], "XXXX");
  EXPECT_EQ(mask_reply("000001|08000|SAT em operação||"), "000001|08000|SAT em operação||");
}

TEST(Masking, KeepsLengthsPiecesAndRightAndWrongChecksums) {
  const std::string good = make_frame("ConsultarStatusOperacional|000001|segredo1");
  const std::string bad = spoil_checksum(good);
  std::vector<RecordedBytes> records{{0, kFromTill, bad.substr(0, 30)},
                                     {1, kToTill, "\x06"},
                                     {2, kFromTill, bad.substr(30)},
                                     {3, kFromTill, good}};
  mask_personal_data(records);
  EXPECT_EQ(records[0].bytes.size(), 30U);
  const std::string first = records[0].bytes + records[2].bytes, second = records[3].bytes;
  EXPECT_EQ(second, make_frame("ConsultarStatusOperacional|000001|xxxxxxxx"));
  EXPECT_EQ(first.substr(0, first.size() - 2), second.substr(0, second.size() - 2));
  EXPECT_NE(first, second);
  EXPECT_EQ(records[1].bytes, "\x06");
}

TEST(Masking, HidesFramesThatBrokeOff) {
  const std::string frame = make_frame("ConsultarStatusOperacional|000001|segredo1");
  std::vector<RecordedBytes> records{{0, kFromTill, frame.substr(0, 40) + frame},
                                     {1, kFromTill, frame.substr(0, 41)}};
  mask_personal_data(records);
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
