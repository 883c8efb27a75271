#include "device/device.h"

#include <gmock/gmock.h>

#include "device/crypto.h"
#include "device/messages.h"
#include "device_bench.h"
#include "documents/identifiers.h"

namespace emulator {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

using ReadyDevice = DeviceBench;

class NewDevice : public DeviceBench {
 protected:
  NewDevice() : DeviceBench(DeviceState{}) {}
  std::vector<std::string> activate(const char* sub_command = "1", const char* uf = "35") {
    return call("AtivarSAT", {sub_command, "codigo123", "11222333000181", uf});
  }
};

const std::string kSignature = std::string(342, 'A') + "==";
const std::string kCnpjPair = "1234567800019511222333000181";

// ---- reply layouts

TEST_F(ReadyDevice, FiveFieldsForMostFunctions) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> calls{
      {"08000", {"ConsultarSAT"}},
      {"12000", {"ConfigurarInterfaceDeRede", kCode, "<config><tipoLan>DHCP</tipoLan></config>"}},
      {"13000", {"AssociarAssinatura", kCode, kCnpjPair, kSignature}},
      {"14000", {"AtualizarSoftwareSAT", kCode}},
      {"16000", {"BloquearSAT", kCode}},
      {"17000", {"DesbloquearSAT", kCode}},
      {"18000", {"TrocarCodigoDeAtivacao", kCode, "1", "novocodigo", "novocodigo"}},
  };
  for (const auto& [code, words] : calls) {
    const auto reply = call(words[0], {words.begin() + 1, words.end()});
    EXPECT_THAT(reply, ElementsAre(padded(session, 6), code,
                                   std::string(return_code_message(std::stoi(code))), "", ""));
  }
}

TEST_F(NewDevice, ActivationReturnsACertificateRequest) {
  const auto reply = activate();
  ASSERT_THAT(reply, SizeIs(6));
  EXPECT_EQ(reply[1], "04000");
  EXPECT_THAT(*base64_decode(reply[5]), HasSubstr("-----BEGIN CERTIFICATE REQUEST-----"));
  EXPECT_EQ(code_of("ConsultarStatusOperacional", {"codigo123"}), "10000");
}

TEST_F(NewDevice, IcpBrasilIsActiveOnceTheCertificateHasCome) {
  const auto reply = activate("2");
  ASSERT_THAT(reply, SizeIs(6));
  EXPECT_EQ(reply[1], "04006");
  EXPECT_EQ(call("EnviarDadosVenda", {"codigo123", SaleData().xml()})[1], "06002");
  EXPECT_EQ(code_of("ComunicarCertificadoICPBRASIL", {"codigo123", "lixo"}), "05003");
  EXPECT_EQ(code_of("ComunicarCertificadoICPBRASIL", {"codigo999", "x"}), "05001");
  const auto done = call("ComunicarCertificadoICPBRASIL", {"codigo123", "-----BEGIN CERTIFICATE-----\nMAA="});
  EXPECT_THAT(done, SizeIs(5));
  EXPECT_EQ(done[1], "05000");
  EXPECT_EQ(call("EnviarDadosVenda", {"codigo123", SaleData().xml()})[1], "06003");
}

TEST_F(ReadyDevice, ASaleHasTwelveFields) {
  SaleData data;
  data.buyer = "<CPF>52998224725</CPF>";
  const auto reply = call("EnviarDadosVenda", {kCode, data.xml()});
  ASSERT_THAT(reply, SizeIs(12));
  EXPECT_EQ(reply[0], "000001");
  EXPECT_EQ(reply[1], "06000");
  EXPECT_EQ(reply[2], "0000");
  EXPECT_EQ(reply[3], "Emitido com sucesso + conteúdo notas");
  EXPECT_EQ(reply[4], "");
  EXPECT_EQ(reply[5], "");
  EXPECT_THAT(*base64_decode(reply[6]), HasSubstr("Id=\"" + reply[8] + "\""));
  EXPECT_EQ(reply[7], "20260301100000");
  EXPECT_TRUE(valid_access_key(reply[8]));
  EXPECT_EQ(reply[8].substr(3, 37),
            "35"
            "2603"
            "11222333000181"
            "59"
            "900000001"
            "000001");
  EXPECT_EQ(reply[9], "10.00");
  EXPECT_EQ(reply[10], "52998224725");
  EXPECT_EQ(reply[11], device.signing_key().sign(reply[8].substr(3) + "|20260301100000|10.00|52998224725"));
  EXPECT_THAT(*base64_decode(reply[6]), HasSubstr("<assinaturaQRCODE>" + reply[11] + "<"));
}

