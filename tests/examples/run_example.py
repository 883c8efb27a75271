"""Builds one example in a scratch folder and runs it against the emulator.

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

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../examples")
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
         r"^  assinaturaQRCODE +\S{60,70}\.\.\.$")


def missing(needs, paths):
    names = [name.format(**paths) for name in needs]
    return [name for name in names if not (os.path.exists(name) if "/" in name else shutil.which(name))]


class Emulator:
    """The emulator, ready and activated; ends with the `with` block."""

    def __init__(self, program, folder):
        # The name must end in a digit and may have 31 characters.
        self.port = os.path.join(folder, "sat0")
        self.process = subprocess.Popen([program, "--link", self.port, "--activated", "--activation-code", CODE,
                                         "--quiet"],
                                        stdout=subprocess.PIPE, text=True)
        if not self.process.stdout.readline():
            raise RuntimeError("the emulator did not get ready")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()


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
        with Emulator(paths["emulator"], scratch) as emulator:
            with open(os.path.join(work, "SAT.ini"), "w", encoding="ascii") as file:
                file.write(INI % emulator.port)
            till = subprocess.run(steps["run"].format(**words).split(), cwd=work, env=environment, timeout=LIMIT_S,
                                  stdout=subprocess.PIPE, encoding="utf-8", errors="replace")
        print(till.stdout)
        if till.returncode != 0:
            raise RuntimeError("exit status %d" % till.returncode)
        for line in SHOWN:
            if not re.search(line, till.stdout, re.MULTILINE):
                raise RuntimeError("shows no line like " + line)


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
