/*
 * Talvex: driver library for SAT fiscal devices (CF-e-SAT), Linux x86-64. The one public header, C99 and C++.
 *
 * A point-of-sale program (the "AC", commercial application) loads libtalvex.so and calls the function set of
 * the CF-e-SAT standard of SEFAZ: each call sends one command to the device over a serial port and returns
 * its reply.
 *
 *   char* reply = ConsultarSAT(42);      "000042|08000|SAT em operacao||"
 *
 *
 * WHAT A CALL DOES, IN THIS ORDER
 *
 *   1. Initialises the library. The first call of the process writes "SAT.ini" with its defaults if there is
 *      none, sets up the trace log and reads the configuration; later calls read it again only when the
 *      file's modification time (whole seconds) has changed, and keep the logs within their sizes. There is
 *      no open and no close call.
 *   2. Clears the packet buffer and formats the command into it: the function's name, the session number in
 *      six digits and the arguments, separated by "|".
 *   3. Finds the device: a USB serial port (ttyACM) whose udev properties contain "TALVEX" or "VDR-K20"; the
 *      port of item "FixarPorta" of section "SERIAL_PORT_CONFIG", which wins over it; or, without either and
 *      when section "SAT_EMULATOR" is enabled, the emulator's port. The USB search runs a shell with find,
 *      udevadm and grep, unless nothing that it looks at has changed since the last one.
 *   4. Opens the port, takes an exclusive lock (flock) without waiting, sets raw mode and drops what lies in
 *      its queue.
 *   5. Sends the command as one frame, in blocks of 16,384 bytes that the device acknowledges one by one. A
 *      refused frame (NAK) is sent again from its start, three times at most.
 *   6. Receives the reply frame, which may fill the packet buffer, and checks it; a damaged one is refused,
 *      and the device sends it again: three receptions in all.
 *   7. Closes the port; no port stays open between calls. EnviarDadosVenda and CancelarUltimaVenda then write
 *      the result file, if that is switched on.
 *   8. Returns the packet buffer, in every case: with the reply, a busy reply or a failure text.
 *
 * A silent device is given up after about 12 s if it does not acknowledge the command, and after 9 s more if
 * it does and no reply follows; for AtivarSAT, AtualizarSoftwareSAT and BloquearSAT after 240 s more and the
 * function's time-out. The time-out bounds the wait for the start of a reply; a reply that is there is taken.
 * Inside a reply no gap may be longer than 100 ms.
 *
 *   function                        default time-out   in SAT.ini   busy code   reply fields before the data
 *   AtivarSAT                                 1800 s   yes          04098       5
 *   ComunicarCertificadoICPBRASIL              300 s   yes          05098       5
 *   EnviarDadosVenda                            30 s   yes          06098       6
 *   CancelarUltimaVenda                         30 s   yes          07098       6
 *   ConsultarSAT                                10 s   yes          08098       5
 *   TesteFimAFim                                20 s   yes          09098       5
 *   ConsultarStatusOperacional                  10 s   yes          10098       5
 *   ConsultarNumeroSessao                       20 s   no           11098       5
 *   ConfigurarInterfaceDeRede                   20 s   no           12098       5
 *   AssociarAssinatura                        1800 s   no           13098       5
 *   AtualizarSoftwareSAT                      1800 s   no           14098       5
 *   ExtrairLogs                                 30 s   no           15098       5
 *   BloquearSAT                                300 s   no           16098       5
 *   DesbloquearSAT                              20 s   no           17098       5
 *   TrocarCodigoDeAtivacao                      30 s   no           18098       5
 *   ConsultarUltimaSessaoFiscal                 20 s   no           none        5
 *
 * "In SAT.ini": item of that name in section "SAT_TIMEOUT", whole seconds; a number above 0 replaces the
 * default for the life of the process. SAT.ini holds all sixteen items; those of the other functions are read
 * and not applied.
 *
 *
 * THREADS AND PROCESSES
 *
 * One thread at a time per process: the library has one packet buffer, one port and one configuration, and
 * takes no lock of its own. A host with several threads puts one mutex around all calls of this header. The
 * library starts no thread and installs no signal handler; when it is unloaded, or the process ends, it
 * closes its protocol log. While it writes to a file or prints, it blocks SIGXFSZ and SIGPIPE on the calling
 * thread, so that a full log never ends the host.
 *
 * Processes may share a device. Only one of them talks to it at a time; another one gets the busy reply at
 * once, without waiting and without touching the device, and calls again later.
 *
 *
 * THE RETURNED TEXT
 *
 * Every SAT function returns the same pointer, the library's packet buffer of TALVEX_PACKET_SIZE bytes: never
 * null, terminated by NUL, never to be freed. It stays valid until the library is unloaded, but the next call
 * overwrites the text, so copy it first. Never pass the pointer back as an argument.
 *
 * 1. The device's reply, untouched, whatever code it carries. It is not parsed, trimmed or compared with the
 *    session number that was sent; SAT_APP_RspParcer does that.
 *
 *      numeroSessao|EEEEE|mensagem|cod|mensagemSEFAZ|data of the function...
 *      numeroSessao|EEEEE|CCCC|mensagem|cod|mensagemSEFAZ|data...      EnviarDadosVenda, CancelarUltimaVenda
 *
 *    EEEEE is the return code of the standard; SAT_GetRetCodeMsg gives its message. CCCC is the alert code.
 *
 * 2. The busy reply, which the library composes itself when another process holds the device. The session
 *    number has no leading zeros, the code ends in 98:
 *
 *      7|08098|SAT em processamento, tente novamente.||
 *      42|06098|0000|SAT em processamento, tente novamente.||
 *
 *    Nothing was sent: call again. Devices pad the session number to six digits, which tells their own code
 *    ending in 98 from this one, as long as session numbers stay below 100000.
 *
 *    ConsultarUltimaSessaoFiscal has no busy reply; it gets the failure text with -3000.
 *
 * 3. A failure text, when the device could not be reached or did not answer as it should. It begins with
 *    TALVEX_FAILURE_PREFIX, then a code TALVEX_LINK_... with its sign and five digits, and holds no "|" of
 *    its own:
 *
 *      SAT Erro[-02000]Lnx SAT Nao Encontrado L[2193] F[Communicate] LibVer[23-JUL-2020]
 *
 *      if (strncmp(reply, TALVEX_FAILURE_PREFIX, strlen(TALVEX_FAILURE_PREFIX)) == 0)
 *        code = atoi(reply + strlen(TALVEX_FAILURE_PREFIX));
 *
 * What settles a sale or cancellation: a reply with its own session number and 06000 or 07000 (done), or any
 * other code of its own function (refused, nothing was issued) but those that end in 097, 098 and 099. After
 * anything else the device may have issued the receipt all the same. Those three are no refusals: where the
 * line spoils an acknowledgement, the command is sent again, and they are a device's answers to a repetition
 * of what it has carried out. The busy reply above is the only exception. Find out before anything is sent
 * once more: with ConsultarNumeroSessao; where it gives one of the three again or knows nothing, compare the
 * access key of ConsultarUltimaSessaoFiscal with that of the last receipt known before the call.
 *
 *
 * FILES, IN THE WORKING DIRECTORY OF THE PROCESS
 *
 *   SAT.ini                          Configuration. Written with defaults when missing, never changed
 *                                    afterwards.
 *   SAT.conf                         Path of the port chosen last, without line end; "/dev/ttyNONE" for no
 *                                    device.
 *   Log/<date>_SAT_api.log           Trace log: items "LogMode", "LogFilePath" and "LogFileMaxSize" of
 *                                    section "LOG". Its time of day runs three hours behind local time.
 *   Log/<date>_SAT_api.log_bkp_NN.log
 *                                    Trace logs that have outgrown "LogFileMaxSize".
 *   Log/<date>_SAT_ProtocolLog.txt   Every frame sent and received; readable by the owner only, because
 *                                    activation codes travel in frames. Not written with LogMode=0.
 *   venda-cprx-DDHHMMSS-<session>-1.sat, canc-cprx-DDHHMMSS-<session>-1.sat
 *                                    Result files: the returned text of a sale or cancellation. In the
 *                                    directory of item "PathLinux" of section "ARVOLEN", if it exists and
 *                                    "Enable" begins with "1".
 *
 * <date> is local, YYYYMMDD. With LogMode 2 the trace log holds the beginning of commands of more than 1,000
 * bytes, as sales are, with 3 and above all commands, activation codes included. Standard output is written
 * to by OLK_Base64_Test01, by bConsoleLogsEnabled, and by the protocol log when its directory cannot be made
 * or when it is open already.
 *
 *
 * RESULT CODES
 *
 * Functions return 0 or a positive count on success, a negative code on failure, unless their comment says
 * otherwise.
 *
 *   -2 to -4, -2000 to -2011, -3000   device and link, in failure texts   TALVEX_LINK_...
 *   -300 to -305, -401                INI files                           TALVEX_INI_...
 *   -1101, -1102                      application messages                TALVEX_APP_...
 *   -3001 to -3017                    taxpayer numbers                    TALVEX_CNPJ_..., TALVEX_CPF_...
 *   -1, -101, -103                    Base64                              TALVEX_BASE64_...
 *
 * Texts are bytes up to a NUL. The library converts no character set: arguments and replies pass through as
 * they are. A null pointer is allowed exactly where a comment says what it does.
 */
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