TEST_F(ReadyDevice, ACancellationHasTwelveFields) {
  const auto sale = sell();
  const auto reply = cancel(sale[8]);
  ASSERT_THAT(reply, SizeIs(12));
  EXPECT_EQ(reply[1], "07000");
  EXPECT_EQ(reply[2], "0000");
  EXPECT_THAT(*base64_decode(reply[6]), HasSubstr("chCanc=\"" + sale[8] + "\""));
  EXPECT_TRUE(valid_access_key(reply[8]));
  EXPECT_NE(reply[8], sale[8]);
  EXPECT_EQ(reply[9], "10.00");
}

TEST_F(ReadyDevice, AFailedSaleHasSixFields) {
  const auto reply = call("EnviarDadosVenda", {"errado99", SaleData().xml()});
  EXPECT_THAT(reply, ElementsAre("000001", "06001", "0000", "Código de ativação inválido", "", ""));
}

TEST_F(ReadyDevice, AnEndToEndTestHasNineFieldsAndLeavesNoReceipt) {
  const auto reply = call("TesteFimAFim", {kCode, SaleData().xml()});
  ASSERT_THAT(reply, SizeIs(9));
  EXPECT_EQ(reply[1], "09000");
  EXPECT_THAT(*base64_decode(reply[5]), HasSubstr("<CFe>"));
  EXPECT_EQ(reply[6], "20260301100000");
  EXPECT_EQ(reply[7], "000001");
  EXPECT_TRUE(valid_access_key(reply[8]));
  EXPECT_TRUE(device.state().receipts.empty());
  EXPECT_EQ(sell()[8].substr(34, 6), "000001");
  EXPECT_EQ(code_of("TesteFimAFim", {kCode, "<CFe/>"}), "09099");
}

TEST_F(ReadyDevice, TheStatusHasTwentyEightMeaningfulFields) {
  auto reply = call("ConsultarStatusOperacional", {kCode});
  ASSERT_THAT(reply, SizeIs(28));
  EXPECT_EQ(reply[20], "");  // last key
  const std::string key = sell()[8];
  set_clock("2026-03-01T10:05:00");
  reply = call("ConsultarStatusOperacional", {kCode});
  EXPECT_THAT(reply, ElementsAre("000003", "10000", "Resposta com Sucesso", "", "", "900000001", "DHCP",
                                 "192.168.1.50", "02:53:41:54:00:01", "255.255.255.0", "192.168.1.1",
                                 "192.168.1.1", "0.0.0.0", "CONECTADO", "ALTO", "1 Gbytes", "12 Mbytes",
                                 "20260301100500", "010000", "0.07", key, "", "", "20260301100000",
                                 "20260301100000", "20260301", "20310228", "0"));
}

TEST_F(ReadyDevice, ThePendingListHoldsWhatTheAuthorityHasNotGot) {
  device.surroundings().sefaz_reachable = false;
  const std::string first = sell()[8], second = sell()[8], third = sell()[8];
  auto reply = call("ConsultarStatusOperacional", {kCode});
  EXPECT_EQ(reply[13], "NAO_CONECTADO");
  EXPECT_EQ(reply[20], third);
  EXPECT_EQ(reply[21], first);
  EXPECT_EQ(reply[22], third);
  EXPECT_EQ(reply[23], "");
  device.change([](DeviceState& state) { transmit_pending(state, "20260301110000"); });
  reply = call("ConsultarStatusOperacional", {kCode});
  EXPECT_EQ(reply[21], "");
  EXPECT_EQ(reply[22], "");
  EXPECT_EQ(reply[23], "20260301110000");
}

TEST_F(ReadyDevice, LogsAreLinesOfFourFields) {
  sell();
  const auto reply = call("ExtrairLogs", {kCode});
  ASSERT_THAT(reply, SizeIs(6));
  EXPECT_EQ(reply[1], "15000");
  EXPECT_EQ(*base64_decode(reply[5]),
            "20260301100000|AC|info|EnviarDadosVenda sessao 000001 retorno 06000\n");
}

TEST_F(ReadyDevice, NoticesFillTheirTwoFields) {
  device.surroundings().sefaz_notice = 3;
  EXPECT_THAT(call("ConsultarSAT", {}), ElementsAre("000001", "08000", "SAT em operação", "3",
                                                    "Emu:O SAT precisa ser atualizado em 24 horas"));
  const auto sale = sell();
  EXPECT_EQ(sale[4], "3");
  EXPECT_THAT(sale, SizeIs(12));
}

TEST_F(ReadyDevice, AnUnknownCommandGetsAReplyToo) {
  EXPECT_THAT(call("Inventada", {"x"}), ElementsAre("000001", "99099", "Comando desconhecido", "", ""));
}

