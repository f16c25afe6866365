#!/bin/sh
# ZipFuncs.sh - compress, expand, encrypt and decrypt for the plug-in's archive functions.
#
#   sh ZipFuncs.sh 'zip|source folder|destination folder|source name|archive name'
#   sh ZipFuncs.sh 'zipencrypt|source folder|destination folder|source name|archive name|password'
#   sh ZipFuncs.sh 'unzip|archive folder|destination folder|archive name|expand'
#   sh ZipFuncs.sh 'unzipdecrypt|archive folder|destination folder|archive name|expand|password'
#   sh ZipFuncs.sh 'encrypt|source folder|destination folder|source name|destination name|password'
#   sh ZipFuncs.sh 'decrypt|source folder|destination folder|source name|destination name|password'
#
# One argument. Folders are absolute and end in "/"; a path is its folder and its name, put together as they are. A name is
# never empty, "." or "..", and holds no "/". A "|" always ends a field, except in a password, which is all the rest.
#
# Exit status:
#    0  done
#    1  decrypt only: wrong password (or the salt or the password check in the file's header was changed)
#   82  unzipdecrypt only: wrong password
#   64  usage: unknown verb, wrong number of fields, empty password
#   65  damaged input: cut, changed, hostile, or not in the verb's format
#   66  unusable source: missing, unreadable, or not of a kind that can be stored
#   69  a tool is missing (bsdtar, openssl)
#   70  a tool failed, or this script met something unforeseen
#   73  unusable destination: missing or read-only folder, something of another kind in the way, an expansion that would
#       go through a link or a mount point
#   74  the result could not be written: full disk, quota, input or output error
#   77  unzip only: the archive needs a password
#  129, 130, 143  ended by HUP, INT or TERM
#
# On any status but 0 the destination is as it was before, and nothing else is left. The one exception is a failed rename
# among many when an archive is merged into existing folders: all that can be checked is checked before the first.
#
# It reads nothing from a terminal and writes nothing to stdout or stderr. Plain archives are zip, encrypted ones zip with
# WinZip AES-256; the format of encrypted files is described, byte by byte, in docs/encrypted-files.md.
#
# POSIX sh (dash, bash --posix, busybox sh) and POSIX utilities, with: mktemp -d and the -H of bsdtar (all systems have them),
# openssl 3 or LibreSSL 3.3 (Debian, Ubuntu: packages libarchive-tools and openssl; macOS 13 and later: nothing to install).

status=70
work=
pipes=
made=
children=
starting=no
stopped=
trap 'clean_up; exit "$status"' EXIT
trap 'stop 129' HUP
trap 'stop 130' INT
trap 'stop 143' TERM

# The only ways out. A shell that gives up by itself (a failed redirection, no memory) leaves through the EXIT trap too, so
# that its own 1 or 2 never reads as "wrong password".
finish() {
    status=$1
    exit "$1"
}

# A signal. While children are being started it is remembered only: one that isn't known yet would be waited for, and it
# may wait for this script.
stop() {
    [ "$starting" = yes ] || finish "$1"
    stopped=$1
}

# Children are started between this and know_children.
start_children() {
    starting=yes
}

# The children $@ are ended with this script from now on.
know_children() {
    children="$children $*"
    starting=no
    [ -z "$stopped" ] || finish "$stopped"
}

clean_up() {
    trap '' HUP INT TERM
    # One that has just been forked can miss any other signal: a shell still, it throws away what it got before its traps
    # were reset. And should one be unknown for want of memory: without these it ends by itself.
    for child in $children; do
        kill -s KILL "$child"
    done
    exec 3<&- 4<&- 5>&- 6<&- 7>&- 8<&-
    wait
    if [ -n "$pipes" ]; then
        rm -rf "$pipes"
    fi
    if [ -n "$work" ]; then
        # A tree that was expanded may hold folders that lock their owner out.
        rm -rf "$work" || { chmod -R u+rwx "$work" && rm -rf "$work"; }
    fi
    if [ "$status" -ne 0 ] && [ -n "$made" ]; then
        remove_made_folders
    fi
}

exec </dev/null >/dev/null 2>&1

