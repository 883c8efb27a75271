#include "olk_sat_utils/dissectors.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "talvex/talvex.h"
#include "unit/sat_utils_trace.h"

// Every calloc of the program passes here, so that a test can count them and make one fail.
namespace {
int calloc_calls = 0;
bool calloc_fails = false;
}  // namespace
extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
  ++calloc_calls;
  return calloc_fails ? nullptr : __real_calloc(count, size);
}
}

namespace {

using testing::IsEmpty;
using Lines = std::vector<std::string>;

constexpr char kCommand[] = "SAT_API_CmdPktParcer";
constexpr char kResponse[] = "SAT_API_RspPktParcer";

Lines command_lines(std::initializer_list<const char*> texts) {
  return lines_of(kCommand, texts);
}
Lines response_lines(std::initializer_list<const char*> texts) {
  return lines_of(kResponse, texts);
}

// A frame in a heap block that ends where the library may read no further: with the string's terminator,
// or two bytes behind the string when the length says that checksum and ETX are there.
class Frame {
 public:
  Frame(const std::string& bytes, int length) : content_(bytes), length_(length) {
    const std::size_t string_length = std::strlen(content_.c_str());
    const bool has_hidden_end = length == static_cast<int>(string_length) + 2;
    content_.resize(string_length + (has_hidden_end ? 2 : 1));
    if (has_hidden_end) content_ = (bytes + std::string(2, '\0')).substr(0, string_length + 2);
    block_ = std::make_unique<char[]>(content_.size());
    std::memcpy(block_.get(), content_.data(), content_.size());
  }
  explicit Frame(const std::string& bytes) : Frame(bytes, static_cast<int>(bytes.size())) {}

  const char* text() const { return block_.get(); }
  int length() const { return length_; }
  bool is_unchanged() const { return std::memcmp(block_.get(), content_.data(), content_.size()) == 0; }

 private:
  std::string content_;
  int length_;
  std::unique_ptr<char[]> block_;
};

class Dissectors : public SatUtilsTraceTest {
 protected:
  void TearDown() override {
    calloc_fails = false;
    SatUtilsTraceTest::TearDown();
  }

  static unsigned dissect_command(const std::string& bytes) {
    const Frame frame(bytes);
    const unsigned count = SAT_API_CmdPktParcer(frame.text(), frame.length());
    EXPECT_TRUE(frame.is_unchanged());
    return count;
  }
  static unsigned dissect_response(const std::string& bytes) {
    const Frame frame(bytes);
    const unsigned count = SAT_API_RspPktParcer(frame.text(), frame.length());
    EXPECT_TRUE(frame.is_unchanged());
    return count;
  }
};

class CommandDissector : public Dissectors {};
class ResponseDissector : public Dissectors {};

TEST_F(CommandDissector, NamesCommandSessionAndLastParameter) {
  EXPECT_EQ(dissect_command("\2AtivarSAT|123456|1|x\xA1\3"), 5u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",                                      //
                                         "--- >> P01=[00000009:AtivarSAT]Sat:NomeDoComando\n",      //
                                         "--- >> P02=[00000006:123456]SAT:numeroSessao(AC-RND)\n",  //
                                         "--- >> P03=[00000001:1]\n",                               //
                                         "--- >> P04=[00000001:x]LastParam\n",                      //
                                         "--- >>  CKS[A1h]\n",                                      //
                                         "--- >>  ETX[03h]\n\n"}));
}

TEST_F(CommandDissector, CountsAnEmptyArgument) {
  EXPECT_EQ(dissect_command("\2A|000001||x\x4E\3"), 5u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",                                      //
                                         "--- >> P01=[00000001:A]Sat:NomeDoComando\n",              //
                                         "--- >> P02=[00000006:000001]SAT:numeroSessao(AC-RND)\n",  //
                                         "--- >> P03=[NULL]\n",                                     //
                                         "--- >> P04=[00000001:x]LastParam\n",                      //
                                         "--- >>  CKS[4Eh]\n",                                      //
                                         "--- >>  ETX[03h]\n\n"}));
}

