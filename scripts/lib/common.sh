# Shared by the scripts: where the build trees and caches live.
# Sourced, not run.

QM_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
QM_CACHE=${QUILLMOSS_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/quillmoss-dev}
# Build trees live outside the clone so that a fresh clone at the same path
# (CI) starts warm; build/, build-asan/ … in the clone are links to them.
QM_BUILD_ROOT="$QM_CACHE/build/$(printf '%s' "$QM_ROOT" | sha1sum | cut -c1-12)"
export CCACHE_DIR=${CCACHE_DIR:-$QM_CACHE/ccache}
# Paths below the clone are hashed relative to it, so other clones hit too.
export CCACHE_BASEDIR=$QM_ROOT
export CCACHE_NOHASHDIR=1

# qm_build_dir PRESET: the tree of a preset, as named in CMakePresets.json.
qm_build_dir() {
    case "$1" in
    debug) echo "$QM_ROOT/build" ;;
    *) echo "$QM_ROOT/build-$1" ;;
    esac
}

# qm_build PRESET [TARGET...]: configure when needed, then build.
qm_build() {
    local preset=$1
    shift
    local link real
    link=$(qm_build_dir "$preset")
    real=$QM_BUILD_ROOT/$preset
    mkdir -p "$real" "$CCACHE_DIR"
    if [ -e "$link" ] && [ ! -L "$link" ]; then
        echo "$link is a folder of its own; using it as it is" >&2
        real=$link
    elif [ ! -L "$link" ]; then
        ln -s "$real" "$link"
    fi
    # Configured by its real path: generated sources include ours by paths
    # relative to the build tree, which a link in between would break.
    if [ ! -f "$real/build.ninja" ]; then
        cmake --preset "$preset" -B "$real" >/dev/null
    fi
    cmake --build "$real" -- ${QM_NINJA_FLAGS:-} "$@"
}
