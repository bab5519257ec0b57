# Completion for taskwarden, read from its own --help: the commands, the options of a command, and,
# by the word that stands for it there, what an option or a command takes. The names of events are from
# `taskwarden events`.
function __taskwarden_complete
    set -l before (commandline -opc)
    set -l current (commandline -ct)
    set -l section ''
    set -l value ''
    set -l words
    for line in ($before[1] $before[2] --help 2>/dev/null)
        if string match -qr '^([A-Z][a-z]+:)?$' -- $line
            set section $line
        else if test "$section" = Options:
            set -l found (string match -r '^  (?:-.,)?(--[a-z-]+) ?([A-Za-z|]*)(?: ?\[\S*)?(?= |$) *(.*)' -- $line)
            or continue
            set -a words "$found[2]"\t"$found[4]"
            if test "$before[-1]" = "$found[2]"
                set value $found[3]
            end
        else if test "$section" = Subcommands:
            set -l found (string match -r '^  ([a-z]+) *(.*)' -- $line)
            and set -a words "$found[2]"\t"$found[3]"
        else if test "$section" = Positionals:
            set -l found (string match -r '^  ([A-Z|]+)( |$)' -- $line)
            and not string match -q -- '-*' $current
            and set value $found[2]
        end
    end

    switch "$value"
        case ''
            printf '%s\n' $words
        case EVENT
            set -l head (string replace -r '[^,]*$' '' -- $current)
            $before[1] events | string replace -rf '^(\w+),.*sends a record$' "$head"'$1'
            printf "$head%s\n" suspected confirmed urgent ended memory threads open_files
        case DIR
            __fish_complete_directories $current
        case FILE
            __fish_complete_path $current
        case COMMAND
            __fish_complete_command
        case PID PROCESS
            __fish_complete_pids
        case '*|*'
            string split '|' -- $value
    end
end
complete -c taskwarden -f -a '(__taskwarden_complete)'
