#!/usr/bin/env bash
# Reads the public header with each compiler that a host may be built with, as C89 and as C++, for
# Windows and natively. Usage: check_header.sh SOURCE_FOLDER
set -euo pipefail
cd "$1"
warnings=(-pedantic-errors -Wall -Wextra -Wconversion -Wshadow -Werror)
# The checks of widths and types are valid in both languages.
checks=tests/unit/header_is_c89.c
failed=0

compile() {
  if "$1" -fsyntax-only "${warnings[@]}" "${@:2}" -Iinclude "$checks"; then
    printf 'accepted by: %s\n' "$*"
  else
    printf 'REFUSED by: %s\n' "$*"
    failed=1
  fi
}

for compiler in gcc clang x86_64-w64-mingw32-gcc-posix; do
  compile "$compiler" -std=c89
done
for compiler in g++ clang++ x86_64-w64-mingw32-g++-posix; do
  compile "$compiler" -std=c++11 -x c++
  compile "$compiler" -std=c++20 -x c++
done
# Microsoft's compiler has 64-bit integers of its own, which clang takes for an extension.
microsoft=(--target=x86_64-pc-windows-msvc -Wno-language-extension-token -Wno-long-long)
compile clang "${microsoft[@]}" -std=c89
compile clang++ "${microsoft[@]}" -std=c++20 -x c++
exit "$failed"