# What a service's environment may hold, and must not steer the tools.
unset CDPATH GLOBIGNORE ZIP ZIPOPT TAR_READER_OPTIONS TAR_WRITER_OPTIONS TAPE LD_LIBRARY_PATH DYLD_LIBRARY_PATH POSIXLY_CORRECT
unset HISTFILE BASH_ENV ENV
IFS=' 	
'
PATH=${PATH:+$PATH:}/usr/bin:/bin:/usr/sbin:/sbin
# bsdtar can't expand UTF-8 names in the C locale.
case $(uname -s) in
    Darwin) LC_ALL=en_US.UTF-8 ;;
    *) LC_ALL=C.UTF-8 ;;
esac
export PATH LC_ALL

need() {
    for tool do
        command -v "$tool" || finish 69
    done
}

# --- Work folder, pipes, children -------------------------------------------------------------------------------------

# A private folder in $1, thus on its file system: results are moved out of it by renaming.
make_work_folder() {
    work=$(mktemp -d "$1/.ZipFuncs.XXXXXXXXXX") || finish 73
}

# Opens a pipe for reading on descriptor $1 and for writing on $2. Unlike those of a pipeline, the tools on both ends can
# then be direct children: each has a process ID for the TERM trap and an exit status. Opening for both directions first
# keeps the other two from waiting for each other. Needs the work folder.
open_pipe() {
    pipe=$work/pipe
    if ! mkfifo -m 600 "$pipe"; then
        # File systems without named pipes: exFAT, some network ones.
        pipes=$(mktemp -d "${TMPDIR:-/tmp}/ZipFuncs.XXXXXXXXXX" || mktemp -d /tmp/ZipFuncs.XXXXXXXXXX) || finish 74
        pipe=$pipes/pipe
        mkfifo -m 600 "$pipe" || finish 74
    fi
    eval "exec 9<>\"\$pipe\" $1<\"\$pipe\" $2>\"\$pipe\" 9>&-"
    rm -f "$pipe"
    if [ -n "$pipes" ]; then
        rm -rf "$pipes"
        pipes=
    fi
}

# Ends with the exit status of child $1.
wait_for() {
    wait "$1"
    set -- "$1" "$?"
    remaining=
    for child in $children; do
        [ "$child" = "$1" ] || remaining="$remaining $child"
    done
    children=$remaining
    return "$2"
}

# --- Paths ------------------------------------------------------------------------------------------------------------

# Sets source_folder, source_name and source from a folder and a name.
set_source() {
    usable_path "$1" "$2" || finish 66
    source=$1$2
    source_folder=${source%/*}/
    source_name=${source##*/}
    [ -r "$source" ] || finish 66
}

