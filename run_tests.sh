#!/usr/bin/env bash
# Builds and runs the whole test suite: the C API tests (GoogleTest, through CTest) and the
# Python tests (pytest) against the installed velmorpy and batch service. Installs what it needs
# on a fresh machine. Set VELMOR_SANITIZE=ON to build the C API tests with AddressSanitizer and
# UndefinedBehaviorSanitizer.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
cd "$here"
PY="${PYTHON:-python3}"

# System packages: GoogleTest for the C API tests, zlib headers for compressed model files.
missing=""
[ -f /usr/include/gtest/gtest.h ] || missing="$missing libgtest-dev"
[ -f /usr/include/zlib.h ] || missing="$missing zlib1g-dev"
if [ -n "$missing" ]; then
  echo "== installing$missing (Debian)"
  SUDO=""
  if [ "$(id -u)" != 0 ]; then SUDO="sudo"; fi
  $SUDO apt-get update -qq
  $SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $missing >/dev/null
fi

echo "== installing build tools and velmorpy"
"$PY" -m pip install -q --disable-pip-version-check cmake ninja "highsbox==1.15.1"
"$PY" -m pip install -q --disable-pip-version-check ".[test,docs,batch]"

echo "== C API tests"
cmake -S . -B build/tests -G Ninja -DPython_EXECUTABLE="$(command -v "$PY")" \
  -DVELMOR_BUILD_TESTS=ON -DVELMOR_BUILD_MODULE=OFF -DVELMOR_SANITIZE="${VELMOR_SANITIZE:-OFF}" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/tests
ctest --test-dir build/tests --output-on-failure -j2

echo "== Python tests"
# Run from outside the source tree so that the installed module is the one imported.
cd /tmp
"$PY" -m pytest -q -p no:cacheprovider "$here/tests/module" "$here/tests/service"

echo "== documentation (warnings are errors)"
PYTHON="$PY" "$here/docs/site/build.sh" "$here/build/docs"
