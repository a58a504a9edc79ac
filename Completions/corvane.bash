# bash completion for corvanectl and corvane-headless.
# Scripts/completions writes corvane.bash from corvane.bash.in and the list.

# Sets `next` to what can come behind the words in $1; fails when nothing can.
_corvane_next() {
  case $1 in
    corvanectl)
      next=(
        'list'
        'current'
        'switch'
        'launch'
        'stop'
        'subscribe'
        'notify'
        'help'
        'version'
      )
      ;;
    corvanectl\ list)
      next=(
        '--json'
      )
      ;;
    corvanectl\ current)
      next=(
        '--json'
      )
      ;;
    corvanectl\ switch)
      next=(
        '@workspace'
      )
      ;;
    corvanectl\ launch)
      next=(
        '@workspace'
      )
      ;;
    corvanectl\ stop)
      next=(
        '@workspace'
      )
      ;;
    corvanectl\ notify)
      next=(
        '--agent'
        '--kind'
        '--cwd'
        '--message'
      )
      ;;
    corvanectl\ notify\ --agent)
      next=(
        'claude'
        'codex'
        'cursor'
      )
      ;;
    corvanectl\ notify\ --kind)
      next=(
        'needs-input'
        'done'
      )
      ;;
    corvanectl\ notify\ --cwd)
      next=(
        '@folder'
      )
      ;;
    corvanectl\ notify\ --message)
      next=(
        '@text'
      )
      ;;
    corvane-headless)
      next=(
        'hooks'
        '--socket'
        '--workspaces'
        '--answer'
        '--quiet'
        '--help'
        '--version'
      )
      ;;
    corvane-headless\ --socket)
      next=(
        '@file'
      )
      ;;
    corvane-headless\ --workspaces)
      next=(
        '@file'
      )
      ;;
    corvane-headless\ --answer)
      next=(
        'allow'
        'deny'
        'ask'
      )
      ;;
    corvane-headless\ hooks)
      next=(
        'status'
        'add'
        'remove'
        'show'
        'claude'
        'codex'
        'cursor'
        '--home'
        '--tool'
      )
      ;;
    corvane-headless\ hooks*\ --home)
      next=(
        '@folder'
      )
      ;;
    corvane-headless\ hooks*\ --tool)
      next=(
        '@file'
      )
      ;;
    corvane-headless\ hooks\ *)
      next=(
        'claude'
        'codex'
        'cursor'
        '--home'
        '--tool'
      )
      ;;
    *) return 1 ;;
  esac
}

