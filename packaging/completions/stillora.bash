# Completion of stillora's command line in bash. It needs nothing but bash 4.

# Files whose names have one of these extensions, "jpg|png", and folders; folders alone if there are none.
_stillora_files() {
    local extensions=$1 name
    compopt -o filenames 2>/dev/null
    while IFS= read -r name; do
        # The home folder's short name is kept as it was typed.
        if [[ -d ${name/#\~\//$HOME/} || ( -n $extensions && ${name,,} == *.@($extensions) ) ]]; then
            COMPREPLY+=("$name")
        fi
    done < <(compgen -f -- "$current")
}

_stillora_words() {
    COMPREPLY+=($(compgen -W "$1" -- "$current"))
}

_stillora() {
    local photos='avif|bmp|dib|gif|heic|heif|hif|j2c|j2k|jfif|jp2|jpc|jpe|jpeg|jpf|jpg|png|tif|tiff|webp'
    local sounds='aif|aifc|aiff|caf|flac|m4a|mp3|oga|ogg|opus|wav'
    local movies='m4v|mov|mp4'
    local making='--seconds --quality --codec --soundtrack --loop --fit-music --no-silence --reduce-borders --title'
    local valued=' --seconds --quality --codec --soundtrack --title --save -o --output --range --size --cover '
    local telling='--json --quiet -h --help'
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} first=2 options='' files='' word i
    COMPREPLY=()

    if ((COMP_CWORD == 1)); then
        _stillora_words 'create frame info waveform convert trim apps document -h --help --version'
        return
    fi
    if [[ $command == document ]]; then
        if ((COMP_CWORD == 2)); then
            _stillora_words 'new add list render check -h --help'
            return
        fi
        command="document ${COMP_WORDS[2]}" first=3
    fi

    # "=" is a word of its own in "--option=value", and so are "@" and ":" in the times of a sound.
    if [[ $current == = ]]; then
        current=''
    elif [[ $before == = ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    [[ $before == [@:] || $current == [@:] ]] && return

    # How many arguments that are no options stand before, and whether options may still follow.
    local arguments=0 ended=''
    for ((i = first; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        if [[ $ended ]]; then
            ((++arguments))
        elif [[ $word == -- ]]; then
            ended=yes
        elif [[ $word != -* && $valued != *" ${COMP_WORDS[i - 1]} "* ]]; then
            ((++arguments))
        fi
    done

    case $command in
        create) options="$making --save --skip-bad $telling" files="$photos" ;;
        frame) options='-o --output --quality --reduce-borders --show-faces -h --help' files="$photos" ;;
        info) options='--json --cover -h --help' files="$photos|$sounds|$movies" ;;
        waveform) options="-o --output --size --range --on-white $telling" files="$sounds" ;;
        convert) options="-o --output --range $telling" files="$sounds" ;;
        trim) options="-o --output --range $telling" files="$sounds" ;;
        apps) options='--json -h --help' files='*' ;;
        'document new') options="$making --skip-bad $telling" files="$photos|$sounds" ;;
        'document add') options="--soundtrack --skip-bad $telling" files="$photos|$sounds" ;;
        'document list') options='--json -h --help' ;;
        'document check') options="$telling" ;;
        'document render') options="--save --title --seconds --quality --codec --skip-bad $telling" ;;
        *) return ;;
    esac

    if [[ ! $ended && " $options " == *" $before "* ]]; then
        case "$command $before" in
            *' --quality') _stillora_words 'auto 240 360 480 720 1080 1440 2160'; return ;;
            *' --codec') _stillora_words 'avc1 hvc1 jpeg apcn ap4h apch apcs apco ap4x'; return ;;
            *' --soundtrack') _stillora_files "$sounds"; return ;;
            *' --save' | 'convert -o' | 'convert --output') _stillora_files ''; return ;;
            'trim -o' | 'trim --output') _stillora_files 'm4a'; return ;;
            *' -o' | *' --output') _stillora_files 'png'; return ;;
            *' --cover') _stillora_files 'png|jpg|jpeg'; return ;;
            *' --seconds' | *' --title' | *' --range' | *' --size') return ;;
        esac
    fi
    if [[ ! $ended && $current == -* ]]; then
        _stillora_words "$options"
        return
    fi
    # A document is a folder.
    [[ $command == document* ]] && ((arguments == 0)) && files=''
    if [[ $files == '*' ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    else
        _stillora_files "$files"
    fi
}

complete -F _stillora stillora
