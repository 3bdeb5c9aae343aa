#!/usr/bin/env bash
# Builds the documentation site into build/docs (or $1) with every warning an error. Needs an
# importable velmorpy and the docs extra: pip install ".[docs]".
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
out="${1:-$here/../../build/docs}"
exec "${PYTHON:-python3}" -m sphinx -W --keep-going -q -b html -c "$here" "$here/.." "$out"