# Sets target_folder and target: a file that exists already, or a name in a folder that does.
set_target() {
    usable_path "$1" "$2" || finish 73
    target=$1$2
    target_folder=${target%/*}/
    is_open_folder "$target_folder" || finish 73
    # mv would move into a folder, or a link to one, and replace a device.
    if [ -e "$target" ] && [ ! -f "$target" ]; then
        finish 73
    fi
}

usable_path() {
    case $2 in
        '' | . | .. | */*) return 1 ;;
    esac
    case $1 in
        /*) return 0 ;;
    esac
    return 1
}

# May entries be made in folder $1?
is_open_folder() {
    [ -d "$1" ] && [ -w "$1" ] && [ -x "$1" ]
}

publish() {
    mv -f "$1" "$target" || finish 73
    finish 0
}

# Sets at to the physical path of folder $1, which keeps newlines at its end.
physical() {
    at=$(cd -P "$1" && pwd -P && echo .) || return 1
    at=${at%??}
}

# --- Zip --------------------------------------------------------------------------------------------------------------

# Which packer is the quickest, measured. Per file bsdtar takes 43 microseconds, Info-ZIP's zip 12; for the data bsdtar is the
# quicker one of these two: they part at about 8 KiB a file. 7-Zip's quick level uses all cores and is a third quicker even
# on one, for archives 1 to 2 % larger.
choose_packer() {
    packer=bsdtar
    [ -z "$password" ] && [ "$inside" = no ] && [ ! -L "$source" ] || return 0
    kilobytes=$(du -sk "$source") || return 0
    kilobytes=${kilobytes%%[!0-9]*}
    if [ "$entries" -gt 500 ] && [ "$kilobytes" -lt $((entries * 8)) ]; then
        # Without a locale named en_US.UTF-8 Info-ZIP doesn't mark names as UTF-8: plain ASCII only.
        [ "$plain_names" = yes ] && find_packer zip && packer=info_zip
    elif [ "$kilobytes" -gt 32768 ]; then
        { find_packer 7z || find_packer 7zz; } && seven_zip_is_fit && packer=seven_zip
    fi
    return 0
}

# An absolute path: it is run in another folder.
find_packer() {
    packer_path=$(command -v "$1") && [ "$packer_path" != "${packer_path#/}" ]
}

# 7-Zip stores no owners, without which set-id bits aren't restored, and no names that aren't UTF-8. Old versions store no
# links or times to the second either: rather than trusting a version number, this packs and expands a sample.
seven_zip_is_fit() {
    [ "$name_locale" != C ] || return 1
    case $source_name in *\\*) return 1 ;; esac
    odd=$(find -H "$source" \( -perm -4000 -o -perm -2000 -o ! -user "$(id -u)" -o ! -group "$(id -g)" \) -print | wc -l)
    [ "$odd" -eq 0 ] || return 1
    sample=$work/sample
    mkdir "$sample" "$sample/empty" "$work/back" && printf '%s' "$sample" >"$sample/-n\\ü*
" && ln -s "../no where" "$sample/link" && chmod 640 "$sample/-n"* && chmod 750 "$sample/empty" &&
        touch -t 200102030405.07 "$sample/-n"* "$sample/empty" || return 1
    (cd "$work" && seven_zip sample.zip ./sample) && bsdtar -x -p -f "$work/sample.zip" -C "$work/back" &&
        [ "$(cd "$sample" && ls -lnd ./*)" = "$(cd "$work/back/sample" && ls -lnd ./*)" ] &&
        [ -z "$(find "$sample/-n"* -newer "$work/back/sample/empty")" ] &&
        [ -z "$(find "$work/back/sample/-n"* -newer "$sample/empty")" ]
}

# Packs $2, a path below the current folder, into $1. For a subshell, which becomes the tool.
seven_zip() {
    exec "$packer_path" a -tzip -mx=1 -mtp=1 -snl -spd -bd -bso0 -y -- "$@"
}

# Looks at what is to be packed: sets entries (how many), plain_names (yes: ASCII) and name_locale.
survey_source() {
    # Both packers leave out sockets, pipes and devices without an error.
    odd=$(find -H "$source" ! -type f ! -type d ! -type l -print | wc -l) || finish 66
    [ "$odd" -eq 0 ] || finish 66
    entries=$(find -H "$source" -print | LC_ALL=C awk '/[^ -~]/ { odd = 1 } END { print NR, odd + 0 }')
    plain_names=yes
    name_locale=$LC_ALL
    if [ "${entries#* }" -ne 0 ]; then
        plain_names=no
        # Names that aren't UTF-8 are stored as bytes: marked as UTF-8, no tool could read the archive.
        find -H "$source" -print | iconv -f UTF-8 -t UTF-8 || name_locale=C
    fi
    entries=${entries% *}
}

# An archive that is written below its own source packs neither its work folder nor what it replaces.
survey_destination() {
    inside=no
    [ -d "$source" ] && physical "$source" || return 0
    source_at=$at
    physical "$target_folder" || finish 73
    case ${at%/}/ in
        "${source_at%/}"/*)
            inside=yes
            set -- "$source_name${at#"${source_at%/}"}/${target##*/}"
            replaced=$(printf '%s\n.' "$1" | sed 's/[][*?\\^$]/\\&/g')
            replaced="^${replaced%??}\$"
            ;;
    esac
}

zip_verb() {
    need bsdtar
    set_source "$1" "$3"
    [ -f "$source" ] || [ -d "$source" ] || finish 66
    set_target "$2" "$4"
    survey_source
    survey_destination
    make_work_folder "$target_folder"
    choose_packer
    pack_with_$packer
    publish "$work/out.zip"
}

pack_with_info_zip() {
    open_pipe 4 5
    start_children
    (cd "$source_folder" && exec "$packer_path" -q -r -y -nw "$work/out.zip" "./$source_name") 2>&5 4<&- 5>&- &
    finish_packing "$!"
}