TEST_F(ReadyDevice, MissingArgumentsAreAnUnknownError) {
  EXPECT_EQ(code_of("EnviarDadosVenda", {kCode}), "06099");
  EXPECT_EQ(code_of("ConsultarStatusOperacional", {}), "10099");
}

// ---- sessions

TEST_F(ReadyDevice, TheSameSessionTwiceInARowIsRefusedInEveryFunction) {
  for (const Function& function : functions()) {
    const std::vector<std::string> arguments(function.arguments, kCode);
    call_in(500, "ConsultarSAT", {});
    EXPECT_EQ(call_in(500, std::string(function.name), arguments)[1], padded(function.code(97), 5))
        << function.name;
    call_in(501, "ConsultarSAT", {});
  }
}

TEST_F(ReadyDevice, ARefusedSessionKeepsItsFirstReply) {
  call_in(42, "ConsultarSAT", {});
  const std::string first = last_reply;
  call_in(42, "ConsultarStatusOperacional", {kCode});
  call("ConsultarNumeroSessao", {kCode, "000042"});
  EXPECT_EQ(last_reply, first);
}

TEST_F(ReadyDevice, ASessionThatIsNoNumberIsRefused) {
  for (const char* text : {"-00005", "12345", "1234567", "", "abcdef"}) {
    const Command command = parse_command(std::string("ConsultarSAT|") + text);
    EXPECT_EQ(device.execute(command, {}).text(), std::string(text) + "|08097|Número de sessão inválido||");
  }
}

TEST_F(ReadyDevice, StoredRepliesComeBackVerbatim) {
  sell();
  const std::string sale = last_reply;
  call("ConsultarSAT", {});
  const std::string query = last_reply;
  call("ConsultarNumeroSessao", {kCode, "000001"});
  EXPECT_EQ(last_reply, sale);
  call("ConsultarNumeroSessao", {kCode, "000002"});
  EXPECT_EQ(last_reply, query);
  EXPECT_EQ(code_of("ConsultarNumeroSessao", {kCode, "000777"}), "11003");
  EXPECT_EQ(code_of("ConsultarNumeroSessao", {kCode, "-00001"}), "11003");
}

TEST_F(ReadyDevice, QueriesOfSessionsAreNotStoredThemselves) {
  sell();
  call("ConsultarNumeroSessao", {kCode, "000001"});
  call("ConsultarUltimaSessaoFiscal", {kCode});
  EXPECT_EQ(code_of("ConsultarNumeroSessao", {kCode, "000002"}), "11003");
  EXPECT_EQ(code_of("ConsultarNumeroSessao", {kCode, "000003"}), "11003");
}

TEST_F(ReadyDevice, TheLastFiscalSessionIsTheLastDocument) {
  EXPECT_EQ(code_of("ConsultarUltimaSessaoFiscal", {kCode}), "19003");
  const auto sale = sell();
  const std::string sale_reply = last_reply;
  call("EnviarDadosVenda", {kCode, "<CFe/>"});
  call("ConsultarSAT", {});
  call("ConsultarUltimaSessaoFiscal", {kCode});
  EXPECT_EQ(last_reply, sale_reply);
  cancel(sale[8]);
  const std::string cancellation = last_reply;
  call("ConsultarUltimaSessaoFiscal", {kCode});
  EXPECT_EQ(last_reply, cancellation);
}

// ---- activation

TEST_F(NewDevice, FunctionsThatNeedActivationSaySo) {
  EXPECT_EQ(code_of("EnviarDadosVenda", {kCode, SaleData().xml()}), "06002");
  EXPECT_EQ(code_of("TesteFimAFim", {kCode, SaleData().xml()}), "09002");
  EXPECT_EQ(code_of("ConsultarNumeroSessao", {kCode, "000001"}), "11002");
  EXPECT_EQ(code_of("ConsultarUltimaSessaoFiscal", {kCode}), "19002");
  EXPECT_EQ(code_of("BloquearSAT", {kCode}), "16001");
  EXPECT_EQ(code_of("TrocarCodigoDeAtivacao", {kCode, "1", "novocodigo", "novocodigo"}), "18001");
  EXPECT_EQ(code_of("ConsultarSAT", {}), "08000");
  EXPECT_EQ(code_of("ConsultarStatusOperacional", {kCode}), "10000");
}

