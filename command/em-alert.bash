# SPDX-License-Identifier: Apache-2.0

# bash completion for em-alert: the program itself knows its commands.
_em_alert() {
    local words=("${COMP_WORDS[@]:1:COMP_CWORD}") skip=0
    while [[ ${words[skip]} == -* && $skip -lt $((COMP_CWORD - 1)) ]]; do
        case ${words[skip]} in
            --module | --socket | --state | --trace | --trace-file)
                [[ ${words[skip + 1]} != = ]] || ((skip += 1))
                ((skip += 2))
                ;;
            *) ((skip += 1)) ;;
        esac
    done
    if ((skip >= COMP_CWORD)); then # the value of an option
        compopt -o default
        return
    fi
    local word=${COMP_WORDS[COMP_CWORD]}
    if [[ $word == - || $word == --* ]] && ((skip == COMP_CWORD - 1)); then
        local options
        options=$(em-alert --help | grep -oE '^  (-h,)?--[a-z-]+' | sed 's/.*--/--/')
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        return
    fi
    mapfile -t COMPREPLY < <(em-alert --complete "${words[@]:skip}" 2>/dev/null)
    [[ ${#COMPREPLY[@]} -gt 0 ]] || compopt -o default
}
complete -F _em_alert em-alert