TEST_F(CommandDissector, CountsAnEmptySession) {
  EXPECT_EQ(dissect_command("\2A||B\x7B\3"), 4u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",                          //
                                         "--- >> P01=[00000001:A]Sat:NomeDoComando\n",  //
                                         "--- >> P02=[NULL]\n",                         //
                                         "--- >> P03=[00000001:B]LastParam\n",          //
                                         "--- >>  CKS[7Bh]\n",                          //
                                         "--- >>  ETX[03h]\n\n"}));
}

TEST_F(CommandDissector, TreatsTheSessionAsLastParameterWhenNothingFollows) {
  EXPECT_EQ(dissect_command("\2ConsultarSAT|000042\x45\3"), 3u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",                                     //
                                         "--- >> P01=[00000012:ConsultarSAT]Sat:NomeDoComando\n",  //
                                         "--- >> P02=[00000006:000042]LastParam\n",                //
                                         "--- >>  CKS[45h]\n",                                     //
                                         "--- >>  ETX[03h]\n\n"}));
}

TEST_F(CommandDissector, WithoutStxSpellsTheLabelInCapitals) {
  EXPECT_EQ(dissect_command("A|1"), 3u);
  EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[00000001:A]SAT:NomeDoComando\n",  //
                                         "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n"}));
}

TEST_F(CommandDissector, ASingleFieldIsP01AloneAndKeepsChecksumAndEtx) {
  EXPECT_EQ(dissect_command("\2A\x41\3"), 2u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",  //
                                         "--- >> P01=[00000003:AA\3]Sat:NomeDoComando\n"}));
}

TEST_F(CommandDissector, TheStxAloneIsAnEmptyName) {
  EXPECT_EQ(dissect_command("\2|1"), 3u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",                         //
                                         "--- >> P01=[00000000:]Sat:NomeDoComando\n",  //
                                         "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n"}));
}

TEST_F(CommandDissector, EmptyLastArgumentsBelongToTheChecksum) {
  EXPECT_EQ(dissect_command("\2A|1||\xEA\3"), 5u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",                                 //
                                         "--- >> P01=[00000001:A]Sat:NomeDoComando\n",         //
                                         "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n",  //
                                         "--- >> P03=[NULL]\n",                                //
                                         "--- >> P04=[00000000:]LastParam\n",                  //
                                         "--- >>  CKS[EAh]\n",                                 //
                                         "--- >>  ETX[03h]\n\n"}));
}

TEST_F(CommandDissector, ASeparatorAtTheEndAddsNoField) {
  EXPECT_EQ(dissect_command("A|1|"), 3u);
  EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[00000001:A]SAT:NomeDoComando\n",  //
                                         "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n"}));
}

TEST_F(CommandDissector, TwoSeparatorsAtTheEndAddOneField) {
  EXPECT_EQ(dissect_command("A|1||"), 4u);
  EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[00000001:A]SAT:NomeDoComando\n",         //
                                         "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n",  //
                                         "--- >> P03=[NULL]\n"}));
}

TEST_F(CommandDissector, AChecksumThatIsASeparatorLeavesTheLastFieldOrdinary) {
  EXPECT_EQ(dissect_command("\2A|1|x|\3"), 3u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",                                 //
                                         "--- >> P01=[00000001:A]Sat:NomeDoComando\n",         //
                                         "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n",  //
                                         "--- >> P03=[00000001:x]\n"}));
}

TEST_F(CommandDissector, AnEmptyFieldBeforeTheEtxCountsTwice) {
  EXPECT_EQ(dissect_command("\2A|1|x||\3"), 5u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",                                 //
                                         "--- >> P01=[00000001:A]Sat:NomeDoComando\n",         //
                                         "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n",  //
                                         "--- >> P03=[00000001:x]\n",                          //
                                         "--- >> P04=[NULL]\n",                                //
                                         "--- >> P05=[NULL]\n",                                //
                                         "--- >>  CKS[7Ch]\n",                                 //
                                         "--- >>  ETX[03h]\n\n"}));
}

TEST_F(CommandDissector, AChecksumOfTheClosingBraceIsOrdinary) {
  EXPECT_EQ(dissect_command("\2A|1|x}\3"), 4u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",                                 //
                                         "--- >> P01=[00000001:A]Sat:NomeDoComando\n",         //
                                         "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n",  //
                                         "--- >> P03=[00000001:x]LastParam\n",                 //
                                         "--- >>  CKS[7Dh]\n",                                 //
                                         "--- >>  ETX[03h]\n\n"}));
}

