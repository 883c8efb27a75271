// What the library makes of every fault that the emulator knows: the rows of the table in the user guide.

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>

#include "device/functions.h"
#include "emulator/library_host.h"
#include "emulator/sale_data.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string right_reply(int session) {
  return std::to_string(1'000'000 + session).substr(1) + "|08000|SAT em operação||";
}

class LibraryOnFault : public TillWithEmulator {
 protected:
  void start_with(const std::string& rule) { start({"--record", "traffic.txt", "--fault", rule}); }
  std::string ask(int session) { return library.call("ConsultarSAT", session); }
  std::string sell(int session) {
    return library.call("EnviarDadosVenda", session, kCode, SaleData().xml().c_str());
  }
  std::string look_up(int session, int lost) {
    return library.call("ConsultarNumeroSessao", session, kCode, lost);
  }

  std::string not_acknowledged(const std::string& code) const {
    return "SAT Erro[" + code + "]Lnx Dev[" + port_named("sat0") +
           "] L[2305] F[Communicate] >> CMD or << ACK LibVer[23-JUL-2020]";
  }
  std::string not_received(const std::string& code) const {
    return "SAT Erro[" + code + "]Lnx SAT  Dev[" + port_named("sat0") +
           "] falhou na recepcao da resposta L[2324] F[Communicate] LibVer[23-JUL-2020]";
  }
  // The device goes away in the middle of a call; until its link is there again, no call can reach it.
  void wait_for_link(const std::string& name = "sat0") const {
    while (!std::filesystem::exists(port_named(name))) usleep(1'000);
  }
  static void expect_sent_twice(const std::string& command) {
    const std::string traffic = read_file("traffic.txt");
    int times = 0;
    for (auto at = traffic.find(command); at != std::string::npos; at = traffic.find(command, at + 1))
      ++times;
    EXPECT_EQ(times, 2) << traffic;
  }
  void expect_issued(int session, const std::string& code = "06000") {
    const std::string found = look_up(800, session);
    EXPECT_THAT(found, StartsWith(std::to_string(1'000'000 + session).substr(1) + "|" + code + "|"));
    EXPECT_EQ(library.call("ConsultarUltimaSessaoFiscal", 801, kCode), found);
    EXPECT_EQ(emulator::split_fields(found).size(), 12U);
  }
  void expect_next_call_is_right() { EXPECT_EQ(ask(900), right_reply(900)); }
};

TEST_F(LibraryOnFault, ThreeNaksAreBorne) {
  start_with("on any nth=1 do nak 3");
  EXPECT_EQ(ask(1), right_reply(1));
  expect_next_call_is_right();
}

TEST_F(LibraryOnFault, FourNaksEndTheCall) {
  start_with("on any nth=1 do nak 4");
  EXPECT_EQ(ask(1), not_acknowledged("-02009"));
  expect_next_call_is_right();
}

TEST_F(LibraryOnFault, ASilentDeviceEndsTheCallAfterFourWaits) {
  start_with("on any nth=1 do silence");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ask(1), not_acknowledged("-00002"));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(12));
  expect_next_call_is_right();
  EXPECT_THAT(look_up(901, 1), HasSubstr("|11003|"));
}

TEST_F(LibraryOnFault, ALostAckHidesTheReplyButNotTheSession) {
  start_with("on any nth=1 do drop-ack");
  EXPECT_EQ(ask(1), not_received("-02003"));
  EXPECT_EQ(look_up(2, 1), right_reply(1));
}

TEST_F(LibraryOnFault, AMissingReplyIsFoundUnderItsSession) {
  start_with("on fiscal nth=1 do no-reply");
  EXPECT_EQ(sell(1), not_received("-02003"));
  const std::string found = look_up(2, 1);
  EXPECT_THAT(found, StartsWith("000001|06000|"));
  EXPECT_EQ(library.call("ConsultarUltimaSessaoFiscal", 3, kCode), found);
}

TEST_F(LibraryOnFault, TwoWrongChecksumsAreBorne) {
  start_with("on any nth=1 do wrong-checksum 2");
  EXPECT_EQ(ask(1), right_reply(1));
  expect_next_call_is_right();
}

TEST_F(LibraryOnFault, ThreeWrongChecksumsEndTheCall) {
  start_with("on any nth=1 do wrong-checksum 3");
  EXPECT_EQ(ask(1), not_received("-02005"));
  EXPECT_EQ(look_up(2, 1), right_reply(1));
}

TEST_F(LibraryOnFault, StrayBytesAreDropped) {
  start_with("on any nth=1 do stray 40");
  EXPECT_EQ(ask(1), right_reply(1));
  expect_next_call_is_right();
}

TEST_F(LibraryOnFault, AShortStopIsBorne) {
  start_with("on any nth=1 do stop 10 40");
  EXPECT_EQ(ask(1), right_reply(1));
  expect_next_call_is_right();
}

TEST_F(LibraryOnFault, ALongStopMakesTheDeviceReplyAgain) {
  start_with("on any nth=1 do stop 10 5000");
  EXPECT_EQ(ask(1), right_reply(1));
  expect_next_call_is_right();
}

