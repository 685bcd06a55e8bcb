# Completion of jurn-filter for bash. Subcommands and options come from the tool's own help.

_jurn_filter() {
  local tool=$1 current=$2 previous=$3 command= word words= help
  local -a ask=("$1")
  COMPREPLY=()
  # The subcommand is the first word, and the first one after --then.
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [[ $word == --then ]]; then
      command=
      # What the tool takes after another filter.
      ask=("$tool" average IN OUT --length 1 --then)
    elif [[ -z $command ]]; then
      command=$word
    fi
  done
  if [[ -z $command ]]; then
    words=$("${ask[@]}" --help 2>/dev/null | awk '/^Subcommands:/ { on = 1; next } !NF { on = 0 } on { print $1 }')
    [[ ${#ask[@]} -gt 1 ]] && words+=" --help" || words+=" --help --version"
  elif [[ $current == -* ]]; then
    help=$("${ask[@]}" "$command" --help 2>/dev/null)
    words=$(grep -oE '^  (-[a-z],)?--[a-z-]+' <<<"$help" | tr ', ' '\n\n')
    [[ $help == *"--block "* ]] && words+=" --then"  # it filters
  else
    case $previous in
      --bits) words="16 24 float" ;;
      --type) words="wav flac raw aiff au caf w64 rf64 ogg opus mp3" ;;
      --precision) words="int16 double float" ;;
      --format) words="numbers named single npy npz mat json header biquads equaliser camilla rew audio S16LE S24LE3 S24LE S32LE FLOAT32LE FLOAT64LE" ;;
      --route) words="straight crossed left-only mono-to-stereo" ;;
      --of) words="magnitude square" ;;
      --as) words="coefficients response routes setup hrtf" ;;
      --show) words="magnitude phase delay impulse step poles" ;;
    esac
  fi
  [[ -n $words ]] && mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

# What none of these words match is the name of a file.
complete -o default -F _jurn_filter jurn-filter
