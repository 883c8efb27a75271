#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "support/virtual_clock.h"
#include "talvex/talvex.h"
#include "unit/sat_utils_trace.h"

// Every calloc of the program passes here, so that a test can make one fail.
namespace {
bool calloc_fails = false;
}  // namespace
extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return calloc_fails ? nullptr : __real_calloc(count, size);
}
}

namespace {

using Lines = std::vector<std::string>;

constexpr char kCommand[] = "SAT_APP_CmdParcer";
constexpr char kResponse[] = "SAT_APP_RspParcer";
constexpr std::uint32_t kUntouched = 0xDEADBEEF;

// In a heap block that ends with the terminator, where a read too far is noticed.
class ExactText {
 public:
  explicit ExactText(const std::string& text) : text_(text), block_(new char[text.size() + 1]) {
    std::memcpy(block_.get(), text.c_str(), text.size() + 1);
  }
  const char* get() const { return block_.get(); }
  bool is_unchanged() const { return text_ == block_.get(); }

 private:
  std::string text_;
  std::unique_ptr<char[]> block_;
};

class MessageParser : public SatUtilsTraceTest {
 protected:
  void TearDown() override {
    calloc_fails = false;
    SatUtilsTraceTest::TearDown();
  }
};

class CmdParcer : public MessageParser {
 protected:
  static unsigned parse(const std::string& text) {
    const ExactText command(text);
    const unsigned count = SAT_APP_CmdParcer(nullptr, command.get());
    EXPECT_TRUE(command.is_unchanged());
    return count;
  }
  static Lines lines(std::initializer_list<const char*> texts) { return lines_of(kCommand, texts); }
};

TEST_F(CmdParcer, FindsTheEmptyFieldBehindATokenOfOneCharacter) {
  EXPECT_EQ(parse("X|1||A"), 5u);
  EXPECT_EQ(take_lines(),
            lines({"--- >> P01  ------------[00000001:X]\n", "--- >> P02  ------------[00000001:1]\n",
                   "--- >> P03  ------------[0000:NULL] pSatArg[2]=[7Ch]\n",
                   "--- >> P04  ------------[00000001:A]\n"}));
}

TEST_F(CmdParcer, FindsSeveralEmptyFieldsBehindATokenOfOneCharacter) {
  EXPECT_EQ(parse("X||||A"), 6u);
  EXPECT_EQ(take_lines(), lines({"--- >> P01  ------------[00000001:X]\n",
                                 "--- >> P02  ------------[0000:NULL] pSatArg[2]=[7Ch]\n",
                                 "--- >> P03  ------------[0000:NULL] pSatArg[3]=[7Ch]\n",
                                 "--- >> P04  ------------[0000:NULL] pSatArg[4]=[7Ch]\n",
                                 "--- >> P05  ------------[00000001:A]\n"}));
}

TEST_F(CmdParcer, MissesTheEmptyFieldBehindALongerToken) {
  EXPECT_EQ(parse("AB||C|xyz||D"), 5u);
  EXPECT_EQ(take_lines(),
            lines({"--- >> P01  ------------[00000002:AB]\n", "--- >> P02  ------------[00000001:C]\n",
                   "--- >> P03  ------------[00000003:xyz]\n", "--- >> P04  ------------[00000001:D]\n"}));
}

TEST_F(CmdParcer, FindsEmptyFieldsAtTheEnd) {
  EXPECT_EQ(parse("A|B||"), 4u);
  EXPECT_EQ(parse("A|B|"), 3u);
  EXPECT_EQ(take_lines(),
            lines({"--- >> P01  ------------[00000001:A]\n", "--- >> P02  ------------[00000001:B]\n",
                   "--- >> P03  ------------[0000:NULL] pSatArg[2]=[7Ch]\n",
                   "--- >> P01  ------------[00000001:A]\n", "--- >> P02  ------------[00000001:B]\n"}));
}

TEST_F(CmdParcer, MarksFieldsFromTheSeventhOn) {
  EXPECT_EQ(parse("AtivarSAT|02|03|04|05|06|07|08"), 9u);
  EXPECT_EQ(
      take_lines(),
      lines({"--- >> P01  ------------[00000009:AtivarSAT]\n", "--- >> P02  ------------[00000002:02]\n",
             "--- >> P03  ------------[00000002:03]\n", "--- >> P04  ------------[00000002:04]\n",
             "--- >> P05  ------------[00000002:05]\n", "--- >> P06  ------------[00000002:06]\n",
             "--- >> P07  ------------[00000002:07]UNKNOWN\n",
             "--- >> P08  ------------[00000002:08]UNKNOWN\n"}));
}

TEST_F(CmdParcer, NumbersLeadingSeparators) {
  EXPECT_EQ(parse("||A"), 4u);
  EXPECT_EQ(take_lines(), lines({"--- >> P01  ------------[0000:NULL] pAllocedArgs[0]=[7Ch]\n",
                                 "--- >> P02  ------------[0000:NULL] pAllocedArgs[1]=[7Ch]\n",
                                 "--- >> P03  ------------[00000001:A]\n"}));
}

TEST_F(CmdParcer, ASingleFieldNeedsNoSeparator) {
  EXPECT_EQ(parse("A"), 2u);
  EXPECT_EQ(take_lines(), lines({"--- >> P01  ------------[00000001:A]\n"}));
}

TEST_F(CmdParcer, IgnoresItsFirstArgument) {
  EXPECT_EQ(SAT_APP_CmdParcer("C|D|E|F", "A|B"), 3u);
  EXPECT_EQ(take_lines(),
            lines({"--- >> P01  ------------[00000001:A]\n", "--- >> P02  ------------[00000001:B]\n"}));
}

TEST_F(CmdParcer, RefusesNull) {
  EXPECT_EQ(SAT_APP_CmdParcer(nullptr, nullptr), 0u);
  EXPECT_EQ(take_lines(), lines({"--- argc[00] SatArgs=NULL\n"}));
}

TEST_F(CmdParcer, RefusesTextsWithoutAnyToken) {
  EXPECT_EQ(parse(""), 0u);
  EXPECT_EQ(parse("||"), 0u);
  EXPECT_EQ(take_lines(),
            lines({"--- argc[00] SatArgs=[00000000:]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n",
                   "--- argc[00] SatArgs=[00000002:||]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n"}));
}

TEST_F(CmdParcer, ReportsAFailedCopy) {
  calloc_fails = true;
  EXPECT_EQ(SAT_APP_CmdParcer(nullptr, "A|B"), 0u);
  calloc_fails = false;
  EXPECT_EQ(take_lines(), lines({"--- argc[00] SatArgs=[00000003:A|B]CALLOC FAIL!!!\n"}));
}

TEST_F(CmdParcer, TextsAreNoFormats) {
  parse("%s%n|%d");
  EXPECT_EQ(take_lines(),
            lines({"--- >> P01  ------------[00000004:%s%n]\n", "--- >> P02  ------------[00000002:%d]\n"}));
}

struct Outcome {
  int result;
  std::uint32_t last_sale_session = kUntouched;
  std::uint32_t response_session = kUntouched;
  std::uint32_t result_code = kUntouched;
  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << "result " << outcome.result << ", last sale " << outcome.last_sale_session << ", session "
             << outcome.response_session << ", EEEEE " << outcome.result_code;
}

class RspParcer : public MessageParser {
 protected:
  static Outcome parse(const char* command, std::uint32_t session, const std::string& text) {
    const ExactText response(text);
    Outcome outcome{};
    outcome.result = SAT_APP_RspParcer(command, session, &outcome.last_sale_session,
                                       &outcome.response_session, &outcome.result_code, response.get());
    EXPECT_TRUE(response.is_unchanged());
    return outcome;
  }
  static Lines lines(std::initializer_list<const char*> texts) { return lines_of(kResponse, texts); }
};

TEST_F(RspParcer, TakesSessionAndCodeOfASale) {
  EXPECT_EQ(parse("EnviarDadosVenda", 123, "000123|06000|Emitido com sucesso|||"),
            (Outcome{6000, 123, 123, 6000}));
  EXPECT_EQ(take_lines(), lines({"--- << R01  numeroSessao[00000006:000123] Cmd:Rsp[000123:000123]OK:Match\n",
                                 "--- << R02         EEEEE[00000005:06000]\n",
                                 "--- << R03      mensagem[00000019:Emitido com sucesso]\n",
                                 "--- << R04              [NULL]\n", "--- << R05              [NULL]\n",
                                 "--- << R06              [NULL]\n"}));
}

TEST_F(RspParcer, StopsAtAnotherSession) {
  EXPECT_EQ(parse("EnviarDadosVenda", 124, "000123|06000|Emitido com sucesso|||"),
            (Outcome{0, kUntouched, 123, kUntouched}));
  EXPECT_EQ(take_lines(),
            lines({"--- << R01  numeroSessao[00000006:000123] Cmd:Rsp[000124:000123]WR:MissMatch!!!\n"}));
}

TEST_F(RspParcer, ExpectsAnotherSessionOfTheLastFiscalSession) {
  EXPECT_EQ(parse("ConsultarUltimaSessaoFiscal", 124, "000123|06000|Emitido com sucesso|||"),
            (Outcome{6000, kUntouched, 123, 6000}));
  const Lines taken = take_lines();
  ASSERT_EQ(taken.size(), 6u);
  EXPECT_EQ(taken[0],
            "WRN [SAT_APP_RspParcer]--- << R01  numeroSessao[00000006:000123] "
            "Cmd:Rsp[000124:000123]WR:UltimaVenda/Cancelamento!!!\n");
}

TEST_F(RspParcer, TheLastFiscalSessionCanMatchToo) {
  EXPECT_EQ(parse("ConsultarUltimaSessaoFiscal", 123, "123|6000"), (Outcome{6000, kUntouched, 123, 6000}));
  EXPECT_EQ(take_lines(), lines({"--- << R01  numeroSessao[00000003:123] Cmd:Rsp[000123:000123]OK:Match\n",
                                 "--- << R02         EEEEE[00000004:6000]\n"}));
}

TEST_F(RspParcer, KeepsTheSessionOfTheThreeSellingFunctionsOnly) {
  log_only(0);
  const std::set<std::string> selling = {"EnviarDadosVenda", "CancelarUltimaVenda", "TesteFimAFim"};
  for (const char* command :
       {"AtivarSAT", "ComunicarCertificadoICPBRASIL", "EnviarDadosVenda", "CancelarUltimaVenda",
        "ConsultarSAT", "TesteFimAFim", "ConsultarStatusOperacional", "ConsultarNumeroSessao",
        "ConfigurarInterfaceDeRede", "AssociarAssinatura", "AtualizarSoftwareSAT", "ExtrairLogs",
        "BloquearSAT", "DesbloquearSAT", "TrocarCodigoDeAtivacao", "ConsultarUltimaSessaoFiscal",
        "EnviarDadosVendas", "EnviarDadosVend", ""}) {
    EXPECT_EQ(parse(command, 7, "000007|06000|x"),
              (Outcome{6000, selling.contains(command) ? 7 : kUntouched, 7, 6000}))
        << command;
  }
}

TEST_F(RspParcer, NamesAreComparedWhole) {
  EXPECT_EQ(parse("ConsultarUltimaSessaoFiscalX", 1, "2|6000").result, 0);
  EXPECT_EQ(parse("ConsultarUltimaSessao", 1, "2|6000").result, 0);
}

TEST_F(RspParcer, NamesEveryField) {
  EXPECT_EQ(parse("ConsultarSAT", 1, "000001|08000|m|c|s|1|7|8").result, 8000);
  EXPECT_EQ(take_lines(),
            lines({"--- << R01  numeroSessao[00000006:000001] Cmd:Rsp[000001:000001]OK:Match\n",
                   "--- << R02         EEEEE[00000005:08000]\n", "--- << R03      mensagem[00000001:m]\n",
                   "--- << R04           cod[00000001:c]\n", "--- << R05 mensagemSEFAZ[00000001:s]\n",
                   "--- << R06           CSR[00000001:1] TipoCertificado(1 ou 2)ICP-BRASIL\n",
                   "--- << R07           ---[00000001:7]UNKNOWN\n",
                   "--- << R08           ---[00000001:8]UNKNOWN\n"}));
}

TEST_F(RspParcer, CountsEmptyFieldsInTheMiddle) {
  EXPECT_EQ(parse("ConsultarSAT", 1, "1||a|||b").result, 0);
  EXPECT_EQ(take_lines(),
            lines({"--- << R01  numeroSessao[00000001:1] Cmd:Rsp[000001:000001]OK:Match\n",
                   "--- << R02              [NULL]\n", "--- << R03      mensagem[00000001:a]\n",
                   "--- << R04              [NULL]\n", "--- << R05              [NULL]\n",
                   "--- << R06           CSR[00000001:b] TipoCertificado(1 ou 2)ICP-BRASIL\n"}));
}

TEST_F(RspParcer, ASeparatorAtTheEndAddsNoField) {
  parse("ConsultarSAT", 1, "1|6000|");
  EXPECT_EQ(take_lines().size(), 2u);
}

TEST_F(RspParcer, TwoSeparatorsAtTheEndAddTwoFields) {
  parse("ConsultarSAT", 1, "1||");
  EXPECT_EQ(take_lines(), lines({"--- << R01  numeroSessao[00000001:1] Cmd:Rsp[000001:000001]OK:Match\n",
                                 "--- << R02              [NULL]\n", "--- << R03              [NULL]\n"}));
}

TEST_F(RspParcer, ThreeSeparatorsAtTheEndAddThreeFields) {
  parse("ConsultarSAT", 1, "1|||");
  EXPECT_EQ(take_lines(), lines({"--- << R01  numeroSessao[00000001:1] Cmd:Rsp[000001:000001]OK:Match\n",
                                 "--- << R02              [NULL]\n", "--- << R03              [NULL]\n",
                                 "--- << R04              [NULL]\n"}));
}

TEST_F(RspParcer, ALeadingSeparatorMovesTheFields) {
  EXPECT_EQ(parse("EnviarDadosVenda", 123, "|06000|x"), (Outcome{6000, kUntouched, kUntouched, 6000}));
  EXPECT_EQ(take_lines(),
            lines({"--- << R01  ------------[0000:NULL] pAllocedArgs[0]=[7Ch]\n",
                   "--- << R02         EEEEE[00000005:06000]\n", "--- << R03      mensagem[00000001:x]\n"}));
}

TEST_F(RspParcer, NumbersLeadingSeparators) {
  EXPECT_EQ(parse("EnviarDadosVenda", 123, "|||x"), (Outcome{0}));
  EXPECT_EQ(take_lines(), lines({"--- << R01  ------------[0000:NULL] pAllocedArgs[0]=[7Ch]\n",
                                 "--- << R02  ------------[0000:NULL] pAllocedArgs[1]=[7Ch]\n",
                                 "--- << R03  ------------[0000:NULL] pAllocedArgs[2]=[7Ch]\n",
                                 "--- << R04           cod[00000001:x]\n"}));
}

TEST_F(RspParcer, ReturnsZeroWithoutASecondField) {
  EXPECT_EQ(parse("EnviarDadosVenda", 123, "000123|"), (Outcome{0, 123, 123, kUntouched}));
}

TEST_F(RspParcer, ConvertsDecimally) {
  log_only(0);
  EXPECT_EQ(parse("ConsultarSAT", 8, " 010x|06000"), (Outcome{0, kUntouched, 10, kUntouched}));
  EXPECT_EQ(parse("ConsultarSAT", 0, "abc| -7x"),
            (Outcome{-7, kUntouched, 0, static_cast<std::uint32_t>(-7)}));
}

TEST_F(RspParcer, OverLongNumbersSaturate) {
  log_only(0);
  EXPECT_EQ(parse("ConsultarSAT", 2147483647, "99999999999999999999999|99999999999999999999999"),
            (Outcome{2147483647, kUntouched, 2147483647, 2147483647}));
}

TEST_F(RspParcer, RecognisesTheVersionReply) {
  EXPECT_EQ(parse("ConsultarSAT", 1, "TALVEX DLL Ver. 02.00"), (Outcome{0}));
  EXPECT_EQ(parse("ConsultarSAT", 1, "TALVEX |1|2"), (Outcome{0}));
  EXPECT_EQ(take_lines(),
            lines({"--- << R01 << R01  VerDllTalvex[00000021:TALVEX DLL Ver. 02.00] rc[00000]OK\n",
                   "--- << R01 << R01  VerDllTalvex[00000011:TALVEX |1|2] rc[00000]OK\n"}));
}

TEST_F(RspParcer, NeedsTheWholeStartOfTheVersionReply) {
  EXPECT_EQ(parse("ConsultarSAT", 1, "TALVEX"), (Outcome{-1101}));
  EXPECT_EQ(parse("ConsultarSAT", 1, "talvex DLL"), (Outcome{-1101}));
}

TEST_F(RspParcer, KnowsTheVersionReplyByItsStartOnly) {
  log_only(0);
  EXPECT_EQ(parse("ConsultarSAT", 1, "1|6000|TALVEX DLL Ver. 02.00"), (Outcome{6000, kUntouched, 1, 6000}));
  EXPECT_EQ(parse("ConsultarSAT", 1, " TALVEX DLL Ver. 02.00"), (Outcome{-1101}));
}

TEST_F(RspParcer, ComparesWholeSessionNumbers) {
  EXPECT_EQ(parse("EnviarDadosVenda", 123, "65659|06000"), (Outcome{0, kUntouched, 65659}));
  EXPECT_EQ(parse("EnviarDadosVenda", UINT32_MAX, "-1|06000"), (Outcome{6000, UINT32_MAX, UINT32_MAX, 6000}));
  EXPECT_EQ(take_lines(),
            lines({"--- << R01  numeroSessao[00000005:65659] Cmd:Rsp[000123:065659]WR:MissMatch!!!\n",
                   "--- << R01  numeroSessao[00000002:-1] Cmd:Rsp[-00001:-00001]OK:Match\n",
                   "--- << R02         EEEEE[00000005:06000]\n"}));
}

TEST_F(RspParcer, RefusesAnErrorTextOfTheLibrary) {
  const std::string text = "SAT Erro[-02000]Lnx: SAT nao encontrado";
  EXPECT_EQ(parse("ConsultarSAT", 1, text), (Outcome{-1101}));
  EXPECT_EQ(
      take_lines(),
      lines_of(kResponse,
               {("--- rc[-01101]APP:ER\n\t << E01 << API_ERR_MSG[00000039:" + text + "]\n").c_str()}, "ERR"));
}

TEST_F(RspParcer, RefusesNullAndEmpty) {
  Outcome outcome{};
  outcome.result = SAT_APP_RspParcer("ConsultarSAT", 1, &outcome.last_sale_session, &outcome.response_session,
                                     &outcome.result_code, nullptr);
  EXPECT_EQ(outcome, (Outcome{0}));
  EXPECT_EQ(parse("ConsultarSAT", 1, ""), (Outcome{0}));
  EXPECT_EQ(take_lines(), lines({"--- rc[00000]WR:pSatResult=NULL\n", "--- rc[00000]WR:pSatResult Len=0\n"}));
}

TEST_F(RspParcer, WarnsOfATextOfSeparatorsOnly) {
  EXPECT_EQ(parse("ConsultarSAT", 1, "|"), (Outcome{0}));
  EXPECT_EQ(parse("ConsultarSAT", 1, "|||"), (Outcome{0}));
  EXPECT_EQ(
      take_lines(),
      lines({"--- argc[00] SatArgs=[00000001:|]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n",
             "--- argc[00] SatArgs=[00000003:|||]WARNING INVALID SAT ARGS HAS NO PIPE SEPARATOR!!!\n"}));
}

TEST_F(RspParcer, ReportsAFailedCopy) {
  calloc_fails = true;
  const Outcome outcome = parse("ConsultarSAT", 1, "1|2");
  calloc_fails = false;
  EXPECT_EQ(outcome, (Outcome{-1102}));
  EXPECT_EQ(take_lines(),
            lines_of(kResponse, {"--- rc[-1102]ER SatArgs=[00000003:1|2]CALLOC FAIL!!!\n"}, "ERR"));
}

TEST_F(RspParcer, NeedsNeitherNameNorOutputs) {
  EXPECT_EQ(SAT_APP_RspParcer(nullptr, 1, nullptr, nullptr, nullptr, "1|6000"), 6000);
  EXPECT_EQ(SAT_APP_RspParcer(nullptr, 2, nullptr, nullptr, nullptr, "1|6000"), 0);
  EXPECT_EQ(SAT_APP_RspParcer("EnviarDadosVenda", 1, nullptr, nullptr, nullptr, "1|6000"), 6000);
}

TEST_F(RspParcer, TextsAreNoFormats) {
  parse("ConsultarSAT", 0, "%s|%n|%d");
  EXPECT_EQ(take_lines(),
            lines({"--- << R01  numeroSessao[00000002:%s] Cmd:Rsp[000000:000000]OK:Match\n",
                   "--- << R02         EEEEE[00000002:%n]\n", "--- << R03      mensagem[00000002:%d]\n"}));
}

TEST_F(RspParcer, AMillionFieldsTakeLinearTime) {
  log_only(0);
  std::string text = "1|6000";
  for (int i = 0; i < 1000000; ++i) text += "|a";
  EXPECT_EQ(parse("ConsultarSAT", 1, text).result, 6000);
  EXPECT_EQ(parse("ConsultarSAT", 1, "1|6000" + std::string(1000000, '|')).result, 6000);
}

TEST_F(CmdParcer, CountsAlikeAtEveryLevel) {
  for (const std::uint32_t levels : {0u, unsigned{kError}, unsigned{kWarning}, unsigned{kInfo}}) {
    log_only(levels);
    EXPECT_EQ(parse("X|1||A"), 5u) << levels;
    EXPECT_EQ(parse("||A"), 4u) << levels;
  }
}

// An empty result code is no success, and an empty session number none of the device, whether anybody logs it
// or not.
TEST_F(RspParcer, CountsEmptyFieldsAlikeAtEveryLevel) {
  for (const std::uint32_t levels : {0u, unsigned{kError}, unsigned{kWarning}, unsigned{kInfo}}) {
    log_only(levels);
    EXPECT_EQ(parse("ConsultarSAT", 123, "000123||06000|x"), (Outcome{0, kUntouched, 123})) << levels;
    EXPECT_EQ(parse("ConsultarSAT", 123, "|06000|x"), (Outcome{6000, kUntouched, kUntouched, 6000}))
        << levels;
    EXPECT_EQ(parse("ConsultarSAT", 123, "||000123|06000"), (Outcome{0})) << levels;
  }
}

TEST(GenRndNum, StaysBelowItsLimit) {
  for (int i = 0; i < 1000; ++i) {
    virtual_clock::advance_ms(1);
    EXPECT_LT(SAT_APP_GenRndNum(1000000), 1000000u);
    EXPECT_LT(SAT_APP_GenRndNum(3), 3u);
    EXPECT_EQ(SAT_APP_GenRndNum(1), 0u);
  }
}

TEST(GenRndNum, IsTheFirstDrawSeededWithTheLowMilliseconds) {
  virtual_clock::set_local_time(2026, 3, 4, 5, 6, 7, 890);
  tm calendar{};
  calendar.tm_year = 126;
  calendar.tm_mon = 2;
  calendar.tm_mday = 4;
  calendar.tm_hour = 5;
  calendar.tm_min = 6;
  calendar.tm_sec = 7;
  calendar.tm_isdst = -1;
  const std::uint64_t milliseconds = static_cast<std::uint64_t>(mktime(&calendar)) * 1000 + 890;
  ASSERT_GT(milliseconds, UINT32_MAX);
  srand(static_cast<std::uint32_t>(milliseconds));
  const auto drawn = static_cast<std::uint32_t>(rand());
  EXPECT_EQ(SAT_APP_GenRndNum(1000000), drawn % 1000000);
  EXPECT_EQ(SAT_APP_GenRndNum(UINT32_MAX), drawn);
}

TEST(GenRndNum, IsTheSameWithinAMillisecondAndAnotherAfterIt) {
  const std::uint32_t first = SAT_APP_GenRndNum(UINT32_MAX);
  EXPECT_EQ(SAT_APP_GenRndNum(UINT32_MAX), first);
  virtual_clock::advance_ms(1);
  EXPECT_NE(SAT_APP_GenRndNum(UINT32_MAX), first);
}

TEST(GenRndNumDeathTest, FaultsForZero) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(SAT_APP_GenRndNum(0), "");
}

class FreeAllocedMsg : public MessageParser {};

TEST_F(FreeAllocedMsg, ReleasesNothing) {
  int anything = 5;
  EXPECT_EQ(SAT_Free_AllocedMsg(&anything), -1);
  EXPECT_EQ(SAT_Free_AllocedMsg(nullptr), -1);
  EXPECT_EQ(take_lines(), lines_of("SAT_Free_AllocedMsg", {"--- rc[-001]\n", "--- rc[-001]\n"}, "WRN"));
}

}  // namespace
