# Completion of jurn-filter for fish: the tool says what may stand there.
function __jurn_filter_words
    jurn-filter --complete (commandline -opc)[2..] (commandline -ct) 2>/dev/null
end

complete -c jurn-filter -n 'count (__jurn_filter_words) >/dev/null' -f -a '(__jurn_filter_words)'
