#!/usr/bin/env bash
# check_dll.sh DLL DEF: reads the headers of the shipped DLL and tells what a user's machine
# would suffer from. The last line is 'N passed, N failed'; the exit code is 1 when one failed.
set -uo pipefail
dll=$1 def=$2
objdump=x86_64-w64-mingw32-objdump
headers=$($objdump -p "$dll") && sections=$($objdump -h "$dll") || exit 1

passed=0 failed=0
# check WHAT FOUND: FOUND is what is wrong, empty when nothing is.
check() {
    if [[ -z $2 ]]; then ((++passed)); else ((++failed)); printf '%s: %s\n' "$1" "$2"; fi
}

# Exports, name by name: a decorated or a stray one shows on one side, a forgotten one on the other.
exported=$(awk '/\[Ordinal\/Name Pointer\] Table/ { table = 1; next }
                table && NF == 0 { exit }
                table { print $NF }' <<<"$headers" | sort)
wanted=$(awk 'names && NF { print $1 } $1 == "EXPORTS" { names = 1 }' "$def" | sort)
check "exports that differ from $def" "$(diff <(echo "$wanted") <(echo "$exported"))"

# Only what Windows itself brings may be needed beside the DLL.
windows='kernel32|user32|gdi32|advapi32|shell32|ole32|comctl32|msvcrt|ntdll|winspool\.drv'
check "imports that Windows does not bring" \
    "$(awk '/DLL Name:/ { print $3 }' <<<"$headers" | grep -viE "^($windows)(\.dll)?$" | paste -sd' ')"

missing=''
for flag in HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT; do
    grep -qw "$flag" <<<"$headers" || missing+="$flag "
done
check "flags missing" "$missing"
check "cannot be moved" "$(grep -i 'relocations stripped' <<<"$headers")"

# The name and size of a section stand on one line, its flags on the next.
check "sections both writable and executable" \
    "$(awk '/^ +[0-9]+ / { name = $2; next } /CODE/ && !/READONLY/ { print name }' <<<"$sections" | paste -sd' ')"
check "debug sections" "$(awk '$2 ~ /^\.debug/ { print $2 }' <<<"$sections" | paste -sd' ')"

# The static C++ library's streams and locales weigh about a megabyte: they came along by mistake.
size=$(stat -c %s "$dll") limit=$((768 * 1024))
check "bytes, more than $limit" "$( ((size > limit)) && echo "$size")"

echo "$passed passed, $failed failed"
((failed == 0))
