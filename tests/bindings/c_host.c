/* A host in plain C99, linked against the library: every function and every datum by its declared type. */
#include <stdio.h>
#include <string.h>
#include <talvex/talvex.h>

static int failures;

static void expect(int holds, const char* what) {
  if (holds) return;
  printf("wrong: %s\n", what);
  ++failures;
}
#define EXPECT(condition) expect(condition, #condition)

/* Each address is taken as the type that a host would write down by hand. */
struct sat_functions {
  char* (*activate)(int, int, const char*, const char*, int);
  char* (*code_and_text[4])(int, const char*, const char*);
  char* (*code_and_two_texts[2])(int, const char*, const char*, const char*);
  char* (*code_only[6])(int, const char*);
  char* (*query)(int);
  char* (*session)(int, const char*, int);
  char* (*change_code)(int, const char*, int, const char*, const char*);
  char* (*version)(void);
};

static const struct sat_functions kSatFunctions = {
    AtivarSAT,
    {ComunicarCertificadoICPBRASIL, EnviarDadosVenda, TesteFimAFim, ConfigurarInterfaceDeRede},
    {CancelarUltimaVenda, AssociarAssinatura},
    {ConsultarStatusOperacional, AtualizarSoftwareSAT, ExtrairLogs, BloquearSAT, DesbloquearSAT,
     ConsultarUltimaSessaoFiscal},
    ConsultarSAT,
    ConsultarNumeroSessao,
    TrocarCodigoDeAtivacao,
    VersaoDllTalvex,
};

static void (*const kSizeControl)(void) = LogSzCtlTherad;

static void check_sat_functions(void) {
  EXPECT(strcmp(kSatFunctions.version(), "TALVEX DLL Ver. 02.00") == 0);

  char copy[256];
  const char* reply = kSatFunctions.query(42);
  EXPECT(reply == VersaoDllTalvex());
  snprintf(copy, sizeof copy, "%s", ConsultarSAT(42));
  EXPECT(strncmp(copy, TALVEX_FAILURE_PREFIX, strlen(TALVEX_FAILURE_PREFIX)) == 0);
  EXPECT(strncmp(copy, "SAT Erro[-02000]", 16) == 0);
}

static void check_return_codes(void) {
  char text[] = "SAT Erro[-02000]";
  EXPECT(strcmp(SAT_GetRetCodeMsg(8000, NULL), "SAT em operacao") == 0);
  EXPECT(SAT_GetRetCodeMsg(-2000, text) == text);
}

static void check_frames(void) {
  const unsigned char message[] = {TALVEX_STX, 'A', 'B', 'C', 0};
  unsigned char frame[6];
  int length = 0;
  EXPECT(SAT_API_CalcCkeckSum(message, 4) == 0xC6);
  EXPECT(SAT_API_CreatePacket(message, 4, frame, &length) == 6 && length == 6 && frame[5] == TALVEX_ETX);
  EXPECT(SAT_API_DecodeSatCmd(frame, length) == -1);
  EXPECT(strcmp(ShowHex(frame, length), "02414243C603") == 0);
  EXPECT(SAT_API_CmdPktParcer("\x02"
                              "A|000001|x\xd6\x03",
                              13) == 4);
  EXPECT(SAT_API_RspPktParcer("000042|08000|x\xd6\x03", 16) == 4);
}

static void check_application_messages(void) {
  uint32_t last_sale = 0;
  uint32_t session = 0;
  uint32_t code = 0;
  EXPECT(SAT_APP_CmdParcer(NULL, "ConsultarSAT|000042") == 3);
  EXPECT(SAT_APP_RspParcer("EnviarDadosVenda", 7, &last_sale, &session, &code, "000007|06000|x") == 6000);
  EXPECT(last_sale == 7 && session == 7 && code == 6000);
  EXPECT(SAT_APP_RspParcer("ConsultarSAT", 7, NULL, NULL, NULL, "SAT Erro[") == TALVEX_APP_NO_SEPARATOR);
  EXPECT(SAT_APP_GenRndNum(1) == 0);
  EXPECT(SAT_Free_AllocedMsg(NULL) == -1);
}

