# Shared by check, demo, package and what they call: one run at a time, and long steps that tell what they
# are and how many seconds they have taken. Progress goes to a terminal alone; a file gets plain lines.
# shellcheck shell=bash

# one_at_a_time: ends the script when another one works in this tree; they share build/ and its Wine.
one_at_a_time() {
  mkdir -p build
  exec {tree_lock}>build/tree.lock
  if ! flock --nonblock "$tree_lock"; then
    echo "another ./check, ./demo or ./package is running in this folder: type this again when it has ended" >&2
    exit 1
  fi
}

# with_progress TEXT COMMAND...: runs the command and gives its exit code. On a terminal the line is taken
# away in the end.
with_progress() {
  local text=$1 ticker status=0
  shift
  if [[ ! -t 2 ]]; then
    "$@"
    return
  fi
  (
    if [[ -v tree_lock ]]; then exec {tree_lock}>&-; fi
    exec {never}<> <(:)
    SECONDS=0
    until read -r -t 1 -u "$never"; do
      if ! kill -0 "$$" 2>/dev/null; then break; fi
      printf '\r\e[K%-34s%7d s' "$text" "$SECONDS" >&2
    done
  ) &
  ticker=$!
  "$@" || status=$?
  kill "$ticker" 2>/dev/null || true
  wait "$ticker" 2>/dev/null || true
  printf '\r\e[K' >&2
  return "$status"
}

# What follows is for scripts of several steps, which call one_at_a_time first: they set $root, and $logs, the
# folder of the steps' output.
passed=0 failed=0 skipped=0

# Each step is a session of its own, which is ended as a whole.
session=
end_session() {
  local signal patience
  if [[ -z $session ]]; then return; fi
  for signal in TERM KILL; do
    for ((patience = 50; patience > 0; patience--)); do
      pkill "-$signal" --session "$session" || break 2
      sleep 0.1
    done
  done
  wait "$session" 2>/dev/null || true
  session=
}

# report RESULT START REMARK: the rest of the line of a step.
report() {
  local seconds=$(((${EPOCHREALTIME/./} - $2) / 100000))
  printf "%s  %6s s  %s\n" "$1" "$((seconds / 10)).$((seconds % 10))" "$3"
}

# step NAME COMMAND...: runs it, reports how it went, and counts. The command may leave a remark for
# the line in the file $remark. Exit code 77 means that this machine cannot do it.
step() {
  local name=$1 status=0 start=${EPOCHREALTIME/./}
  local log=${logs:?}/${name// /-}.log
  shift
  export remark=$logs/.remark
  if [[ ! -t 2 ]]; then printf '%-34s' "$name"; fi
  : >"$remark"
  # A shell ignores interrupts in what it starts in the background; the tests shall not.
  setsid env --default-signal bash -c 'set -euo pipefail; "$@"' step "$@" {tree_lock}>&- >"$log" 2>&1 </dev/null &
  session=$!
  with_progress "$name" wait "$session" || status=$?
  end_session
  if [[ -t 2 ]]; then printf '%-34s' "$name"; fi
  case $status in
    0)
      passed=$((passed + 1))
      report passed "$start" "$(<"$remark")"
      ;;
    77)
      skipped=$((skipped + 1))
      report skipped "$start" "$(tail -n 1 "$log")"
      ;;
    *)
      failed=$((failed + 1))
      report FAILED "$start" "the end of ${log#"$root"/}:"
      tail -n 40 "$log" | sed 's/^/    /'
      ;;
  esac
  return "$status"
}

# A step that builds a preset, or only these of its targets.
build() { # PRESET [TARGET...]
  local preset=$1
  shift
  cmake --preset "$preset" && cmake --build --preset "$preset" --parallel "$(nproc)" ${1+--target "$@"}
}

# The steps are shells of their own.
export -f build
