#!/usr/bin/env bash
# Writes docs/cli.md, the reference of the lumora program, from the program's own --help texts; with --check
# compares the file with what it would write and fails when they differ (the test Cli.TheReferenceMatchesTheHelp).
# Usage: cli-reference.sh LUMORA_PROGRAM docs/cli.md [--check]
set -euo pipefail

lumora=$1
reference=$2
commands=(composite dissolve blur convert alpha-gain unpremultiply accumulate bench demo)

generate() {
  echo "# The lumora program"
  echo
  echo "\`lumora\` is the library's command-line program (\`tools/lumora/\`). This reference is its own \`--help\`"
  echo "text, command by command; the test \`Cli.TheReferenceMatchesTheHelp\` keeps the two the same"
  echo "(\`scripts/cli-reference.sh build/bin/lumora docs/cli.md\` writes it again)."
  echo
  echo "## lumora --help"
  echo
  echo '```'
  "$lumora" --help
  echo '```'
  for command in "${commands[@]}"; do
    echo
    echo "## lumora $command"
    echo
    echo '```'
    "$lumora" "$command" --help
    echo '```'
  done
}

if [[ ${3:-} == --check ]]; then
  if ! diff -u "$reference" <(generate); then
    echo "$reference differs from the program's --help: run scripts/cli-reference.sh $lumora $reference" >&2
    exit 1
  fi
else
  generate >"$reference"
fi
