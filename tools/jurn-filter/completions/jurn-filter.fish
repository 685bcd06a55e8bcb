# Completion of jurn-filter for fish. Subcommands and options come from the tool's own help.

# Prints the subcommand: the first word, and the first one after --then.
function __jurn_filter_command
    set -l command
    for word in (commandline -opc)[2..]
        if test "$word" = --then
            set command
        else if test -z "$command"
            set command $word
        end
    end
    echo $command
end

# Prints the help for this place: after --then, what the tool takes after another filter.
function __jurn_filter_help
    if contains -- --then (commandline -opc)
        jurn-filter average IN OUT --length 1 --then $argv --help 2>/dev/null
    else
        jurn-filter $argv --help 2>/dev/null
    end
end

function __jurn_filter_options
    set -l options (__jurn_filter_help (__jurn_filter_command) | string match -rg '^  (?:-[a-z],)?(--[a-z-]+)')
    printf '%s\n' $options
    contains -- --block $options; and echo --then # it filters
end

complete -c jurn-filter -n 'test -z "$(__jurn_filter_command)"' -f -a \
    "(__jurn_filter_help | string match -rg '^  ([a-z]+) ')"
complete -c jurn-filter -n 'test -n "$(__jurn_filter_command)"; and string match -q -- "-*" (commandline -ct)' \
    -f -a '(__jurn_filter_options)'

complete -c jurn-filter -l bits -x -a '16 24 float'
complete -c jurn-filter -l type -x -a 'wav flac raw aiff au caf w64 rf64 ogg opus mp3'
complete -c jurn-filter -l precision -x -a 'int16 double float'
complete -c jurn-filter -l format -x -a 'numbers named single npy npz mat json header biquads equaliser camilla rew audio S16LE S24LE3 S24LE S32LE FLOAT32LE FLOAT64LE'
complete -c jurn-filter -l route -x -a 'straight crossed left-only mono-to-stereo'
complete -c jurn-filter -l of -x -a 'magnitude square'
complete -c jurn-filter -l as -x -a 'coefficients response routes setup hrtf'
complete -c jurn-filter -l show -x -a 'magnitude phase delay impulse step poles'
