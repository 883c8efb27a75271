"""Talvex from Python: every function and datum of libtalvex.so, with the standard library alone.

    sat = Talvex("libtalvex.so.2")
    session = sat.draw_session()
    reply = sat.EnviarDadosVenda(session, "12345678", sale_xml)
    if reply.settles(session, SALE) == ISSUED:
        print(reply.fields["chaveConsulta"])

A sale or cancellation that is neither ISSUED nor REFUSED nor NOT_SENT is UNKNOWN, and must not be sent again before
find_out has said what became of it.

Methods and attributes keep the names of talvex.h, which says what each of them does. What differs:

- Texts are str (UTF-8; other bytes survive as surrogate escapes) or bytes; None is the null pointer.
- SAT functions return a Reply, a copy that the next call does not touch.
- Functions with output pointers return a tuple: the result, then what they wrote.
- Calls from several Python threads are put in a row: the library takes one at a time.

The library keeps SAT.ini and its logs in the working directory, and prints a diagnostic line to standard output
now and then (the C stream, which is flushed at exit when it is a file or pipe).
"""

import ctypes
import re
import threading
from ctypes import (POINTER, byref, c_char, c_char_p, c_int, c_int32, c_int64, c_ubyte, c_uint, c_uint8, c_uint32,
                    c_uint64, c_void_p, create_string_buffer)

FAILURE_PREFIX = "SAT Erro["

# The first two digits of the return codes of EnviarDadosVenda and CancelarUltimaVenda.
SALE, CANCELLATION = "06", "07"

# What a reply to a sale or cancellation settles.
ISSUED = "issued"      # the receipt, or the cancellation's, is there
REFUSED = "refused"    # nothing was issued
NOT_SENT = "not sent"  # nothing was sent: another process holds the port; call again
UNKNOWN = "unknown"    # the device may have done it: find out
NOT_ISSUED = "not issued"  # what find_out may say beside ISSUED, REFUSED and UNKNOWN
INI_VALUE_SIZE = 128

_COMMON = ("numeroSessao", "EEEEE", "mensagem", "cod", "mensagemSEFAZ")
_RECEIPT = ("numeroSessao", "EEEEE", "CCCC", "mensagem", "cod", "mensagemSEFAZ", "arquivoCFeBase64", "timeStamp",
            "chaveConsulta", "valorTotalCFe", "CPFCNPJValue", "assinaturaQRCODE")

# Names of the fields of a reply, by the first two digits of its return code. The code decides and not the function
# that was called: ConsultarNumeroSessao and ConsultarUltimaSessaoFiscal answer with the reply of another one.
FIELDS = {
    "04": _COMMON + ("CSR",),
    "06": _RECEIPT,
    "07": _RECEIPT,
    "09": _COMMON + ("arquivoCFeBase64", "timeStamp", "numDocFiscal", "chaveConsulta"),
    "10": _COMMON + ("NSERIE", "TIPO_LAN", "LAN_IP", "LAN_MAC", "LAN_MASK", "LAN_GW", "LAN_DNS_1", "LAN_DNS_2",
                     "STATUS_LAN", "NIVEL_BATERIA", "MT_TOTAL", "MT_USADA", "DH_ATUAL", "VER_SB", "VER_LAYOUT",
                     "ULTIMO_CF_E_SAT", "LISTA_INICIAL", "LISTA_FINAL", "DH_CFE", "DH_ULTIMA", "CERT_EMISSAO",
                     "CERT_VENCIMENTO", "ESTADO_OPERACAO"),
    "15": _COMMON + ("arquivoLog",),
}


