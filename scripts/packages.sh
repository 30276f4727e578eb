# Sourced by the scripts: ensure_packages PKG... installs, non-interactively,
# those Debian packages that are missing (apt-get update only when needed).
ensure_packages() {
    command -v dpkg >/dev/null || { echo "not a Debian system: install ${*} yourself" >&2; return 0; }
    local missing=() p
    for p in "$@"; do
        dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
    done
    ((${#missing[@]})) || return 0
    local sudo=()
    ((EUID == 0)) || sudo=(sudo)
    echo "installing: ${missing[*]}"
    "${sudo[@]}" apt-get update -q
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
}
