# Wine for the project's Windows programs, in a prefix of its own: the folder WINEPREFIX, or else
# build/wine. To be sourced; sets the environment of Wine programs.
#
#     wine_start    makes the prefix if there is none, and starts a session that lasts
#     wine_stop     ends the session with all that runs in it
#     wine_run      runs a program in the session
#
# Without a session each program starts one for itself, which takes seconds. A session's services
# inherit the files of whoever starts it, so no program here gets any of the caller's.

: "${WINEPREFIX:=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/build/wine}"
export WINEPREFIX
export WINEDEBUG=-all
# Without such a locale Wine makes no files with names that are not ASCII.
export LC_ALL=C.UTF-8
# No .NET, no browser, no menu entries; a program that crashes ends with an error.
export WINEDLLOVERRIDES="mscoree,mshtml=;winedbg.exe,winemenubuilder.exe=d"
unset DISPLAY
# What Wine would tell the user's desktop stays in the prefix.
export XDG_CONFIG_HOME=$WINEPREFIX/desktop XDG_DATA_HOME=$WINEPREFIX/desktop

wine_quietly() {
    timeout --kill-after=5 120 "$@" >/dev/null 2>&1 </dev/null 9>&-
}

# A prefix that was not finished is made again. Programs that start at once wait for the first.
wine_make_prefix() {
    local made=$WINEPREFIX/made-by-wrenlink
    mkdir -p "$(dirname "$WINEPREFIX")"
    (
        flock 9
        [ ! -e "$made" ] || exit 0
        rm -rf "$WINEPREFIX"
        wine_quietly wineboot -i && wine_quietly wineserver -w && touch "$made"
    ) 9>"$WINEPREFIX.lock"
}

wine_start() {
    # The server ends after its last program unless it is told to last.
    wine_make_prefix && wine_quietly wineserver -p && wine_quietly wineboot
}

wine_run() {
    timeout --kill-after=5 60 wine "$@" </dev/null
}

wine_stop() {
    wine_quietly wineserver -k
    wine_quietly wineserver -w
}