/* ---- SAT functions ----------------------------------------------------------------------------------------
 *
 * The function set of the CF-e-SAT standard, with its names and arguments. All of them:
 *   numeroSessao      Session number, 0 to 999999. A larger one is sent modulo 1,000,000; a negative one is
 *                     sent with its sign. Draw a new one for every call, below 100000 (see the busy reply),
 *                     for example with SAT_APP_GenRndNum(100000).
 *   codigoDeAtivacao  Activation code, 8 to 32 characters in the standard.
 * No argument is checked: the device does that. A null text is sent as an empty field. A text must not
 * contain the byte 0x03, which would end the frame, and a "|" in it begins another field. The library reads
 * the arguments during the call only; they stay the caller's.
 *
 * A command may have up to TALVEX_PACKET_SIZE - 2 bytes, control bytes included. A longer one is never cut
 * and never sent: the call returns a failure text with TALVEX_LINK_BROKEN_OFF and touches no device.
 *
 * Returns: the packet buffer with the reply, the busy reply or a failure text, see "The returned text".
 */

/* Size in bytes of the packet buffer that the SAT functions return. */
#define TALVEX_PACKET_SIZE 10485760

/* What every failure text begins with; a number and "]" follow. */
#define TALVEX_FAILURE_PREFIX "SAT Erro["

