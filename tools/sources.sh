#!/usr/bin/env bash
# Prints every C++ source of the project, one per line.
cd "$(dirname "$0")/.."
folders=()
for folder in include src tests benchmarks examples python/bindings; do
    if [ -d "$folder" ]; then folders+=("$folder"); fi
done
find "${folders[@]}" -name '*.hpp' -o -name '*.cpp' -o -name '*.inl' | sort
