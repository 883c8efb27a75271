#include "masking/trace_message.h"

#include <gmock/gmock.h>

#include "masking/field_rules.h"
#include "masking/masker.h"

namespace masking {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kApi = "[0100] [../src/api/TALVEX] ";
constexpr const char* kUtils = "[0070] [../src/olk_sat_utils/olk_sat_utils] ";

std::string api(const std::string& text) {
  return kApi + text;
}

TEST(TraceMessage, OfTheLibraryIsShown) {
  for (
      const std::string& text :
      {api("[Communicate]Lnx:OK:STEP-04a rc[000000]\n\t   Dev[/dev/ttyACM0]\n\t hComm[00000004h]Successfull Openned!"),
       api("[cSerialReadAck]  rc[00001]WR:Lnx\n\t << SAT->PC Rcvd[06h]ACK"),
       api("[lSerialOpenW]Lnx: rc[-02000]ER:SAT_API_ERR_LNX_DEV_NOT_FOUND\n\t "
           "pLnxSerialPortName[/tmp/rec/sat0]=hComm[FFFFFFFFh]Open Fail"),
       std::string("[0129]  ../src/api/TALVEX  UpdateTalvexConfiguration  rc[-305]ER:FAIL  STEP05c  "
                   "TalvexIniFileName[SAT.ini]  strSessionName[LOG]  item[LogMode=5]"),
       std::string(
           "[0042] OLK_Exist  rc[016384]OK:S_IFDIR is directory         st_mode[00004000h] & S_IFMT[000041C0h] "
           "return 1"),
       std::string(
           "[0187]  ../src/api/TALVEX  GetFixedSerialPort  rc[0012]WR:\n\t     Ini[SAT.ini]\n\t "
           "Session[SERIAL_PORT_CONFIG]\n\t    Item[FixarPorta=/dev/ttyACM0]<< ADICIONADO MANUALMENTE PELO "
           "CLIENTE\n"),
       api("[ConsultarSAT] rc[-02010]ER\n\t << SAT_Rsp[00048:7|08098|SAT em processamento, tente novamente.||]")}) {
    EXPECT_EQ(masked_message(text), text);
  }
}

TEST(TraceMessage, NotOfTheLibraryShowsItsLength) {
  EXPECT_EQ(masked_message("segredo1"), "*8*");
  EXPECT_EQ(masked_message(api("[Communicate]segredo1")), api("[Communicate]*8*"));
  {
    const std::string unknown = api("[segredo1]Lnx:ER:STEP-05a rc[000000]OK: Locked");
    EXPECT_EQ(masked_message(unknown), length_only(unknown));
  }
  EXPECT_EQ(masked_message("[12345678] OLK_Exist x"), "*22*");
  const std::string path = "[0100] [../src/segredo1] [Communicate]Lnx:ER:STEP-05a rc[000000]OK: Locked";
  EXPECT_EQ(masked_message(path), length_only(path));
  EXPECT_EQ(masked_message(""), "");
}

TEST(TraceMessage, BytesOfADeviceAreHidden) {
  EXPECT_EQ(masked_message(
                api("[cSerialReadAck]  rc[00001]ER:Lnx\n\t << SAT->PC Rcvd[73h]--- Expected ACK or NAK")),
            api("[cSerialReadAck]  rc[00001]ER:Lnx\n\t << SAT->PC Rcvd[**h]--- Expected ACK or NAK"));
  EXPECT_EQ(
      masked_message(api("[cSerialReadBufW]Lnx << SAT->PC Rcvd[73h]Expected STX  iCurPos[0] liDiffTime[12")),
      api("[cSerialReadBufW]Lnx << SAT->PC Rcvd[**h]Expected STX  iCurPos[0] liDiffTime[12"));
  EXPECT_EQ(masked_message(std::string(kUtils) + "[SAT_API_CmdPktParcer]--- >>  CKS[45h]"),
            std::string(kUtils) + "[SAT_API_CmdPktParcer]--- >>  CKS[**h]");
}

TEST(TraceMessage, CodesThatLookLikeTheEndOfTheirBracketShowNothing) {
  for (const char* code :
       {"se]gre]do", "segredo]LastParam", "segredo]\n[09:00", "]Sat:NomeDoComando", "%s%n", "a]b[c:d]"}) {
    const std::string shown =
        masked_message(std::string(kUtils) + "[SAT_API_CmdPktParcer]--- >> P03=[00000010:" + code + "]");
    EXPECT_THAT(shown, Not(HasSubstr(code)));
    EXPECT_THAT(shown, Not(HasSubstr("segredo")));
    EXPECT_THAT(shown, Not(HasSubstr("gre")));
  }
}

TEST(TraceMessage, TaxpayersNumbersAreHiddenWithTheirDigits) {
  EXPECT_EQ(
      masked_message(
          "[0201] OLK_GetCPFCheckDigit rc[-03016]ER \n\t          CPF[11:52998224725]VERYFY:FAIL\n\t     "
          "iCkDigit[02]\n\t iCalcCkDigit[05]Calc"),
      "[0201] OLK_GetCPFCheckDigit rc[**]ER \n\t          CPF[**:*11*]VERYFY:FAIL\n\t     iCkDigit[**]\n\t "
      "iCalcCkDigit[**]Calc");
  EXPECT_EQ(masked_message("[0122] OLK_Check_CPF rc[-03010]ER -------   CPF[03:529]too short"),
            "[0122] OLK_Check_CPF rc[**]ER -------   CPF[**:*3*]too short");
}

TEST(TraceMessage, ValuesOfUnknownItemsAreHidden) {
  EXPECT_EQ(
      masked_message(
          "[0455] OLK_SetIniFileValue rc[-00301]ER:INI_FILE_ERR_NOT_FOUND fopen() Fail pIniFileName[pdv.ini] "
          "pSession[PDV] pItem[senha] pNewValue[abc]"),
      "[0455] OLK_SetIniFileValue rc[-00301]ER:INI_FILE_ERR_NOT_FOUND fopen() Fail pIniFileName[*7*] pSession[*3*] "
      "pItem[*5*] pNewValue[*3*]");
}

TEST(LogLine, IsMaskedLikeItsFrame) {
  EXPECT_EQ(masked_log_line("20261121003835 PC->SAT >> [<02>ExtrairLogs|000001|seg]redo<41><03>]OK:a\n"),
            "20261121003835 PC->SAT >> [<02>ExtrairLogs|000001|********<--><03>]OK:a\n");
  EXPECT_EQ(masked_log_line("20261121003835 PC->SAT >> [x]Ana"), "20261121003835 PC->SAT >> [*1*]*3*");
  EXPECT_EQ(masked_log_line("Ana"), "*3*");
}

TEST(MaskerTest, ACodeThatIsTheBeginningOfANumberUncoversNothingOfIt) {
  Masker masker;
  masker.learn_frame("ExtrairLogs|000001|529982247");
  EXPECT_THAT(
      masker.frame("000001|06000|0000|Emitido com sucesso|||QQ==|20260301110000|x|10.00|52998224725|QQ==",
                   Side::device),
      HasSubstr("|10.00|*11*|"));
  EXPECT_EQ(masker.own_text("to 52998224725"), "to *11*");
}

TEST(MaskerTest, LearnsFromEveryPlace) {
  Masker masker;
  masker.learn_message(
      api("[lSerialWriteBufL]Lnx\n\t >> Sent[0040] hC[00000004h]\n\t >> PC->SAT Sent[00040:\x02"
          "ExtrairLogs|000001|20260301K\x03]"));
  masker.learn_message(std::string(kUtils) +
                       "[SAT_API_CmdPktParcer]--- >> P01=[00000011:ExtrairLogs]Sat:NomeDoComando");
  masker.learn_message(std::string(kUtils) +
                       "[SAT_API_CmdPktParcer]--- >> P03=[00000014:20260302120000]LastParam");
  masker.learn_message(
      api("[LogSATProtocolMsg]All ER:gl_iFd[FFFFFFFFh]=NULL\n\t Msg[000070:20261121003835 PC->SAT >> "
          "[<02>ExtrairLogs|000001|20260303<41><03>]OK:a\n] Trying to Open NOw"));
  EXPECT_THAT(masker.frame("000001|09000|Emitido com sucesso|||QQ==|20260301110000", Side::device),
              HasSubstr("*|********110000"));
  const RuledField moment{Rule::moment, "20260302120000"};
  EXPECT_EQ(masker.field(moment), "********");
  EXPECT_EQ(masker.field({Rule::moment, "20260303120000"}), "********120000");
}

}  // namespace
}  // namespace masking