class Reply:
    """What a SAT function returned."""

    def __init__(self, text):
        self.text = text
        #: Code of a failure text (-2000: no device, ...), or None for a reply.
        self.failure = None
        #: The fields by their names; those beyond the known ones are called field13, field14 and so on.
        self.fields = {}
        if text.startswith(FAILURE_PREFIX):
            self.failure = int(text[len(FAILURE_PREFIX):].split("]")[0])
            return
        values = text.split("|")
        names = FIELDS.get(values[1][:2], _COMMON) if len(values) > 1 else _COMMON
        for index, value in enumerate(values):
            self.fields[names[index] if index < len(names) else "field%d" % (index + 1)] = value

    @property
    def session(self):
        """The reply's session number, or None."""
        digits = self.fields.get("numeroSessao", "")
        return int(digits) if digits.lstrip("-").isdigit() else None

    @property
    def code(self):
        """The return code, five digits, or None."""
        return self.fields.get("EEEEE")

    @property
    def busy(self):
        """Whether the device was busy. Only for functions that sell and cancel nothing: see settles."""
        return bool(self.code) and self.code.endswith("098")

    def settles(self, session, prefix):
        """What this reply settles of the sale (prefix SALE) or CANCELLATION with that session number.

        xx097 to xx099 are no refusals: where the line spoils an acknowledgement, the library sends the command again,
        and they are the device's answers to a repetition of what it has carried out. Only the library's own busy reply
        has a session number without leading zeros, which shows as long as numbers are below 100000.
        """
        if self.session != session or not re.fullmatch(prefix + "[0-9]{3}", self.code or ""):
            return UNKNOWN
        if self.code == prefix + "000":
            return ISSUED
        if self.code.endswith("098") and self.fields["numeroSessao"] == str(session) and session < 100000:
            return NOT_SENT
        return UNKNOWN if self.code.endswith(("097", "098", "099")) else REFUSED

    def __str__(self):
        return self.text

    def __repr__(self):
        return "Reply(%r)" % self.text


class LogConfiguration(ctypes.Structure):
    """TalvexLogConfiguration: the trace log's configuration as it stands."""

    _fields_ = [("ucInitMark", c_uint8), ("iLogFileMaxSize", c_int32), ("ulSetUpTime", c_uint64),
                ("ucModeMask", c_uint8), ("strLogFilePath", c_char * 512), ("strLogFileName", c_char * 512),
                ("ucInitTail", c_uint8)]


_TEXT = c_char_p
_BYTES = POINTER(c_ubyte)
_OUT_U32 = POINTER(c_uint32)
_OUT_U64 = POINTER(c_uint64)

# Result and arguments of every exported function. c_char_p as a result copies the text.
SIGNATURES = {
    "AtivarSAT": (_TEXT, c_int, c_int, _TEXT, _TEXT, c_int),
    "ComunicarCertificadoICPBRASIL": (_TEXT, c_int, _TEXT, _TEXT),
    "EnviarDadosVenda": (_TEXT, c_int, _TEXT, _TEXT),
    "CancelarUltimaVenda": (_TEXT, c_int, _TEXT, _TEXT, _TEXT),
    "ConsultarSAT": (_TEXT, c_int),
    "TesteFimAFim": (_TEXT, c_int, _TEXT, _TEXT),
    "ConsultarStatusOperacional": (_TEXT, c_int, _TEXT),
    "ConsultarNumeroSessao": (_TEXT, c_int, _TEXT, c_int),
    "ConfigurarInterfaceDeRede": (_TEXT, c_int, _TEXT, _TEXT),
    "AssociarAssinatura": (_TEXT, c_int, _TEXT, _TEXT, _TEXT),
    "AtualizarSoftwareSAT": (_TEXT, c_int, _TEXT),
    "ExtrairLogs": (_TEXT, c_int, _TEXT),
    "BloquearSAT": (_TEXT, c_int, _TEXT),
    "DesbloquearSAT": (_TEXT, c_int, _TEXT),
    "TrocarCodigoDeAtivacao": (_TEXT, c_int, _TEXT, c_int, _TEXT, _TEXT),
    "ConsultarUltimaSessaoFiscal": (_TEXT, c_int, _TEXT),
    "VersaoDllTalvex": (_TEXT,),
    "SAT_GetRetCodeMsg": (_TEXT, c_int, _TEXT),
    "SAT_API_CalcCkeckSum": (c_ubyte, _TEXT, c_int),
    "SAT_API_CreatePacket": (c_int, _TEXT, c_int, _BYTES, POINTER(c_int)),
    "SAT_API_DecodeSatCmd": (c_int, _TEXT, c_int),
    "ShowHex": (_TEXT, _TEXT, c_int),
    "SAT_API_CmdPktParcer": (c_uint, _TEXT, c_int),
    "SAT_API_RspPktParcer": (c_uint, _TEXT, c_int),
    "SAT_APP_CmdParcer": (c_uint, c_void_p, _TEXT),
    "SAT_APP_RspParcer": (c_int, _TEXT, c_uint32, _OUT_U32, _OUT_U32, _OUT_U32, _TEXT),
    "SAT_APP_GenRndNum": (c_uint32, c_uint32),
    "SAT_Free_AllocedMsg": (c_int, c_void_p),
    "OLK_GetIniFileValue": (c_int, _TEXT, _TEXT, _TEXT, _TEXT),
    "OLK_SetIniFileValue": (c_int, _TEXT, _TEXT, _TEXT, _TEXT),
    "OLK_SetIniFileItemValue": (c_int, _TEXT, _TEXT, _TEXT, _TEXT),
    "OLK_AddIniFileItem": (c_int, _TEXT, _TEXT, _TEXT, _TEXT),
    "OLK_AddIniFileSection": (c_int, _TEXT, _TEXT, _TEXT),
    "OLK_DelIniFileSection": (c_int, _TEXT, _TEXT),
    "OLK_DelIniFileItem": (c_int, _TEXT, _TEXT, _TEXT),
    "OLK_GetFileSize": (c_int, _TEXT),
    "OLK_FileExist": (c_int, _TEXT),
    "OLK_Exist": (c_int, _TEXT),
    "OLK_CreateDir": (c_int, _TEXT),
    "OLK_DeleteDir": (c_int, _TEXT),
    "OLK_DeleteFile": (c_int, _TEXT),
    "OLK_Check_CNPJ": (c_int, _TEXT),
    "OLK_Check_CPF": (c_int, _TEXT),
    "OLK_GetCPFCheckDigit": (c_int, _TEXT, c_int),
    "OLK_Base64Encoder": (c_int, _TEXT, c_uint64, _TEXT, _OUT_U64),
    "OLK_Base64Decoder": (c_int, _TEXT, c_uint64, _BYTES, _OUT_U64),
    "OLK_Base64DecTblAlloc": (c_int,),
    "OLK_Base64DecTblFree": (c_int,),
    "OLK_Base64_Test01": (c_int,),
    "SAT_Get_IBGH_UF_Code": (c_int, _TEXT),
    "SAT_Get_IBGE_UF_Name": (_TEXT, c_uint32),
    "SAT_Get_IBGE_EstateName": (_TEXT, c_uint32),
    "SAT_Get_IBGE_RegionName": (_TEXT, c_uint32),
    "LogSzCtlTherad": (None,),
}

