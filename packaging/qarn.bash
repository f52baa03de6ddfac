# bash completion for qarn: options, and the files that they take.
_qarn() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    [[ ${COMP_WORDS[i]} == -e ]] && return # the rest are bytes
  done
  case $before in
    -u | --save | -v | --verify | -y | --sdr | -s | --sdrdump | -q | --fru | -f | --wfru | -w | \
      --seldump | -j | --cfg | -c)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      ;;
    -i | -m | -n | -g) ;;
    *)
      mapfile -t COMPREPLY < <(compgen -W '-h --open --debug --users -u --save --verify --sdr
        --sdrdump --nrst --fru --wfru --seldump --cfg --dhcp --imac --arp= --lan= -a -d -i -m -n -g -e
        --sp0 --sp1 --sp2 --sp3 --sp4 --prompt --strict --exact' -- "$word")
      [[ ${COMPREPLY[0]-} == *= ]] && compopt -o nospace 2>/dev/null
      ;;
  esac
}
complete -F _qarn qarn
