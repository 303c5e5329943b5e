#!/bin/sh
# Installs the library from the build tree into a scratch prefix and builds a
# small application against it, once through find_package and once through
# pkg-config, then runs both.
set -e
build="$1"
work="$2"
# A library built with sanitizers needs their runtime in the application too.
extraFlags="$3"
rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"
src=$(dirname "$0")
cmake -S "$src" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_FLAGS="$extraFlags" > "$work/configure.log"
cmake --build "$work/build" > "$work/build.log"
LD_LIBRARY_PATH="$work/prefix/lib:$LD_LIBRARY_PATH" "$work/build/consumer"
libdir=$(ls -d "$work"/prefix/lib* | head -n 1)
PKG_CONFIG_PATH="$libdir/pkgconfig" c++ -std=c++17 $extraFlags "$src/consumer.cpp" -o "$work/consumer_pc" \
  $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs vask2d)
LD_LIBRARY_PATH="$libdir" "$work/consumer_pc"