TEST_F(LibraryOnFault, PiecesArePutTogether) {
  start_with("on any nth=1 do split 3 10");
  EXPECT_EQ(ask(1), right_reply(1));
  expect_next_call_is_right();
}

TEST_F(LibraryOnFault, ADeviceThatIsUnpluggedEndsTheCall) {
  start_with("on any nth=1 do hangup 10 back=100");
  EXPECT_EQ(ask(1), not_received("-02004"));
  wait_for_link();
  EXPECT_EQ(look_up(2, 1), right_reply(1));
}

TEST_F(LibraryOnFault, ADeviceThatComesBackElsewhereIsNotFoundUntilThePortIsChanged) {
  start_with("on any nth=1 do hangup 10 back=100 as=sat1");
  EXPECT_EQ(ask(1), not_received("-02004"));
  wait_for_link("sat1");
  EXPECT_EQ(ask(2),
            "SAT Erro[-02000]Lnx SAT nao encontrado Dev[" + port_named("sat0") + "] L[2254] F[Communicate]");
  use_port(port_named("sat1"));
  EXPECT_EQ(look_up(3, 1), right_reply(1));
}

TEST_F(LibraryOnFault, AReplyWithinTheWaitsIsNotTooLate) {
  start_with("on any nth=1 do late 4000");
  EXPECT_EQ(ask(1), right_reply(1));
  expect_next_call_is_right();
}

TEST_F(LibraryOnFault, AReplyAfterTheWaitsIsLost) {
  start_with("on any nth=1 do late 9500");
  EXPECT_EQ(ask(1), not_received("-02003"));
  expect_next_call_is_right();
  EXPECT_EQ(look_up(901, 1), right_reply(1));
}

TEST_F(LibraryOnFault, TheReplyOfTheCallBeforeIsHandedOn) {
  start_with("on any nth=2 do previous");
  EXPECT_EQ(ask(1), right_reply(1));
  EXPECT_EQ(ask(2), right_reply(1));  // only the till can tell, by the session number
  EXPECT_EQ(look_up(3, 2), right_reply(2));
}

TEST_F(LibraryOnFault, ASecondCopyOfTheReplyIsThrownAway) {
  start_with("on any nth=1 do duplicate");
  EXPECT_EQ(ask(1), right_reply(1));
  expect_next_call_is_right();
}

TEST_F(LibraryOnFault, AReplyBeyondThePacketBufferEndsTheCall) {
  start_with("on any nth=1 do oversize");
  EXPECT_EQ(ask(1), not_received("-02006"));
  EXPECT_EQ(look_up(2, 1), right_reply(1));
}

TEST_F(LibraryOnFault, AReplyOfMegabytesIsHandedOn) {
  start_with("on any nth=1 do oversize 5000000");
  const std::string reply = ask(1);
  EXPECT_EQ(reply.size(), 5'000'000U);
  EXPECT_THAT(reply, StartsWith(right_reply(1) + "|XXX"));
  expect_next_call_is_right();
}

TEST_F(LibraryOnFault, AnyCodeIsHandedOn) {
  start_with("on fiscal nth=1 do return 06099 1999 Falha do leitor");
  EXPECT_EQ(sell(1), "000001|06099|1999|Falha do leitor||");
  EXPECT_THAT(sell(2), StartsWith("000002|06000|"));
}

// ---- the document is issued, and the till is told otherwise

TEST_F(LibraryOnFault, ANakToACommandThatWasCarriedOutMakesTheDeviceRefuseTheRepetition) {
  start_with("on EnviarDadosVenda nth=1 do carry-out-nak");
  EXPECT_THAT(sell(1), StartsWith("000001|06097|0000|"));
  expect_sent_twice("EnviarDadosVenda|000001|");
  expect_issued(1);
}

TEST_F(LibraryOnFault, AnStxInFrontOfTheAckMakesTheDeviceRefuseTheRepetition) {
  start_with("on EnviarDadosVenda nth=1 do stray-stx");
  EXPECT_THAT(sell(1), StartsWith("000001|06097|0000|"));
  expect_sent_twice("EnviarDadosVenda|000001|");
  expect_issued(1);
}

TEST_F(LibraryOnFault, ADeviceStillAtWorkIsBusyForTheRepetition) {
  start({"--record", "traffic.txt", "--fault", "on EnviarDadosVenda nth=1 do carry-out-nak", "--fault",
         "on EnviarDadosVenda nth=2 do processing 1"});
  EXPECT_THAT(sell(1), StartsWith("000001|06098|0000|"));
  expect_sent_twice("EnviarDadosVenda|000001|");
  expect_issued(1);
}

TEST_F(LibraryOnFault, ACancellationIsCaughtInTheSameTrap) {
  start_with("on CancelarUltimaVenda nth=1 do stray-stx");
  const std::string key = emulator::split_fields(sell(1))[8];
  EXPECT_THAT(library.call("CancelarUltimaVenda", 2, kCode, key.c_str(), cancellation_xml(key).c_str()),
              StartsWith("000002|07097|0000|"));
  expect_sent_twice("CancelarUltimaVenda|000002|");
  expect_issued(2, "07000");
}

