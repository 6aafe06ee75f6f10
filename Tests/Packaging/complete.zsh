# The line that zsh makes of a command line when it puts in everything that it would offer.
# usage: complete.zsh FOLDER-OF-COMPLETIONS SCRATCH-FOLDER LINE
zmodload zsh/zpty
zpty shell zsh -f -i
quit() { zpty -d shell; exit $1 }

zpty -w shell "
    PS1= PS2= RPS1= PROMPT_EOL_MARK=
    HISTFILE= ZDOTDIR=$2
    fpath=($1 \$fpath)
    autoload -Uz compinit && compinit -u -d $2/dump
    zstyle ':completion:*' completer _all_matches _complete
    zstyle ':completion:*' insert true
    zle -C everything complete-word _generic
    zstyle ':completion:everything:*' completer _all_matches _complete
    bindkey '^T' everything
    show() { print -r -- \"<LINE:\${(qqqq)BUFFER}>\"; BUFFER=; zle accept-line }
    zle -N show
    bindkey '^G' show
    stty -echo
    print -r -- READY'.'"
local seen
zpty -r -m shell seen '*READY.*' || quit 1
zpty -w -n shell "$3"$'\C-T\C-G'
zpty -r -m shell seen '*<LINE:*>*' || quit 1
print -r -- ${(Q)${${seen#*<LINE:}%%>*}}
quit 0
