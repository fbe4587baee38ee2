# Completion of objtrim's options and files for bash.
_objtrim() {
    local word=$2 options='-a -F -help -l -o= -prefixed_msgs -r= -s -stripreloc -V -vxworks
        -wildcards_in_secnames -wl= -bl= -x -X1 -X2 -X3 --convert-to-secrel-reloc
        --dont-update-dnm --idll --keep-symbol= --keep-used-common --no-keep-used-common
        --remove-section= --strip-orv-debug --strip-symbol= --strip-unneeded --update-dnm'
    # "=" parts words: what follows it is a word of its own, or the "=" itself.
    if [[ $word == = ]]; then
        word=
    elif [[ $3 != = && $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        [[ ${COMPREPLY[0]-} != *= ]] || compopt -o nospace
        return
    fi
    # Only the values of -o= and the operands are files.
    local option=${COMP_WORDS[COMP_CWORD - 2]-}
    [[ ${COMP_WORDS[COMP_CWORD]} != = ]] || option=$3
    if [[ $option == -o || $3 != = && $2 != = ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -F _objtrim objtrim