# Takes the line apart as far as the cursor: the words before the current one are `words`, that one
# is `current`, all without their quotes, and `quote` is the one that is still open. readline will
# replace $1, the end of the current word; `kept` is how many characters of `current` stand before it.
_corvane_split() {
  local line=${COMP_LINE:0:COMP_POINT} character isQuoted='' i
  words=() current='' quote='' kept=0
  for ((i = 0; i < ${#line}; i++)); do
    if ((i == ${#line} - ${#1})); then kept=${#current}; fi
    character=${line:i:1}
    if [[ $character == \\ && $quote != \' ]]; then
      ((++i))
      character=${line:i:1}
      # Between double quotes it is an ordinary character before most others.
      if [[ $quote && $character != [\"\\\$\`] ]]; then character=\\$character; fi
    elif [[ $character == "$quote" ]]; then
      quote=
      continue
    elif [[ ! $quote && $character == [\"\'] ]]; then
      quote=$character isQuoted=1
      continue
    elif [[ ! $quote && $character == [[:blank:]] ]]; then
      if [[ $current || $isQuoted ]]; then words+=("$current"); fi
      current='' isQuoted=''
      continue
    fi
    current+=$character
  done
  if [[ ! $1 ]]; then kept=${#current}; fi
}

# Prints a text as it is to be typed behind the quote that is open, or without one.
_corvane_quoted() {
  local special=$' \t"\'\\`$!&;|<>()[]{}*?#~^=:@,' character text='' i
  if [[ $quote == \" ]]; then special='"\`$'; fi
  for ((i = 0; i < ${#1}; i++)); do
    character=${1:i:1}
    if [[ $quote == \' ]]; then
      if [[ $character == \' ]]; then character="'\\''"; fi
    elif [[ $quote && $character == ! ]]; then
      character='"\!"' # it would call up the history, whatever stands before it
    elif [[ $special == *"$character"* ]]; then
      character=\\$character
    fi
    text+=$character
  done
  printf '%s\n' "$text"
}

# Sets `names` to those of the workspaces: none when the application does not run, or takes more than
# three seconds to answer. They come from its answer in JSON, because in the lines for people a name
# may look like the columns behind it. In JSON, a quote in a text has a backslash before it, so
# "name":" is never anything but the key. A name with a control character is left out: it cannot be
# shown.
_corvane_names() {
  local program=${words[0]} answer='' name
  local mark='"name":"' backslash='\\' quotes='\"'
  names=()
  if [[ $program == '~/'* ]]; then program=$HOME/${program:2}; fi
  IFS= read -r -t 3 answer < <("$program" list --json 2>/dev/null </dev/null)
  if [[ $answer != *"$mark"* ]]; then return; fi
  answer=${answer//"$backslash"/$'\36'}
  answer=${answer//"$quotes"/$'\37'}
  answer=${answer//"$mark"/$'\n'}
  while IFS= read -r name; do
    name=${name%%\"*}
    if [[ ! $name || $name == *\\* ]]; then continue; fi
    name=${name//$'\36'/\\}
    names+=("${name//$'\37'/\"}")
  done <<<"${answer#*$'\n'}"
}

# Offers the workspaces whose names begin with the current word; when there are none, the only one
# whose name does in upper or lower case.
_corvane_workspaces() {
  local names name others=() case_matters=1
  _corvane_names
  if shopt -q nocasematch; then case_matters=; fi
  for name in ${names[@]+"${names[@]}"}; do
    shopt -u nocasematch
    if [[ $name == "$current"* ]]; then
      COMPREPLY+=("$(_corvane_quoted "${name:kept}")")
    else
      shopt -s nocasematch
      if [[ $name == "$current"* ]]; then others+=("$name"); fi
    fi
  done
  if [[ $case_matters ]]; then shopt -u nocasematch; else shopt -s nocasematch; fi
  if ((${#COMPREPLY[@]} == 0 && ${#others[@]} == 1)); then
    COMPREPLY=("$(_corvane_quoted "${others[0]:kept}")")
  fi
}

# Offers the paths that `compgen $1` finds for $2.
_corvane_paths() {
  local path
  while IFS= read -r path; do COMPREPLY+=("$path"); done < <(compgen "$1" -- "$2")
  compopt -o filenames 2>/dev/null # bash 3.2 has none
}

_corvane() {
  local words current quote kept next place word position isNamed=''
  COMPREPLY=()
  _corvane_split "$2"
  # Where on the line the cursor is: `place` is the command so far, or an option waiting for its value.
  place=${words[0]##*/}
  for ((position = 1; position < ${#words[@]}; position++)); do
    word=${words[position]}
    # Only the first word is a command; an option's value is none.
    if ! _corvane_next "$place $word" || [[ $place != *\ * && $word != -* && $position != 1 ]]; then
      if [[ $word != --* ]]; then isNamed=1; fi
    elif [[ $word != -* ]]; then
      place="$place $word"
    elif ((++position == ${#words[@]})); then
      place="$place $word"
    fi
  done
  next=()
  _corvane_next "$place"
  case ${next[0]-} in
    @workspace) if [[ ! $isNamed ]]; then _corvane_workspaces; fi ;;
    @folder) _corvane_paths -d "$2" ;;
    @file) _corvane_paths -f "$2" ;;
    @text) ;;
    *)
      for word in ${next[@]+"${next[@]}"}; do
        if [[ $word != "$current"* || " ${words[*]} " == *" $word "* ]]; then continue; fi
        # In the first place there can be a command, and options.
        if [[ $place != *\ * && $word != -* ]] && ((${#words[@]} > 1)); then continue; fi
        COMPREPLY+=("$word")
      done
      ;;
  esac
}

complete -F _corvane corvanectl corvane-headless
