# Completion of workstation, qbcreport and qbc in bash. What the first two take is asked of their own help, so it is written
# down here for no version; that of qbc needs a workstation, so its commands are listed.

# The words of $2 that begin with the word under the cursor. Readline takes a colon for the beginning of a word: what stands
# before the last one in the word is not offered again.
_quillbay_words() {
  local word=$1 before=
  [[ $word == *:* && $COMP_WORDBREAKS == *:* ]] && before=${word%"${word##*:}"}
  local IFS=$'\n'
  local -a found
  mapfile -t found < <(compgen -W "${2// /$'\n'}" -- "$word")
  COMPREPLY=("${found[@]#"$before"}")
}

_quillbay_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen "$1" -- "$2")
}

# $words and $cword: the command line with words as the shell parts them, not readline.
_quillbay_line() {
  words=() cword=0
  local line=${COMP_LINE:0:COMP_POINT} word
  read -ra words <<<"$line"
  [[ $line == *[[:space:]] ]] && words+=("")
  cword=$((${#words[@]} - 1))
}

_workstation() {
  local words cword help options
  _quillbay_line
  local word=${words[cword]} verb=${words[1]}
  if ((cword == 1)) || { ((cword == 2)) && [[ $verb == --help ]]; }; then
    local verbs
    verbs=$(workstation --help | sed -n '/^Commands:/,/^Exit/s/^  \([a-z0-9]\+\) FOLDER.*/\1/p' | sort -u)
    ((cword == 1)) && verbs+=$'\n--help\n--version'
    _quillbay_words "$word" "${verbs//$'\n'/ }"
    return
  fi
  ((cword == 2)) && { _quillbay_files -d "$word"; return; }
  help=$(workstation --help "$verb" 2>/dev/null)
  if [[ $word == -* ]]; then
    options=$(grep -o -e '\[\?--\?[A-Za-z0-9]\+[a-z0-9-]*' <<<"$help" | tr -d '[' | sort -u)
    _quillbay_words "$word" "${options//$'\n'/ }"
    return
  fi
  # What can stand at this place in one of the command's forms: words with small letters and "|" between them.
  local forms place
  forms=$(tr '\n' ' ' <<<"$help" | sed 's/  \+workstation /\n/g; s/  \+/ /g')
  place=$(awk -v at=$((cword)) 'NR > 1 {print $at}' <<<"$forms" | tr '|' '\n' | grep -x '[a-z0-9]\+' | sort -u)
  case $verb in
    import | adopt | put) ((cword == 3)) && place= ;;
  esac
  if [[ $place ]]; then
    _quillbay_words "$word" "${place//$'\n'/ }"
  else
    _quillbay_files -f "$word"
  fi
}

_qbcreport() {
  local words cword verbs options
  _quillbay_line
  local word=${words[cword]}
  if ((cword == 1)); then
    verbs=$(qbcreport --help 2>/dev/null | sed -n 's/^  [A-Za-z]* \([a-z]\+\).*/\1/p' | sort -u)
    _quillbay_words "$word" "${verbs//$'\n'/ } --help --version"
  else
    options=$(qbcreport --help 2>/dev/null | grep -o -e '--[a-z-]\+' | sort -u)
    _quillbay_words "$word" "${options//$'\n'/ }"
  fi
}

_qbc() {
  local words cword
  _quillbay_line
  local word=${words[cword]} command=${words[1],,}
  local location='/loc: /vol:' keep='/NTFS /-NTFS' shares='/Share /-Share'
  ((cword > 1)) || command=
  case ${command#?} in
    '') _quillbay_words "$word" '/Help /Version /GetRHStatus /CheckForUpdate /AutoRedirectUP /RedirectUP
      /RedirectUPDefault /RedirectFolder /RedirectRegKeyLocation /RedirectRegKey /RedirectFile' ;;
    redirectfolder) _quillbay_words "$word" "$location $keep $shares /d" ;;
    redirectfile) _quillbay_words "$word" "/loc: $keep /d" ;;
    redirectup) _quillbay_words "$word" "$location $keep $shares /DefaultProfile /PublicProfile" ;;
    redirectupdefault) _quillbay_words "$word" "$keep $shares /DefaultProfile /PublicProfile" ;;
    autoredirectup) _quillbay_words "$word" "/loc: /RedirectDefaultAndPublicProfile /d" ;;
    redirectregkeylocation) _quillbay_words "$word" "$location /d" ;;
    redirectregkey) _quillbay_words "$word" "/d" ;;
  esac
  [[ ${COMPREPLY[0]} == *: ]] && compopt -o nospace 2>/dev/null
}

complete -F _workstation workstation
complete -F _qbcreport qbcreport
complete -F _qbc qbc
