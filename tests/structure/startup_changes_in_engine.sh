#!/usr/bin/env bash
# Every change of launchd or Login Items state goes through the
# startup-change engine (record first, under the startup mutation lock); only
# Holdenmere's own login agent is installed and removed by its installer.
# Fails, naming the line, when a launchctl switch or a Login Item deletion
# appears anywhere else in the sources. Usage: startup_changes_in_engine.sh ROOT
set -euo pipefail
root=${1:?usage: $0 SOURCE_ROOT}
cd "$root"

# Where a switching call may be written, and why.
allowed_launchctl=(
  core/takeover/startup_change_engine.cpp  # the engine's steps
  core/takeover/held_helper_start.cpp      # the engine's start of held helpers
  core/takeover/startup_switch.h           # the launcher switch, driven only by the engine
  core/launchd/agent_installer.cpp         # Holdenmere's own login agent
  core/launchd/launchd_simulation.cpp      # the in-memory launchd answers these verbs
)
allowed_login_items=(
  core/discovery/login_items_auditor.cpp   # the script texts themselves
  core/discovery/login_items_auditor.h
  core/takeover/startup_change_engine.cpp
)

is_allowed() {
  local file=$1; shift
  local entry
  for entry in "$@"; do [[ $file == "$entry" ]] && return 0; done
  return 1
}

found=0
report() {
  local list=$1 pattern=$2 what=$3
  local -n allowed=$list
  while IFS=: read -r file line text; do
    # Comments may name the verbs.
    [[ $text =~ ^[[:space:]]*// ]] && continue
    is_allowed "$file" "${allowed[@]}" && continue
    echo "$file:$line: $what outside the startup-change engine:$text" >&2
    found=1
  done < <(grep -rnE --include='*.cpp' --include='*.h' --include='*.mm' "$pattern" core app platform || true)
}

report allowed_launchctl '"(enable|disable|bootstrap|bootout)"' "a launchctl switch"
report allowed_login_items 'removeByPathScript|removeByNameScript|addScript|to delete ' "a Login Item change"

if [[ $found -ne 0 ]]; then
  echo "Make the change a step of the startup-change engine (core/takeover) instead." >&2
  exit 1
fi
echo "startup changes: only in the engine and the login agent's installer"
