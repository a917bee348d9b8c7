#!/bin/sh
# tests/checks/packages.sh - makes the packages twice, in folders of different names, and compares them to the byte;
# unpacks them into an empty root and runs the program there; looks for files that other packages have too.
set -eu
cd "$(dirname "$0")/../.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { printf '%s\n' "$*"; exit 1; }

./dev package >"$work/made"
mkdir "$work/elsewhere"
git ls-files -z | xargs -0 cp --parents -t "$work/elsewhere"
(
    SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
    export SOURCE_DATE_EPOCH
    "$work/elsewhere/dev" package >/dev/null
)
while read -r made; do
    cmp "$made" "$work/elsewhere/$made" || fail "$made depends on where or when it is built"
done <"$work/made"

mkdir "$work/root"
for package in build/package/*.deb; do dpkg-deb -x "$package" "$work/root"; done
for program in "$work"/root/usr/bin/*; do
    chroot "$work/root" "/usr/bin/$(basename "$program")" --version || fail "$program does not run in an empty root"
done
(cd "$work/root" && find . ! -type d | sed 's/^\.//') | while read -r file; do
    if owner=$(dpkg-query -S "$file" 2>/dev/null); then fail "this package has the file too: $owner"; fi
done