TEST_F(CommandDissector, NumbersLeadingSeparatorsAndTheFirstFieldBehindThem) {
  EXPECT_EQ(dissect_command("||A|||B||C*\3"), 9u);
  EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[NULL] [00]\n",            //
                                         "--- >> P02=[NULL] [01]\n",            //
                                         "--- >> P03=[00000001:A]\n",           //
                                         "--- >> P04=[NULL]\n",                 //
                                         "--- >> P05=[NULL]\n",                 //
                                         "--- >> P06=[00000001:B]\n",           //
                                         "--- >> P07=[NULL]\n",                 //
                                         "--- >> P08=[00000001:C]LastParam\n",  //
                                         "--- >>  CKS[2Ah]\n",                  //
                                         "--- >>  ETX[03h]\n\n"}));
}

TEST_F(CommandDissector, AFirstTokenBehindOneSeparatorIsTheSession) {
  EXPECT_EQ(dissect_command("|\2A|1"), 4u);
  EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[NULL] [00]\n",                             //
                                         "--- >> P02=[00000002:\2A]SAT:numeroSessao(AC-RND)\n",  //
                                         "--- >> P03=[00000001:1]\n"}));
}

TEST_F(CommandDissector, AnEtxAloneTakesItsChecksumFromTheSeparator) {
  EXPECT_EQ(dissect_command("|\3"), 3u);
  EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[NULL] [00]\n",           //
                                         "--- >> P02=[00000000:]LastParam\n",  //
                                         "--- >>  CKS[7Ch]\n",                 //
                                         "--- >>  ETX[03h]\n\n"}));
}

TEST_F(CommandDissector, GoesOnBehindAnEtxInTheMiddle) {
  EXPECT_EQ(dissect_command("A|bc\3|D"), 4u);
  EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[00000001:A]SAT:NomeDoComando\n",  //
                                         "--- >> P02=[00000001:b]LastParam\n",          //
                                         "--- >>  CKS[63h]\n",                          //
                                         "--- >>  ETX[03h]\n\n",                        //
                                         "--- >> P03=[00000001:D]\n"}));
}

TEST_F(CommandDissector, ShowsTheChecksumUnsigned) {
  dissect_command("A|b\xFF\3");
  EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[00000001:A]SAT:NomeDoComando\n",  //
                                         "--- >> P02=[00000001:b]LastParam\n",          //
                                         "--- >>  CKS[FFh]\n",                          //
                                         "--- >>  ETX[03h]\n\n"}));
}

TEST_F(CommandDissector, TextsAreNoFormats) {
  dissect_command("%s%n|%d|%%");
  EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[00000004:%s%n]SAT:NomeDoComando\n",       //
                                         "--- >> P02=[00000002:%d]SAT:numeroSessao(AC-RND)\n",  //
                                         "--- >> P03=[00000002:%%]\n"}));
}

TEST_F(CommandDissector, FindsAZeroChecksumBehindTheString) {
  EXPECT_EQ(dissect_command(std::string("\2A|1|x\0\3", 8)), 4u);
  EXPECT_EQ(take_lines(), command_lines({"--- >>  STX[02h]\n",                                   //
                                         "--- >> P01=[00000001:A]Sat:NomeDoComando\n",           //
                                         "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n",    //
                                         "--- >> P03=[00000001:x]\n",                            //
                                         "        CKS[00h]=pSatCmdPkt[strlen(pSatCmdPkt)+0]\n",  //
                                         "        ETX[03h]=pSatCmdPkt[strlen(pSatCmdPkt)+1]\n"}));
}

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST_F(CommandDissector, WarnsOfAMissingEtxBehindTheString) {
  EXPECT_EQ(dissect_command(std::string("A|1\0\xFE", 5)), 3u);
  EXPECT_EQ(take_lines(),
            command_lines({"--- >> P01=[00000001:A]SAT:NomeDoComando\n",  //
                           "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n"}) +
                lines_of(kCommand,
                         {"        ---[00h]=pSatCmdPkt[strlen(pSatCmdPkt)+0]Expected CKS\n",
                          "        ---[FEh]=pSatCmdPkt[strlen(pSatCmdPkt)+1]Expected ETX\n"},
                         "WRN"));
}

