#!/usr/bin/env bash
# The floors of the house: a folder of src/ includes only folders that stand earlier in this list, and itself. Each breach
# is named with both files. Beside the order: only entry/ knows in which of the two worlds the program runs, and the
# Windows interface does not name the program.
#
#   check-layers.sh [FOLDER]        FOLDER has the src/ to look at; by default the one beside tools/
#   check-layers.sh --self-test     plants one breach after another in a copy of src/ and demands that each is found
set -eu -o pipefail
self=$(realpath "$0")
top=$(dirname "$(dirname "$self")")
floors=(win32 text resources report probes links fsops validate records configuration redirect regredirect profiles survey cli entry)

if [ "${1:-}" = --self-test ]; then
  scratch=$(mktemp -d)
  trap 'rm -rf "$scratch"' EXIT
  any_of() { find "$scratch/src/$1" -maxdepth 1 -name "$2" | sort | head -n 1; }
  # must_fail FILE LINE EXPECTED: with that line in the file the check fails and names EXPECTED.
  must_fail() {
    printf '%s\n' "$2" >>"$1"
    said=$("$self" "$scratch" 2>&1) && { echo "not found: $2 in ${1#"$scratch/"}" >&2; exit 1; }
    [[ $said == *"${1#"$scratch/"}:"*"$3"* ]] || { printf 'badly named: %s in %s\n%s\n' "$2" "$1" "$said" >&2; exit 1; }
    if [ -f "$top/${1#"$scratch/"}" ]; then cp "$top/${1#"$scratch/"}" "$1"; else rm "$1"; fi
  }
  cp -r "$top/src" "$scratch"
  "$self" "$scratch"
  for ((i = 1; i < ${#floors[@]}; ++i)); do
    below=$(any_of "${floors[i - 1]}" '*.h') above="${floors[i]}/planted.h"
    must_fail "$below" "#include \"$above\"" "includes src/$above"
    [ "${floors[i]}" = entry ] || must_fail "$(any_of "${floors[i]}" '*.h')" '#include <windows.h>' 'windows.h'
  done
  for forbidden in '"win32/emulated/machine.h"' '"win32/native/handles.h"' '<unistd.h>' '<sys/stat.h>' '<fcntl.h>'; do
    must_fail "$(any_of text '*.h')" "#include $forbidden" "${forbidden:1:-1}"
  done
  must_fail "$scratch/src/win32/emulated/machine.h" '#include "cli/main.h"' 'includes src/cli/main.h'
  must_fail "$scratch/src/win32/native/process.cpp" '// as Quillbay wants it' 'Quillbay'
  mkdir "$scratch/src/attic" && must_fail "$scratch/src/attic/old.h" '#include "win32/win32.h"' 'not in the list'
  exit
fi

cd "${1:-$top}"
bad=0
complain() { printf '%s:\n%s\n' "$1" "$2" >&2; bad=1; }
sources() { find "$@" -name '*.h' -o -name '*.cpp' -o -name '*.inc'; }

# Input lines: FILE:LINE:#include "INCLUDED". Only entry/ may include what no folder of src/ has (the tools' parts of a
# workstation).
found=$(sources src | xargs grep -nE '^ *# *include +"' | awk -F: -v list="${floors[*]}" '
  BEGIN { count = split(list, names, " "); for (i = 1; i <= count; ++i) floor[names[i]] = i }
  {
    split($1, from, "/"); split($3, quoted, "\""); split(quoted[2], to, "/")
    if (!(from[2] in floor)) print $1 ": src/" from[2] " is not in the list of floors"
    else if (!(to[1] in floor)) { if (from[2] != "entry") print $1 ":" $2 " includes " quoted[2] ", which is no file of a floor" }
    else if (floor[to[1]] > floor[from[2]]) print $1 ":" $2 " includes src/" quoted[2] ", which stands above it"
  }')
[ -z "$found" ] || complain 'Includes against the order of the floors' "$found"

above=("${floors[@]:1}")
found=$(sources "${above[@]/#/src/}" | grep -v '^src/entry/' |
  xargs grep -nE '^ *# *include +(["<]win32/(native|emulated)|<(windows\.h|unistd\.h|sys/|fcntl\.h))' || true)
[ -z "$found" ] || complain 'The program includes what lies below the Windows interface' "$found"

found=$(sources src/win32 | xargs grep -nEi 'quillbay|rimehold|keelroom|velmora' || true)
[ -z "$found" ] || complain 'The Windows interface names the program' "$found"
exit $bad
