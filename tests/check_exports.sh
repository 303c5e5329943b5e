#!/bin/sh
# Fails when the shared library exports a symbol outside the KIRO_VASK2D namespace.
lib="$1"
bad=$(nm -D --defined-only -C "$lib" | awk '{ $1=""; $2=""; sub(/^  /, ""); print }' \
  | grep -v -E '^(KIRO_VASK2D::|typeinfo for KIRO_VASK2D::|typeinfo name for KIRO_VASK2D::|vtable for KIRO_VASK2D::)' \
  | grep -v -E '^(VASK2D_[0-9.]+|_init|_fini)$')
if [ -n "$bad" ]; then
  echo "symbols outside the library namespace:"
  echo "$bad"
  exit 1
fi
count=$(nm -D --defined-only -C "$lib" | grep -c 'KIRO_VASK2D::')
echo "exported library symbols: $count"
[ "$count" -gt 0 ]
