# What bash offers after the words of a command line that ends in the last argument; one a line, sorted.
# usage: complete.bash COMPLETION WORD…
source "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
# Only a shell that reads a terminal has it.
compopt() { :; }
_pavo
printf '%s\n' "${COMPREPLY[@]}" | sort
