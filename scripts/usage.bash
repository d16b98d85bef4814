# Sourced by the scripts. The comment at the head of a script is its usage text.

# Prints the text and ends the script: with 2, or with 0 where the text was asked for.
usage() {
    local text
    text=$(sed -n '2,/^[^#]/s/^# \{0,1\}//p' "${BASH_SOURCE[-1]}")
    if [ "${1-}" = asked ]; then
        printf '%s\n' "$text"
        exit 0
    fi
    printf '%s\n' "$text" >&2
    exit 2
}

case "${1-}" in
    -h | --help) usage asked ;;
esac