# Type of every exported datum.
DATA = {
    "bErrorLogsEnabled": c_int64,
    "bWarningLogsEnabled": c_int64,
    "bMessageLogsEnabled": c_int64,
    "bInfoLogsEnabled": c_int64,
    "bTraceLogsEnabled": c_int64,
    "bJniTraceLogsEnabled": c_int64,
    "bDebugLogsEnabled": c_int64,
    "bConsoleLogsEnabled": c_int64,
    "tLog": LogConfiguration,
    "gl_hComm": c_int,
    "pB64_EncTable": c_char * 64,
    "mod_table": c_int32 * 3,
    "psB64_DecTable": _BYTES,
}


def _encode(text):
    return text.encode("utf-8", "surrogateescape") if isinstance(text, str) else text


def _decode(data):
    return None if data is None else data.decode("utf-8", "surrogateescape")


def _number(name):
    """A number of the library as an attribute that can be read and set."""
    return property(lambda self: self.data[name].value, lambda self, value: setattr(self.data[name], "value", value))


class Talvex:
    """The library, loaded. One object per process is enough: all of them share the library's one state."""

    bErrorLogsEnabled = _number("bErrorLogsEnabled")
    bWarningLogsEnabled = _number("bWarningLogsEnabled")
    bMessageLogsEnabled = _number("bMessageLogsEnabled")
    bInfoLogsEnabled = _number("bInfoLogsEnabled")
    bTraceLogsEnabled = _number("bTraceLogsEnabled")
    bJniTraceLogsEnabled = _number("bJniTraceLogsEnabled")
    bDebugLogsEnabled = _number("bDebugLogsEnabled")
    bConsoleLogsEnabled = _number("bConsoleLogsEnabled")
    gl_hComm = _number("gl_hComm")

    _one_at_a_time = threading.RLock()

    def __init__(self, library="libtalvex.so.2"):
        self.library = ctypes.CDLL(library)
        for name, (result, *arguments) in SIGNATURES.items():
            function = getattr(self.library, name)
            function.restype = result
            function.argtypes = arguments
        self.data = {name: kind.in_dll(self.library, name) for name, kind in DATA.items()}

    def _call(self, name, *arguments):
        with self._one_at_a_time:
            result = getattr(self.library, name)(*(_encode(argument) for argument in arguments))
        return _decode(result) if isinstance(result, bytes) else result

    def _sat(self, name, *arguments):
        return Reply(self._call(name, *arguments))

    def draw_session(self):
        """A session number for the next call, below 100000: see Reply.settles."""
        return self.SAT_APP_GenRndNum(100000)

    def find_out(self, session, prefix, codigoDeAtivacao, key_before):
        """What became of a sale or cancellation whose reply was UNKNOWN: (what, the reply that says so).

        key_before is the access key of the last receipt that was known before the call, "" if there was none.
        """
        def new_receipt(reply):
            key = reply.fields.get("chaveConsulta")
            return reply.settles(session, prefix) == ISSUED and key != key_before

        query = (session + 1) % 100000
        stored = self.ConsultarNumeroSessao(query, codigoDeAtivacao, session)
        if new_receipt(stored):
            return ISSUED, stored
        if stored.settles(session, prefix) == REFUSED:
            return REFUSED, stored
        # Only a device that was asked, and knows nothing of the call, is asked for its last receipt.
        if stored.session != session and stored.code not in ("11003", "11099"):
            return UNKNOWN, stored

        last = self.ConsultarUltimaSessaoFiscal((query + 1) % 100000, codigoDeAtivacao)
        if new_receipt(last):
            return ISSUED, last
        if last.settles(session, prefix) == REFUSED:
            return REFUSED, last
        unchanged = last.fields.get("chaveConsulta") == key_before if key_before else last.code == "19003"
        return (NOT_ISSUED if unchanged else UNKNOWN), last

    # SAT functions

    def AtivarSAT(self, numeroSessao, subComando, codigoDeAtivacao, CNPJ, cUF):
        return self._sat("AtivarSAT", numeroSessao, subComando, codigoDeAtivacao, CNPJ, cUF)

    def ComunicarCertificadoICPBRASIL(self, numeroSessao, codigoDeAtivacao, certificado):
        return self._sat("ComunicarCertificadoICPBRASIL", numeroSessao, codigoDeAtivacao, certificado)

    def EnviarDadosVenda(self, numeroSessao, codigoDeAtivacao, dadosVenda):
        return self._sat("EnviarDadosVenda", numeroSessao, codigoDeAtivacao, dadosVenda)

    def CancelarUltimaVenda(self, numeroSessao, codigoDeAtivacao, chave, dadosCancelamento):
        return self._sat("CancelarUltimaVenda", numeroSessao, codigoDeAtivacao, chave, dadosCancelamento)

    def ConsultarSAT(self, numeroSessao):
        return self._sat("ConsultarSAT", numeroSessao)

    def TesteFimAFim(self, numeroSessao, codigoDeAtivacao, dadosVenda):
        return self._sat("TesteFimAFim", numeroSessao, codigoDeAtivacao, dadosVenda)

    def ConsultarStatusOperacional(self, numeroSessao, codigoDeAtivacao):
        return self._sat("ConsultarStatusOperacional", numeroSessao, codigoDeAtivacao)

    def ConsultarNumeroSessao(self, numeroSessao, codigoDeAtivacao, cNumeroDeSessao):
        return self._sat("ConsultarNumeroSessao", numeroSessao, codigoDeAtivacao, cNumeroDeSessao)

    def ConfigurarInterfaceDeRede(self, numeroSessao, codigoDeAtivacao, dadosConfiguracao):
        return self._sat("ConfigurarInterfaceDeRede", numeroSessao, codigoDeAtivacao, dadosConfiguracao)

    def AssociarAssinatura(self, numeroSessao, codigoDeAtivacao, CNPJvalue, assinaturaCNPJs):
        return self._sat("AssociarAssinatura", numeroSessao, codigoDeAtivacao, CNPJvalue, assinaturaCNPJs)

    def AtualizarSoftwareSAT(self, numeroSessao, codigoDeAtivacao):
        return self._sat("AtualizarSoftwareSAT", numeroSessao, codigoDeAtivacao)

    def ExtrairLogs(self, numeroSessao, codigoDeAtivacao):
        return self._sat("ExtrairLogs", numeroSessao, codigoDeAtivacao)

    def BloquearSAT(self, numeroSessao, codigoDeAtivacao):
        return self._sat("BloquearSAT", numeroSessao, codigoDeAtivacao)

    def DesbloquearSAT(self, numeroSessao, codigoDeAtivacao):
        return self._sat("DesbloquearSAT", numeroSessao, codigoDeAtivacao)

    def TrocarCodigoDeAtivacao(self, numeroSessao, codigoDeAtivacao, opcao, novoCodigo, confNovoCodigo):
        return self._sat("TrocarCodigoDeAtivacao", numeroSessao, codigoDeAtivacao, opcao, novoCodigo, confNovoCodigo)

    def ConsultarUltimaSessaoFiscal(self, numeroSessao, codigoDeAtivacao):
        return self._sat("ConsultarUltimaSessaoFiscal", numeroSessao, codigoDeAtivacao)

    def VersaoDllTalvex(self):
        return self._call("VersaoDllTalvex")

    # Return codes

    def SAT_GetRetCodeMsg(self, code, text=None):
        """The message; for a negative code the text, which the library shortens in a copy."""
        buffer = None if text is None else create_string_buffer(_encode(text))
        return self._call("SAT_GetRetCodeMsg", code, None if buffer is None else ctypes.cast(buffer, c_char_p))

    # Frames. Bytes go in and out here; an input that ends in NUL bytes keeps them.

    def SAT_API_CalcCkeckSum(self, pBuf, iBufLen=None):
        length = len(_encode(pBuf or b"")) if iBufLen is None else iBufLen
        return self._call("SAT_API_CalcCkeckSum", pBuf, length)

    def SAT_API_CreatePacket(self, pSatMsg):
        """(result, frame)"""
        message = _encode(pSatMsg)
        frame = (c_ubyte * (len(message or b"") + 2))()
        length = c_int(0)
        result = self._call("SAT_API_CreatePacket", message, len(message or b""), frame, byref(length))
        return result, bytes(frame[:length.value])

    def SAT_API_DecodeSatCmd(self, pSatCmdParam):
        return self._call("SAT_API_DecodeSatCmd", pSatCmdParam, len(_encode(pSatCmdParam or b"")))

    def ShowHex(self, pBuf):
        return self._call("ShowHex", pBuf, len(_encode(pBuf or b"")))

    def SAT_API_CmdPktParcer(self, pSatCmdPkt):
        return self._call("SAT_API_CmdPktParcer", pSatCmdPkt, len(_encode(pSatCmdPkt or b"")))

    def SAT_API_RspPktParcer(self, pSatRspPkt):
        return self._call("SAT_API_RspPktParcer", pSatRspPkt, len(_encode(pSatRspPkt or b"")))

    # Application messages

    def SAT_APP_CmdParcer(self, SatArgs):
        return self._call("SAT_APP_CmdParcer", None, SatArgs)

    def SAT_APP_RspParcer(self, pSatCmdName, uiCmdSession, pSatResult):
        """(result, last sale's session, reply's session, EEEEE); None for a value that was not written."""
        untouched = 0xFFFFFFFF
        values = [c_uint32(untouched) for _ in range(3)]
        pointers = [byref(value) for value in values]
        result = self._call("SAT_APP_RspParcer", pSatCmdName, uiCmdSession, *pointers, pSatResult)
        return (result, *(None if value.value == untouched else value.value for value in values))

    def SAT_APP_GenRndNum(self, n):
        if not 0 < n <= 0xFFFFFFFF:
            raise ValueError("a number from 1 to 4294967295 is needed: 0 would end the process")
        return self._call("SAT_APP_GenRndNum", n)

    def SAT_Free_AllocedMsg(self, pMsg=None):
        return self._call("SAT_Free_AllocedMsg", pMsg)

    # INI files

    def OLK_GetIniFileValue(self, pIniFileName, pSession, pItem):
        """(result, value)"""
        value = create_string_buffer(INI_VALUE_SIZE)
        result = self._call("OLK_GetIniFileValue", pIniFileName, pSession, pItem, ctypes.cast(value, c_char_p))
        return result, _decode(value.value)

    def OLK_SetIniFileValue(self, pIniFileName, pSession, pItem, pNewValue):
        return self._call("OLK_SetIniFileValue", pIniFileName, pSession, pItem, pNewValue)

    def OLK_SetIniFileItemValue(self, pIniFileName, pSession, pItem, pNewValue):
        return self._call("OLK_SetIniFileItemValue", pIniFileName, pSession, pItem, pNewValue)

    def OLK_AddIniFileItem(self, pIniFileName, pSession, pItem, pNewValue):
        return self._call("OLK_AddIniFileItem", pIniFileName, pSession, pItem, pNewValue)

    def OLK_AddIniFileSection(self, pIniFileName, pSession):
        return self._call("OLK_AddIniFileSection", pIniFileName, pSession, None)

    def OLK_DelIniFileSection(self, pIniFileName, pSession):
        return self._call("OLK_DelIniFileSection", pIniFileName, pSession)

    def OLK_DelIniFileItem(self, pIniFileName, pSession, pItem):
        return self._call("OLK_DelIniFileItem", pIniFileName, pSession, pItem)

    # Files and directories

    def OLK_GetFileSize(self, pFileName):
        return self._call("OLK_GetFileSize", pFileName)

    def OLK_FileExist(self, pFileName):
        return self._call("OLK_FileExist", pFileName)

    def OLK_Exist(self, pDirFileName):
        return self._call("OLK_Exist", pDirFileName)

    def OLK_CreateDir(self, pDirName):
        return self._call("OLK_CreateDir", pDirName)

    def OLK_DeleteDir(self, pDirName):
        return self._call("OLK_DeleteDir", pDirName)

    def OLK_DeleteFile(self, pFileName):
        return self._call("OLK_DeleteFile", pFileName)

    # Taxpayer numbers

    def OLK_Check_CNPJ(self, pCNPJ):
        return self._call("OLK_Check_CNPJ", pCNPJ)

    def OLK_Check_CPF(self, pCPF):
        return self._call("OLK_Check_CPF", pCPF)

    def OLK_GetCPFCheckDigit(self, pCPF, iWeight):
        return self._call("OLK_GetCPFCheckDigit", pCPF, iWeight)

    # Base64

    def OLK_Base64Encoder(self, pBinIn):
        """(result, text)"""
        size = len(_encode(pBinIn or b""))
        text = create_string_buffer(4 * ((size + 2) // 3) + 1)
        length = c_uint64(0)
        result = self._call("OLK_Base64Encoder", pBinIn, size, ctypes.cast(text, c_char_p), byref(length))
        return result, _decode(text.value)

    def OLK_Base64Decoder(self, pBase64In):
        """(result, bytes)"""
        size = len(_encode(pBase64In or b""))
        decoded = (c_ubyte * (3 * (size // 4) + 1))()
        length = c_uint64(0)
        result = self._call("OLK_Base64Decoder", pBase64In, size, decoded, byref(length))
        return result, bytes(decoded[:length.value])

    def OLK_Base64DecTblAlloc(self):
        return self._call("OLK_Base64DecTblAlloc")

    def OLK_Base64DecTblFree(self):
        return self._call("OLK_Base64DecTblFree")

    def OLK_Base64_Test01(self):
        return self._call("OLK_Base64_Test01")

    # IBGE state tables

    def SAT_Get_IBGH_UF_Code(self, pStateName):
        return self._call("SAT_Get_IBGH_UF_Code", pStateName)

    def SAT_Get_IBGE_UF_Name(self, iUfCode):
        return self._call("SAT_Get_IBGE_UF_Name", iUfCode)

    def SAT_Get_IBGE_EstateName(self, iUfCode):
        return self._call("SAT_Get_IBGE_EstateName", iUfCode)

    def SAT_Get_IBGE_RegionName(self, iUfCode):
        return self._call("SAT_Get_IBGE_RegionName", iUfCode)

    # Data

    @property
    def tLog(self):
        """The trace log's configuration, a copy."""
        return LogConfiguration.from_buffer_copy(self.data["tLog"])

    @property
    def pB64_EncTable(self):
        return bytes(self.data["pB64_EncTable"]).decode("ascii")

    @property
    def mod_table(self):
        return tuple(self.data["mod_table"])

    @property
    def psB64_DecTable(self):
        """The 256 values, or None while there is no table."""
        table = self.data["psB64_DecTable"]
        return bytes(table[:256]) if table else None

    # Size control

    def LogSzCtlTherad(self):
        """Runs the library's endless size control on a daemon thread, and returns that thread."""
        thread = threading.Thread(target=self.library.LogSzCtlTherad, name="LogSzCtlTherad", daemon=True)
        thread.start()
        return thread