static void check_ini_files(void) {
  char value[TALVEX_INI_VALUE_SIZE];
  EXPECT(OLK_SetIniFileValue("host.ini", "S", "K", "V") == TALVEX_INI_CREATED);
  EXPECT(OLK_SetIniFileItemValue("host.ini", "S", "K", "W") == TALVEX_INI_CHANGED);
  EXPECT(OLK_AddIniFileItem("host.ini", "S", "L", "1") == TALVEX_INI_ITEM_ADDED);
  EXPECT(OLK_GetIniFileValue("host.ini", "S", "K", value) == TALVEX_INI_FOUND && strcmp(value, "W") == 0);
  EXPECT(OLK_DelIniFileItem("host.ini", "S", "L") == TALVEX_INI_CHANGED);
  EXPECT(OLK_AddIniFileSection("host.ini", "T", NULL) == TALVEX_INI_SECTION_ONLY);
  EXPECT(OLK_DelIniFileSection("host.ini", "T") == TALVEX_INI_SECTION_ONLY);
}

static void check_files(void) {
  EXPECT(OLK_CreateDir("folder") == TALVEX_CREATE_DIR_CREATED);
  EXPECT(OLK_Exist("folder") == TALVEX_EXIST_DIRECTORY && OLK_FileExist("folder") >= 0);
  EXPECT(OLK_DeleteDir("folder") == TALVEX_DELETE_DONE);
  EXPECT(OLK_GetFileSize("host.ini") > 0 && OLK_DeleteFile("host.ini") == TALVEX_DELETE_DONE);
}

static void check_taxpayer_numbers(void) {
  EXPECT(OLK_Check_CNPJ("11222333000181") == 0);
  EXPECT(OLK_Check_CPF("12345678900") == TALVEX_CHECK_DIGITS_DIFFER);
  EXPECT(OLK_GetCPFCheckDigit("12345678909", 11) == 9);
}

static void check_base64(void) {
  char text[9];
  unsigned char bytes[7] = {0};
  uint64_t length = 0;
  EXPECT(OLK_Base64Encoder((const unsigned char*)"Talve", 5, text, &length) == 8 && length == 8);
  EXPECT(OLK_Base64Decoder(text, length, bytes, &length) == 5 && memcmp(bytes, "Talve", 6) == 0);
  EXPECT(psB64_DecTable == NULL);
  EXPECT(OLK_Base64DecTblAlloc() == 0 && psB64_DecTable['/'] == 63);
  EXPECT(OLK_Base64DecTblFree() == 0);
  EXPECT(OLK_Base64_Test01() == 24);
  EXPECT(sizeof pB64_EncTable == 64 && pB64_EncTable[63] == '/');
  EXPECT(sizeof mod_table == 12 && mod_table[1] == 2);
}

static void check_states(void) {
  EXPECT(SAT_Get_IBGH_UF_Code("SAO PAULO") == 35);
  EXPECT(strcmp(SAT_Get_IBGE_UF_Name(35), "SP") == 0);
  EXPECT(strcmp(SAT_Get_IBGE_EstateName(35), "SAO PAULO") == 0);
  EXPECT(strcmp(SAT_Get_IBGE_RegionName(35), "SUDESTE") == 0);
}

/* LogMode=1 of the SAT.ini that the first call has written. */
static void check_data(void) {
  const int64_t* const flags[] = {&bWarningLogsEnabled, &bMessageLogsEnabled,  &bInfoLogsEnabled,
                                  &bTraceLogsEnabled,   &bJniTraceLogsEnabled, &bDebugLogsEnabled,
                                  &bConsoleLogsEnabled};
  EXPECT(bErrorLogsEnabled == 1);
  for (size_t i = 0; i < sizeof flags / sizeof flags[0]; ++i) EXPECT(*flags[i] == 0);
  EXPECT(tLog.ucModeMask == 1 && tLog.iLogFileMaxSize == 1300000 && strcmp(tLog.strLogFilePath, "Log") == 0);
  EXPECT(gl_hComm == -1);
  EXPECT(kSizeControl != NULL);
}

int main(void) {
  check_sat_functions();
  check_return_codes();
  check_frames();
  check_application_messages();
  check_ini_files();
  check_files();
  check_taxpayer_numbers();
  check_base64();
  check_states();
  check_data();
  return failures == 0 ? 0 : 1;
}
