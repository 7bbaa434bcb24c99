#!/bin/bash
# Checks the sources without running them.
#
#   scripts/lint.sh              format, shell scripts, Python scripts, spelling: seconds
#   scripts/lint.sh --tidy       and clang-tidy over all sources: about an hour on two cores
#   scripts/lint.sh --tidy REF   and clang-tidy over the sources changed since a commit
#
# clang-tidy compiles without the precompiled header, which also proves that every file includes
# what it uses.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh lint
failed=0

check() { # what, command...
    local what=$1
    shift
    if "$@"; then
        echo "ok: $what"
    else
        echo "FAILED: $what" >&2
        failed=1
    fi
}

text_files() {
    git ls-files -z -- ':!fuzz/corpus' ':!*.png' ':!*.svg' ':!*.ico'
}

shell_scripts() {
    git grep -lzE -e '^#!.*\b(ba)?sh\b' -- ':!docs' ':!md'
}

spelling() {
    # Names of the toolkit, of file formats and of our own that look like mistakes.
    text_files | xargs -0 codespell --quiet-level=3 \
        -L nd,hastable,hastables,openend,mor,doubleclick,msdos,curren,headerr,goup,lineseach,upto,parms,ot,te,fo,ba,ue,sur,nin,doubleclicked,clos,inout,ned,unning,nwe
}

python_scripts() {
    git ls-files -z '*.py' | xargs -0 python3 -c '
import ast, sys
for name in sys.argv[1:]:
    ast.parse(open(name, encoding="utf-8").read(), name)'
}

tidy() { # REF or nothing
    cmake -S . -B build/lint -G Ninja -DCMAKE_BUILD_TYPE=Debug -DMORVANE_PCH=OFF \
        -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
    # Sources include what the meta-object compiler makes.
    ninja -C build/lint -t targets all | sed -n 's/^\([^:]*_autogen\): .*/\1/p' | sort -u |
        xargs ninja -C build/lint >/dev/null
    if [ -n "${1:-}" ]; then
        git diff --name-only -z --diff-filter=d "$1" -- 'src/*.cpp' 'services/*.cpp' 'tour/*.cpp'
    else
        git ls-files -z 'src/*.cpp' 'services/*.cpp' 'tour/*.cpp'
    fi | xargs -0 -r -n 4 -P "$(nproc)" clang-tidy -p build/lint --quiet
}

check "format" scripts/format.sh --check
check "shell scripts" bash -c "$(declare -f shell_scripts); shell_scripts | xargs -0 shellcheck -S warning"
check "Python scripts" python_scripts
check "spelling" spelling
check "layers" python3 tests/support/check_layers.py .
check "waits" python3 tests/support/check_waits.py .
if [ "${1:-}" = --tidy ]; then
    check "clang-tidy" tidy "${2:-}"
fi
exit $failed