/* The number in a failure text. */
enum {
  TALVEX_LINK_NO_ACK = -2,              /* the device did not acknowledge the command in time */
  TALVEX_LINK_ACK_PORT_LOST = -3,       /* the port was lost in the wait for the acknowledgement */
  TALVEX_LINK_ACK_READ_FAILED = -4,     /* reading failed in the wait for the acknowledgement */
  TALVEX_LINK_DEVICE_NOT_FOUND = -2000, /* no device found, or its port could not be opened */
  TALVEX_LINK_PORT_CLOSED = -2001,      /* the port was closed, or could not be closed (log only) */
  TALVEX_LINK_SETTINGS_FAILED = -2002,  /* the port's attributes could not be read or set: no serial port */
  TALVEX_LINK_NO_REPLY = -2003,         /* the device acknowledged the command and then stayed silent */
  TALVEX_LINK_NO_REPLY_START = -2004,   /* no reply frame began within the time-out */
  TALVEX_LINK_BAD_CHECKSUM = -2005,     /* the reply came damaged to the last */
  TALVEX_LINK_BROKEN_OFF = -2006,       /* writing failed, a reply broke off, a text was too long */
  TALVEX_LINK_STALLED = -2007,          /* the port took no byte for 2 s, or reading the reply failed */
  TALVEX_LINK_ATTEMPTS_USED = -2008,    /* reserved */
  TALVEX_LINK_REFUSED = -2009,          /* the device refused the command four times */
  TALVEX_LINK_LOCK_FAILED = -2010,      /* the port could not be locked */
  TALVEX_LINK_UNLOCK_FAILED = -2011,    /* log only */
  TALVEX_LINK_NO_BUSY_REPLY = -3000     /* ConsultarUltimaSessaoFiscal, port held by another process */
};

/* Activates the device.
 *   subComando  Kind of certificate: 1 AC-SAT/SEFAZ, 2 ICP-BRASIL, 3 renewal of ICP-BRASIL.
 *   CNPJ        Taxpayer's number, 14 digits.
 *   cUF         IBGE code of the state, two digits; see SAT_Get_IBGH_UF_Code. Sent without padding.
 * Data in the reply: the certificate request (CSR) for kind 2. */
TALVEX_API char* AtivarSAT(int numeroSessao, int subComando, const char* codigoDeAtivacao, const char* CNPJ,
                           int cUF);

/* Hands the ICP-BRASIL certificate over to the device.
 *   certificado  The certificate in PEM form. */
TALVEX_API char* ComunicarCertificadoICPBRASIL(int numeroSessao, const char* codigoDeAtivacao,
                                               const char* certificado);

/* Sends a sale; the device signs it and issues the receipt.
 *   dadosVenda  The sale's XML.
 * Data in the reply: receipt in Base64, time stamp, access key, total, buyer's number, QR code signature.
 * Which replies settle the sale: see "What settles a sale or cancellation".
 * The returned text also goes to the result file "venda-cprx-...", after a failure too. */
TALVEX_API char* EnviarDadosVenda(int numeroSessao, const char* codigoDeAtivacao, const char* dadosVenda);

/* Cancels the last receipt.
 *   chave              Its access key: "CFe" and 44 digits.
 *   dadosCancelamento  The cancellation's XML.
 * Data in the reply: as for a sale.
 * The returned text also goes to the result file "canc-cprx-...", after a failure too. */
TALVEX_API char* CancelarUltimaVenda(int numeroSessao, const char* codigoDeAtivacao, const char* chave,
                                     const char* dadosCancelamento);

/* Asks whether the device is there: "000042|08000|SAT em operacao||". */
TALVEX_API char* ConsultarSAT(int numeroSessao);

/* Issues a test receipt and sends it to SEFAZ.
 *   dadosVenda  The test sale's XML. */
TALVEX_API char* TesteFimAFim(int numeroSessao, const char* codigoDeAtivacao, const char* dadosVenda);

/* Asks for the device's operational state. Data in the reply: serial number, network, memory, versions and so
 * on. */
TALVEX_API char* ConsultarStatusOperacional(int numeroSessao, const char* codigoDeAtivacao);

/* Asks for the reply of an earlier session.
 *   cNumeroDeSessao  That session's number, sent in at least six digits and not reduced. */
TALVEX_API char* ConsultarNumeroSessao(int numeroSessao, const char* codigoDeAtivacao, int cNumeroDeSessao);

/* Configures the device's network.
 *   dadosConfiguracao  The configuration's XML. */
TALVEX_API char* ConfigurarInterfaceDeRede(int numeroSessao, const char* codigoDeAtivacao,
                                           const char* dadosConfiguracao);

/* Associates the application's signature with the device.
 *   CNPJvalue        Software house's CNPJ and taxpayer's CNPJ, 14 digits each, joined.
 *   assinaturaCNPJs  Signature of CNPJvalue, in Base64. */
