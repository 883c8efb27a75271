"""Builds one example in a scratch folder and runs it against the emulator and against scripted devices.

    run_example.py [--required] --emulator FILE --prefix PREFIX --libdir LIBDIR [--node-modules DIR]
                   [LANGUAGE...]

PREFIX is where the library is installed, LIBDIR the folder of libraries in it. Without a language
all are run. An example whose toolchain is not there is named as skipped; with --required it counts as a failure.
Exit status: 0 all were right, 77 some were skipped, 1 some failed.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../satctl"))
from scripted_device import ScriptedDevice  # noqa: E402

EXAMPLES = os.path.join(HERE, "../../examples")
CODE = "12345678"
SKIPPED = 77
LIMIT_S = 300

# For each language: the folder, what must be there, how it is built, how it is run. {source} is a copy of the
# folder, in which the build happens.
LANGUAGES = {
    "c": dict(
        needs=["cc"],
        build=["cc -std=c99 -pedantic -Wall -Wextra -Werror consulta.c -o venda -ldl"],
        run="{source}/venda {library} {code} {sale}"),
    "cpp": dict(
        needs=["c++"],
        build=["{cmake} -S . -B build -DCMAKE_PREFIX_PATH={prefix}", "{cmake} --build build"],
        run="{source}/build/venda {code} {sale}"),
    "python": dict(
        needs=["python3"],
        build=[],
        run="python3 {source}/venda.py {library} {code} {sale}"),
    "nodejs": dict(
        needs=["node", "{node_modules}/koffi"],
        build=[],
        run="node {source}/venda.js {library} {code} {sale}"),
    "java": dict(
        needs=["java", "javac", "/usr/share/java/jna.jar"],
        build=["javac -cp /usr/share/java/jna.jar Venda.java"],
        run="java -cp /usr/share/java/jna.jar:{source} Venda {library} {code} {sale}"),
    "pascal": dict(
        needs=["fpc"],
        build=["fpc -v0 -l- -O2 venda.pas"],
        run="{source}/venda {library} {code} {sale}"),
    "php": dict(
        needs=["php"],
        build=[],
        run="php {source}/venda.php {library} {code} {sale}"),
    "go": dict(
        needs=["go", "pkg-config"],
        build=["go build -o venda"],
        run="{source}/venda {code} {sale}"),
    "csharp": dict(
        needs=["mcs", "mono"],
        build=["mcs -warnaserror Venda.cs"],
        run="mono {source}/Venda.exe {code} {sale}"),
}

INI = """[SERIAL_PORT_CONFIG]
[SAT_TIMEOUT]
[SAT_EMULATOR]
SerialPortLinux=%s
Enable=1
[ARVOLEN]
[LOG]
LogFilePath=Log
LogMode=1
"""

# What a till must have shown: its status query and its sale, field by field.
SHOWN = (r"^ConsultarStatusOperacional$", r"^  EEEEE +10000$", r"^  ESTADO_OPERACAO +\S+", r"^EnviarDadosVenda$",
         r"^  EEEEE +06000$", r"^  chaveConsulta +CFe\d{44}$", r"^  valorTotalCFe +126\.84$",
         r"^  assinaturaQRCODE +\S{60,70}\.\.\.$", r"^=> issued$")

ISSUED, NOTHING, UNKNOWN = 0, 1, 3  # exit statuses of the tills

# Faults of the emulator: what the till must say of its sale, and its exit status.
FAULTS = [
    ("do return 06010 1234", "refused", NOTHING),
    ("do carry-out-nak", "issued", ISSUED),
    ("do carry-out-return 06099 stored=yes", "issued", ISSUED),
    ("do wrong-checksum 3", "issued", ISSUED),
    ("do processing 1", "not issued", NOTHING),
    ("do hangup 20 back=600000", "unknown", UNKNOWN),
]


def receipt(session, number, code="06000"):
    key = "CFe35260311222333000181599000000010%05d1234567" % number
    return "%s|%s|0000|mensagem|||PENGZT4=|20260301100000|%s|1.00||QQ==" % (session, code, key)


# Replies of a scripted device to the sale, to ConsultarNumeroSessao and to ConsultarUltimaSessaoFiscal: what the till
# must say, and its exit status. {own} is the sale's session as a device writes it, {bare} as the library does, {query}
# the query's. The last receipt before the sale has number 7, or there was none.
BEFORE, NEW, OTHERS = receipt("000000", 7), receipt("{own}", 8), receipt("999999", 8)
NOT_KNOWN, NONE_YET, STORED_098 = "{query}|11003|Nao existe||", "{query}|19003|Nao existe||", "{own}|06098|0000|m||"
SCRIPTS = [
    (7, "{bare}|06098|0000|SAT em processamento, tente novamente.||", None, None, "not sent", NOTHING),
    (7, "{own}|06098|0000|m||", NEW, None, "issued", ISSUED),
    (7, "{own}|06097|0000|m||", STORED_098, NEW, "issued", ISSUED),
    (7, "{own}|06099|0000|m||", NOT_KNOWN, BEFORE, "not issued", NOTHING),
    (7, "{own}|06099|0000|m||", STORED_098, OTHERS, "unknown", UNKNOWN),
    (7, "{own}|06098|0000|m||", receipt("{own}", 7), BEFORE, "not issued", NOTHING),
    (7, "{own}|06098|0000|m||", "{own}|06010|1234|m||", None, "refused", NOTHING),
    (7, "{own}|06098|0000|m||", "{query}|11098|m||", BEFORE, "unknown", UNKNOWN),
    (7, "{own}|06098|0000|m||", NOT_KNOWN, NONE_YET, "unknown", UNKNOWN),
    (None, "{own}|06098|0000|m||", NOT_KNOWN, NONE_YET, "not issued", NOTHING),
    (None, "{own}|06098|0000|m||", NOT_KNOWN, OTHERS, "unknown", UNKNOWN),
    (7, "999999|06000|0000|m||", NEW, None, "issued", ISSUED),
    (7, "{own}|07000|0000|m||", NOT_KNOWN, BEFORE, "not issued", NOTHING),
    (7, "{own}|08000|m||", NOT_KNOWN, "{query}|19098|m||", "unknown", UNKNOWN),
]


def missing(needs, paths):
    names = [name.format(**paths) for name in needs]
    return [name for name in names if not (os.path.exists(name) if "/" in name else shutil.which(name))]


class Emulator:
    """The emulator, ready and activated; ends with the `with` block."""

    def __init__(self, program, folder, *options):
        # The name must end in a digit and may have 31 characters.
        self.port = os.path.join(folder, "sat0")
        self.process = subprocess.Popen([program, "--link", self.port, "--activated", "--activation-code", CODE,
                                         "--quiet", *options],
                                        stdout=subprocess.PIPE, text=True)
        if not self.process.stdout.readline():
            raise RuntimeError("the emulator did not get ready")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()


class Script:
    """What a scripted device replies to a till: see SCRIPTS."""

    def __init__(self, last_receipt, sale, stored, last, *_):
        self.key = "" if last_receipt is None else receipt("", last_receipt).split("|")[8]
        self.answers = {"EnviarDadosVenda": sale, "ConsultarNumeroSessao": stored, "ConsultarUltimaSessaoFiscal": last,
                        "CancelarUltimaVenda": "{query}|07000|0000|m|||QQ==|20260301100000|CFe|1.00||QQ=="}
        self.sale_session = ""

    def reply(self, command):
        name, session = command.decode("utf-8").split("|")[:2]
        if name == "EnviarDadosVenda":
            self.sale_session = session
        if name == "ConsultarStatusOperacional":
            return ("%s|10000|Resposta com sucesso|||" % session + "x|" * 15 + self.key + "|" * 7 + "0").encode()
        if name == "ConsultarSAT":
            return ("%s|08000|SAT em operacao||" % session).encode()
        answer = self.answers[name]
        if answer is None:
            raise AssertionError("the till asks " + name)
        return answer.format(own=self.sale_session, bare=self.sale_session.lstrip("0") or "0", query=session).encode()


def run_example(language, paths):
    steps = LANGUAGES[language]
    with tempfile.TemporaryDirectory(prefix="till", dir="/tmp") as scratch:
        source = os.path.join(scratch, language)
        shutil.copytree(os.path.join(EXAMPLES, language), source)
        work = os.path.join(scratch, "work")
        os.mkdir(work)
        words = dict(paths, source=source, code=CODE, sale=os.path.abspath(os.path.join(EXAMPLES, "venda.xml")))
        environment = dict(os.environ, LD_LIBRARY_PATH=os.path.dirname(paths["library"]),
                           PKG_CONFIG_PATH=paths["pkg_config"], NODE_PATH=paths["node_modules"],
                           GOCACHE=os.path.join(scratch, "go-cache"), GOFLAGS="-mod=mod", GOPROXY="off")
        for step in steps["build"]:
            subprocess.run(step.format(**words).split(), cwd=source, env=environment, check=True, timeout=LIMIT_S)
        port = os.path.join(scratch, "sat0")
        with open(os.path.join(work, "SAT.ini"), "w", encoding="ascii") as file:
            file.write(INI % port)

        def sell(what, expected, lines):
            till = subprocess.run(steps["run"].format(**words).split(), cwd=work, env=environment, timeout=LIMIT_S,
                                  stdout=subprocess.PIPE, encoding="utf-8", errors="replace")
            wrong = [line for line in lines if not re.search(line, till.stdout, re.MULTILINE)]
            if till.returncode != expected or wrong:
                print(till.stdout)
                raise RuntimeError("%s: exit status %d, no line like %s" % (what, till.returncode, wrong))
            return till.stdout

        with Emulator(paths["emulator"], scratch):
            print(sell("a sale", ISSUED, SHOWN))
        for fault, outcome, status in FAULTS:
            with Emulator(paths["emulator"], scratch, "--fault", "on EnviarDadosVenda nth=1 " + fault):
                sell(fault, status, ["^=> %s$" % outcome])
        for script in SCRIPTS:
            *_, outcome, status = script
            with ScriptedDevice(port, Script(*script).reply):
                sell(script, status, ["^=> %s$" % outcome])
            os.unlink(port)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--required", action="store_true")
    parser.add_argument("--emulator", required=True)
    parser.add_argument("--prefix", required=True)
    parser.add_argument("--libdir", required=True)
    parser.add_argument("--cmake", default="cmake")
    parser.add_argument("--node-modules", default="node_modules", help="where npm has installed koffi")
    parser.add_argument("languages", nargs="*", choices=[*LANGUAGES, []])
    options = parser.parse_args()

    prefix = os.path.abspath(options.prefix)
    libdir = os.path.join(prefix, options.libdir)
    paths = dict(prefix=prefix, library=os.path.join(libdir, "libtalvex.so.2"), cmake=options.cmake,
                 node_modules=os.path.abspath(options.node_modules), pkg_config=os.path.join(libdir, "pkgconfig"), emulator=os.path.abspath(options.emulator))
    results = {}
    for language in options.languages or LANGUAGES:
        lacking = missing(LANGUAGES[language]["needs"], paths)
        if lacking:
            results[language] = "skipped: there is no " + ", no ".join(lacking)
            continue
        print("== " + language, flush=True)
        try:
            run_example(language, paths)
            results[language] = "right"
        except (RuntimeError, OSError, subprocess.SubprocessError) as error:
            results[language] = "FAILED: %s" % error

    for language, result in results.items():
        print("%-8s %s" % (language, result))
    if any(result.startswith("FAILED") for result in results.values()):
        return 1
    if any(result.startswith("skipped") for result in results.values()):
        return 1 if options.required else SKIPPED
    return 0


if __name__ == "__main__":
    sys.exit(main())
