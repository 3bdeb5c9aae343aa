#!/usr/bin/env bash
# Builds the documentation site into build/docs (or $1) with every warning an error. Needs an
# importable velmorpy and the docs extra: pip install ".[docs]". The site starts at
# site/index.html; index.html at the top forwards there.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
out="${1:-$here/../../build/docs}"
"${PYTHON:-python3}" -m sphinx -W --keep-going -q -b html -c "$here" "$here/.." "$out"
printf '<!DOCTYPE html>\n<meta http-equiv="refresh" content="0; url=site/index.html">\n' > "$out/index.html"
echo "documentation built: $out/index.html"
