# What zsh offers behind beginnings of command lines.
# Usage: zsh -f complete.zsh FOLDER FILE BEGINNING..., with the FOLDER of the function _diagctl and a
# FILE to write to: for each beginning a line "<begin>", then each match on a line "<match>WORD".
#
# An interactive shell on a terminal of its own completes; the builtin that takes the matches is
# wrapped, so that they can be read instead of seen.

zmodload zsh/zpty || exit 1
folder=$1 file=$2
shift 2
: >$file

# await PATTERN COUNT: until the file has so many such lines. Reading keeps the terminal from filling.
await() {
  integer tries
  local line
  for (( tries = 0; tries < 2400; ++tries )); do
    (( $(grep -c -- "$1" $file) >= $2 )) && return
    zpty -r -t inner line 2>/dev/null || sleep 0.025
  done
  exit 1
}

zpty inner "PS1= zsh -f -i"
zpty -w inner "stty -echo; matches=${(q)file}; fpath=(${(q)folder} \$fpath)"
zpty -w inner 'autoload -Uz compinit; compinit -D -u'
zpty -w inner 'compadd() {
  local -a taken
  builtin compadd -O taken "$@"
  (( ${#taken} )) && print -rl -- "<match>"${^taken} >>$matches
  builtin compadd "$@"
}'
zpty -w inner "bindkey '^I' complete-word; unsetopt auto_menu; bindkey '^U' kill-whole-line"
zpty -w inner 'tell() { print -r -- "<end>" >>$matches }; zle -N tell; bindkey "^T" tell'
zpty -w inner 'print -r -- "<ready>" >>$matches'
await '<ready>' 1

integer done=0
for beginning in "$@"; do
  print -r -- '<begin>' >>$file
  zpty -n -w inner "$beginning"$'\t\x14'
  await '<end>' $((++done))
  zpty -n -w inner $'\x15'
done
zpty -d inner
