#!/usr/bin/env bash
# The floors of the house: a folder of src/ includes only folders that stand earlier in this list, and itself. Each breach
# is named with both files. Beside the order: only entry/ knows in which of the two worlds the program runs, and the
# Windows interface does not name the program.
set -eu -o pipefail
cd "$(dirname "$0")/.."
floors=(win32 text resources report probes links fsops validate records configuration redirect regredirect profiles cli entry)
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
