"""Calls every function and reads every datum of libtalvex.so through talvex.py.

    TALVEX_LIBRARY=build/libtalvex.so SAT_EMULATOR=build/bin/sat-emulator python3 test_talvex.py
"""

import base64
import ctypes
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import talvex

HERE = os.path.dirname(os.path.abspath(__file__))
LIBRARY = os.path.abspath(os.environ["TALVEX_LIBRARY"])
EMULATOR = os.path.abspath(os.environ["SAT_EMULATOR"])
HEADER = os.path.join(HERE, "../../include/talvex/talvex.h")
SALE = os.path.join(HERE, "../venda.xml")
CODE = "12345678"

INI = """[SERIAL_PORT_CONFIG]
[SAT_TIMEOUT]
[SAT_EMULATOR]
SerialPortLinux=%s
Enable=1
[ARVOLEN]
[LOG]
LogFilePath=Log
LogMode=%d
"""


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


class InScratchFolder(unittest.TestCase):
    """Each test works in a folder of its own, which is the library's world."""

    def setUp(self):
        # Short on purpose: the port of the emulator may have 31 characters.
        self.folder = tempfile.mkdtemp(prefix="py", dir="/tmp")
        self.addCleanup(shutil.rmtree, self.folder)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.folder)
        self.port = self.folder + "/sat0"
        self.write_ini(log_mode=1)
        self.sat = talvex.Talvex(LIBRARY)
        # The library belongs to the process: another test's answer to "has the file changed?" must not count.
        self.sat.VersaoDllTalvex()

    def write_ini(self, log_mode):
        InScratchFolder.age = getattr(InScratchFolder, "age", 0) + 1
        with open("SAT.ini", "w", encoding="utf-8") as file:
            file.write(INI % (self.port, log_mode))
        # Whole seconds count, so each version of the file gets a second of its own.
        os.utime("SAT.ini", (1e9 + InScratchFolder.age,) * 2)

    def trace(self):
        return "".join(read(name) for name in glob.glob("Log/*_SAT_api.log"))


class Completeness(unittest.TestCase):
    def test_every_exported_name_is_wrapped(self):
        listing = subprocess.run(["nm", "-D", "--defined-only", LIBRARY], check=True, capture_output=True, text=True)
        names = {line.split()[-1] for line in listing.stdout.splitlines()}
        exported = {name for name in names if not name.startswith("_")}
        self.assertEqual(exported, set(talvex.SIGNATURES) | set(talvex.DATA))
        for name in exported:
            self.assertTrue(hasattr(talvex.Talvex, name), name)

    KINDS = {
        "int": (ctypes.c_int,),
        "uint32_t": (ctypes.c_uint32,),
        "uint64_t": (ctypes.c_uint64,),
        "unsigned int": (ctypes.c_uint,),
        "unsigned char": (ctypes.c_ubyte,),
        "void": (None,),
        "char*": (ctypes.c_char_p,),
        "const char*": (ctypes.c_char_p,),
        "unsigned char*": (ctypes.POINTER(ctypes.c_ubyte),),
        "const unsigned char*": (ctypes.c_char_p,),
        "void*": (ctypes.c_void_p,),
        "const void*": (ctypes.c_void_p,),
        "int*": (ctypes.POINTER(ctypes.c_int),),
        "uint32_t*": (ctypes.POINTER(ctypes.c_uint32),),
        "uint64_t*": (ctypes.POINTER(ctypes.c_uint64),),
    }

    def test_the_types_are_those_of_the_header(self):
        header = re.sub(r"/\*.*?\*/", "", read(HEADER), flags=re.DOTALL)
        declared = re.findall(r"^TALVEX_API ([\w ]+\*? )(\w+)\(([^)]*)\);", header, re.MULTILINE)
        self.assertEqual({name for _, name, _ in declared}, set(talvex.SIGNATURES))
        for result, name, parameters in declared:
            types = [result.strip()]
            if parameters.strip() != "void":
                types += [re.sub(r"\s*\w+$", "", " ".join(part.split())) for part in parameters.split(",")]
            signature = talvex.SIGNATURES[name]
            self.assertEqual(len(types), len(signature), name)
            for type_name, kind in zip(types, signature):
                self.assertIn(kind, self.KINDS[type_name], "%s: %s" % (name, type_name))


