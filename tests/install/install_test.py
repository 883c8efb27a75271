"""The installed files are where they belong, and hosts can be built against them.

Works on what `cmake --install` has put under PREFIX; BUILD_DIR is installed once more for a DESTDIR.
"""

import gzip
import os
import re
import shutil
import subprocess
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
TOP = os.path.join(HERE, "../..")
BUILD_DIR = os.environ["BUILD_DIR"]
PREFIX = os.environ["PREFIX"]
LIBDIR = os.environ["LIBDIR"]
CMAKE = os.environ["CMAKE"]
VERSION = os.environ["VERSION"]
SANITIZED = bool(os.environ["SANITIZED"])

MAJOR = VERSION.split(".")[0]
EXPECTED = [
    "include/talvex/talvex.h",
    "{libdir}/libtalvex.so",
    "{libdir}/libtalvex.so.{major}",
    "{libdir}/libtalvex.so.{version}",
    "{libdir}/pkgconfig/talvex.pc",
    "{libdir}/cmake/talvex/talvexConfig.cmake",
    "{libdir}/cmake/talvex/talvexConfigVersion.cmake",
    "lib/udev/rules.d/65-talvex.rules",
    "bin/sat-emulator",
    "bin/satctl",
    "share/bash-completion/completions/satctl",
    "share/man/man1/sat-emulator.1.gz",
    "share/man/man1/satctl.1.gz",
    "share/man/man3/talvex.3.gz",
    "share/man/man5/SAT.ini.5.gz",
    "share/doc/talvex/README.md",
    "share/doc/talvex/README.pt-BR.md",
    "share/doc/talvex/CHANGELOG.md",
    "share/doc/talvex/CONTRIBUTING.md",
    "share/doc/talvex/include/talvex/talvex.h",
    "share/doc/talvex/packaging/65-talvex.rules",
    "share/doc/talvex/docs/guide.md",
    "share/doc/talvex/docs/pt-BR/guia.md",
    "share/doc/talvex/docs/images/call.svg",
    "share/doc/talvex/examples/c/consulta.c",
    "share/doc/talvex/examples/python/talvex.py",
    "share/doc/talvex/examples/venda.xml",
]


def expected_files():
    return [path.format(libdir=LIBDIR, version=VERSION, major=MAJOR) for path in EXPECTED]


def output_of(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **options).stdout


class InstalledFiles(unittest.TestCase):
    def test_everything_is_in_its_standard_place(self):
        missing = [path for path in expected_files() if not os.path.exists(os.path.join(PREFIX, path))]
        self.assertEqual(missing, [])

    def test_link_names_lead_to_the_library(self):
        folder = os.path.join(PREFIX, LIBDIR)
        self.assertEqual(os.readlink(folder + "/libtalvex.so"), "libtalvex.so." + MAJOR)
        self.assertEqual(os.readlink(folder + "/libtalvex.so." + MAJOR), "libtalvex.so." + VERSION)

    def test_the_library_has_its_soname_and_needs_the_c_library_only(self):
        dynamic = output_of("readelf", "-d", os.path.join(PREFIX, LIBDIR, "libtalvex.so"))
        self.assertIn("Library soname: [libtalvex.so.%s]" % MAJOR, dynamic)
        self.assertNotRegex(dynamic, "RPATH|RUNPATH")
        if not SANITIZED:
            self.assertEqual(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic), ["libc.so.6"])

    def test_no_file_of_the_build_machine_is_named(self):
        for name in ("pkgconfig/talvex.pc", "cmake/talvex/talvexConfig.cmake"):
            with open(os.path.join(PREFIX, LIBDIR, name), encoding="utf-8") as file:
                self.assertNotIn(os.path.realpath(TOP) + "/", file.read().replace(PREFIX, ""))

    def test_manuals_are_readable(self):
        for page in (path for path in expected_files() if path.endswith(".gz")):
            with gzip.open(os.path.join(PREFIX, page), "rt", encoding="utf-8") as file:
                self.assertRegex(file.read(), r"(?m)^\.TH ", page)

    def test_links_of_the_documents_lead_somewhere(self):
        broken = []
        for folder, _, names in os.walk(os.path.join(PREFIX, "share/doc/talvex")):
            for name in (name for name in names if name.endswith(".md")):
                with open(os.path.join(folder, name), encoding="utf-8") as file:
                    text = re.sub(r"```.*?```", "", file.read(), flags=re.DOTALL)
                for target in re.findall(r"\]\(([^)#]+)[^)]*\)", text):
                    if "://" not in target and not os.path.exists(os.path.join(folder, target)):
                        broken.append("%s: %s" % (os.path.join(folder, name), target))
        self.assertEqual(broken, [])

    def test_destdir_and_prefix_are_kept_apart(self):
        with tempfile.TemporaryDirectory() as root:
            subprocess.run([CMAKE, "--install", BUILD_DIR, "--prefix", "/opt/talvex"], check=True,
                           stdout=subprocess.DEVNULL, env=dict(os.environ, DESTDIR=root))
            self.assertEqual(os.listdir(root), ["opt"])
            missing = [path for path in expected_files() if not os.path.exists(root + "/opt/talvex/" + path)]
            self.assertEqual(missing, [])
            with open(os.path.join(root, "opt/talvex", LIBDIR, "pkgconfig/talvex.pc"), encoding="utf-8") as file:
                self.assertIn("prefix=/opt/talvex\n", file.read())