TALVEX_API char* AssociarAssinatura(int numeroSessao, const char* codigoDeAtivacao, const char* CNPJvalue,
                                    const char* assinaturaCNPJs);

/* Lets the device update its software. */
TALVEX_API char* AtualizarSoftwareSAT(int numeroSessao, const char* codigoDeAtivacao);

/* Reads the device's log. Data in the reply: the log in Base64. */
TALVEX_API char* ExtrairLogs(int numeroSessao, const char* codigoDeAtivacao);

/* Blocks the device, as the taxpayer. */
TALVEX_API char* BloquearSAT(int numeroSessao, const char* codigoDeAtivacao);

/* Unblocks the device, as the taxpayer. */
TALVEX_API char* DesbloquearSAT(int numeroSessao, const char* codigoDeAtivacao);

/* Changes the activation code.
 *   opcao           1: codigoDeAtivacao is the activation code; 2: it is the emergency code.
 *   novoCodigo      New activation code.
 *   confNovoCodigo  The same once more. The library does not compare them. */
TALVEX_API char* TrocarCodigoDeAtivacao(int numeroSessao, const char* codigoDeAtivacao, int opcao,
                                        const char* novoCodigo, const char* confNovoCodigo);

/* Asks for the reply of the last sale or cancellation, which carries that call's session number. While
 * another process holds the device: the failure text with TALVEX_LINK_NO_BUSY_REPLY. */
TALVEX_API char* ConsultarUltimaSessaoFiscal(int numeroSessao, const char* codigoDeAtivacao);

/* Not of the standard. Initialises the library as every call does and returns the packet buffer with its
 * version, "TALVEX DLL Ver. 02.00". Touches no device. */
TALVEX_API char* VersaoDllTalvex(void);

/* ---- Return codes -------------------------------------------------------------------------------------- */

/* Message of a return code of the standard (EEEEE as a number: 6000 for "06000"), in UTF-8.
 *   code  0 or positive: looked up. Negative: the code of a failure text.
 *   text  Used for negative codes only, and then modified: a text of more than 100 characters is cut in its
 *         place to 97 characters and "..>". Null is allowed.
 * Returns, for a code of 0 or more: the message, a constant of the library; "" for 55555; null for 99999;
 *   "SAT Codigo Retorno[00000] Ignorar....." for 0 and "SAT Codigo Retorno[12345] Desconhecido" for an
 *   unknown one, in a buffer of the library that the next such call overwrites. For a negative code: text.
 *   Never to be freed. */
TALVEX_API const char* SAT_GetRetCodeMsg(int code, char* text);

/* ---- Frames -----------------------------------------------------------------------------------------------
 *
 * For hosts that build or inspect frames themselves: STX, text, one checksum byte, ETX. The SAT functions
 * need none of this.
 */

enum {
  TALVEX_STX = 0x02, /* start of a frame */
  TALVEX_ETX = 0x03, /* end of a frame */
  TALVEX_ACK = 0x06, /* block or frame accepted */
  TALVEX_NAK = 0x15  /* frame refused */
};

/* Checksum: the bytes added modulo 256, 0x04 in the place of 0x03.
 *   pBuf     Terminated by NUL. An STX at its start is not added.
 *   iBufLen  Bytes from the start of pBuf to add up, an STX counted; at least 1 and at least the length of
 *            the text less 3. All of them must be readable; a checksum or an ETX among them is added too.
 * Returns the checksum; 0, with a trace line, for a null pBuf, for an iBufLen that is too small, and for a
 * text of fewer than 3 characters; 0 for a negative iBufLen, without one. A true checksum can be 0 too. */
TALVEX_API unsigned char SAT_API_CalcCkeckSum(const unsigned char* pBuf, int iBufLen);

/* Builds a frame.
 *   pSatMsg      Message, terminated by NUL. With an STX in front, checksum and ETX are appended to it.
 *                Without one it must end with two zero bytes, which checksum and ETX replace, and an STX is
 *                put in front.
 *   iSatMsgLen   Its length in bytes, STX or the two zero bytes included.
 *   pSatPkt      Receives the frame. Caller's, at least iSatMsgLen + 2 bytes.
 *   piSatPktLen  Receives the frame's length.
 * Returns the frame's length: iSatMsgLen + 2 with an STX, iSatMsgLen + 1 without. -1, with nothing written,
 * for a null pointer and for a length that is negative, or 0 without an STX. */
TALVEX_API int SAT_API_CreatePacket(const unsigned char* pSatMsg, int iSatMsgLen, unsigned char* pSatPkt,
                                    int* piSatPktLen);

/* Reserved. Returns -1 for every input, null included. */
TALVEX_API int SAT_API_DecodeSatCmd(const unsigned char* pSatCmdParam, int iLen);

/* Bytes as upper-case hexadecimal digits, two for each, without separators.
 *   pBuf  Null gives "".
 *   iLen  Bytes to show. Only the first 2,044 are; a length of 0 or less gives "".
 * Returns a buffer of the library that the next call overwrites. */
TALVEX_API const char* ShowHex(const unsigned char* pBuf, int iLen);

