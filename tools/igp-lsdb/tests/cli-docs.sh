#!/usr/bin/env bash
# The man page and the bash completion say what the tool takes: every subcommand and every option
# that `igp-lsdb --help` and `igp-lsdb SUB --help` list, no more (completion), and the page renders
# without warnings.
#   cli-docs.sh TOOL MANPAGE COMPLETION
set -uo pipefail
tool=$1 page=$2 completion=$3
failed=0
fail() { echo "$*"; failed=1; }

options_of() {  # the long options a help text lists, sorted
    "$tool" "$@" --help | sed -n 's/^  *\(-[a-z],\)\{0,1\}\(--[a-z-]*\).*/\2/p' | sort -u
}
subcommands=$("$tool" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z]*\) .*/\1/p')
[[ -n $subcommands ]] || fail "no subcommands in igp-lsdb --help"

if warnings=$(groff -man -ww -z "$page" 2>&1) && [[ -n $warnings ]]; then
    fail "groff warns about $page: $warnings"
fi

# shellcheck source=/dev/null
source "$completion"
complete_words() {  # what the completion offers after the given words and a partial last word
    COMP_WORDS=(igp-lsdb "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    _igp_lsdb
    printf '%s\n' "${COMPREPLY[@]}" | sort -u
}

offered=$(complete_words "")
[[ $offered == "$(sort <<<"$subcommands")" ]] || fail "completion offers subcommands [$offered], help lists [$subcommands]"

for sub in $subcommands; do
    grep -q "^\.B $sub\$" "$page" || fail "$page has no entry for the subcommand $sub"
    wanted=$(options_of "$sub")
    for opt in $wanted; do
        grep -q -- "${opt//-/\\\\-}" "$page" || fail "$page does not describe $opt ($sub takes it)"
    done
    got=$(complete_words "$sub" --)
    [[ $got == "$wanted" ]] || fail "completion after '$sub' offers [$(echo $got)], help lists [$(echo $wanted)]"
done
levels=$(complete_words summary --level "")
[[ $(echo $levels) == "1 2 L1 L2" ]] || fail "completion offers levels [$(echo $levels)]"

[[ $failed == 0 ]] && echo "man page and completion agree with --help"
exit $failed
