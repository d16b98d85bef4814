# Sourced by the checks, in the root of the tree.

# Fills "sources" with the paths of all C++ files, also of those that git does not know yet. Ends the
# script where git lists none.
list_sources() {
    local reason=
    mapfile -t sources < <(git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h' 2>/dev/null)
    if [ ${#sources[@]} = 0 ]; then
        reason=$(git ls-files 2>&1 >/dev/null | head -n 1) || true
        echo "${0##*/}: git lists no sources in $PWD; the checks need git and a clone of the repository${reason:+ ($reason)}" >&2
        exit 1
    fi
}
