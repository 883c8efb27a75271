#include <algorithm>
#include <climits>
#include <functional>
#include <map>

#include "api/protocol_log.h"
#include "link/virtual_link_fixture.h"
#include "olk_sat_utils/return_codes.h"
#include "support/other_process.h"
#include "talvex/talvex.h"

namespace {

using namespace scripted;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// What a host hands over is recognised on the wire.
struct EntryPoint {
  const char* name;
  uint32_t seconds;
  std::string busy_reply;  // behind the session number
  std::function<char*(int)> call;
  std::string arguments;  // as sent, behind the session number
  std::function<char*()> call_with_nulls;
  std::string null_arguments;
};

void PrintTo(const EntryPoint& entry, std::ostream* out) {
  *out << entry.name;
}

std::string five_fields(const char* code) {
  return std::string("|") + code + "|SAT em processamento, tente novamente.||";
}
std::string six_fields(const char* code) {
  return std::string("|") + code + "|0000|SAT em processamento, tente novamente.||";
}

const std::vector<EntryPoint>& entry_points() {
  static const std::vector<EntryPoint> all = {
      {"AtivarSAT", 1800, five_fields("04098"),
       [](int session) { return AtivarSAT(session, 1, "code", "11222333000181", 35); },
       "|1|code|11222333000181|35", [] { return AtivarSAT(1, 0, nullptr, nullptr, 0); }, "|0|||0"},
      {"ComunicarCertificadoICPBRASIL", 300, five_fields("05098"),
       [](int session) { return ComunicarCertificadoICPBRASIL(session, "code", "-----BEGIN\nMII=\n"); },
       "|code|-----BEGIN\nMII=\n", [] { return ComunicarCertificadoICPBRASIL(1, nullptr, nullptr); }, "||"},
      {"EnviarDadosVenda", 30, six_fields("06098"),
       [](int session) { return EnviarDadosVenda(session, "code", "<CFe>%s%n ção</CFe>"); },
       "|code|<CFe>%s%n ção</CFe>", [] { return EnviarDadosVenda(1, nullptr, nullptr); }, "||"},
      {"CancelarUltimaVenda", 30, six_fields("07098"),
       [](int session) { return CancelarUltimaVenda(session, "code", "CFe3511", "<CFeCanc/>"); },
       "|code|CFe3511|<CFeCanc/>", [] { return CancelarUltimaVenda(1, nullptr, nullptr, nullptr); }, "|||"},
      {"ConsultarSAT", 10, five_fields("08098"), [](int session) { return ConsultarSAT(session); }, "",
       [] { return ConsultarSAT(1); }, ""},
      {"TesteFimAFim", 20, five_fields("09098"),
       [](int session) { return TesteFimAFim(session, "code", "<CFe/>"); }, "|code|<CFe/>",
       [] { return TesteFimAFim(1, nullptr, nullptr); }, "||"},
      {"ConsultarStatusOperacional", 10, five_fields("10098"),
       [](int session) { return ConsultarStatusOperacional(session, "code"); }, "|code",
       [] { return ConsultarStatusOperacional(1, nullptr); }, "|"},
      {"ConsultarNumeroSessao", 20, five_fields("11098"),
       [](int session) { return ConsultarNumeroSessao(session, "code", 7); }, "|code|000007",
       [] { return ConsultarNumeroSessao(1, nullptr, 0); }, "||000000"},
      {"ConfigurarInterfaceDeRede", 20, five_fields("12098"),
       [](int session) { return ConfigurarInterfaceDeRede(session, "code", "<config/>"); }, "|code|<config/>",
       [] { return ConfigurarInterfaceDeRede(1, nullptr, nullptr); }, "||"},
      {"AssociarAssinatura", 1800, five_fields("13098"),
       [](int session) { return AssociarAssinatura(session, "code", "1122", "c2ln"); }, "|code|1122|c2ln",
       [] { return AssociarAssinatura(1, nullptr, nullptr, nullptr); }, "|||"},
      {"AtualizarSoftwareSAT", 1800, five_fields("14098"),
       [](int session) { return AtualizarSoftwareSAT(session, "code"); }, "|code",
       [] { return AtualizarSoftwareSAT(1, nullptr); }, "|"},
      {"ExtrairLogs", 30, five_fields("15098"), [](int session) { return ExtrairLogs(session, "code"); },
       "|code", [] { return ExtrairLogs(1, nullptr); }, "|"},
      {"BloquearSAT", 300, five_fields("16098"), [](int session) { return BloquearSAT(session, "code"); },
       "|code", [] { return BloquearSAT(1, nullptr); }, "|"},
      {"DesbloquearSAT", 20, five_fields("17098"),
       [](int session) { return DesbloquearSAT(session, "code"); }, "|code",
       [] { return DesbloquearSAT(1, nullptr); }, "|"},
      {"TrocarCodigoDeAtivacao", 30, five_fields("18098"),
       [](int session) { return TrocarCodigoDeAtivacao(session, "code", 2, "new", "new again"); },
       "|code|2|new|new again", [] { return TrocarCodigoDeAtivacao(1, nullptr, 0, nullptr, nullptr); },
       "||0||"},
      {"ConsultarUltimaSessaoFiscal", 20, "",
       [](int session) { return ConsultarUltimaSessaoFiscal(session, "code"); }, "|code",
       [] { return ConsultarUltimaSessaoFiscal(1, nullptr); }, "|"},
  };
  return all;
}

// How a session number goes out.
const std::vector<std::pair<int, std::string>> kSessions = {
    {42, "000042"}, {0, "000000"},         {999999, "999999"},  {1000000, "000000"}, {1234567, "234567"},
    {-5, "-00005"}, {-1234567, "-234567"}, {INT_MAX, "483647"}, {INT_MIN, "-483648"}};

class EntryPointTest : public VirtualLinkTest {
 protected:
  // The first call of a process is also the first of each test.
  EntryPointTest() {
    gl_tSat = {};
    if (gl_iFd > 0) close(gl_iFd);
    gl_iFd = 0;
  }

