#!/usr/bin/env bash
# Builds and runs the whole test suite: the C API tests (GoogleTest, through CTest) and the
# Python tests (pytest) against the installed velmorpy and batch service, from one build, then
# the documentation site. Installs what it needs on a fresh machine. Set VELMOR_SANITIZE=ON to
# build with AddressSanitizer and UndefinedBehaviorSanitizer. VELMOR_BUILD_DIR (default build/tests) and VELMOR_BUILD_TYPE
# (default RelWithDebInfo) choose the build tree, so that one already built can be reused.
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

echo "== installing build tools"
"$PY" -m pip install -q --disable-pip-version-check cmake ninja "scikit-build-core>=0.11" \
  "highsbox==1.15.1" numpy scipy pytest hypothesis mypy

# One CMake build serves both suites: pip builds velmorpy in $build with the C API tests
# switched on (the library is compiled once, as the object library both link), installs the
# package, and CTest then runs the tests from the same tree. Without build isolation the build
# sees the highsbox installed above, whose libhighs the test binaries keep using.
build="${VELMOR_BUILD_DIR:-build/tests}"
echo "== building libvelmor, its tests and velmorpy in $build (warnings are errors), installing velmorpy"
"$PY" -m pip install -q --disable-pip-version-check --no-build-isolation ".[test,docs,batch]" \
  --config-settings=build-dir="$build" \
  --config-settings=cmake.build-type="${VELMOR_BUILD_TYPE:-RelWithDebInfo}" \
  --config-settings=cmake.define.VELMOR_BUILD_TESTS=ON \
  --config-settings=cmake.define.VELMOR_WERROR=ON \
  --config-settings=cmake.define.VELMOR_SANITIZE="${VELMOR_SANITIZE:-OFF}"

echo "== C API tests"
ctest --test-dir "$build" --output-on-failure -j2

echo "== Python tests"
# Run from outside the source tree so that the installed module is the one imported.
# With VELMOR_SANITIZE=ON the installed module carries the sanitizers too, so Python preloads
# their runtime.
cd /tmp
if [ "${VELMOR_SANITIZE:-OFF}" = ON ]; then
  export LD_PRELOAD="$(gcc -print-file-name=libasan.so)" ASAN_OPTIONS=detect_leaks=0
fi
"$PY" -m pytest -q -p no:cacheprovider "$here/tests/module" "$here/tests/cli" "$here/tests/service"

echo "== documentation (warnings are errors)"
PYTHON="$PY" "$here/docs/site/build.sh" "$here/build/docs"
