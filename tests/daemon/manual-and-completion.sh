#!/usr/bin/env bash
# The manual pages against the tool: qvfwctl(8) names exactly the commands and options of
# `qvfwctl --help`, both pages pass groff's warnings, and the generated bash completion
# completes commands and rule words in bash itself.
#   manual-and-completion.sh QVFWCTL SOURCE_DIR
set -euo pipefail
qvfwctl=$1 source_dir=$2
failed=0
fail() { echo "FAIL: $*" >&2; failed=1; }

# Words of `--help` lines in one section ("commands:" or "options:").
help_section() {
  "$qvfwctl" --help | awk -v s="$1:" '$0 == s {on = 1; next} /^$/ {on = 0} on && /^  [a-z-]/ {print $1}'
}
# Words at the head of the .TP entries of one section of the page.
page_section() {
  awk -v s=".SH $1" '$0 == s {on = 1; next} /^\.SH/ {on = 0} on && tp {print; tp = 0} /^\.TP/ {tp = on}' \
    "$source_dir/host/qvfwctl/man/qvfwctl.8" | sed -e 's/^\\fB//' -e 's/\\fR.*//' -e 's/\\-/-/g'
}
for section in commands:COMMANDS options:OPTIONS; do
  if ! diff <(help_section "${section%%:*}") <(page_section "${section##*:}"); then
    fail "qvfwctl(8) ${section##*:} differ from qvfwctl --help (< help, > page)"
  fi
done

for page in host/qvfwctl/man/qvfwctl.8 host/qvfwd/man/qvfwd.8; do
  warnings=$(groff -ww -man -z "$source_dir/$page" 2>&1)
  [ -z "$warnings" ] || fail "$page: $warnings"
done

# COMPREPLY for a command line whose last word is being completed.
complete_line() {
  bash -c 'source <("$1" completion bash); shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
           _qvfwctl; echo "${COMPREPLY[*]}"' _ "$qvfwctl" qvfwctl "$@"
}
expect_completion() {
  local want=$1; shift
  local got; got=$(complete_line "$@")
  [ "$got" = "$want" ] || fail "completing '$*': got '$got', want '$want'"
}
expect_completion "$(help_section commands | tr '\n' ' ' | sed 's/ $//')" ""
expect_completion "add add-exception add-rules" add
expect_completion "list list-exceptions" --json li
expect_completion "tcp" add deny proto t
expect_completion "syn" add deny tcpflags s
expect_completion "keep-state" modify 3100 deny kee
expect_completion "--control --count --confirm" --co
expect_completion "on off" notify ""
exit "$failed"
