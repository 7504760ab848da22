# For ./run and ./test: finds out what the build needs and installs what is missing.
#
#   need_command NAME PACKAGE    a program
#   need_header  NAME PACKAGE    a C++ header
#   install_missing              installs the packages noted, or says which are missing and ends

missing=""

need_command() {
  command -v "$1" >/dev/null 2>&1 || missing="$missing $2"
}

need_header() {
  command -v g++ >/dev/null 2>&1 && printf '#include <%s>\n' "$1" | g++ -x c++ -E - >/dev/null 2>&1 ||
    missing="$missing $2"
}

install_missing() {
  [ -n "$missing" ] || return 0
  local admin=""
  if [ "$(id -u)" != 0 ]; then
    admin="sudo -n"
    sudo -n true >/dev/null 2>&1 </dev/null || admin="none"
  fi
  if [ "$admin" = none ] || ! command -v apt-get >/dev/null 2>&1; then
    echo "Please install first (names of Debian packages):$missing" >&2
    exit 1
  fi
  echo "Installing:$missing" >&2
  local log
  log=$(mktemp)
  local install="$admin env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends$missing"
  # The package lists of a fresh machine are empty or old: fetch them when the first try fails.
  if ! $install >"$log" 2>&1 </dev/null; then
    if ! { $admin apt-get update && $install; } >"$log" 2>&1 </dev/null; then
      cat "$log" >&2
      rm -f "$log"
      echo "Could not install:$missing" >&2
      exit 1
    fi
  fi
  rm -f "$log"
}