/* Write the fields of a command or reply frame to the trace log, one line (level 4) each.
 *   pSatCmdPkt, pSatRspPkt  Frame or part of one, terminated by NUL. Not modified.
 *   iLen                    Its length in bytes. Two more than the text's when the checksum is 0x00, which
 *                           ends the text: those two must be readable then.
 * Return one more than the number of the last field, or that number when the frame ends in an empty field or
 * its checksum looks like one ('|'); 0 for a null pointer, a text without any field, and when memory runs
 * out. */
TALVEX_API unsigned int SAT_API_CmdPktParcer(const char* pSatCmdPkt, int iLen);
TALVEX_API unsigned int SAT_API_RspPktParcer(const char* pSatRspPkt, int iLen);

/* ---- Application messages ------------------------------------------------------------------------------ */

enum {
  TALVEX_APP_NO_SEPARATOR = -1101, /* no "|" in the text: a failure text of the library, not a reply */
  TALVEX_APP_NO_MEMORY = -1102
};

/* Writes the fields of a command text ("Name|session|...", without control bytes) to the trace log.
 *   pUnused  Ignored.
 *   SatArgs  The text. Not modified.
 * Returns one more than the number of the last field; 0 for null, a text without any field, and when memory
 * runs out. Empty fields are counted at the beginning and behind fields of one character. */
TALVEX_API unsigned int SAT_APP_CmdParcer(const void* pUnused, const char* SatArgs);

/* Writes the fields of a reply to the trace log, checks its session number and reads its return code.
 *   pSatCmdName         Name of the SAT function that was called. Null is an empty name.
 *   uiCmdSession        Session number that was sent.
 *   puiLastSaleSession  Receives uiCmdSession when the sessions match and the function is EnviarDadosVenda,
 *                       CancelarUltimaVenda or TesteFimAFim; else untouched.
 *   puiRspSession       Receives the reply's session number.
 *   puiEEEEE            Receives the reply's return code; untouched when the sessions differ.
 *   pSatResult          The text that the SAT function returned. Not modified.
 * Output pointers may be null and are then skipped.
 * Returns the return code (EEEEE) of the reply. 0 for a null or empty text, for the version text, for a text
 * of separators only, and when the sessions differ, except for ConsultarUltimaSessaoFiscal, whose reply
 * carries an earlier session's number. TALVEX_APP_NO_SEPARATOR, TALVEX_APP_NO_MEMORY. */
TALVEX_API int SAT_APP_RspParcer(const char* pSatCmdName, uint32_t uiCmdSession, uint32_t* puiLastSaleSession,
                                 uint32_t* puiRspSession, uint32_t* puiEEEEE, const char* pSatResult);

/* Draws a number from 0 to n - 1, for session numbers: SAT_APP_GenRndNum(100000). Not for secrets.
 *   n  Not 0: SAT_APP_GenRndNum(0) divides by zero, which ends the process (SIGFPE).
 * Seeds rand(3) of the process with the time of day in milliseconds: two calls in the same millisecond return
 * the same number. */
TALVEX_API uint32_t SAT_APP_GenRndNum(uint32_t n);

/* Reserved. Releases nothing and returns -1; the library hands out nothing that must be released. */
TALVEX_API int SAT_Free_AllocedMsg(void* pMsg);

/* ---- INI files --------------------------------------------------------------------------------------------
 *
 * A section begins at the first "[name]" anywhere in the file and ends at the next "[". An item is the first
 * place in it where the item's name occurs, be it inside a longer name. Upper and lower case differ.
 *   pIniFileName  Path of the file.
 *   pSession      Section, without brackets.
 *   pItem         Item.
 * Names and values stay the caller's. Every call reads the file, and writers rewrite it, without a lock.
 * Files of more than 64 MiB are refused as if there were no memory for them.
 */

/* Size in bytes of the value buffer that a reader must give. */
#define TALVEX_INI_VALUE_SIZE 128

enum {
  TALVEX_INI_FOUND = 0,        /* reader */
  TALVEX_INI_UNCHANGED = 0,    /* writer: the item has this value already */
  TALVEX_INI_SECTION_ONLY = 2, /* writer: no item was given; the section was there or has been added */
  TALVEX_INI_CREATED = 4,      /* writer: the section, or the file, was added with its item */
  TALVEX_INI_CHANGED = 5,      /* writer: the item has been changed or blanked */
  TALVEX_INI_ITEM_ADDED = 7,   /* writer: the item was added to a section */
  TALVEX_INI_NO_VALUE = 8,     /* writer: no value was given for an item that is not there */
  TALVEX_INI_ERR_INVALID_PARAM = -300,
  TALVEX_INI_ERR_NOT_FOUND = -301, /* no such file, or it is empty; writer: it cannot be rewritten */
  TALVEX_INI_ERR_OPEN = -302,      /* reader: the file cannot be read, or the value is too long */
  TALVEX_INI_ERR_SECTION_NOT_FOUND = -304,
  TALVEX_INI_ERR_ITEM_NOT_FOUND = -305,
  TALVEX_INI_ERR_CREATE = -401 /* writer: the file cannot be made or read, or a line is too long */
};

