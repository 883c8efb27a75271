#include "hub/http/parsing.h"

#include <gtest/gtest.h>

#include "hub/encoding.h"
#include "hub/http/api.h"
#include "hub/settings.h"

namespace hub {
namespace {

template <typename T>
std::string problem_field(const Parsed<T>& parsed) {
  const auto* problem = std::get_if<Problem>(&parsed);
  return problem == nullptr ? "(none)" : problem->status == 400 ? problem->field : "(status)";
}

TEST(Parsing, ASaleWithWhatMayBeMissing) {
  const auto parsed = parse_fiscal(Fiscal::sale, R"({"dadosVenda": "PENGZS8+"})");
  const auto& body = std::get<FiscalBody>(parsed);
  EXPECT_EQ(body.request.body, "<CFe/>");
  EXPECT_EQ(body.request.attempt, 1);
  EXPECT_EQ(body.request.patience.count(), 60);
  EXPECT_EQ(body.wait.count(), 60);
  EXPECT_FALSE(body.request.session);
}

TEST(Parsing, NamesTheFieldThatIsWrong) {
  const auto field = [](const char* json) { return problem_field(parse_fiscal(Fiscal::sale, json)); };
  EXPECT_EQ(field(""), "");
  EXPECT_EQ(field("[]"), "");
  EXPECT_EQ(field("{}"), "dadosVenda");
  EXPECT_EQ(field(R"({"dadosVenda": 1})"), "dadosVenda");
  EXPECT_EQ(field(R"({"dadosVenda": ""})"), "dadosVenda");
  EXPECT_EQ(field(R"({"dadosVenda": "PENGZS8"})"), "dadosVenda");
  EXPECT_EQ(field(R"({"dadosVenda": "PE\nZS8+"})"), "dadosVenda");
  EXPECT_EQ(field(R"({"dadosVenda": "AAAA"})"), "dadosVenda") << "zero bytes end a command";
  EXPECT_EQ(field(R"({"dadosVenda": "PENGZS8+", "numeroSessao": 1000000})"), "numeroSessao");
  EXPECT_EQ(field(R"({"dadosVenda": "PENGZS8+", "numeroSessao": -1})"), "numeroSessao");
  EXPECT_EQ(field(R"({"dadosVenda": "PENGZS8+", "numeroSessao": "1"})"), "numeroSessao");
  EXPECT_EQ(field(R"({"dadosVenda": "PENGZS8+", "tentativa": 0})"), "tentativa");
  EXPECT_EQ(field(R"({"dadosVenda": "PENGZS8+", "paciencia": 601})"), "paciencia");
  EXPECT_EQ(field(R"({"dadosVenda": "PENGZS8+", "espera": 61})"), "espera");
  EXPECT_EQ(field(R"({"dadosVenda": "PENGZS8+", "espera": 18446744073709551615})"), "espera");
  EXPECT_EQ(problem_field(parse_fiscal(Fiscal::cancellation, R"({"dadosCancelamento": "PENGZS8+"})")),
            "chaveConsulta");
}

TEST(Parsing, FunctionsTakeTheStandardsNamesButNoCode) {
  const auto& function = *satctl::find_function("ConsultarNumeroSessao");
  const auto parsed = parse_function(function, R"({"numeroSessao": 1, "cNumeroDeSessao": 2})");
  EXPECT_EQ(std::get<FunctionRequest>(parsed).values, std::vector<std::string>{"2"});
  EXPECT_EQ(problem_field(parse_function(function, "{}")), "cNumeroDeSessao");
  EXPECT_EQ(
      problem_field(parse_function(*satctl::find_function("AssociarAssinatura"), R"({"CNPJvalue": "1|2"})")),
      "CNPJvalue");
}

TEST(Parsing, Targets) {
  const auto target = std::get<Target>(parse_target("/v1/vendas/a%20b?wait=3&x=%C3%A7"));
  EXPECT_EQ(target.segments, (std::vector<std::string>{"v1", "vendas", "a b"}));
  EXPECT_EQ(target.query.at("wait"), "3");
  EXPECT_EQ(target.query.at("x"), "ç");
  EXPECT_TRUE(std::holds_alternative<Problem>(parse_target("no path")));
  EXPECT_TRUE(std::holds_alternative<Problem>(parse_target("/%zz")));
}

TEST(Parsing, Settlements) {
  EXPECT_EQ(problem_field(parse_settlement(R"({"decisao": "maybe", "motivo": "x"})")), "decisao");
  EXPECT_EQ(problem_field(parse_settlement(R"({"decisao": "not-issued"})")), "motivo");
  EXPECT_EQ(problem_field(parse_settlement(R"({"decisao": "issued", "motivo": "x"})")), "chaveConsulta");
}

TEST(Parsing, SearchesAndWaits) {
  EXPECT_EQ(problem_field(parse_receipt_search({{"de", "ontem"}})), "de");
  EXPECT_EQ(problem_field(parse_receipt_search({{"foo", "1"}})), "foo");
  const auto search =
      std::get<ReceiptSearch>(parse_receipt_search({{"de", "2026-03-01"}, {"ate", "2026-03-01"}}));
  EXPECT_EQ(*search.to - *search.from, 86'400) << "the whole of that day";
  EXPECT_EQ(problem_field(parse_wait({{"wait", "61"}})), "wait");
  EXPECT_EQ(problem_field(parse_wait({{"wait", "1x"}})), "wait");
}

TEST(Encoding, Base64IsStrict) {
  EXPECT_EQ(from_base64(base64(std::string("\0\xFF|", 3))), std::string("\0\xFF|", 3));
  EXPECT_FALSE(
      from_base64("QQ=="
                  "QQ=="));
  EXPECT_FALSE(from_base64("Q==="));
  EXPECT_EQ(from_wrapped_base64("QU\r\nJD"), "ABC");
}

TEST(Encoding, TextOfAnyCodePageBecomesUtf8) {
  EXPECT_EQ(utf8("Sess\xE3o"), "Sessão");
  EXPECT_EQ(utf8("Sessão"), "Sessão");
  EXPECT_EQ(utf8("\x80"), "€");
}

TEST(Settings, RefusesWhatItDoesNotKnow) {
  EXPECT_EQ(read_settings("state = \"/x\"\n[[device]]\nserial = \"1\"\n", {}).device.serial, "1");
  EXPECT_THROW(read_settings("states = 1", {}), SettingsError);
  EXPECT_THROW(read_settings("state = 1", {}), SettingsError);
  EXPECT_THROW(read_settings("[[device]]\n[[device]]\n", {}), SettingsError);
  EXPECT_THROW(read_settings("[listen]\nport = 1", {}), SettingsError);
  EXPECT_THROW(read_settings("= =", {}), SettingsError);
}

TEST(Routes, AreTheseAndNoOthers) {
  EXPECT_EQ(route_names(),
            (std::vector<std::string>{
                "PUT /v1/vendas/{}", "GET /v1/vendas/{}", "DELETE /v1/vendas/{}", "PUT /v1/cancelamentos/{}",
                "GET /v1/cancelamentos/{}", "POST /v1/funcoes/{}", "GET /v1/equipamentos",
                "GET /v1/equipamentos/{}", "GET /v1/recibos", "GET /v1/recibos/{}", "GET /v1/operacoes",
                "GET /v1/operacoes/{}", "POST /v1/operacoes/{}/decisao", "GET /healthz"}));
}

}  // namespace
}  // namespace hub
