#!/bin/sh
# Builds the LP/MPS reader fuzz target with clang (libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs it for SECONDS seconds (default 60) on a corpus seeded
# from tests/data. Usage: tests/fuzz/build_and_run.sh [SECONDS]
# Needs clang++ (Debian: apt-get install clang) and Python with highsbox (for HiGHS' headers
# and library, which the library sources link against). Exits non-zero when the fuzzer finds
# a failure; the reproducer is left in the work folder.
set -eu
SECONDS_TO_RUN="${1:-60}"
HERE="$(cd "$(dirname "$0")" && pwd)"
ROOT="$(cd "$HERE/../.." && pwd)"
WORK="${VELMOR_FUZZ_DIR:-$ROOT/build/fuzz}"
CXX="${CXX_FUZZ:-clang++}"
PYTHON="${PYTHON:-python3}"
command -v "$CXX" >/dev/null || { echo "clang++ not found: install clang" >&2; exit 2; }
HIGHS_INC="$("$PYTHON" -c 'import highsbox as h; print(h.highs_include_dir())')"
HIGHS_LIB="$("$PYTHON" -c 'import highsbox as h; print(h.highs_lib_dir())')"
mkdir -p "$WORK/obj" "$WORK/corpus"
FLAGS="-std=c++20 -O1 -g -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined"
FLAGS="$FLAGS -DVELMOR_BUILDING_LIBRARY -I$ROOT/lib/include -I$ROOT/lib/src -I$HIGHS_INC"
# The library's sources go into a static archive, so that only what the readers need is
# linked. The engine and the C API are left out: the readers never reach them (and clang
# releases before 16 reject some C++20 constructs used there).
OBJS=""
for src in $(find "$ROOT/lib/src" -name '*.cpp' -not -path '*/engine/highs_engine.cpp' -not -path '*/capi/*' | sort); do
  obj="$WORK/obj/$(echo "${src#$ROOT/lib/src/}" | tr '/' '_').o"
  if [ ! -f "$obj" ] || [ "$src" -nt "$obj" ]; then
    $CXX $FLAGS -c "$src" -o "$obj"
  fi
  OBJS="$OBJS $obj"
done
rm -f "$WORK/libvelmor_fuzz.a"
ar rcs "$WORK/libvelmor_fuzz.a" $OBJS
$CXX $FLAGS -fsanitize=fuzzer "$HERE/model_reader_fuzz.cpp" "$WORK/libvelmor_fuzz.a" -L"$HIGHS_LIB" -lhighs -lz \
  -Wl,-rpath,"$HIGHS_LIB" -o "$WORK/model_reader_fuzz"
# Seeds: every model file we keep, LP ones prefixed with 0 and MPS ones with 1.
for f in "$ROOT"/tests/data/*.lp "$ROOT"/tests/data/*.mps; do
  [ -f "$f" ] || continue
  case "$f" in *.mps) p=1 ;; *) p=0 ;; esac
  { printf '%s' "$p"; cat "$f"; } > "$WORK/corpus/seed_$(basename "$f")"
done
cd "$WORK"
ASAN_OPTIONS="detect_leaks=1" ./model_reader_fuzz -max_total_time="$SECONDS_TO_RUN" -max_len=65536 \
  -timeout=10 -rss_limit_mb=2048 corpus