/* Reads a value: the rest of the line behind the item's name, without any "=" and any blank in it.
 *   pRetValue  Receives the value, up to 127 characters and a NUL. Caller's, at least TALVEX_INI_VALUE_SIZE
 *              bytes. Empty after a failure that comes later than the missing file.
 * Returns TALVEX_INI_FOUND, also for an empty value; TALVEX_INI_ERR_INVALID_PARAM for a null pointer; or
 * TALVEX_INI_ERR_NOT_FOUND, _OPEN, _SECTION_NOT_FOUND, _ITEM_NOT_FOUND. */
TALVEX_API int OLK_GetIniFileValue(const char* pIniFileName, const char* pSession, const char* pItem,
                                   char* pRetValue);

/* Adds or changes an item, and the section or the file if they are missing.
 *   pItem      Null: only the section is added. An empty item is found at the section's first character: not
 *              to be given.
 *   pNewValue  Null or empty: an item that is there is blanked, name and value.
 * A shorter value leaves blanks behind it. Lines may have up to 255 bytes.
 * An item is added cleanly only to the last section of a file: added to an earlier one it replaces everything
 * behind that section, and text in front of it is lost too. Write such files anew instead.
 * Returns a code of 0 or more from the list above; TALVEX_INI_ERR_INVALID_PARAM for a null file name or
 * section; or TALVEX_INI_ERR_NOT_FOUND, TALVEX_INI_ERR_CREATE. After TALVEX_INI_ERR_CREATE the file is
 * unchanged, unless the disk was full: then a part of what was to be added may stand at its end. After
 * TALVEX_INI_ERR_NOT_FOUND that may be so too, when an item was to be added to the last section; any other
 * change rewrites the file, and on a full disk leaves only the beginning of the new text, or nothing: keep a
 * copy. A file that cannot be opened for writing is unchanged in every case. */
TALVEX_API int OLK_SetIniFileValue(const char* pIniFileName, const char* pSession, const char* pItem,
                                   const char* pNewValue);

/* The same as OLK_SetIniFileValue. */
TALVEX_API int OLK_SetIniFileItemValue(const char* pIniFileName, const char* pSession, const char* pItem,
                                       const char* pNewValue);
TALVEX_API int OLK_AddIniFileItem(const char* pIniFileName, const char* pSession, const char* pItem,
                                  const char* pNewValue);

/* Adds a section: OLK_SetIniFileValue with a null item.
 *   pUnused  Ignored. */
TALVEX_API int OLK_AddIniFileSection(const char* pIniFileName, const char* pSession, const char* pUnused);

/* Removes nothing: it does what OLK_AddIniFileSection does, and returns TALVEX_INI_SECTION_ONLY. */
TALVEX_API int OLK_DelIniFileSection(const char* pIniFileName, const char* pSession);

/* Blanks an item, name and value: OLK_SetIniFileValue with a null value. The line stays, as blanks. */
TALVEX_API int OLK_DelIniFileItem(const char* pIniFileName, const char* pSession, const char* pItem);

/* ---- Files and directories --------------------------------------------------------------------------------
 *
 * Every answer is a snapshot. Links are followed to what they point to, except by the removals.
 */

/* Size of what the path names, in bytes, cut to 32 bits; -1 for null and for what cannot be examined.
 * stat(2). */
TALVEX_API int OLK_GetFileSize(const char* pFileName);

/* As OLK_GetFileSize, so 0 or more means that something is there, of any kind; -1 that nothing is. */
TALVEX_API int OLK_FileExist(const char* pFileName);

enum {
  TALVEX_EXIST_NULL = -1,
  TALVEX_EXIST_NOTHING = 0,
  TALVEX_EXIST_DIRECTORY = 1,
  TALVEX_EXIST_FILE = 2,
  TALVEX_EXIST_FIFO = 0x1000,
  TALVEX_EXIST_CHARACTER_DEVICE = 0x2000,
  TALVEX_EXIST_BLOCK_DEVICE = 0x6000,
  TALVEX_EXIST_SOCKET = 0xC000
};

/* What kind of thing the path names: TALVEX_EXIST_..., TALVEX_EXIST_NULL for a null path. */
TALVEX_API int OLK_Exist(const char* pDirFileName);

enum {
  TALVEX_CREATE_DIR_NULL = -1,
  TALVEX_CREATE_DIR_EXISTED = 1,
  TALVEX_CREATE_DIR_CREATED = 2,
  TALVEX_CREATE_DIR_OTHER_KIND = -4, /* something else has this name */
  TALVEX_CREATE_DIR_FAILED = -5      /* missing parent, no permission and the like */
};

/* Makes one directory, for its owner only (mode 0700), not its parents: TALVEX_CREATE_DIR_... */
TALVEX_API int OLK_CreateDir(const char* pDirName);

enum {
  TALVEX_DELETE_NOTHING = 0, /* null, or nothing there */
  TALVEX_DELETE_DONE = 1,
  TALVEX_DELETE_DIRECTORY_STAYS = -1, /* a directory is there still, or now */
  TALVEX_DELETE_OTHER_KIND = -2,      /* not a directory, or not a regular file; nothing was removed */
  TALVEX_DELETE_FILE_STAYS = 3        /* something that is no directory is there still, or now */
};

/* Remove a directory with all that is in it, or a regular file. A link is removed itself, never what it
 * points to. Paths of more than 249 characters, "." and ".." are refused: nothing is removed and the answer
 * says that it stays.
 * Return TALVEX_DELETE_... */
