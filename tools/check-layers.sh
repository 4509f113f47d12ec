#!/usr/bin/env bash
# The program stands on the Windows interface, and the emulated workstation knows nothing of the program: what is
# included, and what is named, decides.
set -eu
cd "$(dirname "$0")/.."
bad=0
complain() { printf '%s:\n%s\n' "$1" "$2" >&2; bad=1; }

program=(src/cli src/log src/resources src/validate src/redirect src/fsops src/profiles src/regredirect src/probes)
found=$(grep -rnE '#include +["<](win32/(native|emulated)|windows\.h|unistd\.h|sys/|fcntl\.h)' "${program[@]}" --include='*.h' --include='*.cpp' || true)
[ -z "$found" ] || complain 'The program includes what lies below the Windows interface' "$found"

found=$(grep -rnEi 'quillbay|rimehold|keelroom|velmora' src/win32 --include='*.h' --include='*.cpp' --include='*.inc' || true)
[ -z "$found" ] || complain 'The Windows interface names the program' "$found"

found=$(grep -rnE '#include +"(cli|log|resources|validate|redirect|fsops|profiles|regredirect|probes)/' src/win32 || true)
[ -z "$found" ] || complain 'The Windows interface includes the program' "$found"

# Engines do not call commands.
found=$(grep -rnE '#include +"(cli/(main|dispatch|parser|command_table)|redirect/(folder|file)|regredirect/(location|registry_keys)|profiles/)' src/fsops src/validate src/probes src/log || true)
[ -z "$found" ] || complain 'An engine includes a command' "$found"
exit $bad