  void SetUp() override { write_file("SAT.ini", configuration(device().path())); }

  static void configure_without_device(const std::string& more = "") {
    write_file("SAT.ini", more + "[LOG]\nLogFilePath=Log\nLogMode=5\n");
  }

  // The device takes this command and answers with this reply.
  void answer(const std::string& command, const std::string& reply) {
    device().play({expect(frame(command)), ack(), send_frame(reply), expect_ack()});
  }

  static bool is_zero_from(std::size_t start) {
    return gl_sSatPkt[start] == 0 &&
           std::memcmp(gl_sSatPkt + start, gl_sSatPkt + start + 1, kPacketBufferSize - start - 1) == 0;
  }
};

constexpr char kNotFound[] =
    "SAT Erro[-02000]Lnx SAT Nao Encontrado L[2193] F[Communicate] LibVer[23-JUL-2020]";

// ---- All sixteen ------------------------------------------------------------------------------------

class EveryEntryPointTest : public EntryPointTest, public testing::WithParamInterface<EntryPoint> {
 protected:
  static bool traces_its_calls() { return std::string(GetParam().name) == "ConsultarUltimaSessaoFiscal"; }
};

TEST_P(EveryEntryPointTest, SendsItsCommandForEverySession) {
  const EntryPoint& entry = GetParam();
  for (const auto& [session, sent] : kSessions) {
    answer(entry.name + ("|" + sent) + entry.arguments, "reply to " + sent);
    EXPECT_STREQ(entry.call(session), ("reply to " + sent).c_str());
    EXPECT_EQ(device().verdict(), "") << session;
  }
}

TEST_P(EveryEntryPointTest, SendsEmptyFieldsForNullArguments) {
  const EntryPoint& entry = GetParam();
  answer(std::string(entry.name) + "|000001" + entry.null_arguments, "AB");
  EXPECT_STREQ(entry.call_with_nulls(), "AB");
  expect_script_played();
}

TEST_P(EveryEntryPointTest, NamesItselfAndClearsTheBuffer) {
  const EntryPoint& entry = GetParam();
  std::memset(gl_sSatPkt, '#', kPacketBufferSize);
  answer(std::string(entry.name) + "|000042" + entry.arguments, "AB");
  EXPECT_EQ(entry.call(42), gl_sSatPkt);
  EXPECT_STREQ(gl_tSat.CurSatCmdInProc, entry.name);
  EXPECT_EQ(std::string(gl_sSatPkt, 4), std::string("AB\0\x03", 4));
  EXPECT_TRUE(is_zero_from(4));
}

TEST_P(EveryEntryPointTest, WaitsForTheTimeoutOfItsRow) {
  const EntryPoint& entry = GetParam();
  device().play({expect_frame(), ack(), send("Z")});
  EXPECT_THAT(entry.call(42), StartsWith("SAT Erro[-02004]Lnx SAT  Dev["));
  EXPECT_EQ(virtual_clock::monotonic_ms(), static_cast<int64_t>(entry.seconds) * 1000 + 1);
}

TEST_P(EveryEntryPointTest, AnswersBusyWhileAnotherProcessHoldsThePort) {
  const EntryPoint& entry = GetParam();
  const OtherProcess other(TALVEX_PORT_HOLDER, device().path());
  ASSERT_TRUE(other.holds_port());
  const std::string text = entry.busy_reply.empty()
                               ? "SAT Erro[-03000] Parametro Invalido  SAT L[3149] F[generate_98_return] "
                               : "42" + entry.busy_reply;
  EXPECT_EQ(entry.call(1000042), text);
  EXPECT_EQ(traced(entry.name).back(),
            printed("ERR  rc[-02010]ER\n\t << SAT_Rsp[%05zu:%s]\n", text.size(), text.c_str()));
}

TEST_P(EveryEntryPointTest, TracesAFailure) {
  configure_without_device();
  EXPECT_STREQ(GetParam().call(42), kNotFound);
  const Lines lines = traced(GetParam().name);
  EXPECT_THAT(lines, SizeIs(traces_its_calls() ? 3 : 1));
  EXPECT_EQ(lines.back(),
            printed("ERR  rc[-02000]ER\n\t << SAT_Rsp[%05zu:%s]\n", sizeof kNotFound - 1, kNotFound));
}

TEST_P(EveryEntryPointTest, NeverLooksIntoTheReply) {
  const EntryPoint& entry = GetParam();
  const std::string reply = "  999999|06099|Erro desconhecido|no session of ours ";
  answer(std::string(entry.name) + "|000042" + entry.arguments, reply);
  EXPECT_EQ(entry.call(42), reply);
  EXPECT_THAT(with_text(traced(entry.name), "ERR"), IsEmpty());
  EXPECT_THAT(traced(entry.name), SizeIs(traces_its_calls() ? 2 : 0));
}

INSTANTIATE_TEST_SUITE_P(Functions, EveryEntryPointTest, testing::ValuesIn(entry_points()),
                         [](const auto& test) { return test.param.name; });

TEST_F(EntryPointTest, AreSixteen) {
  EXPECT_THAT(entry_points(), SizeIs(16));
}

// ---- Arguments --------------------------------------------------------------------------------------

TEST_F(EntryPointTest, SessionToLookUpIsNotReduced) {
  for (const auto& [number, sent] :
       {std::pair{12345678, "12345678"}, {-5, "-00005"}, {INT_MIN, "-2147483648"}}) {
    answer(std::string("ConsultarNumeroSessao|000042|code|") + sent, "AB");
    EXPECT_STREQ(ConsultarNumeroSessao(42, "code", number), "AB");
    expect_script_played();
  }
}

TEST_F(EntryPointTest, PlainNumbersArePrintedPlain) {
  answer("AtivarSAT|000042|-7|code|cnpj|2147483647", "AB");
  EXPECT_STREQ(AtivarSAT(42, -7, "code", "cnpj", INT_MAX), "AB");
  expect_script_played();
  answer("TrocarCodigoDeAtivacao|000042|code|-1|n|n", "AB");
  EXPECT_STREQ(TrocarCodigoDeAtivacao(42, "code", -1, "n", "n"), "AB");
  expect_script_played();
}

TEST_F(EntryPointTest, BusyReplyShowsTheReducedSessionPlain) {
  const OtherProcess other(TALVEX_PORT_HOLDER, device().path());
  ASSERT_TRUE(other.holds_port());
  EXPECT_STREQ(ConsultarSAT(-5), "-5|08098|SAT em processamento, tente novamente.||");
  EXPECT_STREQ(EnviarDadosVenda(-1000042, "code", "sale"),
               "-42|06098|0000|SAT em processamento, tente novamente.||");
}

// ---- Replies ----------------------------------------------------------------------------------------

TEST_F(EntryPointTest, TwoCallsReturnTheSamePointerAndTheSecondReplyOverwritesTheFirst) {
  answer("ConsultarSAT|000001", "000001|08000|a rather long first reply||");
  char* first = ConsultarSAT(1);
  answer("ConsultarSAT|000002", "short");
  char* second = ConsultarSAT(2);
  EXPECT_EQ(first, second);
  EXPECT_STREQ(second, "short");
  EXPECT_TRUE(is_zero_from(7));
}

TEST_F(EntryPointTest, SaleOfSeveralBlocksAndReplyOfSeveralBlocks) {
  const std::string sale = times(2000, "<item>0123456789</item>");
  const std::string bytes = frame("EnviarDadosVenda|000042|code|" + sale);
  const std::string reply = text_for_frame_of(40000);
  device().play({expect(bytes.substr(0, kBlock)), ack(), expect(bytes.substr(kBlock, kBlock)), ack(),
                 expect(bytes.substr(2 * kBlock)), ack(), send_frame(reply), expect(std::string(3, kAck))});
  EXPECT_TRUE(EnviarDadosVenda(42, "code", sale.c_str()) == reply);
  expect_script_played();
}

TEST_F(EntryPointTest, VersionTouchesNoDevice) {
  std::memset(gl_sSatPkt, '#', kPacketBufferSize);
  EXPECT_EQ(VersaoDllTalvex(), gl_sSatPkt);
  EXPECT_STREQ(gl_sSatPkt, "TALVEX DLL Ver. 02.00");
  EXPECT_TRUE(is_zero_behind_text(gl_sSatPkt, kPacketBufferSize));
  EXPECT_STREQ(gl_tSat.CurSatCmdInProc, "VersaoDllTalvex");
  EXPECT_FALSE(std::filesystem::exists("SAT.conf"));
  EXPECT_THAT(traced("VersaoDllTalvex"), IsEmpty());
}

// ---- The one that traces its calls ------------------------------------------------------------------

TEST_F(EntryPointTest, LastFiscalSessionTracesCommandAndReply) {
  answer("ConsultarUltimaSessaoFiscal|000042|code", "42|19000|ok");
  ASSERT_STREQ(ConsultarUltimaSessaoFiscal(42, "code"), "42|19000|ok");
  EXPECT_THAT(traced("ConsultarUltimaSessaoFiscal"),
              ElementsAre("INF  rc[000000]WR\n\t >> SAT_Cmd[00041:\x02"
                          "ConsultarUltimaSessaoFiscal|000042|code\x03]\n",
                          "INF  rc[000011]OK\n\tSAT->PC <<    SAT_Rsp[00011:42|19000|ok]\n"));
}

TEST_F(EntryPointTest, LastFiscalSessionTracesAFailureTwice) {
  configure_without_device();
  ASSERT_STREQ(ConsultarUltimaSessaoFiscal(42, "code"), kNotFound);
  const std::string reply = printed("SAT_Rsp[%05zu:%s]\n", sizeof kNotFound - 1, kNotFound);
  EXPECT_THAT(
      traced("ConsultarUltimaSessaoFiscal"),
      ElementsAre(StartsWith("INF  rc[000000]WR\n\t >> SAT_Cmd[00041:"),
                  "ERR  rc[-02000]ER\n\tSAT->PC <<    " + reply, "ERR  rc[-02000]ER\n\t << " + reply));
}

TEST_F(EntryPointTest, LastFiscalSessionTracesItsCommandBeforeItIsSent) {
  answer("ConsultarUltimaSessaoFiscal|000042|code", "AB");
  ASSERT_STREQ(ConsultarUltimaSessaoFiscal(42, "code"), "AB");
  const Lines messages = trace_messages("SAT_api.log");
  std::vector<std::size_t> order;
  for (const char* text : {">> SAT_Cmd[", "STEP-04a", "STEP-08a", "SAT->PC <<    SAT_Rsp["}) {
    for (std::size_t i = 0; i < messages.size(); ++i) {
      if (messages[i].find(text) != std::string::npos) order.push_back(i);
    }
  }
  EXPECT_THAT(order, SizeIs(4));
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

// ---- Result files -----------------------------------------------------------------------------------

class ResultFileTest : public EntryPointTest {
 protected:
  void SetUp() override {
    std::filesystem::create_directory("results");
    write_file("SAT.ini", configuration(device().path(), kResults));
    virtual_clock::set_local_time(2026, 7, 27, 10, 41, 14, 0);
  }
  static std::map<std::string, std::string> results() {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator("results"))
      files[entry.path().filename().string()] = read_file(entry.path());
    return files;
  }
  // The last two lines of a call that failed.
  static void expect_error_line_behind_the_result_file(const std::string& function) {
    const Lines messages = trace_messages("SAT_api.log");
    EXPECT_THAT(messages.back(), HasSubstr("[" + function + "] rc[-02000]ER\n\t << SAT_Rsp["));
    EXPECT_THAT(messages[messages.size() - 2], HasSubstr("Saved File["));
  }
  using Files = std::map<std::string, std::string>;
  static constexpr char kResults[] = "[ARVOLEN]\nPathLinux=results\nEnable=1\n";
};

TEST_F(ResultFileTest, SaleLeavesItsReplyUnderTheReducedSession) {
  answer("EnviarDadosVenda|123456|code|sale", "123456|06000|0000|Emitido||");
  ASSERT_STREQ(EnviarDadosVenda(7123456, "code", "sale"), "123456|06000|0000|Emitido||");
  EXPECT_EQ(results(), (Files{{"venda-cprx-27104114-123456-1.sat", "123456|06000|0000|Emitido||"}}));
}

TEST_F(ResultFileTest, CancellationLeavesItsReplyUnderTheReducedSession) {
  answer("CancelarUltimaVenda|123456|code|key|data", "123456|07000|0000|Cancelado||");
  ASSERT_STREQ(CancelarUltimaVenda(7123456, "code", "key", "data"), "123456|07000|0000|Cancelado||");
  EXPECT_EQ(results(), (Files{{"canc-cprx-27104114-123456-1.sat", "123456|07000|0000|Cancelado||"}}));
}

TEST_F(ResultFileTest, CancellationLeavesItsReplyNotItsData) {
  answer("CancelarUltimaVenda|000042|code|key|data", "42|07000|0000|Cancelado||");
  ASSERT_STREQ(CancelarUltimaVenda(42, "code", "key", "data"), "42|07000|0000|Cancelado||");
  EXPECT_EQ(results(), (Files{{"canc-cprx-27104114-42-1.sat", "42|07000|0000|Cancelado||"}}));
}

TEST_F(ResultFileTest, FailedSaleLeavesItsFailureTextBeforeTheErrorLine) {
  configure_without_device(kResults);
  ASSERT_STREQ(EnviarDadosVenda(42, "code", "sale"), kNotFound);
  EXPECT_EQ(results(), (Files{{"venda-cprx-27104114-42-1.sat", kNotFound}}));
  expect_error_line_behind_the_result_file("EnviarDadosVenda");
}

TEST_F(ResultFileTest, FailedCancellationLeavesItsFailureTextBeforeTheErrorLine) {
  configure_without_device(kResults);
  ASSERT_STREQ(CancelarUltimaVenda(42, "code", "key", "data"), kNotFound);
  EXPECT_EQ(results(), (Files{{"canc-cprx-27104114-42-1.sat", kNotFound}}));
  expect_error_line_behind_the_result_file("CancelarUltimaVenda");
}

TEST_F(ResultFileTest, BusySaleLeavesItsBusyReply) {
  const OtherProcess other(TALVEX_PORT_HOLDER, device().path());
  ASSERT_TRUE(other.holds_port());
  const std::string reply = "42|06098|0000|SAT em processamento, tente novamente.||";
  ASSERT_EQ(EnviarDadosVenda(42, "code", "sale"), reply);
  EXPECT_EQ(results(), (Files{{"venda-cprx-27104114-42-1.sat", reply}}));
}

TEST_F(ResultFileTest, RefusedSaleLeavesItsText) {
  const std::string sale(kPacketBufferSize, 'x');
  const std::string text = EnviarDadosVenda(42, "code", sale.c_str());
  EXPECT_EQ(results(), (Files{{"venda-cprx-27104114-42-1.sat", text}}));
}

TEST_F(ResultFileTest, OtherFunctionsLeaveNone) {
  for (const EntryPoint& entry : entry_points()) {
    const std::string name = entry.name;
    if (name == "EnviarDadosVenda" || name == "CancelarUltimaVenda") continue;
    answer(name + "|000042" + entry.arguments, "AB");
    ASSERT_STREQ(entry.call(42), "AB") << name;
  }
  EXPECT_THAT(results(), IsEmpty());
}

// ---- Commands that do not fit -----------------------------------------------------------------------

class LongCommandTest : public EntryPointTest {
 protected:
  // STX, text and placeholder; the checksum takes the placeholder's place, ETX and a NUL follow.
  static constexpr std::size_t kLongest = kPacketBufferSize - 2;
  static constexpr char kFront[] =
      "\x02"
      "EnviarDadosVenda|000042|code|";