@unittest.skipIf(SANITIZED, "a host of a sanitized library needs the sanitizer's options too")
class Consumers(unittest.TestCase):
    """A program that is built against the installed files, and that runs with them."""

    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        shutil.copytree(os.path.join(HERE, "consumer"), self.folder + "/source")
        self.libraries = os.path.join(PREFIX, LIBDIR)

    def assert_runs(self, program):
        work = tempfile.mkdtemp(dir=self.folder)
        said = output_of(program, cwd=work, env=dict(os.environ, LD_LIBRARY_PATH=self.libraries))
        self.assertEqual(said, "TALVEX DLL Ver. 02.00\n")

    @unittest.skipUnless(shutil.which("pkg-config"), "there is no pkg-config")
    def test_pkg_config(self):
        environment = dict(os.environ, PKG_CONFIG_PATH=self.libraries + "/pkgconfig")
        self.assertEqual(output_of("pkg-config", "--modversion", "talvex", env=environment), VERSION + "\n")
        flags = output_of("pkg-config", "--cflags", "--libs", "talvex", env=environment).split()
        program = self.folder + "/host"
        subprocess.run(["cc", "-std=c99", "-Wall", "-Wextra", "-Werror", self.folder + "/source/host.c", "-o", program,
                        *flags], check=True)
        self.assert_runs(program)

    def configure(self, version, build):
        return subprocess.run([CMAKE, "-S", self.folder + "/source", "-B", build, "-DCMAKE_PREFIX_PATH=" + PREFIX,
                               "-DTALVEX_VERSION=" + version], capture_output=True, text=True)

    def test_cmake_package(self):
        build = self.folder + "/build"
        configured = self.configure(MAJOR, build)
        self.assertEqual(configured.returncode, 0, configured.stderr)
        subprocess.run([CMAKE, "--build", build], check=True, stdout=subprocess.DEVNULL)
        self.assert_runs(build + "/host")

    def test_cmake_refuses_another_major_version(self):
        configured = self.configure(str(int(MAJOR) + 1), self.folder + "/build")
        self.assertNotEqual(configured.returncode, 0)
        self.assertIn("version: " + VERSION, configured.stderr)


class OnePlaceForTheVersion(unittest.TestCase):
    def test_symbols_of_the_debian_package_are_the_exported_names(self):
        with open(os.path.join(TOP, "packaging/debian/symbols"), encoding="ascii") as file:
            header, *lines = file.read().splitlines()
        self.assertEqual(header, "libtalvex.so.%s libtalvex%s #MINVER#" % (MAJOR, MAJOR))
        listed = [line.split("@")[0].strip() for line in lines if not line.startswith("*")]
        with open(os.path.join(TOP, "src/talvex.map"), encoding="ascii") as file:
            exported = re.findall(r"^    (\w+);", file.read(), re.MULTILINE)
        self.assertEqual(sorted(listed), sorted(exported))

    def test_the_changelog_knows_this_version(self):
        with open(os.path.join(TOP, "CHANGELOG.md"), encoding="utf-8") as file:
            self.assertIn("## [%s]" % VERSION, file.read())


if __name__ == "__main__":
    unittest.main()
