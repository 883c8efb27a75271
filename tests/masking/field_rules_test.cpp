#include "masking/field_rules.h"

#include <gmock/gmock.h>

#include "masking/configuration.h"
#include "masking/trace_message.h"

namespace masking {
namespace {

using testing::MatchesRegex;

TEST(Shown, EmptyValuesStayEmpty) {
  for (int rule = 0; rule <= static_cast<int>(Rule::operating_state); ++rule)
    EXPECT_EQ(shown(static_cast<Rule>(rule), ""), "");
}

struct Value {
  Rule rule;
  const char* text;
};

TEST(Shown, WhatFitsItsRulePasses) {
  for (const Value& value : {Value{Rule::session, "000042"},
                             Value{Rule::session, "7"},
                             Value{Rule::session, "-00005"},
                             Value{Rule::return_code, "06000"},
                             Value{Rule::return_code, "19003"},
                             Value{Rule::alert_code, "1237"},
                             Value{Rule::notice_code, "999"},
                             Value{Rule::function, "ConsultarSAT"},
                             Value{Rule::moment, "20260301235959"},
                             Value{Rule::moment, "20260301"},
                             Value{Rule::moment, "00000000000000"},
                             Value{Rule::total, "9999999.99"},
                             Value{Rule::total, "000000000001000"},
                             Value{Rule::number, "010000"},
                             Value{Rule::digit, "2"},
                             Value{Rule::two_digits, "35"},
                             Value{Rule::memory_size, "12 Mbytes"},
                             Value{Rule::network_kind, "DHCP"},
                             Value{Rule::link_state, "NAO_CONECTADO"},
                             Value{Rule::battery, "ALTO"},
                             Value{Rule::operating_state, "BLOQUEADO SEFAZ"},
                             Value{Rule::message, "SAT em processamento, tente novamente."}}) {
    EXPECT_EQ(shown(value.rule, value.text), value.text);
  }
}

TEST(Shown, WhatDoesNotFitShowsItsLengthOnly) {
  for (const Value& value : {Value{Rule::session, "1234567"},
                             Value{Rule::session, "12 456"},
                             Value{Rule::return_code, "03000"},
                             Value{Rule::return_code, "20000"},
                             Value{Rule::return_code, "6000"},
                             Value{Rule::alert_code, "12345"},
                             Value{Rule::notice_code, "12345"},
                             Value{Rule::function, "Consultar"},
                             Value{Rule::moment, "20261301000000"},
                             Value{Rule::moment, "20260301246000"},
                             Value{Rule::moment, "11222333000181"},
                             Value{Rule::moment, "12345678"},
                             Value{Rule::total, "52998224725"},
                             Value{Rule::total, "52998224725.00"},
                             Value{Rule::total, "000052998224725"},
                             Value{Rule::total, "10.0"},
                             Value{Rule::number, "1234567"},
                             Value{Rule::digit, "12"},
                             Value{Rule::memory_size, "12 Ana"},
                             Value{Rule::network_kind, "dhcp"},
                             Value{Rule::battery, "Ana"},
                             Value{Rule::hidden, "x"},
                             Value{Rule::access_key, "52998224725"},
                             Value{Rule::access_key, "CFe99260311222333000181599000000010000011234564"},
                             Value{Rule::access_key, "Ana35260311222333000181599000000010000011234564"}}) {
    EXPECT_EQ(shown(value.rule, value.text), length_only(value.text)) << value.text;
  }
  EXPECT_EQ(length_only("segredo"), "*7*");
}

TEST(Shown, SecretsHideTheirLengthToo) {
  EXPECT_EQ(shown(Rule::secret, "1"), "********");
  EXPECT_EQ(shown(Rule::secret, std::string(40, 'x')), "********");
}

TEST(Shown, EqualDocumentsHaveEqualMarks) {
  const std::string one = shown(Rule::document, "<CFe>1</CFe>");
  EXPECT_THAT(one, MatchesRegex("\\*12 [0-9a-f]{8}\\*"));
  EXPECT_EQ(one, shown(Rule::document, "<CFe>1</CFe>"));
  EXPECT_NE(one, shown(Rule::document, "<CFe>2</CFe>"));
}

TEST(Shown, KeysAreShortened) {
  const std::string digits = "35260311222333000181599000000010000011234564";
  EXPECT_EQ(shown(Rule::access_key, digits), "352603***4564");
  EXPECT_EQ(shown(Rule::access_key, "CFe" + digits), "CFe352603***4564");
  EXPECT_EQ(shown(Rule::access_key, "Cfe" + digits), "Cfe352603***4564");
}

TEST(Message, OtherWordsThanTheStandardsShowTheirLength) {
  for (const auto& [text, expected] : std::initializer_list<std::pair<const char*, const char*>>{
           {"Codigo de ativacao invalido", "Codigo de ativacao invalido"},
           {"Erro de validacao do conteudo: CPF do destinatario invalido (Ana Lima)",
            "Erro de validacao do conteudo: CPF do destinatario invalido (*8*)"},
           {"codigo segredo1 invalido", "codigo *8* invalido"},
           {"123.456.789-09", "*14*"},
           {"SAT 12345678 em operacao", "SAT *8* em operacao"},
           {"!!!!!!!!", "!!!!*4*"},
           {"Ana", "*3*"},
           {"ATIVAÇÃO", "*10*"},
           {"Número de sessão inválido", "Número de sessão inválido"},
           {"", ""}}) {
    EXPECT_EQ(shown(Rule::message, text), expected);
  }
}

TEST(Path, LongNumbersAndUnusualCharactersAreHidden) {
  for (const auto& [text, expected] : std::initializer_list<std::pair<const char*, const char*>>{
           {"/dev/ttyACM0", "/dev/ttyACM0"},
           {"Log/20261121_SAT_api.log", "Log/20261121_SAT_api.log"},
           {"C:\\ProgramData\\Arvolen", "C:\\ProgramData\\Arvolen"},
           {"Log/20261121_SAT_api.log_bkp_12", "Log/20261121_SAT_api.log_bkp_12"},
           {"Log/20261121_2.log", "Log/20261121_2.log"},
           {"/opt/till-2.0.1/Log", "/opt/till-2.0.1/Log"},
           {"venda-12345678909.sat", "venda-*11*.sat"},
           {"/srv/529.982.247-25/Log", "/srv/*14*/Log"},
           {"/srv/529_982_247_25", "/srv/*14*"},
           {"/lojas/11.222.333/0001-81", "/lojas/*18*"},
           {"/lojas/20010101/0001-81/Log", "/lojas/*16*/Log"},
           {"C:\\529.982\\247-25", "C:\\*14*"},
           {"/loja/11-98765-4321", "/loja/*13*"},
           {"/loja/3456-7890", "/loja/*9*"},
           {"/home/Ana Lima", "*14*"},
           {"", ""}}) {
    EXPECT_EQ(masked_path(text), expected);
  }
}

TEST(Configuration, OnlyKnownItemsAreShown) {
  EXPECT_EQ(masked_configuration(
                "# a note\n[LOG]\n LogMode = 5\nLogFilePath=Log\nSenha=abc\nEnable=12345678\n[Ana]\nx\n"),
            "#*6*\n[LOG]\nLogMode=5\nLogFilePath=Log\n*9*\nEnable=*8*\n*5*\n*1*\n");
  EXPECT_EQ(masked_configuration("SerialPortConfig=115200,8,N,1\r\nAtivarSAT                     =1800\n"),
            "SerialPortConfig=115200,8,N,1\nAtivarSAT=1800\n");
}

TEST(LongNumbers, AreHiddenWhateverStandsBetweenTheirDigits) {
  EXPECT_EQ(without_long_numbers("a 123.456.789-09 b"), "a *14* b");
  EXPECT_EQ(without_long_numbers("11 222 333/0001-81"), "*18*");
  EXPECT_EQ(without_long_numbers("/l/529_982_247_25 is missing"), "/l/*14* is missing");
  EXPECT_EQ(without_long_numbers("serial 900000001, 2026-03-01 10:00"), "serial 900000001, 2026-03-01 10:00");
  EXPECT_EQ(without_long_numbers("900000001 900000001"), "*19*");
}

}  // namespace
}  // namespace masking
