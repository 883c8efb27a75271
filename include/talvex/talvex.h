/* Talvex: driver library for SAT fiscal devices (CF-e-SAT). The one public header, C99 and C++. */
#ifndef TALVEX_TALVEX_H
#define TALVEX_TALVEX_H

#include <stdint.h>

#if defined(__GNUC__)
#define TALVEX_API __attribute__((visibility("default")))
#else
#define TALVEX_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

enum {
  TALVEX_BASE64_ENCODER_FAILED = -1,
  TALVEX_BASE64_INVALID_PARAMETER = -101,
  TALVEX_BASE64_NO_TABLE = -103
};

enum {
  TALVEX_CNPJ_NULL = -3001,
  TALVEX_CNPJ_BAD_FORMATTED = -3002,
  TALVEX_CNPJ_NOT_NUMERIC = -3003,
  TALVEX_CNPJ_TOO_SHORT = -3004,
  TALVEX_CNPJ_TOO_LONG = -3005,
  TALVEX_CNPJ_BAD_LENGTH = -3006,
  TALVEX_CHECK_DIGITS_DIFFER = -3007,
  TALVEX_CPF_NULL = -3011,
  TALVEX_CPF_BAD_FORMATTED = -3012,
  TALVEX_CPF_NOT_NUMERIC = -3013,
  TALVEX_CPF_TOO_SHORT = -3014,
  TALVEX_CPF_TOO_LONG = -3015,
  TALVEX_CPF_BAD_LENGTH = -3016,
  TALVEX_CPF_BAD_DIGIT_COUNT = -3017
};

/* SAT functions. */
TALVEX_API char* AtivarSAT(int numeroSessao, int subComando, const char* codigoDeAtivacao, const char* CNPJ, int cUF);
TALVEX_API char* ComunicarCertificadoICPBRASIL(int numeroSessao, const char* codigoDeAtivacao, const char* certificado);
TALVEX_API char* EnviarDadosVenda(int numeroSessao, const char* codigoDeAtivacao, const char* dadosVenda);
TALVEX_API char* CancelarUltimaVenda(int numeroSessao, const char* codigoDeAtivacao, const char* chave,
                                     const char* dadosCancelamento);
TALVEX_API char* ConsultarSAT(int numeroSessao);
TALVEX_API char* TesteFimAFim(int numeroSessao, const char* codigoDeAtivacao, const char* dadosVenda);
TALVEX_API char* ConsultarStatusOperacional(int numeroSessao, const char* codigoDeAtivacao);
TALVEX_API char* ConsultarNumeroSessao(int numeroSessao, const char* codigoDeAtivacao, int cNumeroDeSessao);
TALVEX_API char* ConfigurarInterfaceDeRede(int numeroSessao, const char* codigoDeAtivacao, const char* dadosConfiguracao);
TALVEX_API char* AssociarAssinatura(int numeroSessao, const char* codigoDeAtivacao, const char* CNPJvalue,
                                    const char* assinaturaCNPJs);
TALVEX_API char* AtualizarSoftwareSAT(int numeroSessao, const char* codigoDeAtivacao);
TALVEX_API char* ExtrairLogs(int numeroSessao, const char* codigoDeAtivacao);
TALVEX_API char* BloquearSAT(int numeroSessao, const char* codigoDeAtivacao);
TALVEX_API char* DesbloquearSAT(int numeroSessao, const char* codigoDeAtivacao);
TALVEX_API char* TrocarCodigoDeAtivacao(int numeroSessao, const char* codigoDeAtivacao, int opcao, const char* novoCodigo,
                                        const char* confNovoCodigo);
TALVEX_API char* ConsultarUltimaSessaoFiscal(int numeroSessao, const char* codigoDeAtivacao);
TALVEX_API char* VersaoDllTalvex(void);

/* Return codes. */
TALVEX_API const char* SAT_GetRetCodeMsg(int code, char* text);

/* Frames. */
TALVEX_API unsigned char SAT_API_CalcCkeckSum(const unsigned char* pBuf, int iBufLen);
TALVEX_API int SAT_API_CreatePacket(const unsigned char* pSatMsg, int iSatMsgLen, unsigned char* pSatPkt, int* piSatPktLen);
TALVEX_API int SAT_API_DecodeSatCmd(const unsigned char* pSatCmdParam, int iLen);
TALVEX_API const char* ShowHex(const unsigned char* pBuf, int iLen);
TALVEX_API unsigned int SAT_API_CmdPktParcer(const char* pSatCmdPkt, int iLen);
TALVEX_API unsigned int SAT_API_RspPktParcer(const char* pSatRspPkt, int iLen);