pack_with_seven_zip() {
    open_pipe 4 5
    start_children
    (cd "$source_folder" && seven_zip "$work/out.zip" "./$source_name") 2>&5 4<&- 5>&- &
    finish_packing "$!"
}

pack_with_bsdtar() {
    # The name goes over in a list: as an operand "@x" and "-Cx" have meanings of their own. A reader takes the backslashes
    # of a name without "/" for those of a Windows path.
    case $source_name in
        *\\*) printf './%s\0' "$source_name" ;;
        *) printf '%s\0' "$source_name" ;;
    esac >"$work/list" || finish 74
    # -H: what the source itself links to; links below it stay links. -P: a leading "\" or "c:" belongs to the name.
    set -- -c -H -P --no-acls --no-xattrs --no-fflags --no-mac-metadata --format zip
    if [ -n "$password" ]; then
        set -- "$@" --options zip:encryption=aes256 --passphrase "$password"
    fi
    if [ "$inside" = yes ]; then
        set -- "$@" --exclude "${work##*/}" --exclude "$replaced"
    fi
    open_pipe 4 5
    start_children
    LC_ALL=$name_locale bsdtar "$@" -f "$work/out.zip" -C "$source_folder" --null -T "$work/list" 2>&5 4<&- 5>&- &
    finish_packing "$!"
}

# $1: the packer's process.
finish_packing() {
    know_children "$1"
    start_reading_errors
    wait_for "$1"
    set -- "$?"
    wait_for "$reader"
    set -- "$1" "$?"
    [ "$1" -eq 0 ] && return
    case $2 in
        4) finish 74 ;;
        5) finish 66 ;;
    esac
    finish 70
}

# Reads a tool's messages from descriptor 4 (a file for them might not fit on the disk) and ends with what they come to:
# 3 wrong password, 4 can't be written, 5 can't be read, 0 nothing known. At a wrong password it ends at once, and with it
# the tool, which would try the password on every other entry.
start_reading_errors() {
    start_children
    LC_ALL=C awk '
        /: Incorrect passphrase/ || /Too many incorrect passphrases/ { seen = 3; exit }
        /No space left|[Qq]uota exceeded|File too large|Read-only file system|Write error|Output file write failure/ { seen = 4 }
        /Permission denied|[Cc]annot open|Could not open|Input\/output error|Operation not permitted/ { if (!seen) seen = 5 }
        END { exit seen }' <&4 4<&- 5>&- &
    reader=$!
    know_children "$reader"
    exec 4<&- 5>&-
}

# --- Unzip ------------------------------------------------------------------------------------------------------------

