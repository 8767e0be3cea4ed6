#!/usr/bin/env bash
# check_dll.sh DLL DEF OBJECTS: reads the headers of the shipped DLL, and the object files in the
# folder OBJECTS that it was made of, and tells what a user's machine would suffer from. The last
# line is 'N passed, N failed'; the exit code is 1 when one failed.
set -uo pipefail
dll=$1 def=$2 objects=$3
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

# Nor anything that came along with the compiler's libraries, such as an exception runtime: what is
# imported is called by the module's own code, or by the little C code that starts a DLL.
start='Sleep|TlsGetValue|VirtualProtect|__iob_func|_amsg_exit|_initterm|_lock|_unlock|abort|calloc|free|fwrite|realloc|strncmp|vfprintf'
called=$(find "$objects" -name '*.obj' -exec x86_64-w64-mingw32-nm -u {} + |
    awk '$1 == "U" { sub(/^__imp_/, "", $2); print $2 }' | sort -u)
imported=$(awk '/DLL Name:/ { table = 1; next } table && NF == 3 && $1 ~ /^[0-9a-f]+$/ { print $3 }' \
    <<<"$headers" | sort -u)
check "imports that the module does not call" \
    "$(comm -23 <(echo "$imported") <(echo "$called") | grep -vxE "$start" | paste -sd' ')"
check "nothing imported, or nothing called" "$([[ -n $imported && -n $called ]] || echo 'not found')"

# The stack protector ends the process by this instruction.
check "no stack protector" \
    "$(grep -qx __stack_chk_fail <<<"$called" && (( $($objdump -d "$dll" | grep -c 'int *\$0x29') )) || echo 'not found')"

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

# The static C++ library's exceptions weigh about as much as the module: they came along by mistake.
size=$(stat -c %s "$dll") limit=$((256 * 1024))
check "bytes, more than $limit" "$( ((size > limit)) && echo "$size")"

echo "$passed passed, $failed failed"
((failed == 0))
