#compdef phone dmd-config-check dmd-report
# Completion in zsh. The programs know what can come next; --complete makes them say it.
local -a candidates described
candidates=(${(f)"$("$words[1]" --complete "${(@)words[2,CURRENT]}" 2> /dev/null)"})
compset -P 1 '--*='
local candidate
for candidate in $candidates; do
  case $candidate in
    :files) _files ;;
    :folders) _files -/ ;;
    *) described+=("${${candidate//:/\\:}/$'\t'/:}") ;;
  esac
done
(( $#described )) && _describe word described
