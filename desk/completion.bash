# Completion in bash. The programs know what can come next; --complete makes them say it.
_dmd_desk() {
  local word candidate words=()
  # Of --name=value, bash makes three words.
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}" "$2"; do
    [ "$word" = = ] || words+=("$word")
  done
  COMPREPLY=()
  while IFS= read -r candidate; do
    case $candidate in
      :files) compopt -o filenames; mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$2") ;;
      :folders) compopt -o filenames; mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -d -- "$2") ;;
      "$2"*) COMPREPLY+=("${candidate%%$'\t'*}") ;;
    esac
  done < <("$1" --complete "${words[@]}" 2> /dev/null)
}
complete -F _dmd_desk phone dmd-config-check dmd-report
