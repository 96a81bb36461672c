#!/bin/sh
# What a target's nodes are and what they take, as one JSON document for
# `vela-service --check-config FILE --profile PROFILE`. Plain POSIX sh and the tools toybox and
# busybox have (no awk: older toybox lacks it), so that it runs through `adb shell` as well as
# on a Linux board or a workstation.
#
# For each node: whether it exists; whether the capturing user may write it, and its mode
# (root may write where the mode says nobody can, and sysfs refuses it; the checker reads both);
# its value now; and what it accepts where the kernel tells or documents it:
#   cpufreq policy  scaling_min_freq, scaling_max_freq, scaling_setspeed: the policy's
#                   scaling_available_frequencies (when the driver lists them) and
#                   cpuinfo_min_freq..cpuinfo_max_freq; a value outside is clamped
#                   scaling_governor: scaling_available_governors
#   devfreq         min_freq, max_freq: available_frequencies; governor: available_governors
#   documented      values outside are refused:
#                   cpuN/online                                  0..1
#                   cpu.uclamp.min, cpu.uclamp.max (cgroup)      0..100 (percent)
#                   cpu.uclamp.latency_sensitive (cgroup)        0..1
#                   sched_util_clamp_min, sched_util_clamp_max,
#                   sched_util_clamp_min_rt_default (sysctl)     0..1024
#                   cpu.shares (cgroup v1)                       2..262144
#                   cpu.weight (cgroup v2)                       1..10000
set -f  # node values and paths are data, never globs

usage() {
    cat <<'EOF'
Usage: capture-node-profile.sh [-r ROOT] [PATH... | -]
Prints one JSON document: for each PATH (or each line of standard input when no PATH or "-" is
given; empty lines and lines starting with # are skipped) whether the node exists, whether this
user may write it and its mode, its value, and what it accepts where the kernel tells.

  -r ROOT   read each node under ROOT rather than / (a copy of a target's tree, as the tests
            use); the profile still names nodes by their own paths
  -h        show this help

Capture as the user the service writes as: "writable" is this user's view.
  vela-service --check-config my-config.json --list-nodes > nodes.txt
  adb push capture-node-profile.sh /data/local/tmp/
  adb shell su system sh /data/local/tmp/capture-node-profile.sh < nodes.txt > target.json
  vela-service --check-config my-config.json --profile target.json
EOF
}

root=
while getopts r:h opt; do
    case $opt in
        r) root=${OPTARG%/} ;;
        h) usage; exit 0 ;;
        *) usage >&2; exit 64 ;;
    esac
done
shift $((OPTIND - 1))

tab=$(printf '\t')

# A JSON string literal of $1: printable ASCII, tabs and newlines kept (escaped), anything else
# dropped; sysfs values are ASCII.
json_string() {
    printf '"'
    printf '%s' "$1" | tr -cd '\11\12\40-\176' |
        sed -e 's/\\/\\\\/g' -e 's/"/\\"/g' -e "s/$tab/\\\\t/g" -e '$!s/$/\\n/' | tr -d '\n'
    printf '"'
}

# A JSON number when $1 is a plain non-negative decimal integer, else a string.
json_word() {
    case $1 in
        0 | [1-9]*) case $1 in *[!0-9]*) json_string "$1" ;; *) printf '%s' "$1" ;; esac ;;
        *) json_string "$1" ;;
    esac
}

# The first 4 KiB of file $1, trailing newlines dropped; fails when it cannot be read.
read_node() {
    dd if="$1" bs=4096 count=1 2>/dev/null
}

# `"available": [w, ...]` from the words of file $1, or nothing when it is absent or empty.
available_list() {
    words=$(read_node "$1") || return 0
    sep=
    for w in $words; do
        [ -n "$sep" ] || printf '"available": ['
        printf '%s' "$sep"
        json_word "$w"
        sep=', '
    done
    [ -z "$sep" ] || printf ']'
}

