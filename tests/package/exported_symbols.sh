#!/usr/bin/env bash
# Compares the names that leave the library with those that its headers declare as exported: a class
# for all its members. No output, and success, when they are the same.
set -euo pipefail
library=$1
shift

statements() { sed -E 's,//.*|/\*.*\*/,,; /^ *#/d' "$@" | tr '\n' ' ' | tr ';{}' '\n'; }
declared=$(statements "$@" | sed -nE 's/.*(TUK_MEM|TUK_MEM_C|PLATFORM)_API +//p' |
  sed -E 's/\(.*//; s/ (:|final).*//; s/ +$//; s/.*[ *&]//' | sort -u)

nm -DC --defined-only "$library" | cut -c20- |
  sed -E 's/^(typeinfo name|typeinfo|vtable) for //; s/[[(].*//' |
  awk -F:: -v declared="$declared" '
    BEGIN { split(declared, names, "\n"); for (i in names) known[names[i]] }
    { print $NF in known ? $NF : $1 }' |
  sort -u | diff <(echo "$declared") -