TEST_F(CommandDissector, ChecksTheZeroChecksumAfterAStopToo) {
  EXPECT_EQ(dissect_command(std::string("A|\3\0\3", 5)), 1u);
  EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[00000001:A]SAT:NomeDoComando\n",           //
                                         "        CKS[00h]=pSatCmdPkt[strlen(pSatCmdPkt)+0]\n",  //
                                         "        ETX[03h]=pSatCmdPkt[strlen(pSatCmdPkt)+1]\n"}));
}

TEST_F(CommandDissector, OtherLengthsFindNoZeroChecksum) {
  for (const int length : {INT_MIN, -1, 0, 1, 2, 3, 4, 6, INT_MAX}) {
    const Frame frame("A|1", length);
    EXPECT_EQ(SAT_API_CmdPktParcer(frame.text(), length), 3u);
    EXPECT_EQ(take_lines(), command_lines({"--- >> P01=[00000001:A]SAT:NomeDoComando\n",  //
                                           "--- >> P02=[00000001:1]SAT:numeroSessao(AC-RND)\n"}))
        << length;
  }
}

TEST_F(CommandDissector, RefusesNull) {
  EXPECT_EQ(SAT_API_CmdPktParcer(nullptr, 5), 0u);
  EXPECT_EQ(take_lines(), lines_of(kCommand, {"--- >> P01 pSatCmdPkt=NULL\n"}, "ERR"));
}

TEST_F(CommandDissector, RefusesTextsWithoutAnyToken) {
  EXPECT_EQ(dissect_command(""), 0u);
  EXPECT_EQ(dissect_command("|||"), 0u);
  EXPECT_EQ(
      take_lines(),
      lines_of(kCommand,
               {"--- >> P01 pSatCmdPkt=[00000000:]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n",
                "--- >> P01 pSatCmdPkt=[00000003:|||]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n"},
               "ERR"));
}

TEST_F(CommandDissector, ReportsAFailedCopy) {
  calloc_fails = true;
  EXPECT_EQ(SAT_API_CmdPktParcer("A|1", 3), 0u);
  calloc_fails = false;
  EXPECT_EQ(take_lines(),
            lines_of(kCommand, {"--- >> P01 pSatCmdPkt=[00000003:A|1]CALLOC FAIL!!!\n"}, "ERR"));
}

TEST_F(CommandDissector, TracesMegabytesWhole) {
  const std::string sale(3000000, 'x');
  EXPECT_EQ(dissect_command("\2A|1|" + sale + "|y\x33\3"), 5u);
  const std::string text = read_file((*std::filesystem::directory_iterator(".")).path());
  EXPECT_NE(text.find("--- >> P03=[03000000:" + sale + "]\n"), std::string::npos);
  EXPECT_NE(text.find("--- >> P04=[00000001:y]LastParam\n"), std::string::npos);
}

TEST_F(CommandDissector, CountsAMillionFieldsInLinearTime) {
  log_only(0);
  std::string text;
  for (int i = 0; i < 1000000; ++i) text += "a|";
  EXPECT_EQ(dissect_command(text), 1000001u);
  EXPECT_EQ(dissect_response(text), 1000001u);
  EXPECT_EQ(dissect_response("a" + std::string(1000000, '|') + "b"), 1000002u);
}

TEST_F(ResponseDissector, TracesEveryFieldWithoutLabels) {
  EXPECT_EQ(dissect_response("000042|08000|SAT em operacao|x\x4E\3"), 5u);
  EXPECT_EQ(take_lines(), response_lines({"--- << R01=[00000006:000042]\n",           //
                                          "--- << R02=[00000005:08000]\n",            //
                                          "--- << R03=[00000015:SAT em operacao]\n",  //
                                          "--- << R04=[00000001:x]\n",                //
                                          "--- <<  CKS[4Eh]\n",                       //
                                          "--- <<  ETX[03h]\n"}));
}

TEST_F(ResponseDissector, ShowsAnStxInFrontOfTheFirstField) {
  EXPECT_EQ(dissect_response("\2"
                             "000042|08000\x41\3"),
            3u);
  EXPECT_EQ(take_lines(), response_lines({"--- <<  STX[02h]\n",              //
                                          "--- << R01=[00000006:000042]\n",  //
                                          "--- << R02=[00000005:08000]\n",   //
                                          "--- <<  CKS[41h]\n",              //
                                          "--- <<  ETX[03h]\n"}));
}