TEST_F(NewDevice, RefusesAWrongActivation) {
  EXPECT_EQ(code_of("AtivarSAT", {"1", "codigo123", "11222333000182", "35"}), "04002");
  EXPECT_EQ(code_of("AtivarSAT", {"1", "codigo123", "11222333000181", "33"}), "04250");
  EXPECT_EQ(code_of("AtivarSAT", {"1", "curto", "11222333000181", "35"}), "04099");
  EXPECT_EQ(code_of("AtivarSAT", {"9", "codigo123", "11222333000181", "35"}), "04099");
  EXPECT_EQ(code_of("AtivarSAT", {"3", "codigo123", "11222333000181", "35"}), "04200");
  device.surroundings().sefaz_reachable = false;
  EXPECT_EQ(activate()[1], "04005");
  device.surroundings().sefaz_reachable = true;
  EXPECT_EQ(device.state().activation, Activation::none);
  EXPECT_EQ(activate()[1], "04000");
  EXPECT_EQ(activate()[1], "04003");
  EXPECT_EQ(code_of("AtivarSAT", {"1", "codigo123", "12345678000195", "35"}), "04219");
}

TEST_F(NewDevice, GoesAllTheWayToItsFirstSale) {
  activate();
  SaleData data;
  data.house = "<CNPJ>12345678000195</CNPJ><signAC>" + kSignature + "</signAC><numeroCaixa>001</numeroCaixa>";
  EXPECT_EQ(code_of("EnviarDadosVenda", {"codigo123", data.xml()}), "06003");
  EXPECT_EQ(code_of("AssociarAssinatura", {"codigo123", "12345678000195", kSignature}), "13004");
  EXPECT_EQ(code_of("AssociarAssinatura", {"codigo123", "1234567800019512345678000195", kSignature}),
            "13007");
  EXPECT_EQ(code_of("AssociarAssinatura", {"codigo123", kCnpjPair, "curta"}), "13003");
  EXPECT_EQ(code_of("AssociarAssinatura", {"codigo123", kCnpjPair, kSignature}), "13000");
  EXPECT_EQ(code_of("EnviarDadosVenda", {"codigo123", data.xml()}), "06000");
  data.house = SaleData().house;
  EXPECT_EQ(code_of("EnviarDadosVenda", {"codigo123", data.xml()}), "06004");
  SaleData foreign;
  foreign.issuer = "<CNPJ>12345678000195</CNPJ>";
  const auto reply = call("EnviarDadosVenda", {"codigo123", foreign.xml()});
  EXPECT_EQ(reply[1], "06010");
  EXPECT_EQ(reply[2], "1203");
}

// ---- activation codes

TEST_F(ReadyDevice, EveryFunctionWithACodeRefusesAWrongOne) {
  device.surroundings().wrong_code_limit = 1'000;
  for (const Function& function : functions()) {
    if (function.code_check == CodeCheck::never) continue;
    std::vector<std::string> arguments(function.arguments, "errado99");
    EXPECT_EQ(code_of(std::string(function.name), arguments), padded(function.code(1), 5)) << function.name;
  }
}

TEST_F(ReadyDevice, WrongCodesInARowLockSalesAndCancellations) {
  const std::string key = sell()[8];
  for (int i = 0; i < 4; ++i) code_of("ConsultarStatusOperacional", {"errado99"});
  EXPECT_EQ(code_of("ConsultarStatusOperacional", {kCode}), "10000");  // counts from the start again
  for (int i = 0; i < 4; ++i) code_of("ConsultarStatusOperacional", {"errado99"});
  EXPECT_EQ(sell()[1], "06000");
  for (int i = 0; i < 5; ++i) EXPECT_EQ(code_of("ConsultarStatusOperacional", {"errado99"}), "10001");
  EXPECT_EQ(sell()[1], "06009");
  EXPECT_EQ(cancel(key)[1], "07009");
  EXPECT_EQ(code_of("ConsultarStatusOperacional", {kCode}), "10000");
  EXPECT_EQ(sell()[1], "06009");
  EXPECT_EQ(code_of("TrocarCodigoDeAtivacao", {"errado99", "2", "novocodigo", "novocodigo"}), "18002");
  EXPECT_EQ(code_of("TrocarCodigoDeAtivacao", {"emergencia", "2", "novocodigo", "novocodigo"}), "18000");
  EXPECT_EQ(call("EnviarDadosVenda", {"novocodigo", SaleData().xml()})[1], "06000");
}

TEST_F(ReadyDevice, TheCodeChangesOnlyWhenConfirmed) {
  EXPECT_EQ(code_of("TrocarCodigoDeAtivacao", {kCode, "1", "novocodigo", "outrocodigo"}), "18099");
  EXPECT_EQ(code_of("TrocarCodigoDeAtivacao", {kCode, "1", "curto", "curto"}), "18099");
  EXPECT_EQ(code_of("TrocarCodigoDeAtivacao", {kCode, "3", "novocodigo", "novocodigo"}), "18099");
  EXPECT_EQ(code_of("TrocarCodigoDeAtivacao", {"errado99", "1", "novocodigo", "novocodigo"}), "18001");
  EXPECT_EQ(code_of("ConsultarStatusOperacional", {kCode}), "10000");
  EXPECT_EQ(code_of("TrocarCodigoDeAtivacao", {kCode, "1", "novocodigo", "novocodigo"}), "18000");
  EXPECT_EQ(code_of("ConsultarStatusOperacional", {kCode}), "10001");
  EXPECT_EQ(code_of("ConsultarStatusOperacional", {"novocodigo"}), "10000");
}