unzip_verb() {
    need bsdtar
    [ "$4" = expand ] || finish 64
    set_source "$1" "$3"
    [ -f "$source" ] || finish 66
    case $2 in
        /*) destination=$2 ;;
        *) finish 73 ;;
    esac
    check_zip_ends
    make_destination
    make_work_folder "$destination"
    check_zip_entries
    mkdir "$work/tree" || finish 74
    expand_zip
    check_merge "$work/tree" "$destination" || finish 73
    # From here on it is a matter of renames: see them through.
    trap '' HUP INT TERM
    merge "$work/tree" "$destination" 0 || finish 73
    finish 0
}

# bsdtar guesses formats and takes a zip that was cut within its central directory for a whole one. So: the zip magic in
# front, an end record that reaches the very end, and a central directory that fills the space before it. The end record is
# looked for in the last 16 KiB, as bsdtar does. Sets zip_entries.
check_zip_ends() {
    zip_size=$(wc -c <"$source") || finish 66
    case $(od -An -v -tx1 -N4 "$source" | tr -d ' \n') in
        504b0304 | 504b0506) ;;
        *) finish 65 ;;
    esac
    zip_end=$(tail -c 16384 "$source" | od -An -v -tu1 | LC_ALL=C awk -v size="$zip_size" '
        function number(at, bytes,    value) {
            while (bytes-- > 0) value = value * 256 + byte[at + bytes]
            return value
        }
        function is(at, third, fourth) {
            return byte[at] == 80 && byte[at + 1] == 75 && byte[at + 2] == third && byte[at + 3] == fourth
        }
        { for (i = 1; i <= NF; i++) byte[n++] = $i }
        END {
            for (at = n - 22; at >= 0; at--) if (is(at, 5, 6) && at + 22 + number(at + 20, 2) == n) break
            if (at < 0) exit 1
            entries = number(at + 10, 2); length_ = number(at + 12, 4); start = number(at + 16, 4); end = size - n + at
            if (at >= 20 && is(at - 20, 6, 7)) {
                end = number(at - 12, 8)
                at = end - (size - n)
                if (at < 0 || !is(at, 6, 6)) exit 1
                entries = number(at + 32, 8); length_ = number(at + 40, 8); start = number(at + 48, 8)
            }
            if (start + length_ != end) exit 1
            printf "%.0f %.0f\n", entries, start
        }') || finish 65
    zip_entries=${zip_end% *}
    if [ "$zip_entries" -gt 0 ]; then
        [ "$(od -An -v -tx1 -j "${zip_end#* }" -N4 "$source" | tr -d ' \n')" = 504b0102 ] || finish 65
    fi
}

# Reads the list of entries: every entry that the end record counts is a file, folder or link, none has an absolute name,
# none goes by the name of a link or below it, and bsdtar sees a plain zip (a tar or a disk image can start like one). Names
# with ".." fail when they are expanded.
check_zip_entries() {
    open_pipe 6 7
    open_pipe 4 5
    start_children
    bsdtar -t -vvv --passphrase "${password:-$no_password}" -f "$source" >&7 2>&5 4<&- 5>&- 6<&- 7>&- &
    lister=$!
    LC_ALL=C awk -v expected="$zip_entries" '
        # Mode, links, owner, group, size, and three of the date stand before the name.
        function check(line,    kind, name) {
            kind = substr(line, 1, 1)
            if (kind !~ /[-dl]/ || !sub(/^[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ /, "", line) || line ~ /^\//) wrong = 1
            name = line
            if (kind == "l") sub(/ -> .*/, "", name)
            while (sub(/^\.?\/+/, "", name) || sub(/\/(\.?\/)+/, "/", name) || sub(/\/\.?$/, "", name)) continue
            if (kind == "l") links[name] = 1
            else taken[name] = 1
            while (sub(/\/[^\/]*$/, "", name) && !(name in taken)) taken[name] = 1
        }
        NR > 1 { check(last) }
        { last = $0 }
        END {
            for (name in links) if (name in taken) wrong = 1
            exit wrong || NR - 1 != expected || last !~ /^Archive Format: ZIP.*,  Compression: none$/
        }' <&6 4<&- 5>&- 6<&- 7>&- &
    checker=$!
    know_children "$lister" "$checker"
    exec 6<&- 7>&-
    start_reading_errors
    wait_for "$reader" || stop_at_password "$?"
    wait_for "$lister" || finish 65
    wait_for "$checker" || finish 65
}

# The passphrase is on bsdtar's command line, as it is on this script's own for just as long. bsdtar has no other way: its
# prompt reads 1023 bytes of a terminal or, without one, of stdin, and asks 10,000 times when the password is wrong.
# Without a passphrase it would prompt.
expand_zip() {
    open_pipe 4 5
    start_children
    # -s: keeps the names that bsdtar would shorten, those with a leading "\" or "c:".
    bsdtar -x -p --no-acls --no-xattrs --no-fflags --no-mac-metadata -s ',^,./,SH' --passphrase "${password:-$no_password}" \
        -f "$source" -C "$work/tree" 2>&5 4<&- 5>&- &
    expander=$!
    know_children "$expander"
    start_reading_errors
    wait_for "$reader" || stop_at_password "$?"
    set -- "$?"
    wait_for "$expander" && return
    [ "$1" -eq 0 ] || finish 74
    finish 65
}

# $1: what start_reading_errors came to; returned when it isn't the password.
stop_at_password() {
    if [ "$1" -eq 3 ]; then
        [ -n "$password" ] && finish 82
        finish 77
    fi
    return "$1"
}