# The "accepts" member for node $1 (its path on the target) read at $2, or nothing.
accepts_of() {
    dir=${2%/*}
    base=${1##*/}
    body=
    case $base in
        scaling_min_freq | scaling_max_freq | scaling_setspeed)
            if [ -e "$dir/cpuinfo_min_freq" ] || [ -e "$dir/scaling_available_frequencies" ]; then
                body='"from": "cpufreq policy", "outside": "clamped"'
                list=$(available_list "$dir/scaling_available_frequencies")
                [ -z "$list" ] || body="$body, $list"
                if lo=$(read_node "$dir/cpuinfo_min_freq") && hi=$(read_node "$dir/cpuinfo_max_freq"); then
                    body="$body, \"min\": $(json_word "$lo"), \"max\": $(json_word "$hi")"
                fi
            fi
            ;;
        scaling_governor)
            list=$(available_list "$dir/scaling_available_governors")
            [ -z "$list" ] || body="\"from\": \"cpufreq policy\", $list"
            ;;
        min_freq | max_freq)
            list=$(available_list "$dir/available_frequencies")
            [ -z "$list" ] || body="\"from\": \"devfreq\", \"outside\": \"clamped\", $list"
            ;;
        governor)
            list=$(available_list "$dir/available_governors")
            [ -z "$list" ] || body="\"from\": \"devfreq\", $list"
            ;;
    esac
    if [ -z "$body" ]; then
        range=
        case $1 in
            */cpu[0-9]*/online) range='0 1' ;;
            */cpu.uclamp.min | */cpu.uclamp.max) range='0 100' ;;
            */cpu.uclamp.latency_sensitive) range='0 1' ;;
            */sched_util_clamp_min | */sched_util_clamp_max | */sched_util_clamp_min_rt_default)
                range='0 1024' ;;
            */cpu.shares) range='2 262144' ;;
            */cpu.weight) range='1 10000' ;;
        esac
        [ -z "$range" ] ||
            body="\"from\": \"documented\", \"outside\": \"refused\", \"min\": ${range% *}, \"max\": ${range#* }"
    fi
    [ -z "$body" ] || printf ', "accepts": {%s}' "$body"
}

# One member of "nodes" for path $1.
node_entry() {
    case $1 in
        /*) file=$root$1 ;;
        *) file=$root/$1 ;;
    esac
    json_string "$1"
    if [ ! -e "$file" ]; then
        printf ': {"exists": false}'
        return
    fi
    if [ -w "$file" ]; then writable=true; else writable=false; fi
    printf ': {"exists": true, "writable": %s' "$writable"
    if mode=$(stat -L -c %a "$file" 2>/dev/null); then
        printf ', "mode": "%04d"' "$mode"
    fi
    if [ -f "$file" ] && value=$(read_node "$file"); then
        printf ', "value": '
        json_string "$value"
    fi
    accepts_of "$1" "$file"
    printf '}'
}

if [ $# -eq 0 ] || { [ $# -eq 1 ] && [ "$1" = - ]; }; then
    paths=$(cat)
else
    paths=$(printf '%s\n' "$@")
fi

printf '{\n  "profile": 1,\n  "captured": "%s",\n' "$(date -u +%Y-%m-%dT%H:%M:%SZ)"
printf '  "host": %s,\n' "$(json_string "$(uname -n)")"
printf '  "kernel": %s,\n' "$(json_string "$(uname -r)")"
printf '  "uid": %s,\n' "$(json_word "$(id -u)")"
[ -z "$root" ] || printf '  "root": %s,\n' "$(json_string "$root")"
printf '  "nodes": {'
seen='
'
sep=
# A profile names each node once: its reader refuses a key given twice.
while IFS= read -r path; do
    case $path in '' | '#'*) continue ;; esac
    case $seen in *"
$path
"*) continue ;; esac
    seen="$seen$path
"
    printf '%s\n    %s' "$sep" "$(node_entry "$path")"
    sep=,
done <<EOF
$paths
EOF
printf '\n  }\n}\n'
