# Shared by wine-run and wine-server: where Wine is for 64-bit and for 32-bit programs, and its
# server. Never changes anything outside build/.
#
# Each bitness has a prefix of its own, build/wine/x64 and build/wine/x86. Its server is kept alive
# between programs, since starting it costs seconds, and ends by itself when nothing has used it for
# some minutes, so that one that nobody stops does not stay.
#
# 64-bit programs run in the installed Wine. So do 32-bit ones where a 32-bit Wine is installed.
# Elsewhere they run in build/wine32-root, an i386 Debian that debootstrap makes once, entered by
# chroot in a mount namespace of the call's own, so that no mount outlives the last program.
# shellcheck shell=bash
# shellcheck source=scripts/steps.sh
. "$(dirname "${BASH_SOURCE[0]}")/steps.sh"

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
wine_home=${ZENTPOST_WINE_HOME:-$root/build/wine}
jail=$root/build/wine32-root
readonly root wine_home jail
readonly server_idle_seconds=300
# Programs get this exit code when nothing here can execute them; CTest counts it as skipped.
readonly cannot_execute=77

wine_select() { # ARCH: sets wine_arch, wine_place (here or jail) and the environment
  wine_arch=$1
  case $wine_arch in
    x64) wine_place=here ;;
    x86) if has_32_bit_wine; then wine_place=here; else wine_place=jail; fi ;;
    *)
      echo "unknown architecture '$wine_arch' (x64 or x86)" >&2
      exit 2
      ;;
  esac
  export WINEPREFIX=$wine_home/$wine_arch
  export WINEDEBUG=-all
  # Paths beyond ASCII need UTF-8. The locale also decides the ANSI code page, which is 1252 for C.
  export LC_ALL=${LC_ALL:-C.UTF-8}
  # Without a display a window is never shown, whoever runs this.
  unset DISPLAY WAYLAND_DISPLAY WINEARCH WINELOADER WINESERVER
}

has_32_bit_wine() {
  local file
  for file in /usr/lib/wine/wine /usr/lib/i386-linux-gnu/wine /usr/lib/wine/i386-unix \
    /usr/lib32/wine/i386-unix /opt/wine-*/lib/wine/i386-unix; do
    if [[ -e $file ]]; then return 0; fi
  done
  return 1
}

# Why programs of the selected architecture cannot be executed; empty when they can.
wine_obstacle() {
  if ! command -v wine >/dev/null || ! command -v wineserver >/dev/null; then
    echo "Wine is not installed (scripts/prepare windows installs it)"
  elif [[ $wine_place == here ]]; then
    return 0
  elif ((EUID != 0)); then
    echo "there is no 32-bit Wine, and only root can make and enter an i386 root"
  elif ! unshare --mount true 2>/dev/null; then
    echo "there is no 32-bit Wine, and the system refuses a mount namespace, which an i386 root needs"
  elif [[ -e $jail/usr/bin/wine ]]; then
    return 0
  elif ! command -v debootstrap >/dev/null; then
    echo "there is no 32-bit Wine, and no debootstrap to make an i386 root"
  fi
}

# The inside of a mount namespace: binds what programs need, at the same paths, and enters the i386
# root. Their files are in the source tree or in the folder for temporary files.
# shellcheck disable=SC2016 # expanded by that shell
readonly enter_jail='
set -e
jail=$1 tree=$2 temporary=$3 folder=$4
shift 4
mount --bind /proc "$jail/proc"
mount --rbind /dev "$jail/dev"
mount --bind /tmp "$jail/tmp"
for shared in "$temporary" "$tree"; do
  mkdir -p "$jail$shared"
  mount --bind "$shared" "$jail$shared"
done
exec chroot "$jail" /bin/sh -c "cd \"\$1\" && shift && exec \"\$@\"" sh "$folder" "$@"'

# Replaces this process with COMMAND ARGS... where the selected Wine is.
wine_exec() {
  if [[ $wine_place == here ]]; then
    exec "$@"
  fi
  local folder temporary=${TMPDIR:-/tmp}
  folder=$(pwd -P)
  [[ -d $temporary ]] || temporary=/tmp
  temporary=$(cd "$temporary" && pwd -P)
  case $folder/ in
    "$root"/* | "$temporary"/* | /tmp/*) ;;
    *)
      echo "a 32-bit program cannot run in $folder: only the source tree and $temporary are shared with the i386 root" >&2
      exit 126
      ;;
  esac
  exec unshare --mount --propagation private \
    /bin/sh -c "$enter_jail" sh "$jail" "$root" "$temporary" "$folder" "$@"
}

# Runs COMMAND ARGS... there in the background of everything: no terminal, no output, and none of our
# caller's open files, since a process that stays would keep the caller's pipes open with them.
wine_detached() {
  (
    cd "$root" || exit
    exec </dev/null >/dev/null 2>&1
    for entry in /proc/self/fd/*; do
      descriptor=${entry##*/}
      if ((descriptor > 2)); then eval "exec $descriptor>&-"; fi
    done
    wine_exec setsid --wait "$@"
  )
}

