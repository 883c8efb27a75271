#include "desk/profiles.h"

#include <gmock/gmock.h>

#include "device/crypto.h"
#include "device_bench.h"

namespace emulator {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;

class Quirks : public DeviceBench {
 protected:
  void use(const char* name) {
    const Profile* profile = find_profile(name);
    ASSERT_NE(profile, nullptr) << name;
    device.surroundings().shape = profile->shape;
  }
};

TEST_F(Quirks, BusyReplyWithAnExtraField) {
  use("busy-extra-field");
  FiscalFaults busy;
  busy.processing = true;
  EXPECT_THAT(call("ConsultarSAT", {}, busy), SizeIs(6));
  EXPECT_THAT(call("EnviarDadosVenda", {kCode, ""}, busy), SizeIs(7));
  EXPECT_THAT(call("ConsultarSAT", {}), SizeIs(5));
}

TEST_F(Quirks, LineBreaksInsideBase64) {
  const std::string plain = sell()[6];
  use("crlf-base64");
  std::string broken = sell()[6];
  EXPECT_EQ(broken.substr(76, 2), "\r\n");
  EXPECT_EQ(broken.find("\r\n", 78), 154U);
  EXPECT_TRUE(base64_decode(broken));
  EXPECT_THAT(call("TesteFimAFim", {kCode, SaleData().xml()})[5], HasSubstr("\r\n"));
  EXPECT_THAT(call("ExtrairLogs", {kCode})[5], HasSubstr("\r\n"));
  EXPECT_EQ(plain.find('\r'), std::string::npos);
}

TEST_F(Quirks, PrefixWithASmallF) {
  use("cfe-prefix");
  EXPECT_THAT(sell()[8], MatchesRegex("Cfe[0-9]+"));
  EXPECT_THAT(call("TesteFimAFim", {kCode, SaleData().xml()})[8], MatchesRegex("Cfe[0-9]+"));
  EXPECT_THAT(call("ConsultarStatusOperacional", {kCode})[20], MatchesRegex("Cfe[0-9]+"));
}

TEST_F(Quirks, KeyWithoutPrefix) {
  use("bare-key");
  EXPECT_THAT(sell()[8], SizeIs(44));
  EXPECT_THAT(call("ConsultarStatusOperacional", {kCode})[20], SizeIs(44));
}

TEST_F(Quirks, MissingLastFieldOfTheList) {
  use("short-list");
  EXPECT_THAT(call("ConsultarStatusOperacional", {kCode}), SizeIs(27));
  EXPECT_THAT(call("ConsultarStatusOperacional", {"errado99"}), SizeIs(5));
}

TEST_F(Quirks, StateAsWords) {
  use("state-words");
  EXPECT_EQ(call("ConsultarStatusOperacional", {kCode})[27], "DESBLOQUEADO");
  device.change([](DeviceState& state) { state.block = Block::autonomous; });
  EXPECT_EQ(call("ConsultarStatusOperacional", {kCode})[27], "BLOQUEADO AUTONOMO");
}

TEST_F(Quirks, EmptyDates) {
  sell();
  use("empty-dates");
  const auto reply = call("ConsultarStatusOperacional", {kCode});
  for (std::size_t field = 23; field <= 26; ++field) EXPECT_EQ(reply[field], "");
  EXPECT_EQ(reply[27], "0");
}

TEST_F(Quirks, ZeroDates) {
  sell();
  use("zero-dates");
  const auto reply = call("ConsultarStatusOperacional", {kCode});
  EXPECT_EQ(reply[23], "00000000000000");
  EXPECT_EQ(reply[24], "00000000000000");
  EXPECT_EQ(reply[25], "00000000");
  EXPECT_EQ(reply[26], "00000000");
}

TEST_F(Quirks, TextsWithoutAccents) {
  EXPECT_EQ(call("ConsultarSAT", {})[2], "SAT em operação");
  use("ascii-texts");
  EXPECT_EQ(call("ConsultarSAT", {})[2], "SAT em operacao");
  EXPECT_EQ(sell()[3], "Emitido com sucesso + conteudo notas");
}

TEST_F(Quirks, TotalOfFifteenDigits) {
  use("total-15-digits");
  const auto sale = sell();
  EXPECT_EQ(sale[9], "000000000001000");
  EXPECT_EQ(cancel(sale[8])[9], "000000000001000");
}

TEST_F(Quirks, StoredRepliesHaveTheQuirkOfTheirTime) {
  use("cfe-prefix");
  sell();
  const std::string sale = last_reply;
  device.surroundings().shape = nullptr;
  call("ConsultarNumeroSessao", {kCode, "000001"});
  EXPECT_EQ(last_reply, sale);
  use("cfe-prefix");
  call("ConsultarUltimaSessaoFiscal", {kCode});
  EXPECT_EQ(last_reply, sale);
}

TEST(StaticProfile, AnswersEveryFunctionWithItsLayoutWhateverCameBefore) {
  for (const Function& function : functions()) {
    const Command command = parse_command(std::string(function.name) + "|000042|x|y|z|w");
    const std::string reply = canned_reply(command).text();
    EXPECT_EQ(canned_reply(command).text(), reply);
    EXPECT_THAT(reply, testing::StartsWith("000042|" + padded(function.code(0), 5) + "|"));
    std::size_t fields = 5;
    if (function.fiscal) fields = 12;
    if (function.id == FunctionId::teste_fim_a_fim) fields = 9;
    if (function.id == FunctionId::consultar_status_operacional) fields = 28;
    if (function.id == FunctionId::ativar_sat || function.id == FunctionId::extrair_logs) fields = 6;
    EXPECT_THAT(split_fields(reply), SizeIs(fields)) << function.name;
  }
}

}  // namespace
}  // namespace emulator
