#!/usr/bin/env bash
# The DLL's export table is exactly the table the ordinal host binds (its
# X(ordinal, result, name, ...) rows): every ordinal present, none extra,
# none with a name; the header records the same ordinal for every function;
# and the DLL imports only from the system (its C++ runtime and threads are
# linked in).
#   check_exports.sh <objdump> <scopemount.dll> <scopemount.h> <ordinal_host.c>
set -euo pipefail
objdump=$1 dll=$2 header=$3 host=$4

# "ordinal name", one line per function of the table.
table=$(sed -nE 's/^ *X\(([0-9]+), [^,]+, (Scope[A-Za-z0-9]+),.*/\1 \2/p' "$host")
expected=$(awk '{print $1}' <<<"$table" | sort)
listing=$("$objdump" -p "$dll")
# "[   0] +base[   1] 5b90 Export RVA": one line per exported ordinal.
actual=$(sed -n '/^Export Address Table/,/^$/p' <<<"$listing" |
  sed -nE 's/.*\+base\[ *([0-9]+)\] +[0-9a-f]+ Export RVA.*/\1/p' | sort)
# Named exports are listed under the name pointer table.
named=$(sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/p' <<<"$listing" | grep -E '^\s+\[' || true)

status=0
missing=$(comm -23 <(echo "$expected") <(echo "$actual") | tr '\n' ' ')
extra=$(comm -13 <(echo "$expected") <(echo "$actual") | tr '\n' ' ')
[ -z "$missing" ] || { echo "missing ordinals: $missing"; status=1; }
[ -z "$extra" ] || { echo "extra ordinals: $extra"; status=1; }
[ -z "$named" ] || { echo "exports with names:"; echo "$named"; status=1; }

# System DLLs only: no libstdc++, libgcc or winpthread beside the DLL.
imports=$(sed -nE 's/^\s*DLL Name: (.*)$/\1/p' <<<"$listing")
foreign=$(grep -viE '^(kernel32|msvcrt|ucrtbase|advapi32|user32|ntdll|api-ms-win-.*)\.dll$' <<<"$imports" || true)
[ -z "$foreign" ] || { echo "imports beyond the system DLLs: $foreign"; status=1; }

# The header's comment before each declaration starts with its ordinal
# ("/* 47: ..." or "/* Extension, 100: ...").
while read -r ordinal name; do
  recorded=$(awk -v name="$name" '
    /^\/\*/ { comment = $0 }
    $0 ~ "[ *]" name "\\(" { print comment; exit }' "$header" |
    sed -nE 's/^\/\* (Extension, )?([0-9]+):.*/\2/p')
  [ "$recorded" = "$ordinal" ] || { echo "$name: header records '${recorded}', table $ordinal"; status=1; }
done <<<"$table"

[ $status -eq 0 ] && echo "exports: $(echo "$actual" | wc -l) ordinals, no names, header agrees;" \
  "imports: $(echo $imports)"
exit $status