TALVEX_API int OLK_DeleteDir(const char* pDirName);
TALVEX_API int OLK_DeleteFile(const char* pFileName);

/* ---- Taxpayer numbers ---------------------------------------------------------------------------------- */

enum {
  TALVEX_CNPJ_NULL = -3001,
  TALVEX_CNPJ_BAD_FORMATTED = -3002,  /* 18 characters, one of them no digit and no "." "/" "-" */
  TALVEX_CNPJ_NOT_NUMERIC = -3003,    /* 14 characters, one of them no digit */
  TALVEX_CNPJ_TOO_SHORT = -3004,      /* fewer than 14 characters, or than 18 with a "." */
  TALVEX_CNPJ_TOO_LONG = -3005,       /* more than 14 characters, or than 18 with a "." */
  TALVEX_CNPJ_BAD_LENGTH = -3006,     /* reserved */
  TALVEX_CHECK_DIGITS_DIFFER = -3007, /* CNPJ and CPF */
  TALVEX_CPF_NULL = -3011,
  TALVEX_CPF_BAD_FORMATTED = -3012,  /* 14 characters, one of them no digit and no "." "-" */
  TALVEX_CPF_NOT_NUMERIC = -3013,    /* 11 characters, one of them no digit */
  TALVEX_CPF_TOO_SHORT = -3014,      /* fewer than 11 characters, or than 14 with a "." */
  TALVEX_CPF_TOO_LONG = -3015,       /* more than 11 characters, or than 14 with a "." */
  TALVEX_CPF_BAD_LENGTH = -3016,     /* reserved */
  TALVEX_CPF_BAD_DIGIT_COUNT = -3017 /* not 11 digits in a formatted number */
};

/* Checks a company number: "11222333000181" or "11.222.333/0001-81". Of a formatted number only the digits
 * count, at whatever places; missing ones count as 0, those behind the 14th do not count.
 * The weighted sum is kept in 8 bits. Numbers whose sum passes 255 get other check digits than the Receita
 * Federal's: 99999999999917 passes, 99999999999962 does not.
 * Returns 0 when the check digits are right, or TALVEX_CNPJ_..., TALVEX_CHECK_DIGITS_DIFFER. */
TALVEX_API int OLK_Check_CNPJ(const char* pCNPJ);

/* Checks a person's number by the rule of the Receita Federal: "12345678909" or "123.456.789-09". Eleven
 * equal digits are not refused.
 * Returns 0 when the check digits are right, or TALVEX_CPF_..., TALVEX_CHECK_DIGITS_DIFFER. */
TALVEX_API int OLK_Check_CPF(const char* pCPF);

/* Computes one check digit of a CPF.
 *   pCPF     Eleven characters, the check digits included. They are taken as digits without being checked.
 *   iWeight  10 for the first check digit, 11 for the second, which counts the first one as it stands in
 *            pCPF.
 * Returns 0 to 9; TALVEX_CPF_BAD_DIGIT_COUNT for null and for another length. */
TALVEX_API int OLK_GetCPFCheckDigit(const char* pCPF, int iWeight);

/* ---- Base64 -----------------------------------------------------------------------------------------------
 *
 * RFC 4648, section 4: standard alphabet, "=" padding, no line breaks. A result that does not fit an int is
 * returned as INT32_MAX; the output length is exact. Input and output buffers are the caller's.
 */

enum {
  TALVEX_BASE64_ENCODER_FAILED = -1,
  TALVEX_BASE64_INVALID_PARAMETER = -101,
  TALVEX_BASE64_NO_TABLE = -103
};

/* Encodes.
 *   pBinIn        Bytes to encode; null is refused.
 *   ztBinInLen    Their number, at least 1.
 *   pB64Out       Receives the text and a NUL: 4 * ((ztBinInLen + 2) / 3) + 1 bytes. Null: only the length is
 *                 told.
 *   pztB64OutLen  Receives the text's length, without the NUL; 0 when only a length was asked for and memory
 *                 for such a text is not to be had. Null is refused.
 * Returns the text's length, or TALVEX_BASE64_ENCODER_FAILED. */
TALVEX_API int OLK_Base64Encoder(const unsigned char* pBinIn, uint64_t ztBinInLen, char* pB64Out,
                                 uint64_t* pztB64OutLen);

/* Decodes. Characters outside the alphabet count as "A". A length that is no multiple of 4 gets a trace line;
 * the incomplete last group is left out.
 *   pBase64In      Text; needs no NUL.
 *   ztBase64InLen  Its length.
 *   pBinOutData    Receives the bytes and a NUL: 3 * (ztBase64InLen / 4) + 1 bytes. Zero it first, or let it
 *                  be the text itself: a "=" that lies in it at some index blanks the text's character at
 *                  that index.
 *   pztBinOutLen   Receives the number of bytes: 3 * (ztBase64InLen / 4), less one each for a "=" in the last
 *                  place and in the place before it.
 * Returns the number of bytes; TALVEX_BASE64_INVALID_PARAMETER for a null pointer; TALVEX_BASE64_NO_TABLE
 * when memory runs out. psB64_DecTable is released in every case. */