TEST_F(LibraryOnFault, ADocumentThatTheDeviceDeniesIsFoundUnderItsSession) {
  start({"--fault", "on fiscal nth=1 do carry-out-return 06097", "--fault",
         "on fiscal nth=2 do carry-out-return 06098", "--fault",
         "on fiscal nth=3 do carry-out-return 06099"});
  for (const auto& [session, code] : {std::pair(1, "06097"), {2, "06098"}, {3, "06099"}}) {
    EXPECT_THAT(sell(session), HasSubstr(std::string("|") + code + "|0000|"));
    expect_issued(session);
  }
}

TEST_F(LibraryOnFault, ADeviceThatAlsoStoredTheDenialKnowsTheTruthAsItsLastFiscalSession) {
  start_with("on fiscal nth=1 do carry-out-return 06099 stored=yes");
  const std::string denial = sell(1);
  EXPECT_THAT(denial, StartsWith("000001|06099|0000|"));
  EXPECT_EQ(look_up(2, 1), denial);
  EXPECT_THAT(library.call("ConsultarUltimaSessaoFiscal", 3, kCode), StartsWith("000001|06000|"));
}

TEST_F(LibraryOnFault, ABusyDeviceAnswersSoAndTheSessionMayBeUsedAgain) {
  start_with("on fiscal nth=1 do processing 2");
  const std::string busy = "000001|06098|0000|SAT em processamento. Tente novamente||";
  EXPECT_EQ(sell(1), busy);
  EXPECT_EQ(sell(1), busy);
  EXPECT_THAT(sell(1), StartsWith("000001|06000|"));
}

TEST_F(LibraryOnFault, ABlockedDeviceDoesNotSell) {
  start_with("on fiscal nth=1 do blocked autonomous");
  EXPECT_EQ(sell(1), "000001|06008|0000|SAT bloqueado por falta de comunicação||");
  EXPECT_THAT(sell(2), StartsWith("000002|06000|"));
}

TEST_F(LibraryOnFault, AnExpiredCertificateStopsTheSale) {
  start_with("on fiscal nth=1 do certificate-expired");
  EXPECT_EQ(sell(1), "000001|06011|0000|SAT bloqueado por vencimento do certificado digital.||");
  EXPECT_THAT(sell(2), StartsWith("000002|06000|"));
}

// ---- without faults

TEST_F(LibraryOnFault, EveryFunctionGetsItsLayout) {
  start({});
  const std::string sale = sell(1);
  const auto fields = [](const std::string& text) { return emulator::split_fields(text).size(); };
  EXPECT_EQ(fields(sale), 12U);
  const std::string key = emulator::split_fields(sale)[8];
  EXPECT_EQ(fields(library.call("CancelarUltimaVenda", 2, kCode, key.c_str(), cancellation_xml(key).c_str())),
            12U);
  EXPECT_EQ(fields(library.call("TesteFimAFim", 3, kCode, SaleData().xml().c_str())), 9U);
  EXPECT_EQ(fields(library.call("ConsultarStatusOperacional", 4, kCode)), 28U);
  EXPECT_EQ(fields(library.call("ExtrairLogs", 5, kCode)), 6U);
  EXPECT_EQ(library.call("ConsultarUltimaSessaoFiscal", 6, kCode).substr(0, 12), "000002|07000");
  EXPECT_EQ(library.call("BloquearSAT", 7, kCode), "000007|16000|Equipamento SAT bloqueado com sucesso||");
  EXPECT_EQ(library.call("DesbloquearSAT", 8, kCode),
            "000008|17000|Equipamento SAT desbloqueado com sucesso||");
  EXPECT_EQ(library.call("AtualizarSoftwareSAT", 9, kCode), "000009|14000|Software Atualizado com Sucesso||");
  EXPECT_EQ(library.call("TrocarCodigoDeAtivacao", 10, kCode, 1, "novocodigo", "novocodigo"),
            "000010|18000|Código de ativação alterado com sucesso||");
}

TEST_F(LibraryOnFault, ASaleOfManyBlocksArrivesWhole) {
  start({"--latency", "20"});
  SaleData data;
  data.items = SaleData::item(1, "1", "10.00");
  for (int i = 2; i <= 400; ++i) data.items += SaleData::item(i, "1", "0.01");
  data.payments = SaleData::payment("01", "13.99");
  const std::string xml = data.xml();
  ASSERT_GT(xml.size(), 3U * 16'384U);
  const std::string reply = library.call("EnviarDadosVenda", 1, kCode, xml.c_str());
  EXPECT_EQ(emulator::split_fields(reply)[9], "13.99");
}

TEST_F(LibraryOnFault, ASlowLineIsBorne) {
  start({"--byte-delay", "2000"});
  EXPECT_EQ(ask(1), right_reply(1));
}

}  // namespace