# Makes the missing folders of the destination and remembers them: a failure removes them again.
make_destination() {
    while [ "$destination" != "${destination%/}" ]; do
        destination=${destination%/}
    done
    top=$destination
    while [ ! -e "$top" ] && [ ! -L "$top" ] && [ -n "$top" ]; do
        made=$top
        top=${top%/*}
    done
    mkdir -p "$destination/" || finish 73
    is_open_folder "$destination/" || finish 73
}

remove_made_folders() {
    folder=$destination
    rmdir "$folder"
    while [ "$folder" != "$made" ]; do
        folder=${folder%/*}
        rmdir "$folder"
    done
}

mount_point() {
    line=$(df -P "$1/" | tail -n 1)
    line=${line##*% }
}

# May the tree $1 go into the folder $2? A folder meets a folder, anything else meets no folder; folders that both have are
# writable, no links, and on the file system of the destination (else a move would be a copy, which can end half way).
check_merge() {
    if [ "$1" = "$work/tree" ]; then
        mount_point "$2"
        mounted_at=$line
    fi
    for child in "$1"/* "$1"/.[!.]* "$1"/..?*; do
        there=$2/${child##*/}
        if [ ! -e "$child" ] && [ ! -L "$child" ]; then
            continue # a pattern that matched nothing
        elif [ -L "$child" ] || [ ! -d "$child" ]; then
            if [ -d "$there" ] && [ ! -L "$there" ]; then
                return 1
            fi
        elif [ -L "$there" ]; then
            return 1
        elif [ -d "$there" ]; then
            is_open_folder "$there" || return 1
            mount_point "$there"
            [ "$line" = "$mounted_at" ] || return 1
            if [ ! -r "$child" ] || [ ! -w "$child" ] || [ ! -x "$child" ]; then
                chmod u+rwx "$child" || return 1
            fi
            check_merge "$child" "$there" || return 1
        elif [ -e "$there" ]; then
            return 1
        fi
    done
    return 0
}

# Moves what the folder $1 holds into the folder $2, at depth $3 below the destination. Folders that exist keep their mode
# and take the archive's time.
merge() {
    touch -r "$1" "$work/time$3" || return 1
    for child in "$1"/* "$1"/.[!.]* "$1"/..?*; do
        if [ -L "$child" ] || [ ! -d "$child" ]; then
            continue
        fi
        if [ -d "$2/${child##*/}" ]; then
            merge "$child" "$2/${child##*/}" $(($3 + 1)) || return 1
        elif [ ! -w "$child" ]; then
            # A folder's move to another parent writes into the folder.
            chmod u+w "$child" && mv -f "$child" "$2/" && chmod u-w "$2/${child##*/}" || return 1
        fi
    done
    # shellcheck disable=SC2016 # the inner shell expands them
    find "$1/." ! -name . -prune -exec sh -c 'to=$1; shift; exec mv -f -- "$@" "$to/"' sh "$2" {} + || return 1
    if [ "$3" -gt 0 ]; then
        rmdir "$1" || return 1
        # Not an owner's time to set: no reason to fail.
        touch -r "$work/time$3" "$2"
    fi
    return 0
}

# --- Encrypted files --------------------------------------------------------------------------------------------------
#
# No key is ever an argument or in the environment: openssl gets them through pipes, and HMAC is built from its definition
# (RFC 2104), as its options would take the key as an argument.

magic=464f4c4944455801
rounds=600000
no_password='no password was given'

