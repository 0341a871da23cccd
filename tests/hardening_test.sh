#!/usr/bin/env bash
# Hardening of the built daemon. Arguments: its file, and 1 to check its library calls too (not for
# sanitizer and debug builds, whose calls differ).
set -euo pipefail
status=0
expect() { # COUNT REGEX TEXT: exactly COUNT lines of TEXT must match.
    local found
    found=$(grep -cE -- "$2" <<<"$3") || true
    if ((found != $1)); then
        echo "$2: $found lines, not $1"
        status=1
    fi
}

export LC_ALL=C
elf=$(readelf --wide --program-headers --dynamic "$1")
expect 1 '\(FLAGS_1\) +Flags: NOW PIE' "$elf"
expect 0 TEXTREL "$elf"
expect 1 '^ +GNU_RELRO ' "$elf"
expect 1 '^ +GNU_STACK .* RW ' "$elf"
expect 0 '^ +[A-Z_]+ +0x.* R?WE ' "$elf"

imports=$(readelf --wide --dyn-syms "$1" | awk '$7 == "UND" { sub("@.*", "", $8); print $8 }')
if (($2)); then
    expect 1 '^__stack_chk_fail$' "$imports"
    if [[ ! $imports =~ __(read|recv|memcpy|snprintf)_chk ]]; then
        echo "no checked call: _FORTIFY_SOURCE was lost"
        status=1
    fi
    unsafe='getaddrinfo|gethostby.*|getnameinfo|getservbyname|res_query|system|popen|v?fork|exec.*'
    unsafe+='|posix_spawnp?|dlopen|setenv|putenv|secure_getenv|mprotect|strcpy|strcat|sprintf|gets'
    expect 0 "^($unsafe)\$" "$imports"
fi
exit $status