class Replies(unittest.TestCase):
    def test_fields_have_the_names_of_the_standard(self):
        reply = talvex.Reply("000042|08000|SAT em operacao||")
        self.assertEqual((reply.session, reply.code, reply.busy, reply.failure), (42, "08000", False, None))
        self.assertEqual(reply.fields["mensagem"], "SAT em operacao")
        self.assertEqual(list(reply.fields), ["numeroSessao", "EEEEE", "mensagem", "cod", "mensagemSEFAZ"])

    def test_the_code_decides_about_the_layout(self):
        reply = talvex.Reply("000042|06000|7777|Emitido com sucesso|||PHhtbD4=|20240131120000|CFe35|10.00||c2ln")
        self.assertEqual(reply.fields["CCCC"], "7777")
        self.assertEqual(reply.fields["valorTotalCFe"], "10.00")
        self.assertEqual(reply.fields["assinaturaQRCODE"], "c2ln")

    def test_busy_reply(self):
        reply = talvex.Reply("42|06098|0000|SAT em processamento, tente novamente.||")
        self.assertTrue(reply.busy)
        self.assertEqual(reply.fields["mensagem"], "SAT em processamento, tente novamente.")

    def test_what_settles_a_sale_or_cancellation(self):
        cases = [("000042|06000|0000|m|||x|2|CFe", talvex.SALE, talvex.ISSUED),
                 ("000042|07000|0000|m|||x|2|CFe", talvex.CANCELLATION, talvex.ISSUED),
                 ("000042|06010|1234|m||", talvex.SALE, talvex.REFUSED),
                 ("42|06098|0000|m||", talvex.SALE, talvex.NOT_SENT),
                 ("42|07098|0000|m||", talvex.CANCELLATION, talvex.NOT_SENT)]
        cases += [(text, talvex.SALE, talvex.UNKNOWN) for text in (
            "000042|06097|0000|m||", "000042|06098|0000|m||", "000042|06099|0000|m||", "42|06097|0000|m||",
            "000041|06000|0000|m||", "41|06098|0000|m||", "000042|07000|0000|m||", "000042|08000|m||",
            "SAT Erro[-02003]", "", "000042", "x|06000|0000|m||")]
        for text, prefix, expected in cases:
            with self.subTest(text):
                self.assertEqual(talvex.Reply(text).settles(42, prefix), expected)
        self.assertEqual(talvex.Reply("100000|06098|0000|m||").settles(100000, talvex.SALE), talvex.UNKNOWN)

    def test_failure_text(self):
        reply = talvex.Reply("SAT Erro[-02000]Lnx SAT Nao Encontrado L[2193] F[Communicate] LibVer[23-JUL-2020]")
        self.assertEqual((reply.failure, reply.code, reply.session, reply.busy), (-2000, None, None, False))

    def test_unknown_fields_are_kept(self):
        reply = talvex.Reply("000001|08000|a|b|c|d|e")
        self.assertEqual((reply.fields["field6"], reply.fields["field7"]), ("d", "e"))