  void SetUp() override { write_file("SAT.ini", configuration(device().path(), "", "1")); }
  static std::string sale_for_command_of(std::size_t length) {
    return std::string(length - (sizeof kFront - 1) - 1, 'x');
  }
};

TEST_F(LongCommandTest, CommandThatFitsExactlyIsSent) {
  // Without logs: 640 blocks with the whole frame in the protocol log behind each would be 6 GiB.
  write_file("SAT.ini", configuration(device().path(), "", "0"));
  const std::string sale = sale_for_command_of(kLongest);
  const std::string bytes = frame(std::string(kFront + 1) + sale);
  ASSERT_EQ(bytes.size(), kLongest + 1);
  Script script;
  for (std::size_t start = 0; start < bytes.size(); start += kBlock) {
    script.push_back(expect(bytes.substr(start, kBlock)));
    script.push_back(ack());
  }
  device().play(std::move(script) + Script{send_frame("AB"), expect_ack()});
  EXPECT_STREQ(EnviarDadosVenda(42, "code", sale.c_str()), "AB");
  expect_script_played();
}

TEST_F(LongCommandTest, OneByteMoreIsRefusedAndNoDeviceTouched) {
  const std::string sale = sale_for_command_of(kLongest + 1);
  const std::string text = EnviarDadosVenda(42, "code", sale.c_str());
  EXPECT_THAT(text, StartsWith("SAT Erro[-02006]Lnx"));
  EXPECT_THAT(text, HasSubstr(std::to_string(kLongest)));
  EXPECT_TRUE(is_zero_behind_text(gl_sSatPkt, kPacketBufferSize));
  EXPECT_FALSE(std::filesystem::exists("SAT.conf"));
  EXPECT_THAT(traced("EnviarDadosVenda"), ElementsAre(StartsWith("ERR  rc[-02006]ER "),
                                                      printed("ERR  rc[-02006]ER\n\t << SAT_Rsp[%05zu:%s]\n",
                                                              text.size(), text.c_str())));
}

TEST_F(LongCommandTest, ArgumentsFarBeyondTheBufferAreRefused) {
  const std::string huge(3 * kPacketBufferSize, 'x');
  for (char* text : {AssociarAssinatura(42, huge.c_str(), huge.c_str(), huge.c_str()),
                     ConsultarUltimaSessaoFiscal(42, huge.c_str())}) {
    EXPECT_THAT(text, StartsWith("SAT Erro[-02006]Lnx"));
  }
  EXPECT_FALSE(std::filesystem::exists("SAT.conf"));
}

// It traces no command, because there is none, but both of its error lines.
TEST_F(LongCommandTest, RefusedLastFiscalSessionIsTracedAsAnyFailureOfIt) {
  write_file("SAT.ini", configuration(device().path(), "", "3"));
  const std::string code(kPacketBufferSize, 'x');
  const std::string text = ConsultarUltimaSessaoFiscal(42, code.c_str());
  const std::string reply = printed("SAT_Rsp[%05zu:%s]\n", text.size(), text.c_str());
  EXPECT_THAT(
      traced("ConsultarUltimaSessaoFiscal"),
      ElementsAre(StartsWith("ERR  rc[-02006]ER Command exceeds "),
                  "ERR  rc[-02006]ER\n\tSAT->PC <<    " + reply, "ERR  rc[-02006]ER\n\t << " + reply));
}

TEST_F(LongCommandTest, NextCallWorks) {
  EXPECT_THAT(EnviarDadosVenda(42, "code", sale_for_command_of(kLongest + 1).c_str()),
              StartsWith("SAT Erro"));
  answer("ConsultarSAT|000043", "AB");
  EXPECT_STREQ(ConsultarSAT(43), "AB");
  expect_script_played();
}

}  // namespace
