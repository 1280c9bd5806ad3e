#!/usr/bin/env bash
# Installs what the build and the tests need: Debian packages listed in scripts/deps/*.apt and the
# node modules of every folder under tests/ that has a package-lock.json. Safe to run repeatedly.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t wanted < <(cat scripts/deps/*.apt | sed 's/#.*//' | tr -s ' \t' '\n' | sed '/^$/d' | sort -u)
missing=()
for pkg in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || missing+=("$pkg")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  SUDO=""; [ "$(id -u)" = 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# Node and npm: some machines carry a Node.js build that bundles npm, and Debian's npm package
# conflicts with it, so they are installed only when the commands are missing.
if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  SUDO=""; [ "$(id -u)" = 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends nodejs npm >/dev/null
fi

# Node peers (independent parsers used by cross-check tests).
while IFS= read -r lock; do
  dir=$(dirname "$lock")
  if [ ! -d "$dir/node_modules" ] || [ "$lock" -nt "$dir/node_modules" ]; then
    echo "npm ci in $dir"
    (cd "$dir" && npm ci --silent --no-audit --no-fund >/dev/null)
  fi
done < <(find tests tools -name package-lock.json -not -path '*/node_modules/*' 2>/dev/null)
