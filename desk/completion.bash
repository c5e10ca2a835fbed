# Completion in bash. The programs know what can come next; --complete makes them say it.
_dmd_desk() {
  local candidate
  COMPREPLY=()
  while IFS= read -r candidate; do
    case $candidate in
      :files) mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$2") ;;
      :folders) mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -d -- "$2") ;;
      "$2"*) COMPREPLY+=("${candidate%%$'\t'*}") ;;
    esac
  done < <("$1" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2> /dev/null)
}
complete -o filenames -F _dmd_desk phone dmd-config-check dmd-report
