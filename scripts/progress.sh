# To be sourced: one line on standard error says what is done and how far it is. On a terminal it is written over;
# elsewhere what is done is said once, and how far only at each tenth. KELVADROME_STEP stands before it, such as "2/5".

# progress WORDS [HOW_FAR]
progress() {
    local words="${KELVADROME_STEP:+[$KELVADROME_STEP] }$1"
    if [ -t 2 ]; then
        printf '\r\033[K%s' "$words${2:+: $2}" >&2
    elif [ "$words" != "${progress_said:-}" ]; then
        printf '%s\n' "$words" >&2
    fi
    progress_said=$words
}

# Takes the line away, for what is said next.
progress_end() {
    if [ -t 2 ]; then printf '\r\033[K' >&2; fi
}

# follow WORDS LOG: shows the numbers that a build or apt prints on our standard input; all of it goes to LOG.
follow() {
    local line tenth=
    progress "$1"
    while IFS= read -r line; do
        printf '%s\n' "$line" >>"$2"
        if [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]]; then
            show_part "$1" "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}" "${BASH_REMATCH[1]} of ${BASH_REMATCH[2]}"
        elif [[ $line =~ ^(dl|pm)status:[^:]*:([0-9]+) ]]; then
            local what=fetched
            [ "${BASH_REMATCH[1]}" = dl ] || what=installed
            show_part "$1" "${BASH_REMATCH[2]}" 100 "${BASH_REMATCH[2]} % $what"
        fi
    done
}

show_part() { # WORDS PART WHOLE HOW_FAR
    if [ -t 2 ]; then
        progress "$1" "$4"
    elif [ "$((10 * $2 / $3))" != "$tenth" ]; then
        tenth=$((10 * $2 / $3))
        printf '    %s\n' "$4" >&2
    fi
}