/* Application messages. */
TALVEX_API unsigned int SAT_APP_CmdParcer(const void* pUnused, const char* SatArgs);
TALVEX_API int SAT_APP_RspParcer(const char* pSatCmdName, uint32_t uiCmdSession, uint32_t* puiLastSaleSession,
                                 uint32_t* puiRspSession, uint32_t* puiEEEEE, const char* pSatResult);
TALVEX_API uint32_t SAT_APP_GenRndNum(uint32_t n);
TALVEX_API int SAT_Free_AllocedMsg(void* pMsg);

/* INI files. */
TALVEX_API int OLK_GetIniFileValue(const char* pIniFileName, const char* pSession, const char* pItem, char* pRetValue);
TALVEX_API int OLK_SetIniFileValue(const char* pIniFileName, const char* pSession, const char* pItem, const char* pNewValue);
TALVEX_API int OLK_SetIniFileItemValue(const char* pIniFileName, const char* pSession, const char* pItem, const char* pNewValue);
TALVEX_API int OLK_AddIniFileItem(const char* pIniFileName, const char* pSession, const char* pItem, const char* pNewValue);
TALVEX_API int OLK_AddIniFileSection(const char* pIniFileName, const char* pSession, const char* pUnused);
TALVEX_API int OLK_DelIniFileSection(const char* pIniFileName, const char* pSession);
TALVEX_API int OLK_DelIniFileItem(const char* pIniFileName, const char* pSession, const char* pItem);

/* Files and directories. */
TALVEX_API int OLK_GetFileSize(const char* pFileName);
TALVEX_API int OLK_FileExist(const char* pFileName);
TALVEX_API int OLK_Exist(const char* pDirFileName);
TALVEX_API int OLK_CreateDir(const char* pDirName);
TALVEX_API int OLK_DeleteDir(const char* pDirName);
TALVEX_API int OLK_DeleteFile(const char* pFileName);

/* Taxpayer numbers. */
TALVEX_API int OLK_Check_CNPJ(const char* pCNPJ);
TALVEX_API int OLK_Check_CPF(const char* pCPF);
TALVEX_API int OLK_GetCPFCheckDigit(const char* pCPF, int iWeight);

/* Base64. */
TALVEX_API int OLK_Base64Encoder(const unsigned char* pBinIn, uint64_t ztBinInLen, char* pB64Out, uint64_t* pztB64OutLen);
TALVEX_API int OLK_Base64Decoder(const char* pBase64In, uint64_t ztBase64InLen, unsigned char* pBinOutData,
                                 uint64_t* pztBinOutLen);
TALVEX_API int OLK_Base64DecTblAlloc(void);
TALVEX_API int OLK_Base64DecTblFree(void);
TALVEX_API int OLK_Base64_Test01(void);
extern TALVEX_API const char pB64_EncTable[64];
extern TALVEX_API const int32_t mod_table[3];
extern TALVEX_API unsigned char* psB64_DecTable;

/* IBGE state tables. */
TALVEX_API int SAT_Get_IBGH_UF_Code(const char* pStateName);
TALVEX_API const char* SAT_Get_IBGE_UF_Name(uint32_t iUfCode);
TALVEX_API const char* SAT_Get_IBGE_EstateName(uint32_t iUfCode);
TALVEX_API const char* SAT_Get_IBGE_RegionName(uint32_t iUfCode);

/* Trace log switches and configuration. */
extern TALVEX_API int64_t bErrorLogsEnabled;
extern TALVEX_API int64_t bWarningLogsEnabled;
extern TALVEX_API int64_t bMessageLogsEnabled;
extern TALVEX_API int64_t bInfoLogsEnabled;
extern TALVEX_API int64_t bTraceLogsEnabled;
extern TALVEX_API int64_t bJniTraceLogsEnabled;
extern TALVEX_API int64_t bDebugLogsEnabled;
extern TALVEX_API int64_t bConsoleLogsEnabled;

typedef struct TalvexLogConfiguration {
  uint8_t ucInitMark;        /* 0xAA once set up */
  int32_t iLogFileMaxSize;   /* bytes */
  uint64_t ulSetUpTime;      /* milliseconds since the epoch, wall clock */
  uint8_t ucModeMask;        /* 0, 1, 3, 7, 15 or 31 */
  char strLogFilePath[512];
  char strLogFileName[512];
  uint8_t ucInitTail;
} TalvexLogConfiguration;
extern TALVEX_API TalvexLogConfiguration tLog;

/* Size control. */
TALVEX_API void LogSzCtlTherad(void);
extern TALVEX_API int gl_hComm;

#ifdef __cplusplus
}
#endif

#endif
