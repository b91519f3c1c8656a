#!/usr/bin/env bash
# Fails when any C or C++ source of the tree differs from what clang-format
# makes of it under the root .clang-format. Build trees and fuzz corpora are
# skipped. Fix a failure with: clang-format -i <file>
set -euo pipefail
cd "$(dirname "$0")/.."
clang_format=${CLANG_FORMAT:-clang-format}
if ! command -v "$clang_format" >/dev/null; then
    echo "check_format: $clang_format not found (scripts/setup.sh installs it)" >&2
    exit 2
fi
mapfile -d '' files < <(find . \( -path ./build -o -path './build-*' -o -path ./.git \
                                 -o -path ./fuzz/corpus \) -prune -o -type f \
                               \( -name '*.c' -o -name '*.h' -o -name '*.cpp' -o -name '*.hpp' \
                                  -o -name '*.cc' \) -print0 | sort -z)
if [ ${#files[@]} -eq 0 ]; then
    echo "check_format: no sources found" >&2
    exit 2
fi
"$clang_format" --dry-run -Werror "${files[@]}"
echo "check_format: ${#files[@]} files formatted"
