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
  local output
  output=$(sources | xargs -0 -n 50 -P "$(nproc)" clang-format --dry-run --Werror 2>&1) && return
  sed -n 's/^\([^:]*\):[0-9].*/not formatted: \1/p' <<<"$output" | sort -u | grep . || echo "$output"
  return 1
}

case "${1:-}" in
  "") sources | xargs -0 clang-format -i ;;
  --check) check ;;
  *)
    echo "usage: tools/format.sh [--check]" >&2
    exit 2
    ;;
esac