# Sets octets to printf escapes for the hexadecimal digits $1, each byte XORed with $2.
octets_of() {
    rest=$1
    octets=
    while [ -n "$rest" ]; do
        byte=$((0x${rest%"${rest#??}"} ^ $2))
        octets="$octets\\$((byte >> 6))$((byte >> 3 & 7))$((byte & 7))"
        rest=${rest#??}
    done
}

# Sets derived to the 64 hexadecimal digits (upper case) of PBKDF2-HMAC-SHA256 over the line $1, the 8 bytes $2 and $3
# rounds. A cipher with a 32-byte key and no IV makes openssl print just that.
derive() {
    derived=$(printf '%s\n' "$1" | openssl enc -aes-256-ecb -pbkdf2 -md sha256 -iter "$3" -S "$2" -P -pass stdin |
        sed -n 's/^key=//p')
    [ "${#derived}" -eq 64 ] || finish 70
}

# Sets check, cipher_key and mac_key from the password and the 16-byte salt $1, all hexadecimal. openssl takes a password of
# one line, at most 1023 bytes, and 8 bytes of salt: the digest of the whole salt and the password stands in for it.
derive_keys() {
    octets_of "$1" 0
    # shellcheck disable=SC2059 # the escapes are the format
    derived=$({ printf "$octets" && printf '%s' "$password"; } | openssl dgst -sha256)
    derived=${derived##* }
    [ "${#derived}" -eq 64 ] || finish 70
    derive "$derived" "${1%????????????????}" "$rounds"
    set -- "$derived"
    # The labels "verifier", "cryptkey" and "auth-key"; one round makes it HMAC-SHA256 of the label.
    derive "$1" 7665726966696572 1
    check=$(printf '%.16s' "$derived" | tr A-F a-f)
    derive "$1" 63727970746b6579 1
    cipher_key=$derived
    derive "$1" 617574682d6b6579 1
    mac_key=$derived
}

# Writes the inner block of the HMAC under mac_key and the bytes $1 to descriptor 7.
start_mac() {
    octets_of "$mac_key" 0x36
    # shellcheck disable=SC2059
    printf "$octets" >&7 || finish 70
    octets_of 0000000000000000000000000000000000000000000000000000000000000000 0x36
    # shellcheck disable=SC2059
    printf "$octets" >&7 || finish 70
    octets_of "$1" 0
    # shellcheck disable=SC2059
    printf "$octets" >&7 || finish 70
}

# Sets mac, hexadecimal, from the inner digest, which openssl wrote to the file $1.
finish_mac() {
    read -r inner <"$1" || finish 74
    inner=${inner##* }
    [ "${#inner}" -eq 64 ] || finish 70
    octets_of "$mac_key" 0x5c
    outer=$octets
    octets_of 0000000000000000000000000000000000000000000000000000000000000000 0x5c
    outer=$outer$octets
    octets_of "$inner" 0
    # shellcheck disable=SC2059
    mac=$(printf "$outer$octets" | openssl dgst -sha256)
    mac=${mac##* }
    [ "${#mac}" -eq 64 ] || finish 70
}

# The cipher's key waits in a pipe on descriptor 3.
offer_cipher_key() {
    open_pipe 3 5
    printf '%s\n' "$cipher_key" >&5 || finish 70
    exec 5>&-
}

# The copy is as private as its source.
take_privacy() {
    set -- "$(ls -ldL "$source")" "$1"
    case $1 in ????r*) ;; *) chmod g-r "$2" ;; esac
    case $1 in ?????w*) ;; *) chmod g-w "$2" ;; esac
    case $1 in ???????r*) ;; *) chmod o-r "$2" ;; esac
    case $1 in ????????w*) ;; *) chmod o-w "$2" ;; esac
}

# GNU tee can stop when its file can't be written; others read on to the end for nothing.
choose_tee() {
    tee_option=
    if tee --output-error=exit /dev/null; then
        tee_option=--output-error=exit
    fi
}

prepare_file_verb() {
    need openssl
    set_source "$1" "$3"
    [ -f "$source" ] || finish 66
    set_target "$2" "$4"
    make_work_folder "$target_folder"
    choose_tee
}

encrypt_verb() {
    prepare_file_verb "$@"
    salt=$(openssl rand -hex 16)
    [ "${#salt}" -eq 32 ] || finish 70
    derive_keys "$salt"
    head=$magic$salt$check
    : >"$work/out" || finish 74
    take_privacy "$work/out"
    octets_of "${head}0000000000000000000000000000000000000000000000000000000000000000" 0
    # shellcheck disable=SC2059
    printf "$octets" >"$work/out" || finish 74

    offer_cipher_key
    open_pipe 4 5
    open_pipe 6 7
    start_mac "$head"
    start_children
    openssl enc -e -aes-256-ctr -pbkdf2 -md sha256 -iter 1 -bufsize 65536 -pass fd:3 <"$source" >&5 4<&- 5>&- 6<&- 7>&- &
    cipher=$!
    tee ${tee_option:+"$tee_option"} -a "$work/out" <&4 >&7 3<&- 4<&- 5>&- 6<&- 7>&- &
    writer=$!
    openssl dgst -sha256 <&6 >"$work/digest" 3<&- 4<&- 5>&- 6<&- 7>&- &
    hasher=$!
    know_children "$cipher" "$writer" "$hasher"
    exec 3<&- 4<&- 5>&- 6<&- 7>&-
    wait_for "$cipher"
    set -- "$?"
    wait_for "$writer" || finish 74
    wait_for "$hasher" || finish 70
    [ "$1" -eq 0 ] || finish 70

    finish_mac "$work/digest"
    octets_of "$head$mac" 0
    # Over the placeholder; "<>" doesn't cut the file.
    # shellcheck disable=SC2059
    printf "$octets" 1<>"$work/out" || finish 74
    publish "$work/out"
}