TALVEX_API int OLK_Base64Decoder(const char* pBase64In, uint64_t ztBase64InLen, unsigned char* pBinOutData,
                                 uint64_t* pztBinOutLen);

/* Makes psB64_DecTable, or fills it anew. Not needed: the decoder does it. Returns 0, or -1 when memory runs
 * out. */
TALVEX_API int OLK_Base64DecTblAlloc(void);

/* Releases psB64_DecTable. Returns 0, or 1 when there was none. */
TALVEX_API int OLK_Base64DecTblFree(void);

/* Encodes and decodes a text and prints each step to standard output and the trace log. Returns 24, the
 * length of the text, or a negative code of the encoder or decoder. */
TALVEX_API int OLK_Base64_Test01(void);

/* The alphabet, by value; not terminated. */
extern TALVEX_API const char pB64_EncTable[64];

/* Number of "=" characters, by input length modulo 3: 0, 2, 1. */
extern TALVEX_API const int32_t mod_table[3];

/* The reverse table, 256 values by character, or null. The library's: it is made and released by the
 * functions above, and every decode ends by releasing it. */
extern TALVEX_API unsigned char* psB64_DecTable;

/* ---- IBGE state tables ------------------------------------------------------------------------------------
 *
 * The 26 states and the Federal District by their IBGE codes. Returned texts are constants of the library.
 */

enum { TALVEX_IBGE_NOT_FOUND = -1 };

/* IBGE code of a state.
 *   pStateName  Its name in upper case without accents, "SAO PAULO"; compared byte by byte.
 * Returns the code, 11 to 53, or TALVEX_IBGE_NOT_FOUND, also for null. */
TALVEX_API int SAT_Get_IBGH_UF_Code(const char* pStateName);

/* Abbreviation ("SP"), name ("SAO PAULO") and region ("SUDESTE") of a state by its IBGE code (35); null for
 * any other code. The regions: "NORTE", "NORDESTE", "SUDESTE", "SUL", "CENTROESTE". */
TALVEX_API const char* SAT_Get_IBGE_UF_Name(uint32_t iUfCode);
TALVEX_API const char* SAT_Get_IBGE_EstateName(uint32_t iUfCode);
TALVEX_API const char* SAT_Get_IBGE_RegionName(uint32_t iUfCode);

/* ---- Trace log --------------------------------------------------------------------------------------------
 *
 * Levels: 1 errors, 2 warnings, 4 information, 8 trace, 16 JNI, 32 debug. A line is written when any flag
 * below lets its level through; level 32 is never let through. Zero is off, any other value on. All are off
 * when the library is loaded, and all are cleared whenever the configuration is read; then item "LogMode" of
 * section "LOG" sets one of them, with 0 none. A host may set them itself, between calls.
 */

extern TALVEX_API int64_t bErrorLogsEnabled;    /* level 1; LogMode=1 */
extern TALVEX_API int64_t bWarningLogsEnabled;  /* levels 1, 2; LogMode=2 */
extern TALVEX_API int64_t bMessageLogsEnabled;  /* levels 1, 2, 4; set by hosts only */
extern TALVEX_API int64_t bInfoLogsEnabled;     /* levels 1, 2, 4; LogMode=3 */
extern TALVEX_API int64_t bTraceLogsEnabled;    /* levels 1, 2, 4, 8; LogMode=4 */
extern TALVEX_API int64_t bJniTraceLogsEnabled; /* level 16; set by hosts only */
extern TALVEX_API int64_t bDebugLogsEnabled;    /* levels 1, 2, 4, 8, 16; LogMode=5 */

/* Also prints lines to standard output: those of levels 1, 2 and 4 whose own flag (error, warning, info) is
 * set, all with bTraceLogsEnabled. Set by hosts only. */
extern TALVEX_API int64_t bConsoleLogsEnabled;

/* The trace log's configuration as it stands. To be read, not written. */
typedef struct TalvexLogConfiguration {
  uint8_t ucInitMark;       /* 0xAA once set up */
  int32_t iLogFileMaxSize;  /* bytes; a larger trace file is renamed to a backup */
  uint64_t ulSetUpTime;     /* milliseconds since the epoch, wall clock */
  uint8_t ucModeMask;       /* levels by LogMode: 0, 1, 3, 7, 15 or 31; 0 switches the protocol log off too */
  char strLogFilePath[512]; /* directory of trace and protocol log */
  char strLogFileName[512]; /* name of the watched file, behind its date */
  uint8_t ucInitTail;       /* 0xAA once set up */
} TalvexLogConfiguration;
extern TALVEX_API TalvexLogConfiguration tLog;

/* ---- Size control -----------------------------------------------------------------------------------------
 *
 * Every SAT call keeps the logs within their sizes. Only a host that stays long without a call may want more.
 */

/* Checks the sizes of the logs every 5 s. Never returns. Runs, if at all, on a thread of its own; it may then
 * close the protocol log while another thread writes a frame to it. */
TALVEX_API void LogSzCtlTherad(void);

/* -1. The library never changes it. While a host sets it to the descriptor of its port (neither 0 nor -1),
 * the loop above waits up to 100 s for the end of a long command before it checks. */
extern TALVEX_API int gl_hComm;

#ifdef __cplusplus
}
#endif

#endif
