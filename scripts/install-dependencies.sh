#!/usr/bin/env bash
# Installs the Debian packages Vosklin needs to build, test and benchmark.
# Idempotent: it asks apt only for what is missing, and refreshes the package
# lists once, only when something has to be installed.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libsqlite3-dev sqlite3          # the catalog (FTS5 and window functions are built in)
  libssl-dev openssl              # SHA-256; `openssl speed` is the digest benchmark's reference
  nlohmann-json3-dev              # sidecars, settings, --json output
  libcli11-dev                    # the command line
  libsystemd-dev                  # logging to the journal
  libcpp-httplib-dev              # the daemon's local API
  libpoppler-cpp-dev              # text of PDF versions for content search
  libzip-dev libexpat1-dev        # text of DOCX and ODT versions (zip container, XML body)
  qpdf zip                        # locked PDFs and hand-zipped documents in the extraction tests
  dbus-daemon                     # a private bus with fake power and login services in the machine tests
  libgtest-dev libgmock-dev libbenchmark-dev
  xfsprogs                        # reflink XFS images for the clone tests
  util-linux                      # losetup, mount
  vim emacs-nox rsync sed         # real editors and copiers in the save-strategy tests
  chromium                        # the window's browser tests and benchmark (never a downloaded browser)
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
# Node.js runs the window's unit and browser tests; a machine that already has one keeps it.
if ! command -v node >/dev/null 2>&1; then
  missing+=(nodejs npm)
elif ! command -v npm >/dev/null 2>&1; then
  missing+=(npm)
fi

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}" >&2
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