wine_server_runs() {
  [[ -d $WINEPREFIX ]] && wineserver -k0 >/dev/null 2>&1
}

make_jail() {
  local log=$root/build/logs/wine32-root.log suite mirror
  # shellcheck source=/dev/null
  suite=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
  mirror=$("$root/scripts/debian-sources" --mirror) || return 1
  echo "making an i386 root for 32-bit Wine in build/wine32-root (once, about a minute)" >&2
  mkdir -p "$root/build/logs"
  rm -rf "$jail.partial"
  mkdir -p "$jail.partial"
  # debootstrap mounts in there, hence the namespace: nothing stays when it is interrupted. It knows
  # the folder as /mnt, since it cannot work in one whose path has a blank.
  # shellcheck disable=SC2016 # expanded by that shell
  if ! with_progress "debootstrap" unshare --mount --propagation private /bin/sh -c '
    mount --bind "$1" /mnt &&
      exec debootstrap --arch=i386 --variant=minbase --include=wine,wine32 "$2" /mnt "$3"' \
    sh "$jail.partial" "$suite" "$mirror" >"$log" 2>&1 </dev/null; then
    tail -n 20 "$log" >&2
    rm -rf "$jail.partial"
    return 1
  fi
  rm -f "$jail.partial"/var/cache/apt/archives/*.deb
  cp /etc/hosts "$jail.partial/etc/hosts" && mv "$jail.partial" "$jail"
}

# Runs PROGRAM ARGS... as the first one of a server: without questions about add-ons, without entries
# in the desktop's menus, and without links from the prefix into the user's own folder.
wine_boot() {
  wine_detached wineserver "-p$server_idle_seconds"
  HOME=$WINEPREFIX/home WINEDLLOVERRIDES='mscoree=;mshtml=;winemenubuilder.exe=' \
    wine_detached wine "$@"
}

make_prefix() {
  echo "making the Wine prefix build/wine/$wine_arch" >&2
  rm -rf "$WINEPREFIX"
  mkdir -p "$WINEPREFIX/home"
  # Any program makes Wine boot and fill the prefix first. What this one does: a program that
  # crashes ends, without a dialog that nobody sees.
  with_progress "wine boot" wine_boot reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f
  : >"$WINEPREFIX/.complete"
}

# Makes what is missing and starts the server. Wine's own services inherit the output of whatever
# starts them, and stay; so they are started here, before any program whose output somebody reads.
# Exits with $cannot_execute when 32-bit programs cannot be executed, and with 1 when 64-bit ones
# cannot: those can be wherever Wine is installed.
wine_ensure_server() {
  local obstacle lock
  obstacle=$(wine_obstacle)
  if [[ -z $obstacle ]]; then
    mkdir -p "$wine_home"
    exec {lock}>"$wine_home/$wine_arch.lock"
    flock "$lock"
    if [[ $wine_place == jail && ! -e $jail/usr/bin/wine ]] && ! make_jail; then
      obstacle="the i386 root could not be made (see build/logs/wine32-root.log)"
    fi
  fi
  if [[ -n $obstacle ]]; then
    if [[ $wine_arch == x86 ]]; then
      echo "32-bit executables were not executed: $obstacle"
      exit "$cannot_execute"
    fi
    echo "64-bit executables were not executed: $obstacle" >&2
    exit 1
  fi
  if [[ ! -e $WINEPREFIX/.complete ]]; then
    wine_stop_server
    make_prefix
  elif ! wine_server_runs; then
    wine_boot cmd /c exit
  fi
  exec {lock}>&-
}

# Ends the server of the selected architecture and waits until it is gone.
wine_stop_server() {
  local folder
  if wine_server_runs; then
    wineserver -k >/dev/null 2>&1 || true
    wineserver -w >/dev/null 2>&1 || true
  fi
  # Debian's Wine keeps a server's socket in /tmp, in a folder whose name the prefix remembers.
  if [[ -r $WINEPREFIX/wineserver ]]; then
    folder=$(<"$WINEPREFIX/wineserver")
    if [[ $folder == wine-?????? && -O /tmp/$folder ]]; then rm -rf "/tmp/$folder"; fi
  fi
}
