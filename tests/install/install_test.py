#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What "cmake --install" leaves: the right files, nothing of the machine that built them, and enough for a plugin of an
outside project to be built in two ways, tested on the fake bus, and run against the installed application."""

import fnmatch
import re
import shlex
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[2] / "hosts" / "demo"))
from processes import System  # noqa: E402
from staged import (  # noqa: E402
    BIN,
    BUILD,
    CC,
    CMAKE,
    CXX,
    FOLDERS,
    INCLUDE,
    LIB,
    ON_NO_LIBRARY,
    PROGRAMS,
    READELF,
    SOURCE,
    STAGE,  # noqa: E402
    VERSION,
    WITH_SDBUS,
    clean_environment,
    files,
    install,
    run,
)

PAGES = STAGE / FOLDERS["doc"]
PROJECT = Path(__file__).resolve().parent / "project"
EXAMPLES = PAGES / "docs" / "examples"
BUSLESS = """cmake_minimum_required(VERSION 3.16)
project(own_bus LANGUAGES C)
find_package(voice_plugin 1.0 REQUIRED)
if(NOT TARGET voice_plugin::voice_plugin OR TARGET voice_plugin::kex)
    message(FATAL_ERROR "not the library alone")
endif()
"""
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]


def listed():
    """The rows of files.txt: component and pattern."""
    rows = (Path(__file__).parent / "files.txt").read_text().splitlines()
    rows = [row.format(version=VERSION, **FOLDERS).split() for row in rows if row and not row.startswith("#")]
    return [row for row in rows if WITH_SDBUS or row[0] != "sdbus"]


def is_elf(path):
    return path.is_file() and not path.is_symlink() and path.read_bytes()[:4] == b"\x7fELF"


class Install(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="voice-install-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def expect_files(self, found, patterns):
        unlisted = [path for path in found if not any(fnmatch.fnmatchcase(path, pattern) for pattern in patterns)]
        missing = [pattern for pattern in patterns if not fnmatch.filter(found, pattern)]
        self.assertEqual((unlisted, missing), ([], []), "files that files.txt does not list, and rows without a file")

    def expect_plugin_works(self, plugin, environment=None):
        """The outside plugin registers its line with the installed application, gets a dial tone, and leaves: also when
        the application hangs."""
        with System(BIN) as system:
            application = system.start_application("--no-stdin")
            door = system.start("door", plugin, environment=environment)
            application.expect("^plugin door registered$")
            application.expect(r"^endpoint 0 door\.DOOR1 number=\S+ codecs=PCMA$")
            application.expect("^line .* dial-tone$")
            door.expect("^registered in DE$")
            door.expect("^hears LIBVOICE_SIGNAL_cg_dt$")
            self.assertEqual(door.terminate(), 0)
            application.expect("^plugin door left$")
            again = system.start("door", plugin, environment=environment)
            again.expect("^registered in DE$")
            application.freeze()
            self.assertEqual(again.terminate(), 0)
            application.thaw()
            self.assertEqual(application.terminate(), 0)

    def test_stage(self):
        install(STAGE)

    def test_files(self):
        self.expect_files(files(STAGE), [pattern for _, pattern in listed()])

    def test_components(self):
        for component in sorted({component for component, _ in listed()}):
            with self.subTest(component):
                install(self.folder / component, component)
                self.expect_files(
                    files(self.folder / component), [pattern for owner, pattern in listed() if owner == component]
                )

    def test_nothing_of_this_machine(self):
        """No path of the sources or the build, also in debug information; libraries are found by the own place."""
        for path in STAGE.rglob("*"):
            if path.is_dir():
                continue
            data = path.read_bytes()
            for place in (SOURCE, BUILD):
                self.assertFalse(str(place).encode() in data, f"{path} names {place}")
            if not is_elf(path):
                continue
            dynamic = run(READELF, "--dynamic", "--wide", path)
            places = [line for line in dynamic.splitlines() if "(RPATH)" in line or "(RUNPATH)" in line]
            if path.parent == BIN and path.name != ON_NO_LIBRARY:
                self.assertEqual(len(places), 1, f"{path}: {places}")
                self.assertIn("[$ORIGIN/", places[0])
            else:
                self.assertEqual(places, [], path)

    def test_headers_alone(self):
        for header in sorted([*INCLUDE.glob("voice_plugin/*.h"), *INCLUDE.glob("voice_fake/*.h")]):
            name = header.relative_to(INCLUDE)
            ways = [(CXX, "c++", "c++17")]
            if name.parts[0] == "voice_plugin":
                ways.append((CC, "c", "c11"))
            for compiler, language, standard in ways:
                with self.subTest(f"{name} as {standard}"):
                    source = self.folder / "alone"
                    source.write_text(f"#include <{name}>\nextern int not_empty;\n")
                    run(
                        compiler,
                        "-x",
                        language,
                        f"-std={standard}",
                        *STRICT,
                        "-fsyntax-only",
                        "-I",
                        INCLUDE,
                        "-I",
                        INCLUDE / "voice_plugin",
                        source,
                    )

    def test_pages(self):
        """Links of the installed pages lead to installed files, and the glossary is among them. One of the packages has
        all pages, and what they link."""
        rows = (SOURCE / "debian" / "libvoice-plugin-dev.docs").read_text().split()
        packaged = [Path(row).relative_to("debian/tmp/usr/share/doc/voice_plugin") for row in rows]
        links = (SOURCE / "debian" / "libvoice-plugin-dev.links").read_text().split()[1::2]
        packaged += [Path(link).relative_to("usr/share/doc/libvoice-plugin-dev") for link in links]
        pages = sorted(PAGES.rglob("*.md"))
        self.assertIn(PAGES / "docs" / "glossary.md", pages)
        for page in pages:
            text = re.sub(r"```.*?```|`[^`\n]*`", "", page.read_text(), flags=re.S)
            targets = [name for name in re.findall(r"\]\(([^)#\s]+)", text) if not re.match("[a-z]+:", name)]
            for file in [page, *(page.parent / target for target in targets)]:
                self.assertTrue(file.exists(), f"{page.relative_to(PAGES)} links {file}")
                inside = file.resolve().relative_to(PAGES.resolve())
                self.assertFalse(set(packaged).isdisjoint((inside, *inside.parents)), f"{page.name}, {inside}")

    def test_programs(self):
        """They find their libraries, wherever the tree stands."""
        for program in PROGRAMS:
            self.assertIn(VERSION, run(BIN / program, "--version"))

    def test_debian(self):
        """The packages' version and lists of exported names are true: what fails there fails here first."""
        self.assertIn(f"voice-plugin ({VERSION})", (SOURCE / "debian" / "changelog").read_text().splitlines()[0])
        for package, library in (("libvoice-plugin1", "libvoice_plugin.so"), ("libkex1", "libkex.so")):
            rows = (SOURCE / "debian" / f"{package}.symbols").read_text().splitlines()
            listed_names = [row.split("@")[0].strip() for row in rows if row.startswith(" ")]
            table = run(READELF, "--dyn-syms", "--wide", LIB / library).splitlines()
            rows = [row.split() for row in table if re.match(r" *\d+: .* GLOBAL +DEFAULT +(ABS|\d+) ", row)]
            self.assertEqual(sorted(row[7].split("@")[0] for row in rows), sorted(listed_names), package)

    def test_sdbus(self):
        """The second libkex.so.1 stands beside the first one, under the same name, and its package has all of it."""
        install(self.folder / "sdbus", "sdbus")
        found = files(self.folder / "sdbus")
        self.expect_files(found, [pattern for component, pattern in listed() if component == "sdbus"])
        library = self.folder / "sdbus" / FOLDERS["lib"] / "voice_plugin" / "sdbus" / "libkex.so.1"
        self.assertNotEqual(library.parent, self.folder / "sdbus" / FOLDERS["lib"])
        dynamic = run(READELF, "--dynamic", "--wide", library)
        self.assertIn("[libkex.so.1]", next(row for row in dynamic.splitlines() if "(SONAME)" in row))
        self.assertNotRegex(dynamic, r"\((RPATH|RUNPATH)\)")
        packaged = (SOURCE / "debian" / "libkex-sdbus.install").read_text().split()
        for path in found:
            if not path.startswith(FOLDERS["doc"] + "/"):  # pages are in one package: see test_pages
                path = path.replace(FOLDERS["lib"], "usr/lib/any", 1)
                self.assertTrue(any(fnmatch.fnmatchcase(path, pattern) for pattern in packaged), path)

    def configure(self, project, build, place=STAGE):
        run(
            CMAKE,
            "-G",
            "Ninja",
            "-S",
            project,
            "-B",
            build,
            f"-DCMAKE_C_COMPILER={CC}",
            f"-DCMAKE_CXX_COMPILER={CXX}",
            f"-DCMAKE_PREFIX_PATH={place}",
            "-DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF",
            "-DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF",
        )

    def test_find_package(self):
        build = self.folder / "build"
        self.configure(PROJECT, build)
        run(CMAKE, "--build", build)
        self.assertIn("door: all holds", run(build / "door_test"))
        self.assertIn("echo: all holds", run(build / "echo_test"))
        self.expect_plugin_works(build / "door")

    def test_copy_of_the_project(self):
        """Its folder alone, as somebody copies it who begins a project, to a path with blanks."""
        copy = self.folder / "my project"
        shutil.copytree(PROJECT, copy)
        self.configure(copy, copy / "build")
        run(CMAKE, "--build", copy / "build", "--target", "door")

    def test_find_package_without(self):
        """A package that is not all there, or of another major version, is refused with the reason."""
        place = self.folder / "place"
        install(place, "runtime", "development")
        with self.assertRaisesRegex(AssertionError, "part (kex|fake_bus) is not installed"):
            self.configure(PROJECT, self.folder / "build-without", place)
        (self.folder / "CMakeLists.txt").write_text(BUSLESS)
        self.configure(self.folder, self.folder / "build-busless", place)
        (self.folder / "CMakeLists.txt").write_text(BUSLESS.replace("1.0", "2.0"))
        with self.assertRaisesRegex(AssertionError, f"version: {VERSION}"):
            self.configure(self.folder, self.folder / "build-newer", place)

    def package_flags(self, *packages):
        environment = clean_environment(PKG_CONFIG_LIBDIR=str(LIB / "pkgconfig"))
        for package in packages:
            self.assertEqual(run("pkg-config", "--modversion", package, environment=environment).strip(), VERSION)
        return [
            shlex.split(run("pkg-config", kind, *packages, environment=environment)) for kind in ("--cflags", "--libs")
        ]

    def test_pkg_config(self):
        found = clean_environment(LD_LIBRARY_PATH=str(LIB))
        cflags, libs = self.package_flags("voice_plugin", "kex")
        run(CC, "-std=c11", *STRICT, *cflags, PROJECT / "main.c", PROJECT / "door.c", *libs, "-o", self.folder / "door")

        run(CC, "-std=c11", *STRICT, *cflags, "-c", PROJECT / "door.c", "-o", self.folder / "door.o")
        for number, packages in enumerate((["voice_plugin", "voice_fake_bus"], ["voice_fake_bus", "voice_plugin"])):
            cflags, libs = self.package_flags(*packages)
            test = self.folder / f"door_test{number}"
            run(
                CXX,
                "-std=c++17",
                *STRICT,
                *cflags,
                PROJECT / "door_test.cpp",
                self.folder / "door.o",
                *libs,
                "-o",
                test,
            )
            self.assertIn("door: all holds", run(test, environment=found))
        self.expect_plugin_works(self.folder / "door", {"LD_LIBRARY_PATH": str(LIB)})

    def test_examples(self):
        """The examples of the pages are there to be compiled as the guide says."""
        cflags, libs = self.package_flags("voice_plugin", "kex")
        for sources in (
            ["telephone.c"],
            ["tone_giver.c"],
            ["intercom.c"],
            ["echo_plugin.c", "echo_lines.c"],
            ["ring.c"],
            ["display.c"],
            ["channels.c"],
        ):
            with self.subTest(sources[0]):
                run(
                    CC,
                    "-Wall",
                    "-Werror",
                    *cflags,
                    *[EXAMPLES / source for source in sources],
                    *libs,
                    "-o",
                    self.folder / "example",
                )

        # The guides' tests of a driver with media sockets, which it watches, and of an application.
        cflags, libs = self.package_flags("voice_plugin", "voice_fake_bus")
        for source, test, flags in (
            ("echo_lines.c", "echo_lines_test.cpp", []),
            ("tone_giver.c", "tone_giver_test.cpp", ["-Dmain=tone_giver_main"]),
        ):
            tested, program = self.folder / "tested.o", self.folder / "test"
            run(CC, *flags, *cflags, "-c", EXAMPLES / source, "-o", tested)
            run(CXX, "-std=c++17", *cflags, EXAMPLES / test, tested, *libs, "-lgtest_main", "-lgtest", "-o", program)
            self.assertIn("PASSED", run(program, environment=clean_environment(LD_LIBRARY_PATH=str(LIB))))


if __name__ == "__main__":
    unittest.main()
