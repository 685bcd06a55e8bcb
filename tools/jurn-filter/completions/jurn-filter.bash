# Completion of jurn-filter for bash: the tool says what may stand there.
_jurn_filter() {
  mapfile -t COMPREPLY < <("$1" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null | cut -f 1)
}

# What none of these words match is the name of a file.
complete -o default -F _jurn_filter jurn-filter
