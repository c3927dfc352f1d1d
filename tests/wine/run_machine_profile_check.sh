#!/usr/bin/env bash
# Runs the machine-profile check program under Wine once per reported Windows
# version and language, with what this machine must give as expectations.
# Usage: run_machine_profile_check.sh <wine64 loader> <check .exe> <prefix dir>
set -euo pipefail
wine="$1"
check="$(realpath "$2")"
mkdir -p "$3"
export WINEPREFIX="$(realpath "$3")"
export WINEDEBUG=-all
# No Mono or Gecko installer at prefix creation: console programs need neither.
export WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY

wineserver="$(dirname "$wine")/wineserver64"
[ -x "$wineserver" ] || wineserver="$(dirname "$wine")/wineserver"
[ -x "$wineserver" ] || wineserver=wineserver
trap '"$wineserver" -k >/dev/null 2>&1 || true' EXIT

# What Wine must report about this machine.
cores="$(getconf _NPROCESSORS_ONLN)"
folder="Z:$(dirname "$check")"
machine=(install_path="$folder" cpu_cores="$cores")

# Checks the program's key=value lines: each expectation given exactly, and
# the forms every machine must give.
check() {
    local output="$1" failed=0 expectation key
    shift
    value() { sed -n "s/^$1=//p" <<<"$output" | head -n 1; }
    for expectation in "$@"; do
        key="${expectation%%=*}"
        if [ "$(value "$key")" != "${expectation#*=}" ]; then
            echo "FAIL: $key is [$(value "$key")], expected [${expectation#*=}]"
            failed=1
        fi
    done
    for key in memory_size disk_size disk_free_size cpu_cores; do
        [[ "$(value $key)" =~ ^[1-9][0-9]*$ ]] || { echo "FAIL: $key is not a positive number"; failed=1; }
    done
    [ "$(value disk_free_size)" -le "$(value disk_size)" ] || { echo "FAIL: more free than all"; failed=1; }
    [[ "$(value install_path)" == */* && "$(value install_path)" != *\\* ]] ||
        { echo "FAIL: install_path without / separators"; failed=1; }
    [[ "$(value cpu_model)" =~ ^AMD64\;.+ ]] || { echo "FAIL: cpu_model is not AMD64;name"; failed=1; }
    [ "$(value gpu_models)" = "$(value gpu_memory_sizes)" ] ||
        { echo "FAIL: gpu models and memory sizes differ in number"; failed=1; }
    if [ "$(value browser_result)" = 0 ] && [ -z "$(value browser_name)" -o -z "$(value browser_version)" ]; then
        echo "FAIL: browser found without its name and version"; failed=1
    fi
    return $failed
}

# version: the value of HKCU\Software\Wine "Version", or "default" for none.
run() {
    local version="$1" locale="$2" output
    shift 2
    if [ "$version" = default ]; then
        "$wine" reg delete 'HKCU\Software\Wine' /v Version /f >/dev/null 2>&1 || true
    else
        "$wine" reg add 'HKCU\Software\Wine' /v Version /d "$version" /f >/dev/null 2>&1
    fi
    echo "=== Windows version: $version, locale: $locale"
    output="$(LC_ALL="$locale" LANG="$locale" "$wine" "$check" | tr -d '\r')"
    echo "$output"
    check "$output" "${machine[@]}" "$@"
    last_output="$output"
}

# progid: the user's choice of http handler; Wine's own has no version
# resource, its Internet Explorer has one.
choose_browser() {
    "$wine" reg add 'HKCU\Software\Microsoft\Windows\Shell\Associations\UrlAssociations\http\UserChoice' \
        /v Progid /d "$1" /f >/dev/null 2>&1
}

started=$SECONDS
choose_browser http
# Wine names the processor from its CPUID brand string, which need not be
# /proc/cpuinfo's model name (a virtual machine's often differs): expect what
# the prefix's registry holds, now that the first command has made it.
processor="$("$wine" reg query 'HKLM\HARDWARE\DESCRIPTION\System\CentralProcessor\0' \
    /v ProcessorNameString 2>/dev/null | tr -d '\r' |
    sed -n 's/^[[:space:]]*ProcessorNameString[[:space:]]\+REG_SZ[[:space:]]\+//p')"
[ -n "$processor" ] && machine+=(cpu_model="AMD64;$processor")
run default C.UTF-8 'os_name=[Windows7 64]' os_name_result=1 modern_os=1 language=1033
echo "(prefix ready and first run done in $((SECONDS - started)) s)"
run win10 zh_CN.UTF-8 'os_name=[Windows10 64]' modern_os=1 language=2052
run win81 de_DE.UTF-8 'os_name=[Windows8 64]' modern_os=1 language=1031
# 6.2 is named by neither stage.
run win8 C.UTF-8 'os_name=[]' os_name_result=1 modern_os=1
# Below 6 the graphics probe asks WMI.
run winxp64 C.UTF-8 'os_name=[WindowsXP 64 ]' modern_os=0 gpu_result=1
run win2003 C.UTF-8 'os_name=[WindowsServer2003 64]' modern_os=0 gpu_result=1
"$wine" reg add 'HKCR\IE.HTTP\shell\open\command' /ve \
    /d '"C:\Program Files\Internet Explorer\iexplore.exe" -nohome "%1"' /f >/dev/null 2>&1
# The library's whole browser probe on a handler with a version resource: the
# path cut from the open command, then the version resource read.
choose_browser IE.HTTP
run win10 C.UTF-8 'os_name=[Windows10 64]' browser_result=0
grep -qF 'log: default browser_path=C:\Program Files\Internet Explorer\iexplore.exe' <<<"$last_output"
echo "=== all versions checked in $((SECONDS - started)) s"
