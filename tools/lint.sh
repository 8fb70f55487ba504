#!/bin/bash
# Layout and static checks over all of src: clang-format, clang-tidy, cppcheck. Needs a configured build/release (its list of
# compile commands). ./tools/lint.sh --fix applies the layout.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
failed=0
mapfile -t all < <(git ls-files -co --exclude-standard -- '*.cpp' '*.h' '*.inl' | grep -v utf8_tables.cpp)
if [ "${1:-}" = --fix ]; then
  clang-format -i "${all[@]}"
else
  clang-format --dry-run -Werror "${all[@]}" || failed=1
fi
mapfile -t sources < <(git ls-files -co --exclude-standard -- 'src/*.cpp' | grep -v -e _win32.cpp -e utf8_tables.cpp)
printf '%s\n' "${sources[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy -p build/release --quiet --extra-arg=-Wno-unknown-warning-option 2>/dev/null || failed=1
cppcheck --quiet --std=c++20 --language=c++ --enable=warning,performance,portability --inline-suppr --error-exitcode=1 \
  --suppress=missingIncludeSystem --suppress=ctuPointerArith --suppress=uninitMemberVar --suppress=AssignmentAddressToInteger -Isrc "${sources[@]}" || failed=1
[ $failed = 0 ] && echo "lint: clean"
exit $failed