// ---- blocks and certificate

TEST_F(ReadyDevice, BlockedBySomebodyItDoesNotSell) {
  const std::string key = sell()[8];
  const std::tuple<Block, const char*, const char*, const char*> rows[] = {
      {Block::contributor, "06006", "07006", "2"},
      {Block::sefaz, "06007", "07007", "1"},
      {Block::autonomous, "06008", "07008", "3"},
      {Block::deactivation, "06007", "07007", "4"},
  };
  for (const auto& [block, sale_code, cancellation_code, state] : rows) {
    device.change([block = block](DeviceState& s) { s.block = block; });
    EXPECT_EQ(sell()[1], sale_code);
    EXPECT_EQ(cancel(key)[1], cancellation_code);
    EXPECT_EQ(call("ConsultarStatusOperacional", {kCode})[27], state);
  }
}

TEST_F(ReadyDevice, TheContributorBlocksAndUnblocks) {
  EXPECT_EQ(code_of("DesbloquearSAT", {kCode}), "17005");
  EXPECT_EQ(code_of("BloquearSAT", {kCode}), "16000");
  EXPECT_EQ(code_of("BloquearSAT", {kCode}), "16002");
  EXPECT_EQ(sell()[1], "06006");
  EXPECT_EQ(code_of("DesbloquearSAT", {kCode}), "17000");
  EXPECT_EQ(sell()[1], "06000");
  const std::pair<Block, const char*> others[] = {
      {Block::sefaz, "17003"}, {Block::autonomous, "17006"}, {Block::deactivation, "17007"}};
  for (const auto& [block, code] : others) {
    device.change([block = block](DeviceState& s) { s.block = block; });
    EXPECT_EQ(code_of("DesbloquearSAT", {kCode}), code);
  }
}

TEST_F(ReadyDevice, WithoutTheAuthoritySomeFunctionsFail) {
  device.surroundings().sefaz_reachable = false;
  EXPECT_EQ(code_of("ComunicarCertificadoICPBRASIL", {kCode, "x"}), "05002");
  EXPECT_EQ(code_of("AssociarAssinatura", {kCode, kCnpjPair, kSignature}), "13002");
  EXPECT_EQ(code_of("AtualizarSoftwareSAT", {kCode}), "14003");
  EXPECT_EQ(code_of("BloquearSAT", {kCode}), "16003");
  EXPECT_EQ(code_of("DesbloquearSAT", {kCode}), "17004");
  EXPECT_EQ(sell()[1], "06000");
}

TEST_F(ReadyDevice, AnExpiredCertificateStopsSales) {
  const std::string key = sell()[8];
  set_clock("2031-02-28T23:59:59");
  EXPECT_EQ(sell()[1], "06000");
  set_clock("2031-03-01T00:00:00");
  EXPECT_EQ(sell()[1], "06011");
  EXPECT_EQ(cancel(key)[1], "07011");
}

// ---- sales and cancellations

TEST_F(ReadyDevice, ARefusedSaleNamesTheFieldAndTakesNoNumber) {
  SaleData data;
  data.payments = SaleData::payment("01", "9.99");
  const auto reply = call("EnviarDadosVenda", {kCode, data.xml()});
  EXPECT_THAT(reply, ElementsAre("000001", "06010", "1534",
                                 "Erro de validação do conteúdo: pagamentos não cobrem o valor total (pgto)",
                                 "", ""));
  EXPECT_EQ(sell()[8].substr(34, 6), "000001");
}