class SatFunctions(InScratchFolder):
    def setUp(self):
        super().setUp()
        self.emulator = subprocess.Popen(
            [EMULATOR, "--link", self.port, "--activated", "--activation-code", CODE],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(self.emulator.stdout.close)
        self.addCleanup(self.emulator.wait)
        self.addCleanup(self.emulator.terminate)
        self.assertTrue(self.emulator.stdout.readline(), "the emulator did not get ready")

    def frames_sent(self):
        (log,) = glob.glob("Log/*_SAT_ProtocolLog.txt")
        return re.findall(r"PC->SAT >> \[<02>(.*)<..><03>\]OK:a", read(log))

    def check(self, reply, command, *prefixes):
        """The command went out as it should; the reply answers it, with a code of the function."""
        self.assertIsNone(reply.failure, reply.text)
        self.assertIn(reply.code[:2], prefixes)
        self.assertEqual(self.frames_sent()[-1], command)
        self.assertEqual(reply.session, int(command.split("|")[1]))

    def test_AtivarSAT(self):
        self.check(self.sat.AtivarSAT(1, 1, CODE, "11222333000181", 35),
                   "AtivarSAT|000001|1|12345678|11222333000181|35", "04")

    def test_ComunicarCertificadoICPBRASIL(self):
        self.check(self.sat.ComunicarCertificadoICPBRASIL(2, CODE, "-----BEGIN CERTIFICATE-----"),
                   "ComunicarCertificadoICPBRASIL|000002|12345678|-----BEGIN CERTIFICATE-----", "05")

    def test_a_sale_and_its_cancellation(self):
        sale = read(SALE).replace("\n", "")
        reply = self.sat.EnviarDadosVenda(3, CODE, sale)
        self.check(reply, "EnviarDadosVenda|000003|12345678|" + sale, "06")
        self.assertEqual(reply.code, "06000", reply.text)
        key = reply.fields["chaveConsulta"]
        self.assertRegex(key, r"^CFe\d{44}$")
        self.assertIn(b"CFe", base64.b64decode(reply.fields["arquivoCFeBase64"]))

        self.check(self.sat.ConsultarNumeroSessao(4, CODE, 99), "ConsultarNumeroSessao|000004|12345678|000099", "11")

        xml = ('<CFeCanc><infCFe chCanc="%s"><ide><CNPJ>12345678000195</CNPJ><signAC>SGR-SAT</signAC>'
               "<numeroCaixa>001</numeroCaixa></ide><emit/><dest/><total/></infCFe></CFeCanc>" % key)
        cancelled = self.sat.CancelarUltimaVenda(5, CODE, key, xml)
        self.check(cancelled, "CancelarUltimaVenda|000005|12345678|%s|%s" % (key, xml), "07")
        self.assertEqual(cancelled.code, "07000", cancelled.text)
        self.assertEqual(reply.fields["chaveConsulta"], key, "an earlier reply is a copy")

    def test_ConsultarSAT(self):
        self.check(self.sat.ConsultarSAT(1000006), "ConsultarSAT|000006", "08")

    def test_TesteFimAFim(self):
        self.check(self.sat.TesteFimAFim(7, CODE, "<CFe/>"), "TesteFimAFim|000007|12345678|<CFe/>", "09")

    def test_ConsultarStatusOperacional(self):
        reply = self.sat.ConsultarStatusOperacional(8, CODE)
        self.check(reply, "ConsultarStatusOperacional|000008|12345678", "10")
        self.assertEqual(reply.code, "10000")
        self.assertEqual(list(reply.fields), list(talvex.FIELDS["10"]))

    def test_ConfigurarInterfaceDeRede(self):
        self.check(self.sat.ConfigurarInterfaceDeRede(9, CODE, "<config/>"),
                   "ConfigurarInterfaceDeRede|000009|12345678|<config/>", "12")

    def test_AssociarAssinatura(self):
        self.check(self.sat.AssociarAssinatura(10, CODE, "1234567800019511222333000181", "U0dS"),
                   "AssociarAssinatura|000010|12345678|1234567800019511222333000181|U0dS", "13")

    def test_AtualizarSoftwareSAT(self):
        self.check(self.sat.AtualizarSoftwareSAT(11, CODE), "AtualizarSoftwareSAT|000011|12345678", "14")

    def test_ExtrairLogs(self):
        self.check(self.sat.ExtrairLogs(12, CODE), "ExtrairLogs|000012|12345678", "15")

    def test_BloquearSAT(self):
        self.check(self.sat.BloquearSAT(13, CODE), "BloquearSAT|000013|12345678", "16")

    def test_DesbloquearSAT(self):
        self.check(self.sat.DesbloquearSAT(14, CODE), "DesbloquearSAT|000014|12345678", "17")

    def test_TrocarCodigoDeAtivacao(self):
        self.check(self.sat.TrocarCodigoDeAtivacao(15, CODE, 1, "87654321", "87654321"),
                   "TrocarCodigoDeAtivacao|000015|12345678|1|87654321|87654321", "18")

    def test_ConsultarUltimaSessaoFiscal(self):
        self.check(self.sat.ConsultarUltimaSessaoFiscal(16, CODE), "ConsultarUltimaSessaoFiscal|000016|12345678", "19")

    def test_null_is_an_empty_field(self):
        self.check(self.sat.ExtrairLogs(17, None), "ExtrairLogs|000017|", "15")

    def test_threads_take_turns(self):
        replies = {}

        def call(session):
            replies[session] = self.sat.ConsultarSAT(session)

        threads = [threading.Thread(target=call, args=(100 + number,)) for number in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual({session: reply.session for session, reply in replies.items()},
                         {session: session for session in replies})

    def test_without_a_device(self):
        self.emulator.terminate()
        self.emulator.wait()
        self.assertEqual(self.sat.ConsultarSAT(18).failure, -2000)


class Utilities(InScratchFolder):
    def test_VersaoDllTalvex(self):
        self.assertEqual(self.sat.VersaoDllTalvex(), "TALVEX DLL Ver. 02.00")

    def test_SAT_GetRetCodeMsg(self):
        self.assertEqual(self.sat.SAT_GetRetCodeMsg(8000), "SAT em operacao")
        self.assertEqual(self.sat.SAT_GetRetCodeMsg(11003), "Sessao não existe")
        self.assertEqual(self.sat.SAT_GetRetCodeMsg(-2000, "x" * 150), "x" * 97 + "..>")
        self.assertIsNone(self.sat.SAT_GetRetCodeMsg(99999))

    def test_frames(self):
        self.assertEqual(self.sat.SAT_API_CalcCkeckSum(b"\x02AB"), 0x83)
        self.assertEqual(self.sat.SAT_API_CreatePacket(b"\x02ABC"), (6, b"\x02ABC\xc6\x03"))
        self.assertEqual(self.sat.SAT_API_CreatePacket(b"ABC\0\0"), (6, b"\x02ABC\xc6\x03"))
        self.assertEqual(self.sat.SAT_API_CreatePacket(None), (-1, b""))
        self.assertEqual(self.sat.SAT_API_DecodeSatCmd(b"\x02ABC\xc6\x03"), -1)
        self.assertEqual(self.sat.ShowHex(b"\x02\x00\xff"), "0200FF")
        self.assertEqual(self.sat.SAT_API_CmdPktParcer(b"\x02AtivarSAT|123456|1|x\xd6\x03"), 5)
        self.assertEqual(self.sat.SAT_API_RspPktParcer(b"000042|08000|SAT em operacao\x41\x03"), 4)

    def test_application_messages(self):
        self.assertEqual(self.sat.SAT_APP_CmdParcer("ConsultarSAT|000042"), 3)
        text = "000123|06000|Emitido com sucesso|||"
        self.assertEqual(self.sat.SAT_APP_RspParcer("EnviarDadosVenda", 123, text), (6000, 123, 123, 6000))
        self.assertEqual(self.sat.SAT_APP_RspParcer("EnviarDadosVenda", 124, text), (0, None, 123, None))
        self.assertEqual(self.sat.SAT_APP_RspParcer("ConsultarSAT", 1, "SAT Erro[-02000]")[0], -1101)
        self.assertIn(self.sat.SAT_APP_GenRndNum(1000000), range(1000000))
        self.assertIn(self.sat.draw_session(), range(100000))
        with self.assertRaises(ValueError):
            self.sat.SAT_APP_GenRndNum(0)
        self.assertEqual(self.sat.SAT_Free_AllocedMsg(), -1)

    def test_ini_files(self):
        self.assertEqual(self.sat.OLK_SetIniFileValue("a.ini", "S", "K", "V"), 4)
        self.assertEqual(read("a.ini"), "[S]\nK=V\n")
        self.assertEqual(self.sat.OLK_GetIniFileValue("a.ini", "S", "K"), (0, "V"))
        self.assertEqual(self.sat.OLK_GetIniFileValue("a.ini", "S", "X"), (-305, ""))
        self.assertEqual(self.sat.OLK_SetIniFileItemValue("a.ini", "S", "K", "W"), 5)
        self.assertEqual(self.sat.OLK_AddIniFileItem("a.ini", "S", "L", "1"), 7)
        self.assertEqual(self.sat.OLK_AddIniFileSection("a.ini", "T"), 2)
        self.assertEqual(self.sat.OLK_DelIniFileSection("a.ini", "T"), 2)
        self.assertEqual(self.sat.OLK_DelIniFileItem("a.ini", "S", "L"), 5)
        self.assertEqual(read("a.ini"), "[S]\nK=W\n   \n\n[T]\n")

    def test_files_and_directories(self):
        with open("five", "w", encoding="ascii") as file:
            file.write("12345")
        self.assertEqual(self.sat.OLK_GetFileSize("five"), 5)
        self.assertEqual(self.sat.OLK_FileExist("none"), -1)
        self.assertEqual((self.sat.OLK_Exist("."), self.sat.OLK_Exist("five"), self.sat.OLK_Exist("none")), (1, 2, 0))
        self.assertEqual((self.sat.OLK_CreateDir("d"), self.sat.OLK_CreateDir("d")), (2, 1))
        self.assertEqual((self.sat.OLK_DeleteDir("d"), self.sat.OLK_DeleteFile("five")), (1, 1))
        self.assertFalse(os.path.exists("d") or os.path.exists("five"))

    def test_taxpayer_numbers(self):
        self.assertEqual(self.sat.OLK_Check_CNPJ("11.222.333/0001-81"), 0)
        self.assertEqual(self.sat.OLK_Check_CNPJ("11222333000182"), -3007)
        self.assertEqual(self.sat.OLK_Check_CPF("123.456.789-09"), 0)
        self.assertEqual(self.sat.OLK_Check_CPF(None), -3011)
        self.assertEqual([self.sat.OLK_GetCPFCheckDigit("12345678909", weight) for weight in (10, 11)], [0, 9])

    def test_base64(self):
        for data in (b"M", b"Ma", b"Man", bytes(range(256))):
            text = base64.b64encode(data).decode()
            self.assertEqual(self.sat.OLK_Base64Encoder(data), (len(text), text))
            self.assertEqual(self.sat.OLK_Base64Decoder(text), (len(data), data))
        self.assertEqual(self.sat.OLK_Base64Encoder(b""), (-1, ""))
        self.assertEqual(self.sat.OLK_Base64Decoder(None), (-101, b""))
        self.assertIsNone(self.sat.psB64_DecTable)
        self.assertEqual(self.sat.OLK_Base64DecTblAlloc(), 0)
        self.assertEqual(self.sat.psB64_DecTable[ord("/")], 63)
        self.assertEqual((self.sat.OLK_Base64DecTblFree(), self.sat.OLK_Base64DecTblFree()), (0, 1))
        self.assertEqual(self.sat.pB64_EncTable[:3] + self.sat.pB64_EncTable[-2:], "ABC+/")
        self.assertEqual(self.sat.mod_table, (0, 2, 1))

    def test_OLK_Base64_Test01(self):
        self.assertEqual(self.sat.OLK_Base64_Test01(), 24)

    def test_ibge(self):
        self.assertEqual(self.sat.SAT_Get_IBGH_UF_Code("SAO PAULO"), 35)
        self.assertEqual(self.sat.SAT_Get_IBGH_UF_Code("SP"), -1)
        self.assertEqual(self.sat.SAT_Get_IBGE_UF_Name(53), "DF")
        self.assertEqual(self.sat.SAT_Get_IBGE_EstateName(24), "RIO GRANDE DO NORTE")
        self.assertEqual(self.sat.SAT_Get_IBGE_RegionName(50), "CENTROESTE")
        self.assertIsNone(self.sat.SAT_Get_IBGE_UF_Name(99))

    def test_log_configuration(self):
        self.assertEqual(self.sat.tLog.strLogFilePath, b"Log")
        self.assertEqual(self.sat.tLog.ucModeMask, 1)
        self.write_ini(log_mode=5)
        self.sat.VersaoDllTalvex()
        self.assertEqual(self.sat.tLog.ucModeMask, 31)
        self.assertEqual(self.sat.tLog.strLogFileName, b"SAT_api.log")

    FLAGS = {
        "bErrorLogsEnabled": 1, "bWarningLogsEnabled": 2, "bMessageLogsEnabled": None, "bInfoLogsEnabled": 3,
        "bTraceLogsEnabled": 4, "bJniTraceLogsEnabled": None, "bDebugLogsEnabled": 5, "bConsoleLogsEnabled": None,
    }

    def test_flags_show_what_the_library_set(self):
        for mode in range(6):
            self.write_ini(log_mode=mode)
            self.sat.VersaoDllTalvex()
            for flag, its_mode in self.FLAGS.items():
                self.assertEqual(getattr(self.sat, flag), int(mode == its_mode), "%s, LogMode=%d" % (flag, mode))

    def test_a_flag_that_is_set_here_counts_there(self):
        self.write_ini(log_mode=0)
        self.sat.VersaoDllTalvex()
        self.sat.OLK_Check_CPF(None)
        self.assertNotIn("pCPF=NULL", self.trace())
        self.sat.bErrorLogsEnabled = 1 << 40
        self.sat.OLK_Check_CPF(None)
        self.assertIn("pCPF=NULL", self.trace())

    def test_gl_hComm(self):
        self.assertEqual(self.sat.gl_hComm, -1)


class SizeControl(InScratchFolder):
    # In a process of its own, which ends with the loop still running.
    SCRIPT = """
import os, sys, time
import talvex
sat = talvex.Talvex(sys.argv[1])
sat.VersaoDllTalvex()
thread = sat.LogSzCtlTherad()
name = "Log/%s_SAT_api.log" % time.strftime("%Y%m%d")
while not (os.path.exists(name) and "Entering hT[00000000h]" in open(name).read()):
    thread.join(0.01)
    assert thread.is_alive()
os._exit(0)
"""

    def test_LogSzCtlTherad(self):
        self.write_ini(log_mode=2)
        environment = dict(os.environ, PYTHONPATH=HERE)
        subprocess.run([sys.executable, "-c", self.SCRIPT, LIBRARY], check=True, env=environment, timeout=60)


if __name__ == "__main__":
    unittest.main()
