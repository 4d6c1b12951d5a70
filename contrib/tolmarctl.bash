# Completion of tolmarctl for bash. To be sourced, or installed as /usr/share/bash-completion/completions/tolmarctl.

_tolmarctl() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
  local commands="show diff explain check trace watch top metrics report clean"
  local tables="l3TunnelIpv4TH3 l3TunnelIpv6TH3 myStationTcamTH3 l3IifTH3"
  local valued="-r --runtime-folder -o --output --since --key --handle --interval --listen"
  local options="--help --runtime-folder" command="" option="" each
  for each in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ $each == "=" ]] && continue  # "--output=FILE" comes as three words
    [[ " $valued " != *" $option "* && " $commands " == *" $each "* ]] && command=$each
    option=$each
  done
  case $before in
    -r | --runtime-folder)
      mapfile -t COMPREPLY < <(compgen -d -- "$word")
      return
      ;;
    -o | --output)
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --since)
      mapfile -t COMPREPLY < <(compgen -W "90s 5m 2h 1d" -- "$word")
      return
      ;;
    --key)
      compopt -o nospace
      mapfile -t COMPREPLY < <(compgen -S = -W "l3Iif sip dip protocol l4DestPort l4SrcPort macAddr vlanId priority" -- "$word")
      return
      ;;
    --handle | --interval | --listen) return ;;
  esac
  case $command in
    "") options+=" --version $commands" ;;
    show) options+=" --key --json $tables" ;;
    explain) options+=" $tables" ;;
    diff) options+=" --key $tables" ;;
    watch) options+=" $tables" ;;
    trace) options+=" --follow --since --handle" ;;
    report) options+=" --output" ;;
    clean) options+=" --dry-run" ;;
    top) options+=" --once --interval" ;;
    metrics) options+=" --listen" ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
}

complete -F _tolmarctl tolmarctl