TEST_F(ResponseDissector, TheFirstFieldKeepsChecksumAndEtx) {
  EXPECT_EQ(dissect_response("AB\x83\3"), 2u);
  EXPECT_EQ(take_lines(), response_lines({"--- << R01=[00000004:AB\x83\3]\n"}));
}

TEST_F(ResponseDissector, CountsEmptyFields) {
  EXPECT_EQ(dissect_response("1||2|||Z\3"), 7u);
  EXPECT_EQ(take_lines(), response_lines({"--- << R01=[00000001:1]\n",  //
                                          "--- << R02=[NULL]\n",        //
                                          "--- << R03=[00000001:2]\n",  //
                                          "--- << R04=[NULL]\n",        //
                                          "--- << R05=[NULL]\n",        //
                                          "--- << R06=[00000000:]\n",   //
                                          "--- <<  CKS[5Ah]\n",         //
                                          "--- <<  ETX[03h]\n"}));
}

TEST_F(ResponseDissector, AnEmptyFieldBeforeTheEtxHasABlankBeforeTheLineEnd) {
  EXPECT_EQ(dissect_response("1|2||\3"), 4u);
  EXPECT_EQ(take_lines(), response_lines({"--- << R01=[00000001:1]\n",  //
                                          "--- << R02=[00000001:2]\n",  //
                                          "--- << R03=[NULL]\n",        //
                                          "--- << R04=[NULL]\n",        //
                                          "--- <<  CKS[7Ch] \n",        //
                                          "--- <<  ETX[03h] \n"}));
}

TEST_F(ResponseDissector, AChecksumThatIsASeparatorLeavesTheLastFieldOrdinary) {
  EXPECT_EQ(dissect_response("1|2|\3"), 2u);
  EXPECT_EQ(take_lines(), response_lines({"--- << R01=[00000001:1]\n", "--- << R02=[00000001:2]\n"}));
}

TEST_F(ResponseDissector, NumbersLeadingSeparators) {
  EXPECT_EQ(dissect_response("|||1|2"), 6u);
  EXPECT_EQ(take_lines(), response_lines({"--- << R01=[NULL] [00]\n",   //
                                          "--- << R02=[NULL] [01]\n",   //
                                          "--- << R03=[NULL] [02]\n",   //
                                          "--- << R04=[00000001:1]\n",  //
                                          "--- << R05=[00000001:2]\n"}));
}

// Bytes that differ, so that a shift shows: "abc...zabc...".
std::string letters(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += static_cast<char>('a' + i % 26);
  return text;
}

TEST_F(ResponseDissector, ShortensALongFieldInTheMiddle) {
  EXPECT_EQ(dissect_response("1|" + letters(150) + "|2"), 4u);
  EXPECT_EQ(take_lines(),
            response_lines({"--- << R01=[00000001:1]\n",                                 //
                            ("BIG << R02=[00000150:" + letters(97) + "..>]\n").c_str(),  //
                            "--- << R03=[00000001:2]\n"}));
}

TEST_F(ResponseDissector, ShortensALongFieldAtTheEndWithoutDots) {
  EXPECT_EQ(dissect_response("10|" + letters(150) + "Z\3"), 3u);
  EXPECT_EQ(take_lines(),
            response_lines(
                {"--- << R01=[00000002:10]\n",  //
                 ("BIG << R02=[00000152:" + letters(97) + ">" + letters(150).substr(98, 2) + "]\n").c_str(),
                 "--- <<  CKS[5Ah]\n",  //
                 "--- <<  ETX[03h]\n"}));
}

TEST_F(ResponseDissector, ShortensFromAHundredAndOneBytesOn) {
  dissect_response("1|" + letters(100) + "|" + letters(101) + "|2");
  EXPECT_EQ(take_lines(),
            response_lines({"--- << R01=[00000001:1]\n",                                 //
                            ("--- << R02=[00000100:" + letters(100) + "]\n").c_str(),    //
                            ("BIG << R03=[00000101:" + letters(97) + "..>]\n").c_str(),  //
                            "--- << R04=[00000001:2]\n"}));
}

