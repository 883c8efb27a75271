#include "masking/frame_fields.h"

#include <gmock/gmock.h>

#include "masking/learned_codes.h"
#include "masking/same_length.h"

namespace masking {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

TEST(Commands, ShowWhatTheTableAllows) {
  const auto masked = [](const char* text) { return masked_frame(text, Side::host); };
  EXPECT_EQ(masked("ConsultarSAT|000042"), "ConsultarSAT|000042");
  EXPECT_EQ(masked("AtivarSAT|000001|1|segredo1|11222333000181|35"), "AtivarSAT|000001|1|********|*14*|35");
  EXPECT_EQ(masked("ConsultarNumeroSessao|000001|segredo1|000042"),
            "ConsultarNumeroSessao|000001|********|000042");
  EXPECT_EQ(masked("TrocarCodigoDeAtivacao|000001|antigo12|1|novo1234|novo1234"),
            "TrocarCodigoDeAtivacao|000001|********|1|********|********");
  EXPECT_THAT(masked("EnviarDadosVenda|000001|segredo1|<CFe>|</CFe>"),
              MatchesRegex("EnviarDadosVenda\\|000001\\|\\*{8}\\|\\*12 [0-9a-f]{8}\\*"));
  EXPECT_THAT(
      masked(
          "CancelarUltimaVenda|000001|segredo1|CFe35260311222333000181599000000010000011234564|<CFeCanc/>"),
      MatchesRegex("CancelarUltimaVenda\\|000001\\|\\*{8}\\|CFe352603\\*{3}4564\\|\\*10 [0-9a-f]{8}\\*"));
  EXPECT_THAT(masked("AssociarAssinatura|000001|segredo1|1122233300018111222333000181|QUJD"),
              MatchesRegex("AssociarAssinatura\\|000001\\|\\*{8}\\|\\*28\\*\\|\\*4 [0-9a-f]{8}\\*"));
}

TEST(Commands, CodesThatHoldASeparatorShiftNothingIntoView) {
  const auto masked = [](const char* text) { return masked_frame(text, Side::host); };
  EXPECT_EQ(masked("TrocarCodigoDeAtivacao|000001|senha|7|1|novo1234|novo1234"),
            "TrocarCodigoDeAtivacao|000001|********");
  EXPECT_EQ(masked("ConsultarNumeroSessao|000001|abc|123456|000042"),
            "ConsultarNumeroSessao|000001|********");
  EXPECT_EQ(masked("AtivarSAT|000001|1|se|35|11222333000181|35"), "AtivarSAT|000001|********");
  EXPECT_THAT(masked("EnviarDadosVenda|000001|sen|ha|<CFe/>"), Not(HasSubstr("ha|")));
  EXPECT_EQ(masked("ConsultarSAT|000001|sobra"), "ConsultarSAT|000001|*5*");
}

TEST(Commands, WithoutTheirStructureShowTheirLength) {
  EXPECT_EQ(masked_frame("Inventada|000001|segredo1", Side::host), "*25*");
  EXPECT_EQ(masked_frame("nviarDadosVenda|000001|segredo1|<CFe/>", Side::host), "*38*");
  EXPECT_EQ(masked_frame("EnviarDadosVenda|segredo1", Side::host), "EnviarDadosVenda|*8*");
  EXPECT_EQ(masked_frame("EnviarDadosVenda|000001|segredo1", Side::host), "EnviarDadosVenda|000001|********");
}

TEST(Replies, ShowWhatTheTableAllows) {
  const auto masked = [](const std::string& text) { return masked_frame(text, Side::device); };
  EXPECT_EQ(masked("000042|08000|SAT em operacao||"), "000042|08000|SAT em operacao||");
  EXPECT_THAT(
      masked("000001|06000|0000|Emitido com sucesso + conteudo notas|||QUJDREVG|20260301120000|"
             "CFe35260311222333000181599000000010000011234564|10.00|12345678909|QUJD"),
      MatchesRegex(
          "000001\\|06000\\|0000\\|Emitido com sucesso \\+ conteudo notas\\|\\|\\|\\*8 [0-9a-f]{8}\\*\\|"
          "20260301120000\\|CFe352603\\*{3}4564\\|10\\.00\\|\\*11\\*\\|\\*4 [0-9a-f]{8}\\*"));
  EXPECT_EQ(
      masked(
          "000001|10000|Resposta com Sucesso|||900000001|DHCP|192.168.1.50|02:53:41:54:00:01|255.255.255.0|"
          "192.168.1.1|192.168.1.1|0.0.0.0|CONECTADO|ALTO|1 Gbytes|12 Mbytes|20260301120000|010000|000008||||"
          "00000000000000|20260301120000|20260101|20310101|0"),
      "000001|10000|Resposta com Sucesso|||*9*|DHCP|*12*|*17*|*13*|*11*|*11*|*7*|CONECTADO|ALTO|1 Gbytes|12 Mbytes|"
      "20260301120000|010000|000008||||00000000000000|20260301120000|20260101|20310101|0");
}

TEST(Replies, WithoutAlertCodeAndWithFurtherFields) {
  EXPECT_EQ(masked_frame("000001|06001|Codigo de ativacao invalido||", Side::device),
            "000001|06001|Codigo de ativacao invalido||");
  EXPECT_EQ(masked_frame("000001|06098|0000|SAT em processamento|||Ana", Side::device),
            "000001|06098|0000|SAT em processamento|||*3 " + shown(Rule::document, "Ana").substr(3));
  EXPECT_EQ(masked_frame("000001|08000|SAT em operacao|||Ana", Side::device),
            "000001|08000|SAT em operacao|||*3*");
}

TEST(Replies, WithoutTheirStructureShowTheirLength) {
  EXPECT_EQ(masked_frame("Ana Lima", Side::device), "*8*");
  EXPECT_EQ(masked_frame("000001|segredo1|Ana", Side::device), "000001|*12*");
  EXPECT_EQ(masked_frame("segredo1|08000|x", Side::device), "*8*|08000|*1*");
}

TEST(Replies, CommandsThatAreSentBackAreTakenForCommands) {
  EXPECT_EQ(masked_frame("ExtrairLogs|000001|segredo1", Side::device), "ExtrairLogs|000001|********");
}

TEST(Replies, TheLibrarysFailuresAreShown) {
  const char* failure =
      "SAT Erro[-02003]Lnx SAT  Dev[/dev/ttyACM0] falhou na recepcao da resposta L[2324] F[Communicate] LibVer[23-JUL-2020]";
  EXPECT_EQ(masked_frame(failure, Side::device), failure);
  EXPECT_EQ(masked_frame("SAT Erro[-02003]Lnx segredo1", Side::device), "*28*");
}

TEST(Quotations, LeaveOutTheChecksumAndWhatStandsBehindTheFrame) {
  EXPECT_EQ(masked_quotation("\x02"
                             "ExtrairLogs|000001|segredo1K\x03segredo1",
                             Side::host),
            "<02>ExtrairLogs|000001|********<--><03>*8*");
  EXPECT_EQ(masked_quotation("000042|08000|SAT em operacao||R\x03", Side::device),
            "000042|08000|SAT em operacao||<--><03>");
}

TEST(Quotations, OfLongFramesShowNothingBehindTheGap) {
  EXPECT_THAT(
      masked_quotation("\x02"
                       "EnviarDadosVenda|000001|segredo1|<CFe>...**BIGPKG SLL-SAT**....</x>|20260301",
                       Side::host),
      MatchesRegex(
          "<02>EnviarDadosVenda\\|000001\\|\\*{8}\\|\\*5 [0-9a-f]{8}\\*\\.\\.\\.\\*\\*BIGPKG SLL-SAT\\*\\*\\.\\.\\.\\."
          "\\*13\\*"));
}

TEST(LoggedFrames, KeepTheirMarksButNotTheirChecksum) {
  EXPECT_EQ(masked_logged_frame("<02>ExtrairLogs|000001|segredo1<41><03>", Side::host),
            "<02>ExtrairLogs|000001|********<--><03>");
  EXPECT_EQ(masked_logged_frame("ExtrairLogs|000001|segredo1", Side::host), "ExtrairLogs|000001|********");
}

TEST(LearnedCodes, AreBlottedTheLongestFirst) {
  LearnedCodes codes;
  codes.add("segredo1");
  codes.add("segredo123");
  codes.add("short");
  EXPECT_EQ(codes.without_codes("a segredo1234 b segredo1 short"), "a ********4 b ******** short");
}

TEST(LearnedCodes, ComeFromCommandsAndNetworkSettings) {
  LearnedCodes codes;
  codes.learn_command("TrocarCodigoDeAtivacao|000001|antigo12|1|novo1234|confirm1");
  codes.learn_command(
      "ConfigurarInterfaceDeRede|000001|rede1234|<config><senha>wifi1234</senha><codigo>abcdef12</codigo>"
      "<proxy_senha>proxy123</proxy_senha></config>");
  codes.learn_command("EnviarDadosVenda|000001|venda123|<CFe/>");
  for (const char* code :
       {"antigo12", "novo1234", "confirm1", "rede1234", "wifi1234", "abcdef12", "proxy123", "venda123"})
    EXPECT_EQ(codes.without_codes(code), "********") << code;
  EXPECT_EQ(codes.without_codes("000001"), "000001");
}

TEST(SameLength, KeepsLengthsAndStructure) {
  const LearnedCodes none;
  for (const char* text :
       {"EnviarDadosVenda|000001|segredo1|<CFe>x</CFe>", "ConsultarSAT|000042", "Inventada|x", "|||",
        "000001|06000|0000|Ana|||QUJDREVGR0g=|20260301120000|x|10.00|12345678909|QUJD", "", "000001|08000"}) {
    for (const Side side : {Side::host, Side::device}) {
      const std::string filled = filled_frame(text, side, none);
      EXPECT_EQ(filled.size(), std::string(text).size()) << text;
      EXPECT_EQ(filled_frame(filled, side, none), filled) << text;
    }
  }
}

}  // namespace
}  // namespace masking
