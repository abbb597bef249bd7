#!/bin/bash
# packages.sh WORK PACKAGE...: installs the packages in a copy of this system, builds and runs the user's programs against
# them, purges them, and fails if a file is left or lost. To be run in a mount namespace of its own, since the copy is a
# layer over the root folder in WORK. Ends with status 77 where this user may not mount one.
set -euo pipefail

work=$1
shift
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

mkdir -p "$work/layer"
mount -t tmpfs tmpfs "$work/layer" || exit 77  # a layer can't lie on another one
mkdir "$work/layer"/{upper,scratch,root}
mount -t overlay -o "lowerdir=/,upperdir=$work/layer/upper,workdir=$work/layer/scratch" overlay "$work/layer/root" || exit 77
root=$work/layer/root
mount -t proc proc "$root/proc" 2>/dev/null || true
mount --rbind /dev "$root/dev"
mkdir -p "$root/kzcore"
cp "$@" "$here"/consumer/main.c* "$root/kzcore/"

Files() { (cd "$root" && find etc usr var -path var/cache -prune -o -path var/log -prune -o -print | LC_ALL=C sort); }
In() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 bash -euc "cd /kzcore; $1"; }

Files >"$work/before"
In "dpkg --install *.deb"
In 'g++-12 -std=c++20 main.cpp -o host $(pkg-config --cflags --libs kzcore) && ./host'
In 'gcc-12 -std=c11 main.c -o chost $(pkg-config --cflags --libs kzcore) && ./chost'
In 'printf "[a]\nb = c\n" >x.ini && test "$(kzini get x.ini a b)" = c'
In 'rm host chost; dpkg --purge kzcore-tools libkzcore-dev libkzcore0'
Files >"$work/after"
diff "$work/before" "$work/after"
echo "packages: installed, used and purged"