decrypt_verb() {
    prepare_file_verb "$@"
    exec 8<"$source"
    head=$(dd bs=80 count=1 <&8 | od -An -v -tx1 | tr -d ' \n')
    # 80 bytes: magic and version, salt, check, MAC, and the 16 that openssl puts before its output.
    [ "${#head}" -eq 160 ] || finish 65
    body=${head#????????????????????????????????????????????????????????????????????????????????????????????????????????????????????????????????}
    claim=${head%"$body"}
    claim=${claim#????????????????????????????????????????????????????????????????}
    head=${head%"$claim$body"}
    [ "${head%????????????????????????????????????????????????}" = "$magic" ] || finish 65
    salt=${head#????????????????}
    derive_keys "${salt%????????????????}"
    [ "${head#????????????????????????????????????????????????}" = "$check" ] || finish 1
    case $body in
        53616c7465645f5f*) ;;
        *) finish 65 ;;
    esac

    : >"$work/out" || finish 74
    take_privacy "$work/out"
    offer_cipher_key
    open_pipe 4 5
    open_pipe 6 7
    start_mac "$head$body"
    octets_of "$body" 0
    # shellcheck disable=SC2059
    printf "$octets" >&5 || finish 70
    start_children
    openssl dgst -sha256 <&6 >"$work/digest" 3<&- 4<&- 5>&- 6<&- 7>&- 8<&- &
    hasher=$!
    openssl enc -d -aes-256-ctr -pbkdf2 -md sha256 -iter 1 -bufsize 65536 -pass fd:3 \
        <&4 >"$work/out" 4<&- 5>&- 6<&- 7>&- 8<&- &
    cipher=$!
    tee ${tee_option:+"$tee_option"} /dev/fd/7 <&8 >&5 3<&- 4<&- 5>&- 6<&- 8<&- &
    writer=$!
    know_children "$cipher" "$writer" "$hasher"
    exec 3<&- 4<&- 5>&- 6<&- 7>&- 8<&-
    # The hasher first: should it fail, tee could wait for ever to open its pipe. A full disk ends the cipher, then the rest.
    wait_for "$hasher" || finish 70
    wait_for "$cipher" || finish 74
    wait_for "$writer" || finish 70

    finish_mac "$work/digest"
    [ "$mac" = "$claim" ] || finish 65
    publish "$work/out"
}

# --- Fields -----------------------------------------------------------------------------------------------------------

[ "$#" -eq 1 ] || finish 64

verb=${1%%"|"*}
case $verb in
    zip | unzip) wanted=4 ;;
    zipencrypt | unzipdecrypt | encrypt | decrypt) wanted=5 ;;
    *) finish 64 ;;
esac

fields=$1
password=
set --
while [ "$#" -lt 4 ]; do
    case $fields in
        *"|"*) fields=${fields#*"|"} ;;
        *) finish 64 ;;
    esac
    set -- "$@" "${fields%%"|"*}"
done
case $fields in
    *"|"*)
        [ "$wanted" -eq 5 ] || finish 64
        password=${fields#*"|"}
        ;;
esac
if [ "$wanted" -eq 5 ] && [ -z "$password" ]; then
    finish 64
fi

case $verb in
    zip | zipencrypt) zip_verb "$@" ;;
    unzip | unzipdecrypt) unzip_verb "$@" ;;
    encrypt) encrypt_verb "$@" ;;
    decrypt) decrypt_verb "$@" ;;
esac
