# SPDX-License-Identifier: MIT
"""The tree that the tests have installed, and what they were told about it."""

import os
import shutil
import subprocess
from pathlib import Path

SOURCE, BUILD, STAGE = (Path(os.environ[f"VOICE_{name}"]) for name in ("SOURCE", "BUILD", "STAGE"))
CMAKE, CC, CXX, READELF, VERSION = (
    os.environ[f"VOICE_{name}"] for name in ("CMAKE", "CC", "CXX", "READELF", "VERSION")
)
FOLDERS = {name: os.environ[f"VOICE_{name.upper()}DIR"] for name in ("lib", "bin", "include", "man", "doc")}
LIB, BIN, INCLUDE, MAN = (STAGE / FOLDERS[name] for name in ("lib", "bin", "include", "man"))
HOSTS = ("voice_application", "fxs_plugin", "dect_plugin", "fxo_plugin", "dsp_plugin")
ON_NO_LIBRARY = "kex_conformance"  # it loads the one that it is told
PROGRAMS = (*HOSTS, "voicectl", ON_NO_LIBRARY)
WITH_SDBUS = os.environ.get("VOICE_SDBUS") == "ON"
PREFIX = "/opt/voice"  # what the installation believes; nothing is ever there
LIMIT = 100  # seconds for any one command


def clean_environment(**more):
    """Nothing but the path: neither the user's compiler flags nor other places to look for packages or libraries."""
    return {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LC_ALL": "C.UTF-8", **more}


def run(*words, environment=None, **options):
    """Runs a command and returns what it wrote. Failing is an error that shows it."""
    done = subprocess.run(
        [str(word) for word in words],
        env=environment or clean_environment(),
        text=True,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        timeout=LIMIT,
        **options,
    )
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, words))}: status {done.returncode}\n{done.stdout}")
    return done.stdout


def install(folder, *components):
    """Installs as a packager does, for PREFIX but below a root, and takes it out of there: the tree has moved.
    Without components it is all of them."""
    shutil.rmtree(folder, ignore_errors=True)
    root = folder.with_name(folder.name + "-root")
    shutil.rmtree(root, ignore_errors=True)
    for options in [["--component", component] for component in components] or [[]]:
        run(CMAKE, "--install", BUILD, "--prefix", PREFIX, *options, environment=clean_environment(DESTDIR=str(root)))
    (root / PREFIX[1:]).rename(folder)
    shutil.rmtree(root)


def files(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir())