TEST_F(ResponseDissector, CountsChecksumAndEtxToTheLengthOfTheLastField) {
  dissect_response("10|" + letters(98) + "Z\3");
  EXPECT_EQ(take_lines(), response_lines({"--- << R01=[00000002:10]\n",                             //
                                          ("--- << R02=[00000098:" + letters(98) + "]\n").c_str(),  //
                                          "--- <<  CKS[5Ah]\n",                                     //
                                          "--- <<  ETX[03h]\n"}));
}

TEST_F(ResponseDissector, NeverShowsMoreOfTheLastFieldThanItsText) {
  dissect_response("10|" + letters(99) + "Z\3");
  EXPECT_EQ(
      take_lines(),
      response_lines({"--- << R01=[00000002:10]\n",  //
                      ("BIG << R02=[00000101:" + letters(97) + ">" + letters(99).substr(98) + "]\n").c_str(),
                      "--- <<  CKS[5Ah]\n",  //
                      "--- <<  ETX[03h]\n"}));
}

TEST_F(ResponseDissector, TheFirstFieldIsNeverShortened) {
  dissect_response(letters(5000) + "|1");
  EXPECT_EQ(take_lines(), response_lines({("--- << R01=[00005000:" + letters(5000) + "]\n").c_str(),
                                          "--- << R02=[00000001:1]\n"}));
}

TEST_F(ResponseDissector, FindsEmptyFieldsBehindAShortenedOne) {
  EXPECT_EQ(dissect_response("1|" + letters(150) + "||\3"), 4u);
  EXPECT_EQ(take_lines(),
            response_lines({"--- << R01=[00000001:1]\n",                                 //
                            ("BIG << R02=[00000150:" + letters(97) + "..>]\n").c_str(),  //
                            "--- << R03=[NULL]\n",                                       //
                            "--- << R04=[NULL]\n",                                       //
                            "--- <<  CKS[7Ch] \n",                                       //
                            "--- <<  ETX[03h] \n"}));
}

TEST_F(ResponseDissector, ZeroChecksumOfASingleFieldIsFoundBehindIt) {
  EXPECT_EQ(dissect_response(std::string("AB\0\3", 4)), 2u);
  EXPECT_EQ(take_lines(), response_lines({"--- << R01=[00000002:AB]\n",                  //
                                          "        CKS[00h]=pSatRspPkt[iSarArgCz+0]\n",  //
                                          "        ETX[03h]=pSatRspPkt[iSarArgCz+1]\n"}));
}

TEST_F(ResponseDissector, ComparesTheLengthWithTheLastTokenNotWithTheString) {
  EXPECT_EQ(dissect_response(std::string("A|B\0\3", 5)), 3u);
  EXPECT_EQ(take_lines(), response_lines({"--- << R01=[00000001:A]\n", "--- << R02=[00000001:B]\n"}));
}

TEST_F(ResponseDissector, LooksForTheChecksumAtTheLastTokensLengthInTheWholeResponse) {
  const Frame frame("12|xyz!\3", 7);
  EXPECT_EQ(SAT_API_RspPktParcer(frame.text(), 7), 3u);
  EXPECT_EQ(take_lines(), response_lines({"--- << R01=[00000002:12]\n",   //
                                          "--- << R02=[00000003:xyz]\n",  //
                                          "--- <<  CKS[21h]\n",           //
                                          "--- <<  ETX[03h]\n"}) +
                              lines_of(kResponse,
                                       {"        ---[7Ah]=pSatRspPkt[iSarArgCz+0]Expected CKS\n",
                                        "        ---[21h]=pSatRspPkt[iSarArgCz+1]Expected ETX\n"},
                                       "WRN"));
}

TEST_F(ResponseDissector, TheLastTokensFullLengthCountsAlsoWhenItWasShortened) {
  const std::string bytes = "1|" + letters(200) + "Z\3";
  const Frame frame(bytes, 204);
  EXPECT_EQ(SAT_API_RspPktParcer(frame.text(), 204), 3u);
  const Lines lines = take_lines();
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[4], "INF [SAT_API_RspPktParcer]        CKS[5Ah]=pSatRspPkt[iSarArgCz+0]\n");
  EXPECT_EQ(lines[5], "INF [SAT_API_RspPktParcer]        ETX[03h]=pSatRspPkt[iSarArgCz+1]\n");
}

