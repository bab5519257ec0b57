# shellcheck shell=bash
# Completion for taskwarden, read from its own --help: the commands, the options of a command, and,
# by the word that stands for it there, what an option or a command takes. The names of events are from
# `taskwarden events`.
_taskwarden() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command='' help line section='' value='' words=() last=${current##*,}
  ((COMP_CWORD == 1)) || command=${COMP_WORDS[1]}
  COMPREPLY=()
  help=$("${COMP_WORDS[0]}" ${command:+"$command"} --help 2>/dev/null) || return

  local name='^  (-.,)?(--[a-z-]+)( ([A-Za-z|]+)(\[[^ ]*)?( |$))?' word='^  ([A-Za-z|]+)( |$)'
  while IFS= read -r line; do
    if [[ $line =~ ^([A-Z][a-z]+:)?$ ]]; then
      section=$line
    elif [[ $section == Options: && $line =~ $name ]]; then
      words+=("${BASH_REMATCH[2]}")
      [[ $previous != "${BASH_REMATCH[2]}" ]] || value=${BASH_REMATCH[4]}
    elif [[ $section == Subcommands: && $line =~ $word ]]; then
      words+=("${BASH_REMATCH[1]}")
    elif [[ $section == Positionals: && $line =~ $word && $current != -* ]]; then
      value=${BASH_REMATCH[1]}
    fi
  done <<<"$help"

  case $value in
    '') mapfile -t COMPREPLY < <(compgen -W "${words[*]}" -- "$current") ;;
    EVENT)
      words=("$("${COMP_WORDS[0]}" events | sed -n 's/^\([A-Za-z_]*\),.*sends a record$/\1/p')"
        suspected confirmed urgent ended memory threads open_files)
      mapfile -t COMPREPLY < <(compgen -P "${current%"$last"}" -W "${words[*]}" -- "$last")
      ;;
    DIR) compopt -o filenames && mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    FILE) compopt -o filenames && mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    COMMAND) mapfile -t COMPREPLY < <(compgen -c -- "$current") ;;
    PID | PROCESS) mapfile -t COMPREPLY < <(compgen -W "$(cd /proc && echo [1-9]*)" -- "$current") ;;
    *'|'*) mapfile -t COMPREPLY < <(compgen -W "${value//|/ }" -- "$current") ;;
  esac
}
complete -F _taskwarden taskwarden