TEST_F(ReadyDevice, ASaleMayBeOneAndAHalfMegabytes) {
  SaleData data;
  data.items = SaleData::item(1, "1", "10.00", "A", "<infAdProd/>");
  std::string xml = data.xml();
  const std::size_t limit = std::size_t{1'500} * 1'024;
  xml += "<!--" + std::string(limit - xml.size() - 7, 'x') + "-->";
  ASSERT_EQ(xml.size(), limit);
  EXPECT_EQ(code_of("EnviarDadosVenda", {kCode, xml}), "06000");
  EXPECT_EQ(code_of("EnviarDadosVenda", {kCode, xml + " "}), "06005");
}

TEST_F(ReadyDevice, SeparatorsInsideTheSaleDataAreKept) {
  SaleData data;
  data.items.replace(data.items.find("Artigo"), 6, "a|b");
  const auto reply = call("EnviarDadosVenda", {kCode, data.xml()});
  EXPECT_EQ(reply[1], "06000");
  EXPECT_THAT(*base64_decode(reply[6]), HasSubstr("<xProd>a|b</xProd>"));
}

TEST_F(ReadyDevice, ReceiptsAreNumberedOneAfterTheOther) {
  const auto first = sell(), second = sell();
  const auto cancellation = cancel(second[8]);
  EXPECT_EQ(first[8].substr(34, 6), "000001");
  EXPECT_EQ(second[8].substr(34, 6), "000002");
  EXPECT_EQ(cancellation[8].substr(34, 6), "000003");
  ASSERT_THAT(device.state().receipts, SizeIs(3));
  EXPECT_EQ((*device.state().receipts[1])->cancelled_by, cancellation[8]);
  EXPECT_EQ((*device.state().receipts[2])->cancels, second[8]);
}

TEST_F(ReadyDevice, NumbersStartAgainAfterTheLastOne) {
  device.change([](DeviceState& state) { state.next_number = 999'999; });
  EXPECT_EQ(sell()[8].substr(34, 6), "999999");
  EXPECT_EQ(sell()[8].substr(34, 6), "000001");
}

TEST_F(ReadyDevice, ASaleIsCancelledOnce) {
  const std::string key = sell()[8];
  EXPECT_EQ(cancel(key)[1], "07000");
  const auto again = cancel(key);
  EXPECT_EQ(again[1], "07002");
  EXPECT_EQ(again[2], "1218");
  EXPECT_THAT(again, SizeIs(6));
}

TEST_F(ReadyDevice, ASaleIsCancelledWithinThirtyMinutes) {
  const std::string first = sell()[8], second = sell()[8];
  set_clock("2026-03-01T10:30:00");
  EXPECT_EQ(cancel(first)[1], "07000");
  set_clock("2026-03-01T10:30:01");
  const auto late = cancel(second);
  EXPECT_EQ(late[1], "07002");
  EXPECT_EQ(late[2], "1412");
}

TEST_F(ReadyDevice, OnlyItsOwnSalesAreCancelled) {
  const auto foreign = cancel("CFe35260111222333000181599000000010000010000012");
  EXPECT_EQ(foreign[1], "07002");
  EXPECT_EQ(foreign[2], "1217");
  const std::string key = sell()[8];
  const std::string cancellation = cancel(key)[8];
  EXPECT_EQ(cancel(cancellation)[2], "1217");  // a cancellation cannot be cancelled
}

TEST_F(ReadyDevice, KeyAndDataOfACancellationMustAgree) {
  const std::string first = sell()[8], second = sell()[8];
  auto reply = call("CancelarUltimaVenda", {kCode, first, cancellation_xml(second)});
  EXPECT_EQ(reply[1], "07010");
  EXPECT_EQ(reply[2], "1236");
  reply = call("CancelarUltimaVenda", {kCode, first.substr(3), cancellation_xml(first)});
  EXPECT_EQ(reply[1], "07010");
  reply = call("CancelarUltimaVenda", {kCode, first, "<x"});
  EXPECT_EQ(reply[2], "1225");
}

// ---- settings

TEST_F(ReadyDevice, NetworkSettingsAreCheckedAndShown) {
  const std::string fixed =
      "<config><tipoLan>IPFIX</tipoLan><lanIP>10.0.0.7</lanIP><lanMask>255.0.0.0</lanMask><lanGW>10.0.0.1</lanGW>"
      "<lanDNS1>10.0.0.2</lanDNS1><lanDNS2>10.0.0.3</lanDNS2></config>";
  EXPECT_EQ(code_of("ConfigurarInterfaceDeRede", {kCode, fixed}), "12000");
  const auto reply = call("ConsultarStatusOperacional", {kCode});
  EXPECT_EQ(reply[6], "IPFIX");
  EXPECT_EQ(reply[7], "10.0.0.7");
  EXPECT_EQ(reply[12], "10.0.0.3");
  for (const char* bad : {"", "<x/>", "<config><tipoLan>WLAN</tipoLan></config>",
                          "<config><tipoLan>IPFIX</tipoLan><lanIP>300.0.0.1</lanIP></config>"}) {
    EXPECT_EQ(code_of("ConfigurarInterfaceDeRede", {kCode, bad}), "12002") << bad;
  }
}

TEST_F(ReadyDevice, AnUpdateRaisesTheSoftwareVersion) {
  EXPECT_EQ(code_of("AtualizarSoftwareSAT", {kCode}), "14000");
  EXPECT_EQ(call("ConsultarStatusOperacional", {kCode})[18], "010001");
}

// ---- encodings of documents

class Encodings : public ReadyDevice {
 protected:
  // The name of the article with an accent, in the bytes given.
  std::vector<std::string> sell_article(const std::string& declaration, const std::string& name) {
    std::string xml = SaleData().xml();
    xml.replace(xml.find("Artigo"), 6, name);
    return call("EnviarDadosVenda", {kCode, declaration + xml});
  }
  static std::string declared(const std::string& encoding) {
    return "<?xml version=\"1.0\" encoding=\"" + encoding + "\"?>";
  }
};

TEST_F(Encodings, ADocumentIsReadAsItDeclares) {
  for (const auto& [declaration, name] : {std::pair(std::string(), "Caf\xC3\xA9"),
                                          {declared("UTF-8"), "Caf\xC3\xA9"},
                                          {"\xEF\xBB\xBF" + declared("utf-8"), "Caf\xC3\xA9"},
                                          {declared("ISO-8859-1"), "Caf\xE9"},
                                          {declared("windows-1252"), "Caf\xE9"},
                                          {declared("us-ascii"), "Cafe"}}) {
    const auto reply = sell_article(declaration, name);
    ASSERT_EQ(reply[1], "06000") << declaration;
    if (declaration.find("ascii") != std::string::npos) continue;
    EXPECT_THAT(*base64_decode(reply[6]), testing::HasSubstr("<xProd>Caf\xC3\xA9</xProd>"));
  }
}

TEST_F(Encodings, BytesThatDoNotFitAreRefusedWithTheirPlace) {
  for (const auto& [declaration, encoding] : {std::pair(std::string(), "utf-8"),
                                              {declared("UTF-8"), "utf-8"},
                                              {declared("US-ASCII"), "us-ascii"}}) {
    const auto reply = sell_article(declaration, "Caf\xE9");
    EXPECT_THAT((std::vector<std::string>{reply[1], reply[2]}), ElementsAre("06010", "1224"));
    const auto place = (declaration + SaleData().xml()).find("Artigo") + 3;
    EXPECT_THAT(reply[3],
                testing::EndsWith(std::string("(") + encoding + ", byte " + std::to_string(place) + ")"));
  }
  EXPECT_EQ(sell_article(declared("US-ASCII"), "Caf\xC3\xA9")[2], "1224");
  EXPECT_EQ(sell_article(declared("UTF-16"), "Cafe")[2], "1224");
  EXPECT_EQ(sell_article(declared("klingon"), "Cafe")[2], "1224");
  EXPECT_TRUE(device.state().receipts.empty());
}

TEST_F(ReadyDevice, MayCancelTheVeryLastSaleOnly) {
  const std::string first = sell()[8];
  const std::string second = sell()[8];
  device.surroundings().last_sale_only = true;
  const auto refused = cancel(first);
  EXPECT_THAT((std::vector<std::string>{refused[1], refused[2]}), ElementsAre("07002", "1219"));
  EXPECT_EQ(cancel(second)[1], "07000");
  EXPECT_EQ(cancel(first)[2], "1219");
  device.surroundings().last_sale_only = false;
  EXPECT_EQ(cancel(first)[1], "07000");
}

// ---- faults of one call

TEST_F(ReadyDevice, ABusyDeviceForgetsTheCall) {
  FiscalFaults busy;
  busy.processing = true;
  EXPECT_THAT(call_in(9, "EnviarDadosVenda", {kCode, SaleData().xml()}, busy),
              ElementsAre("000009", "06098", "0000", "SAT em processamento. Tente novamente", "", ""));
  EXPECT_EQ(call_in(9, "EnviarDadosVenda", {kCode, SaleData().xml()})[1], "06000");
}

TEST_F(ReadyDevice, AnOrderedCodeTakesThePlaceOfTheCall) {
  FiscalFaults ordered;
  ordered.imposed.emplace().code = 6099;
  ordered.imposed->cccc = 1999;
  EXPECT_THAT(call("EnviarDadosVenda", {kCode, SaleData().xml()}, ordered),
              ElementsAre("000001", "06099", "1999", "Erro desconhecido", "", ""));
  EXPECT_TRUE(device.state().receipts.empty());
  ordered.imposed->message = "Outra coisa";
  EXPECT_EQ(call("ConsultarSAT", {}, ordered)[2], "Outra coisa");
  ordered.imposed->code = 6000;
  call("EnviarDadosVenda", {kCode, SaleData().xml()}, ordered);
  EXPECT_EQ(code_of("ConsultarUltimaSessaoFiscal", {kCode}), "19003");
}

TEST_F(ReadyDevice, ADocumentThatTheDeviceDeniesIsIssuedAndFound) {
  FiscalFaults denied;
  denied.imposed.emplace().code = 6099;
  denied.imposed->carried_out = true;
  EXPECT_THAT(call("EnviarDadosVenda", {kCode, SaleData().xml()}, denied),
              ElementsAre("000001", "06099", "0000", "Erro desconhecido", "", ""));
  EXPECT_EQ(device.state().receipts.size(), 1U);
  EXPECT_EQ(code_of("ConsultarNumeroSessao", {kCode, "000001"}), "06000");
  EXPECT_EQ(code_of("ConsultarUltimaSessaoFiscal", {kCode}), "06000");

  denied.imposed->stored = true;
  const std::string denied_session = call("EnviarDadosVenda", {kCode, SaleData().xml()}, denied)[0];
  EXPECT_EQ(code_of("ConsultarNumeroSessao", {kCode, denied_session}), "06099");
  EXPECT_EQ(call("ConsultarUltimaSessaoFiscal", {kCode})[0], denied_session);
  EXPECT_EQ(device.state().receipts.size(), 2U);
}

TEST_F(ReadyDevice, AWholeReplyIsGivenWhateverTheCommandHolds) {
  FiscalFaults canned;
  canned.imposed.emplace().whole = "{session}|06000|0000|Feito|||QQ==|{date}|{key}|1.00|||{session}";
  const auto first = call_in(9, "EnviarDadosVenda", {"wrong code", "no sale"}, canned);
  ASSERT_THAT(first, SizeIs(13));
  EXPECT_THAT((std::vector<std::string>{first[0], first[1], first[7], first[12]}),
              ElementsAre("000009", "06000", "20260301100000", "000009"));
  EXPECT_TRUE(valid_access_key(first[8])) << first[8];
  const std::string reply = last_reply;
  // The same session again, and no argument: another document.
  const auto second = call_in(9, "EnviarDadosVenda", {}, canned);
  EXPECT_TRUE(valid_access_key(second[8]));
  EXPECT_NE(second[8], first[8]);
  EXPECT_TRUE(device.state().receipts.empty());
  call_in(10, "ConsultarNumeroSessao", {kCode, "000009"});
  EXPECT_EQ(last_reply.substr(0, 12), reply.substr(0, 12));
  EXPECT_EQ(call("EnviarDadosVenda", {kCode, SaleData().xml()})[1], "06000");
}

TEST_F(ReadyDevice, AWholeReplyToACommandWithoutASessionIsNotStored) {
  FiscalFaults canned;
  canned.imposed.emplace().whole = "{session}|08000|Tudo bem||";
  EXPECT_EQ(device.execute(parse_command("ConsultarSAT"), canned).text(), "|08000|Tudo bem||");
  EXPECT_TRUE(device.state().sessions.empty());
}

TEST_F(ReadyDevice, ARepeatedSessionIsRefusedAndTheFirstReplyStays) {
  const std::string data = SaleData().xml();
  EXPECT_EQ(call_in(9, "EnviarDadosVenda", {kCode, data})[1], "06000");
  const std::string issued = last_reply;
  EXPECT_EQ(call_in(9, "EnviarDadosVenda", {kCode, data})[1], "06097");
  // A device at work does not look at the session number.
  FiscalFaults busy;
  busy.processing = true;
  EXPECT_EQ(call_in(9, "EnviarDadosVenda", {kCode, data}, busy)[1], "06098");
  EXPECT_EQ(device.state().receipts.size(), 1U);
  call_in(10, "ConsultarNumeroSessao", {kCode, "000009"});
  EXPECT_EQ(last_reply, issued);
}

TEST_F(ReadyDevice, BlockAndExpiryForOneCall) {
  FiscalFaults faults;
  faults.block = Block::sefaz;
  EXPECT_EQ(call("EnviarDadosVenda", {kCode, SaleData().xml()}, faults)[1], "06007");
  faults = {};
  faults.certificate_expired = true;
  EXPECT_EQ(call("EnviarDadosVenda", {kCode, SaleData().xml()}, faults)[1], "06011");
  EXPECT_EQ(sell()[1], "06000");
}

TEST_F(ReadyDevice, TheSameSeedAndClockGiveTheSameBytes) {
  sell();
  const std::string reply = last_reply;
  Device twin(ready_state(), no_file, 7);
  twin.surroundings().clock.stop_at(*parse_moment("2026-03-01T10:00:00"));
  const Command command =
      parse_command("EnviarDadosVenda|000001|" + std::string(kCode) + "|" + SaleData().xml());
  EXPECT_EQ(twin.execute(command, {}).text(), reply);
  Device other(ready_state(), no_file, 8);
  other.surroundings().clock.stop_at(*parse_moment("2026-03-01T10:00:00"));
  EXPECT_NE(other.execute(command, {}).text(), reply);
}

}  // namespace
}  // namespace emulator