TEST_F(ResponseDissector, RefusesNull) {
  EXPECT_EQ(SAT_API_RspPktParcer(nullptr, 5), 0u);
  EXPECT_EQ(take_lines(), lines_of(kResponse, {"--- << R01 pSatRspPkt=NULL\n"}, "ERR"));
}

TEST_F(ResponseDissector, RefusesTextsWithoutAnyToken) {
  EXPECT_EQ(dissect_response(""), 0u);
  EXPECT_EQ(dissect_response("|"), 0u);
  EXPECT_EQ(
      take_lines(),
      lines_of(kResponse,
               {"--- << R01 pSatRspPkt=[00000000:]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n",
                "--- << R01 pSatRspPkt=[00000001:|]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n"},
               "ERR"));
}

TEST_F(ResponseDissector, ReportsAFailedCopy) {
  calloc_fails = true;
  EXPECT_EQ(SAT_API_RspPktParcer("A|1", 3), 0u);
  calloc_fails = false;
  EXPECT_EQ(take_lines(),
            lines_of(kResponse, {"--- << R01 pSatRspPkt=[00000003:A|1]CALLOC FAIL!!!\n"}, "ERR"));
}

// Frames of every shape: separators, control bytes and long fields far more often than on the line, and
// lengths around those that the checks of a zero checksum look for.
class RandomFrames {
 public:
  Frame next() {
    std::string bytes;
    for (int pieces = pick(9); pieces > 0; --pieces) bytes += piece();
    if (pick(2) == 0) bytes = "\2" + bytes;
    if (pick(2) == 0) bytes += std::string("Z\3") + (pick(8) == 0 ? "junk" : "");
    const std::size_t last_separator = bytes.rfind('|');
    const int string_length = static_cast<int>(bytes.size());
    const int last_length = last_separator == std::string::npos
                                ? string_length
                                : string_length - static_cast<int>(last_separator) - 1;
    const int lengths[] = {string_length, string_length + 2, last_length + 2, string_length - pick(9), 3};
    if (const int length = lengths[pick(5)]; length != string_length + 2) return {bytes, length};
    return {bytes + (pick(3) == 0 ? '|' : '\0') + (pick(2) == 0 ? '\3' : '\xFE'), string_length + 2};
  }

 private:
  int pick(int count) { return static_cast<int>(generator_() % static_cast<unsigned>(count)); }

  std::string piece() {
    switch (pick(10)) {
      case 0:
      case 1:
      case 2:
        return "|";
      case 3:
        return "\3";
      case 4:
        return "|\3";
      case 5:
        return "||";
      case 6:
        return "\2";
      case 7:
        return letters(95 + pick(12));
      case 8:
        return "\xE7\xFF";
      default:
        return letters(1 + pick(5));
    }
  }

  std::mt19937 generator_{20200727};
};

std::string only_levels(const std::string& line, unsigned level) {
  if (level >= kInfo || line.starts_with("ERR")) return line;
  return level >= kWarning && line.starts_with("WRN") ? line : "";
}

Lines filtered(const Lines& lines, unsigned level) {
  Lines passed;
  for (const std::string& line : lines) {
    if (!only_levels(line, level).empty()) passed.push_back(line);
  }
  return passed;
}

