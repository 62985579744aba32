#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when they are missing.
set -euo pipefail

packages=(
    cmake ninja-build g++ ccache pkg-config
    qt6-base-dev libsqlite3-dev libssl-dev zlib1g-dev openssl
    libgtest-dev libgmock-dev libbenchmark-dev
    clang libclang-rt-14-dev
    inn2 xvfb xauth fonts-dejavu-core attr gcovr
    desktop-file-utils appstream dpkg-dev
)

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null || true)
    [[ "$status" == "ii "* ]] || missing+=("$package")
done

as_root() {
    if [[ $(id -u) -eq 0 ]]; then "$@"; else sudo "$@"; fi
}

# The news server's post-install step refuses a host name without a domain and leaves dpkg
# half-configured; give it a domain that can never resolve and finish the configuration.
finish_inn_configuration() {
    local conf=/etc/news/inn.conf
    if [[ -f $conf ]] && ! grep -qE '^domain:[[:space:]]*[^[:space:]]' "$conf"; then
        as_root sed -i 's/^#*[[:space:]]*domain:.*/domain: localdomain.invalid/' "$conf"
        grep -qE '^domain:' "$conf" || echo 'domain: localdomain.invalid' | as_root tee -a "$conf" >/dev/null
    fi
    as_root env DEBIAN_FRONTEND=noninteractive dpkg --configure -a
}

if [[ ${#missing[@]} -gt 0 ]]; then
    echo "Installing: ${missing[*]}"
    as_root apt-get update -qq
    if ! as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
            --no-install-recommends "${missing[@]}"; then
        finish_inn_configuration
        as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
            --no-install-recommends "${missing[@]}"
    fi
fi

# A half-configured news server package from an earlier attempt blocks every later install.
if dpkg-query -W -f='${db:Status-Abbrev}' inn2 2>/dev/null | grep -qv '^ii'; then
    finish_inn_configuration
fi

# The tests and the demo run private news servers of their own on free ports: a news server
# the machine already runs is left alone.
