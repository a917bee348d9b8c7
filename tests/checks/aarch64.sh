#!/bin/sh
# tests/checks/aarch64.sh - compares the registers and virtual spaces of the live machine on aarch64, with the executable
# under a user-mode emulator, which gives a process 47 bits of address.
#   aarch64.sh VENTIX
ventix=$1
unset VENTIX_MACHINE
status=0

check() {  # NAME WANTED GOT
    [ "$2" = "$3" ] && return
    printf '%s:\n  wanted\n%s\n  got\n%s\n' "$1" "$2" "$3"
    status=1
}

check registers "$(for n in $(seq 0 30); do echo "x$n 64"; done; printf '%s\n' 'sp 64' 'pc 64' 'cpsr 32')" \
    "$("$ventix" lscpureg | awk 'NR > 1 { print $1, $3 }')"
check 'virtual spaces' '0x0000000000000000 0x00007FFFFFFFFFFF no
0xFFFF800000000000 0xFFFFFFFFFFFFFFFF yes
0xFFFF800000000000 0xFFFFBFFFFFFFFFFF yes
0xFFFFC00000000000 0xFFFFFFFFFFFFFFFF yes' "$("$ventix" lsmem -v | awk '$1 ~ /^0x3/ { print $2, $3, $5 }')"
exit "$status"