// Fields joined as a host joins them, so that what belongs into the log is known beforehand. Any but the
// first and the last may be empty.
TEST_F(Dissectors, ShowEveryFieldOfAFrameUnderItsNumber) {
  std::mt19937 random(20200727);
  const auto below = [&random](unsigned bound) { return static_cast<unsigned>(random() % bound); };
  for (int i = 0; i < 500; ++i) {
    const unsigned count = 3 + below(12);
    std::string bytes;
    Lines fields;
    for (unsigned n = 1; n <= count; ++n) {
      const bool may_be_empty = n != 1 && n != count;
      const int length = static_cast<int>(below(90)) + (may_be_empty ? 0 : 1);
      bytes += (n == 1 ? "" : "|") + letters(length);
      char shown[128];
      std::snprintf(shown, sizeof shown, "%02u=[%08d:%s]", n, length, letters(length).c_str());
      if (length == 0) std::snprintf(shown, sizeof shown, "%02u=[NULL]", n);
      fields.emplace_back(shown);
    }
    bytes += "Z\3";
    SCOPED_TRACE(bytes);
    ASSERT_EQ(dissect_command(bytes), count + 1);
    const Lines command = take_lines();
    ASSERT_EQ(dissect_response(bytes), count + 1);
    const Lines response = take_lines();
    ASSERT_EQ(command.size(), count + 2) << "checksum and ETX have lines of their own";
    ASSERT_EQ(response.size(), count + 2);
    for (unsigned n = 0; n < count; ++n) {
      ASSERT_THAT(command[n], testing::HasSubstr("]--- >> P" + fields[n]));
      ASSERT_THAT(response[n], testing::EndsWith("]--- << R" + fields[n] + "\n"));
      const bool has_label = n < 2 || n + 1 == count;
      ASSERT_TRUE(has_label || command[n].ends_with(fields[n] + "\n")) << command[n];
    }
  }
}

TEST_F(Dissectors, OnTheLinkSayWhatTheExportedOnesDoAtEveryLevel) {
  RandomFrames frames;
  int warnings = 0;
  int errors = 0;
  for (int i = 0; i < 1500; ++i) {
    const Frame frame = frames.next();
    SCOPED_TRACE(testing::PrintToString(std::string(frame.text())) + " length " +
                 std::to_string(frame.length()));
    log_only(kInfo);
    SAT_API_CmdPktParcer(frame.text(), frame.length());
    SAT_API_RspPktParcer(frame.text(), frame.length());
    ASSERT_TRUE(frame.is_unchanged());
    const Lines expected = take_lines();
    for (const unsigned level : {0u, unsigned{kError}, unsigned{kWarning}, unsigned{kInfo}}) {
      log_only(level);
      trace_command_frame(frame.text(), frame.length());
      trace_response_frame(frame.text(), frame.length());
      ASSERT_EQ(take_lines(), level == 0 ? Lines{} : filtered(expected, level)) << level;
    }
    for (const std::string& line : expected) {
      warnings += line.starts_with("WRN") ? 1 : 0;
      errors += line.starts_with("ERR") ? 1 : 0;
    }
  }
  EXPECT_GT(warnings, 100);
  EXPECT_GT(errors, 20);
}

TEST_F(Dissectors, OnTheLinkReportNull) {
  log_only(kError);
  trace_command_frame(nullptr, 5);
  trace_response_frame(nullptr, 5);
  EXPECT_EQ(take_lines(), lines_of(kCommand, {"--- >> P01 pSatCmdPkt=NULL\n"}, "ERR") +
                              lines_of(kResponse, {"--- << R01 pSatRspPkt=NULL\n"}, "ERR"));
}

TEST_F(Dissectors, OnTheLinkTakeNoCopyWhileNothingIsLogged) {
  const std::string command = "\2A|1|" + std::string(1000000, 'x') + "Z\3";
  const std::string response = command.substr(1);
  for (const unsigned level : {0u, unsigned{kError}}) {
    log_only(level);
    calloc_calls = 0;
    for (int block = 1; block <= 62; ++block) trace_command_frame(command.c_str(), block * 16384);
    trace_response_frame(response.c_str(), static_cast<int>(response.size()) - 1);
    EXPECT_EQ(calloc_calls, 0) << level;
  }
  log_only(kWarning);
  calloc_calls = 0;
  for (int block = 1; block <= 62; ++block) trace_command_frame(command.c_str(), block * 16384);
  EXPECT_EQ(calloc_calls, 0);
  log_only(kInfo);
  trace_command_frame("A|1", 3);
  EXPECT_GT(calloc_calls, 0);
}

TEST_F(Dissectors, CountTheSameWhileNothingIsLogged) {
  log_only(0);
  EXPECT_EQ(dissect_command("\2AtivarSAT|123456|1|x\xA1\3"), 5u);
  EXPECT_EQ(dissect_response("1|2||\3"), 4u);
  EXPECT_EQ(dissect_command("|||"), 0u);
  EXPECT_EQ(SAT_API_RspPktParcer(nullptr, 0), 0u);
  EXPECT_THAT(take_lines(), IsEmpty());
}

}  // namespace
