# Completion of objtrim's options and files for bash.
_objtrim() {
    # made of the options: words
    local options='-a -l -r= --remove-section= -stripreloc --strip-orv-debug -s --strip-unneeded -x
        -vxworks -wildcards_in_secnames -wl= --keep-symbol= -bl= --strip-symbol=
        --convert-to-secrel-reloc --keep-used-common --no-keep-used-common --idll -X1 -X2 -X3 -o=
        --update-dnm --dont-update-dnm -F -prefixed_msgs -V -help'
    # end of what is made
    local word=$2
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
