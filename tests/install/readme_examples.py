#!/usr/bin/env python3
"""The README's examples of embedding the host, run exactly as printed against an install: the
blocks fenced as ```cpp app.cpp, ```cmake CMakeLists.txt and ```sh pkg-config are written out,
built with CMake or with the pkg-config command lines, and the program must load the installed
bundle and print the sum its Lua computes.

usage: readme_examples.py cmake|pkg-config README PREFIX LIBDIR BUNDLE_DIR WORK
"""
import os
import re
import shutil
import subprocess
import sys

MODE, README, PREFIX, LIBDIR, BUNDLE_DIR, WORK = sys.argv[1:7]


def blocks(text):
    """The fenced blocks whose info string names a file or a way of building, by that name."""
    return {name: body for name, body in re.findall(r"^```\w+ ([\w.-]+)\n(.*?)^```$", text, re.S | re.M)}


def run(command, **kwargs):
    done = subprocess.run(command, capture_output=True, text=True, **kwargs)
    if done.returncode != 0:
        sys.exit("%s\nexited %d\n--- stdout:\n%s--- stderr:\n%s" % (command, done.returncode, done.stdout, done.stderr))
    return done.stdout


with open(README) as f:
    examples = blocks(f.read())
folder = os.path.join(WORK, "readme_" + MODE)
shutil.rmtree(folder, ignore_errors=True)
os.makedirs(folder)
with open(os.path.join(folder, "app.cpp"), "w") as f:
    f.write(examples["app.cpp"])
# Installed programs run on their rpaths alone, not on a library path the build left.
environment = {key: value for key, value in os.environ.items() if key != "LD_LIBRARY_PATH"}
if MODE == "cmake":
    with open(os.path.join(folder, "CMakeLists.txt"), "w") as f:
        f.write(examples["CMakeLists.txt"])
    run(["cmake", "-S", folder, "-B", os.path.join(folder, "build"), "-DCMAKE_PREFIX_PATH=" + PREFIX], env=environment)
    run(["cmake", "--build", os.path.join(folder, "build")], env=environment)
    out = run([os.path.join(folder, "build", "app")], env=environment)
else:
    environment["PKG_CONFIG_PATH"] = os.path.join(PREFIX, LIBDIR, "pkgconfig")
    out = run(["sh", "-e", "-c", examples["pkg-config"]], cwd=folder, env=environment)
match = re.fullmatch(r"bundle: (.+)\nsum: RatioTime\( 5/6 \)\n", out)
if not match:
    sys.exit("unexpected output:\n" + out)
if os.path.realpath(match.group(1)) != os.path.realpath(os.path.join(PREFIX, BUNDLE_DIR)):
    sys.exit("the program loaded %s, not the installed bundle" % match.group(1))
print("ok", MODE)
