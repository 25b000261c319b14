#!/usr/bin/env bash
# Formats all sources with clang-format, or only names those that are not formatted.
#
# usage: tools/format.sh [--check]
set -euo pipefail
cd "$(dirname "$0")/.."

folders=(include platform support config session reports transport testkit tests bench collector examples
  tools)

sources() {
  find "${folders[@]}" -type f \( -name '*.h' -o -name '*.cc' -o -name '*.c' \) -print0
}

check() {
  local wrong=0
  while IFS= read -r -d '' file; do
    clang-format --dry-run --Werror "$file" 2>/dev/null || {
      echo "not formatted: $file"
      wrong=1
    }
  done < <(sources)
  return $wrong
}

case "${1:-}" in
  "") sources | xargs -0 clang-format -i ;;
  --check) check ;;
  *)
    echo "usage: tools/format.sh [--check]" >&2
    exit 2
    ;;
esac
