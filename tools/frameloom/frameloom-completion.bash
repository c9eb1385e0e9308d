# Bash completion for the frameloom tool: commands, their options, and file names elsewhere.
_frameloom() {
  local current=${COMP_WORDS[COMP_CWORD]}
  local command=${COMP_WORDS[1]}
  local words
  if [[ $COMP_CWORD -eq 1 ]]; then
    words="info palette recolor render compare play fetch cache demo archive --help --version --quiet"
  elif [[ $command == archive && $COMP_CWORD -eq 2 ]]; then
    words="list cat zip unzip add remove"
  elif [[ $command == cache && $COMP_CWORD -eq 2 ]]; then
    words="clear"
  elif [[ $current == -* ]]; then
    case $command in
      palette) words="--swatches" ;;
      recolor) words="--colors --output" ;;
      render) words="--colors --size --frame --sheet --fps --from --to --loop --background --format --output" ;;
      compare) words="--colors --size --frames --output" ;;
      play) words="--fps --seconds --from --output" ;;
      demo) words="--output" ;;
      archive)
        case ${COMP_WORDS[2]} in
          zip) words="--store --deflate --keep-parent -0 -1 -2 -3 -4 -5 -6 -7 -8 -9" ;;
          unzip) words="--skip-crc --allow-uncontained-symlinks --overwrite --skip-existing" ;;
          add) words="--store --deflate -0 -1 -2 -3 -4 -5 -6 -7 -8 -9" ;;
        esac
        ;;
    esac
    words="$words --help --quiet"
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -o filenames -F _frameloom frameloom
