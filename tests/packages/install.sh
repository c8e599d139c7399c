#!/usr/bin/env bash
# Usage: install.sh BUILD
# Makes the packages of a build, installs them into an empty root, uses them from there, and removes them again.
set -euo pipefail
build=$1
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
fail() { echo "install.sh: $1" >&2; exit 1; }

cmake --build "$build" --target package >"$root.log" 2>&1 || { cat "$root.log"; fail "no packages"; }
rm -f "$root.log"
mkdir -p "$root"/var/lib/dpkg/{info,updates,triggers}
touch "$root"/var/lib/dpkg/{status,available}
# What the packages depend on is not in the empty root; what matters here is that nothing else is named.
into_root() { dpkg --root="$root" --force-depends --force-script-chrootless --log=/dev/null "$@" >/dev/null 2>&1; }
into_root --install "$build"/packages/*.deb || fail "the packages do not install"

for file in bin/ktl_memrun bin/ktl_memview lib/libktl_mem.so.1 lib/libktl_mem.so lib/libktl_memrun_agent.so \
    include/ktl_mem/mem.h lib/cmake/ktl_mem/ktl_mem-config.cmake lib/pkgconfig/ktl_mem.pc share/man/man1/ktl_memrun.1 \
    share/bash-completion/completions/ktl_memview; do
    ls "$root"/usr/"$file" "$root"/usr/"$file".gz >/dev/null 2>&1 || [[ -e $root/usr/$file ]] || fail "no /usr/$file"
done
for package in libktl-mem1 ktl-mem-tools libktl-mem-dev; do
    dpkg --root="$root" --status "$package" | grep -q '^Status: install ok installed' || fail "$package is not installed"
done

"$root"/usr/bin/ktl_memrun --quiet -o "$root"/reports -- /bin/ls / >/dev/null || fail "the launcher does not run"
"$root"/usr/bin/ktl_memview check "$root"/reports >/dev/null || fail "the reader does not read"
printf '#include <ktl_mem/mem.h>\nint main() { return mem_is_allocated(nullptr) ? 0 : 1; }\n' >"$root"/host.cpp
c++ -std=c++20 -I"$root"/usr/include "$root"/host.cpp -L"$root"/usr/lib -lktl_mem -Wl,-rpath,"$root"/usr/lib -o "$root"/host
"$root"/host || fail "a host does not run"

into_root --remove libktl-mem-dev ktl-mem-tools libktl-mem1 || fail "the packages do not go"
left=$(find "$root"/usr ! -type d 2>/dev/null || true)
[[ -z $left ]] || fail "left behind: $left"
echo "3 packages installed, used and removed"
