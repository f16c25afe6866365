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
#    0  done: the result is whole, and on the disk
#    1  decrypt only: wrong password (or the salt or the password check in the file's header was changed)
#   82  unzipdecrypt only: wrong password
#   64  usage: unknown verb, wrong number of fields, empty password
#   65  damaged input: cut, changed, hostile, or not in the verb's format
#   66  unusable source: missing, unreadable, or not of a kind that can be stored
#   69  a tool (bsdtar, openssl) is missing or can't do what is asked of it
#   70  a tool failed, or this script met something unforeseen
#   73  unusable destination: missing or read-only folder, something of another kind or the source itself in the way
#   74  the result could not be written: full disk, quota, input or output error
#   77  unzip only: the archive needs a password
#  129, 130, 143  ended by HUP, INT or TERM
#
# On any status but 0 the destination is as it was before. One exception: an archive that is merged into folders that exist
# is read once for nothing, and only then file after file is replaced, each whole; a failure then leaves what is done.
#
# It reads nothing from a terminal and writes nothing to stdout or stderr. It says why it failed in the system log. A host
# that wants to know names a file of its own in FOLIDEX_REPORT: it gets a line "status cause", and the system log nothing
# where that file holds something already.
#
# Plain archives are zip, encrypted ones zip with WinZip AES-256; the format of encrypted files is described, byte by byte,
# in docs/encrypted-files.md.
#
# POSIX sh (dash, bash --posix, busybox sh) and POSIX utilities, with: mktemp -d, test -O and -ef, and bsdtar (all systems
# have them), openssl 3 or LibreSSL 3.3 (Debian, Ubuntu: packages libarchive-tools and openssl; macOS 13 and later: nothing
# to install).

status=70
cause='something unforeseen'
verb=
work=
pipes=
made=
children=
starting=no
stopped=
trap 'clean_up; report; exit "$status"' EXIT
trap 'stop 129' HUP
trap 'stop 130' INT
trap 'stop 143' TERM

# The only ways out: with a status and what caused it. A shell that gives up by itself (a failed redirection, no memory)
# leaves through the EXIT trap too, so that its own 1 or 2 never reads as "wrong password".
finish() {
    status=$1
    cause=${2-}
    exit "$1"
}

# A signal. While children are being started it is remembered only: one that isn't known yet would be waited for, and it
# may wait for this script.
stop() {
    [ "$starting" = yes ] || finish "$1" 'ended by a signal'
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
    [ -z "$stopped" ] || finish "$stopped" 'ended by a signal'
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

clean_up() {
    trap '' HUP INT TERM
    # One that has just been forked can miss any other signal: a shell still, it throws away what it got before its traps
    # were reset. And should one be unknown for want of memory: without these it ends by itself.
    for child in $children; do
        kill -s KILL "$child"
    done
    exec 3<&- 4<&- 5>&- 6<&- 7>&- 8>&-
    wait
    [ -z "$pipes" ] || rm -rf "$pipes"
    if [ -n "$work" ]; then
        empty_work_folder
        cd / && rmdir "$work"
    fi
    if [ "$status" -ne 0 ] && [ -n "$made" ]; then
        remove_made_folders
    fi
}

report() {
    cause=$(printf '%s' "${verb:-usage}: $cause" | tr '\000-\037\177' ' ')
    if [ "$status" -ne 0 ] && ! { [ -f "${FOLIDEX_REPORT-}" ] && [ -s "$FOLIDEX_REPORT" ]; }; then
        logger -t Folidex -p user.err -- "ZipFuncs.sh: $status $cause"
    fi
    [ ! -f "${FOLIDEX_REPORT-}" ] || printf '\n%s %s\n' "$status" "$cause" >>"$FOLIDEX_REPORT"
}

exec </dev/null >/dev/null 2>&1

# What a service's environment may hold, and must not steer the tools. A working folder that can't be entered stops some.
unset CDPATH GLOBIGNORE TAR_READER_OPTIONS TAR_WRITER_OPTIONS TAPE LD_LIBRARY_PATH DYLD_LIBRARY_PATH POSIXLY_CORRECT
unset HISTFILE BASH_ENV ENV GREP_OPTIONS
IFS=' 	
'
set -f
cd /
PATH=${PATH:+$PATH:}/usr/bin:/bin:/usr/sbin:/sbin
# glibc would return memory to the system for every file and ask for it again: most of the time of a folder of small files.
MALLOC_TRIM_THRESHOLD_=16777216
MALLOC_TOP_PAD_=4194304
system=$(uname -sn)
host=${system#* }
# bsdtar can't expand UTF-8 names in the C locale. Of the tools only GNU's can keep mv from entering a folder or link that
# appears under the target's name (-T), or flush one file; on macOS -h helps against links, and perl, which comes with it,
# flushes as Apple wants it (F_FULLFSYNC).
case $system in
    Darwin*)
        LC_ALL=en_US.UTF-8
        rename='mv -fh'
        flush() { perl -e 'for (@ARGV) { open(F, "<", $_) && fcntl(F, 51, 0) || exit 1 }' "$@" || sync; }
        flush_all() { sync; }
        ;;
    *)
        LC_ALL=C.UTF-8
        rename='mv -fT'
        flush() { sync "$@"; }
        flush_all() { sync -f "$1"; }
        ;;
esac
export PATH LC_ALL MALLOC_TRIM_THRESHOLD_ MALLOC_TOP_PAD_
user_mask=$(umask)
umask 077

need() {
    for tool do
        command -v "$tool" || finish 69 "$tool is missing"
    done
}

# --- The work folder: private, in the destination, entered for good ---------------------------------------------------
#
# Everything is made in there under relative names: whoever renames the folder or puts another in its place changes nothing,
# and ".." stays the destination, as nobody else can move a folder that they can't write to out of its parent.
#
# The file "owner" in it names the host and is locked (on macOS: open) for as long as the script or one of its tools lives.
# So what a killed script left behind is known for certain, and the next call in the same destination removes it.

# In the destination $1, which is then "..".
make_work_folder() {
    set +f
    for left in "$1"/.ZipFuncs.??????????; do
        [ ! -d "$left" ] || [ -L "$left" ] || [ ! -O "$left" ] || (remove_left_folder "$left")
    done
    set -f
    work=$(mktemp -d "$1/.ZipFuncs.XXXXXXXXXX") || finish 73 'no folder can be made in the destination'
    # Another one of this user's, put there by others, would be neither empty nor private.
    if ! cd -P "$work" || ! is_private . || [ -n "$(ls -A)" ]; then
        work=
        finish 73 'somebody else changes the destination'
    fi
    [ ! -r /etc/machine-id ] || read -r machine </etc/machine-id
    printf '' >owner && exec 9<>owner && lock && printf '%s %s\n' "$host" "${machine-}" >owner || finish 74 'disk full'
}

is_private() {
    case $(ls -ldn "$1") in
        drwx------*) [ -O "$1" ] ;;
        *) return 1 ;;
    esac
}

lock() {
    ! command -v flock || flock -n 9
}

# For a subshell.
remove_left_folder() {
    cd -P "$1" && is_private . && read -r owner <owner || exit
    [ ! -r /etc/machine-id ] || read -r machine </etc/machine-id
    [ "$owner" = "$host ${machine-}" ] || exit
    if command -v flock; then
        exec 9<owner && flock -n 9 || exit
    else
        # Only what this tool is known to see counts.
        exec 9<owner
        [ -n "$(fuser owner)" ] && exec 9<&- && [ -z "$(fuser owner)" ] || exit
    fi
    empty_work_folder
    cd / && rmdir "$1"
}

empty_work_folder() {
    # A tree that was expanded may hold folders that lock their owner out.
    set -- tree out names listing part.zip pipe message survey early late digest written probe owner
    rm -rf "$@" || { chmod -R u+rwx tree && rm -rf "$@"; }
}

# Opens a pipe for reading on descriptor $1 and for writing on $2. Unlike those of a pipeline, the tools on both ends can
# then be direct children: each has a process ID for the TERM trap and an exit status. Opening for both directions first
# keeps the other two from waiting for each other.
open_pipe() {
    pipe=pipe
    if ! mkfifo "$pipe"; then
        # File systems without named pipes: exFAT, some network ones.
        pipes=$(mktemp -d "${TMPDIR:-/tmp}/ZipFuncs.XXXXXXXXXX" || mktemp -d /tmp/ZipFuncs.XXXXXXXXXX) || finish_full
        pipe=$pipes/pipe
        mkfifo "$pipe" || finish_full
    fi
    eval "exec $2<>\"\$pipe\" $1<\"\$pipe\" $2>\"\$pipe\""
    rm -f "$pipe"
    if [ -n "$pipes" ]; then
        rm -rf "$pipes"
        pipes=
    fi
}

# Whatever a tool says: where a few bytes more can't be written, the disk is full (or gone).
finish_full() {
    finish 74 'the result can'\''t be written'
}

check_disk() {
    dd if=/dev/zero bs=65536 count=1 >probe && flush probe || finish_full
}

# --- Paths ------------------------------------------------------------------------------------------------------------

# Sets source_folder, source_name and source from a folder and a name.
set_source() {
    usable_path "$1" "$2" || finish 66 'no path of a source'
    source=$1$2
    source_folder=${source%/*}/
    source_name=${source##*/}
    [ -r "$source" ] || finish 66 'the source is missing or not readable'
}

# Sets target_folder and target_name: a file that exists already, or a name in a folder that does. Makes the work folder.
set_target() {
    usable_path "$1" "$2" || finish 73 'no path of a destination'
    set -- "$1$2"
    target_folder=${1%/*}/
    target_name=${1##*/}
    is_open_folder "$target_folder" || finish 73 'the destination is no folder that can be written to'
    if [ -e "$1" ] && { [ ! -f "$1" ] || [ "$1" -ef "$source" ]; }; then
        finish 73 'a folder, a device or the source itself is in the way'
    fi
    make_work_folder "$target_folder"
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

# Sets at to the physical path of folder $1, which keeps newlines at its end.
physical() {
    at=$(cd -P "$1" && pwd -P && echo .) || return 1
    at=${at%??}
}

# --- Results: as private as what they come from, flushed, looked at ---------------------------------------------------

# The result "out", empty: descriptor 8 is open on it before anything is written, so that it learns of every write that
# fails later, also of one that the file system tells nobody but who closes the file.
make_out() {
    printf '' >out && exec 8<>out || finish_full
    mode=$((0666 & ~user_mask))
    group=$(ls -ldn out)
    group=$(field 4 $group)
    narrow "$(ls -ldnL "$source")"
    [ ! -f "../$target_name" ] || narrow "$(ls -ldn "../$target_name")"
}

field() {
    shift "$1"
    printf '%s' "$1"
}

# Takes from mode what the item in the line $1 of ls -n doesn't give to its group and to others: where that is another
# group than the result's, only what it gives to both. What an access list (+) says can't be told.
narrow() {
    set -- $1
    given=0
    case $1 in l* | *+) ;; ????r*) given=040 ;; esac
    case $1 in l* | *+) ;; ?????w*) given=$((given | 020)) ;; esac
    case $1 in l* | *+) ;; ???????r*) given=$((given | 4)) ;; esac
    case $1 in l* | *+) ;; ????????w*) given=$((given | 2)) ;; esac
    narrow_to "$given" "$4"
}

narrow_to() {
    set -- "$(($1))" "$2"
    [ "$2" = "$group" ] || set -- "$((($1 >> 3 & $1 & 7) * 9))"
    mode=$((mode & (0600 | $1)))
}

# Puts "out" in the target's place.
publish() {
    chmod "$(printf '%o' "$mode")" out && dd if=/dev/null conv=fsync >&8 && exec 8>&- && flush out || finish_full
    inode_of out
    made_inode=$inode
    $rename out "../$target_name" || finish 73 'the destination can'\''t be replaced'
    inode_of "../$target_name"
    if [ "$inode" != "$made_inode" ]; then
        inode_of "../$target_name/out"
        [ "$inode" != "$made_inode" ] || rm -f "../$target_name/out"
        finish 73 'somebody else changes the destination'
    fi
    flush .. || finish_full
    finish 0
}

inode_of() {
    inode=$(ls -di "$1")
    inode=$(field 1 $inode)
}

# --- Messages of bsdtar -----------------------------------------------------------------------------------------------

# Reads them from descriptor 4 and ends with what they come to; the first of that kind is then in the file "message". At a
# wrong password it ends at once, and with it the tool, which would try the password on every other entry. The causes stand
# at the end of a line, behind the name, which could hold anything.
#    0 nothing known, 2 nothing but items that went or changed meanwhile, 3 wrong password, 4 can't be written,
#    5 can't be read, 6 can't be done
start_reading_messages() {
    start_children
    LC_ALL=C awk '
        function say(kind) {
            if (kind > seen) { seen = kind; line = $0 }
        }
        /Error exit delayed/ { next }
        /: (Incorrect passphrase|Too many incorrect passphrases|Passphrase required for this entry)(: Unknown error -1)?$/ && !/ (through|over) / {
            say(9)
            exit
        }
        /: (No space left on device|Disk quota exceeded|File too large|Read-only file system|Write error|Output file write failure)$/ {
            say(8)
            next
        }
        /: (Permission denied|Operation not permitted|Input\/output error)$/ || /: (Cannot|Can.t) (open|stat|read)/ && !/: No such file or directory$/ {
            say(7)
            next
        }
        /[Uu]nsupported|[Uu]nrecognized option|[Uu]nknown option|Undefined option|is not supported|can.t be created/ { say(6); next }
        /: No such file or directory$|file may have grown while being archived$|: File shrank by / { say(2); next }
        { say(5) }
        END {
            if (seen) print line >"message"
            split("0 2 0 0 0 6 5 4 3", codes)
            exit seen ? codes[seen] : 0
        }' <&4 4<&- 5>&- 9>&- &
    reader=$!
    know_children "$reader"
    exec 4<&- 5>&-
}

# Waits for bsdtar, the child $1, and judges: $2 is the status of a failure that nothing is known of.
judge_bsdtar() {
    wait_for "$reader"
    reader=$?
    if [ "$reader" -eq 3 ]; then
        kill -s KILL "$1"
        wait_for "$1"
        [ -n "$password" ] && finish 82 'wrong password'
        finish 77 'the archive needs a password'
    fi
    wait_for "$1" && return
    message=
    [ ! -s message ] || read -r message <message
    check_disk
    case $reader in
        2) return ;;
        4) finish 74 "$message" ;;
        5) finish 66 "$message" ;;
        6) finish 69 "$message" ;;
        *) finish "$2" "${message:-bsdtar failed}" ;;
    esac
}

# --- The structure of zip archives ------------------------------------------------------------------------------------
#
# bsdtar guesses formats, looks for the end record in the last 16 KiB only, and takes an archive that was cut within its
# central directory for a whole one. So the end record is looked for here, and has to fit the directory before it. What
# follows it may be anything; so may what stands in front, as in archives that expand themselves.

# Sets, for the archive $1: zip_entries, of which zip_modulo is 65536 where only so many digits are kept; zip_start and
# zip_length of the directory; zip_shift, by which what stands in front moves all offsets; zip_end and zip_plain, where the
# end record lies and whether bsdtar finds it there. Fails where there is no whole directory.
read_zip_structure() {
    zip_size=$(wc -c <"$1") || return
    for tail in 1024 70000 1200000; do
        zip=$(tail -c "$tail" "$1" | od -An -v -tu1 | LC_ALL=C awk -v size="$((zip_size))" '
            function number(at, bytes,    value) {
                while (bytes-- > 0) value = value * 256 + byte[at + bytes]
                return value
            }
            function is(at, third, fourth) {
                return at >= 0 && byte[at] == 80 && byte[at + 1] == 75 && byte[at + 2] == third && byte[at + 3] == fourth
            }
            function fits(at,    end, big) {
                if (at + 22 + number(at + 20, 2) > n || number(at + 4, 4) != 0) return 0
                entries = number(at + 10, 2); length_ = number(at + 12, 4); start = number(at + 16, 4); end = size - n + at
                modulo = 65536
                if (is(at - 20, 6, 7)) {
                    for (big = at - 76; big >= 0 && !is(big, 6, 6); ) big--
                    if (big < 0) return 0
                    end = size - n + big
                    modulo = 0
                    entries = number(big + 32, 8); length_ = number(big + 40, 8); start = number(big + 48, 8)
                }
                shift_ = end - length_ - start
                return shift_ >= 0
            }
            { for (i = 1; i <= NF; i++) byte[n++] = $i }
            END {
                for (at = n - 22; at >= 0; at--) if (is(at, 5, 6)) {
                    if (fits(at)) break
                    misleading = 1
                }
                if (at < 0) exit 1
                plain = !misleading && n - at < 16384 && (at > 0 || size == 22)
                printf "%.0f %d %.0f %.0f %.0f %.0f %d", entries, modulo, start + shift_, length_, shift_, size - n + at, plain
            }') && break
        [ "$zip_size" -gt "$tail" ] || return
    done
    # shellcheck disable=SC2086 # seven words
    set -- "$1" $zip
    [ "$#" -eq 8 ] || return
    zip_entries=$2 zip_modulo=$3 zip_start=$4 zip_length=$5 zip_shift=$6 zip_end=$7 zip_plain=$8
    [ "$zip_length" -eq 0 ] || [ "$(od -An -v -tx1 -j "$zip_start" -N4 "$1" | tr -d ' \n')" = 504b0102 ]
}

# Is $1 the number of entries that the structure tells?
is_zip_count() {
    [ "$1" -eq "$zip_entries" ] || { [ "$zip_modulo" -gt 0 ] && [ "$(($1 % zip_modulo))" -eq "$zip_entries" ]; }
}

# A line for each entry in the directory of archive $1: the offset of its local header, that of its directory entry, and 1
# when the name is marked as UTF-8 but isn't.
list_zip_directory() {
    tail -c "+$((zip_start + 1))" "$1" | head -c "$zip_length" | od -An -v -tu1 | LC_ALL=C awk \
        -v at="$zip_start" -v shift_="$zip_shift" '
        function number(at, bytes,    value) {
            while (bytes-- > 0) value = value * 256 + byte[at + bytes]
            return value
        }
        function is_utf8(from, to,    rest, low, high) {
            for (low = 128; from < to; from++) {
                if (rest > 0) {
                    if (byte[from] < low || byte[from] > high) return 0
                    rest--; low = 128; high = 191
                } else if (byte[from] >= 128) {
                    if (byte[from] < 194 || byte[from] > 244) return 0
                    rest = byte[from] < 224 ? 1 : byte[from] < 240 ? 2 : 3
                    low = byte[from] == 224 ? 160 : byte[from] == 240 ? 144 : 128
                    high = byte[from] == 237 ? 159 : byte[from] == 244 ? 143 : 191
                }
            }
            return rest == 0
        }
        function local_offset(    offset, extra, end) {
            offset = number(42, 4)
            if (offset != 4294967295) return offset
            for (extra = 46 + name; extra + 4 <= total; extra += 4 + number(extra + 2, 2)) if (number(extra, 2) == 1)
                return number(extra + 4 + 8 * ((number(20, 4) == 4294967295) + (number(24, 4) == 4294967295)), 8)
        }
        {
            for (i = 1; i <= NF; i++) {
                byte[n++] = $i
                if (n == 46) {
                    name = number(28, 2)
                    total = 46 + name + number(30, 2) + number(32, 2)
                }
                if (n >= 46 && n == total) {
                    bad = int(byte[9] / 8) % 2 && !is_utf8(46, 46 + name)
                    printf "%.0f %.0f %d\n", local_offset() + shift_, at, bad
                    at += total
                    n = 0
                }
            }
        }'
}

# --- Zip --------------------------------------------------------------------------------------------------------------

zip_verb() {
    need bsdtar
    set_source "$1" "$3"
    [ -f "$source" ] || [ -d "$source" ] || finish 66 'the source is neither a file nor a folder'
    set_target "$2" "$4"
    make_out
    set_replaced
    start_children
    survey &
    surveyor=$!
    know_children "$surveyor"
    pack
    wait_for "$surveyor" || finish 66 'a folder can'\''t be read'
    read -r items odd group_shut others_shut groups times <survey || finish_full
    [ "$odd" -eq 0 ] || finish 66 'a pipe, socket or device can'\''t be packed'
    [ "$times" -eq 0 ] || pack_clamped
    check_packed
    unmark_names
    publish
}

# An archive that is written below its own source doesn't pack what it replaces: sets replaced, its path below the source's
# folder, and replaced_pattern for bsdtar.
set_replaced() {
    replaced=.//.
    replaced_pattern='^/$'
    [ -d "$source" ] && physical "$source" || return 0
    set -- "$at"
    physical ..
    case ${at%/}/ in
        "${1%/}"/*)
            replaced=$source_name${at#"${1%/}"}/$target_name
            replaced_pattern=$(printf '%s\n.' "$replaced" | sed 's/[][*?\\^$]/\\&/g')
            replaced_pattern="^${replaced_pattern%??}\$"
            replaced=$(printf '%s\n.' "$replaced" | sed 's/[][*?\\]/\\&/g')
            replaced=.//${replaced%??}
            ;;
    esac
}

# What there is to pack, as find sees it: the source, less work folders and the archive itself. A name can hold a newline,
# but nothing but the front of a path "//".
find_items() {
    (cd "$source_folder" && exec find -H ".//$source_name" \( -name '.ZipFuncs.??????????' -o -path "$replaced" \) -prune -o \
        "$@" -print)
}

count_items() {
    find_items | LC_ALL=C grep -c '^\.//'
}

# Writes to the file "survey", beside bsdtar: how many items there are, how many of a kind that bsdtar leaves out, and 1 each
# when one isn't readable by its group, by others, is another group's, or has a time that zip can't hold. Fails when a folder
# can't be read.
survey() {
    find_items >listing || exit
    touch -t 197001020000 early
    touch -t 203801180000 late
    items=$(LC_ALL=C grep -c '^\.//' listing)
    group=$(ls -ldnL "$source")
    group=$(field 4 $group)
    echo "$items" "$(find_items ! -type f ! -type d ! -type l | wc -l)" \
        "$(find_items \( -type d ! -perm -050 -o -type f ! -perm -040 \) | head -c 1 | wc -c)" \
        "$(find_items \( -type d ! -perm -005 -o -type f ! -perm -004 \) | head -c 1 | wc -c)" \
        "$(find_items ! -type l ! -group "$group" | head -c 1 | wc -c)" \
        "$(find_items \( -newer "$work/late" -o ! -newer "$work/early" \) | head -c 1 | wc -c)" >survey
}

# Packs the source into "out".
pack() {
    printf '%s\0' "$source_name" >names || finish_full
    options=zip:compression-level=3
    [ -z "$password" ] || options=$options,zip:encryption=aes256
    run_packer names --format zip --options "$options" ${password:+--passphrase "$password"} -C "$source_folder" --null -T -
}

# Zip takes times from 1970 to 2038, and bsdtar wraps others. With one of those in the source it is packed from a list.
pack_clamped() {
    run_packer names --format mtree --options 'mtree:!all,mtree:type,mtree:mode,mtree:time,mtree:link' \
        -C "$source_folder" --null -T -
    LC_ALL=C awk '
        match($0, / time=[-0-9.]+/) {
            time = substr($0, RSTART + 6, RLENGTH - 6)
            clamped = time < 0 ? 0 : time > 2147483647 ? 2147483647 : time
            $0 = substr($0, 1, RSTART + 5) clamped substr($0, RSTART + RLENGTH)
        }
        / type=file/ { $0 = $0 " contents=" $1 }
        { print }' out >listing || finish_full
    run_packer listing --format zip --options "$options" ${password:+--passphrase "$password"} -s ',^\./,,SH' -C "$source_folder" @-
}

# Makes "out" with bsdtar, whose standard input is the file $1.
run_packer() {
    open_pipe 4 5
    input=$1
    shift
    start_children
    bsdtar -c -H -f out --no-acls --no-xattrs --no-fflags --no-mac-metadata --exclude '.ZipFuncs.??????????' \
        --exclude "$replaced_pattern" "$@" <"$input" 2>&5 4<&- 5>&- &
    packer=$!
    know_children "$packer"
    start_reading_messages
    judge_bsdtar "$packer" 70
}

# Every item that was surveyed is in the archive, unless folders changed meanwhile. Narrows the mode to what the items allow.
check_packed() {
    read_zip_structure out || finish 70 'the archive came out damaged'
    is_zip_count "$items" || [ -n "$(find_items -type d -newer names | head -c 1)" ] ||
        finish 70 "$zip_entries of $items items were packed"
    given=066
    [ "$group_shut" -eq 0 ] || given=$((given & 07))
    [ "$others_shut" -eq 0 ] || given=$((given & 070))
    narrow_to "$given" "$([ "$groups" -eq 0 ] && echo "$group")"
}

# bsdtar marks every name as UTF-8. One that isn't would make other tools refuse the whole archive: its mark goes.
unmark_names() {
    LC_ALL=C.UTF-8 iconv -f UTF-8 -t UTF-8 listing && return
    list_zip_directory out | sed -n 's/ 1$//p' >names
    while read -r local_at directory_at; do
        for at in "$((local_at + 7))" "$((directory_at + 9))"; do
            printf '\0' | dd of=out bs=1 seek="$at" conv=notrunc || finish_full
        done
    done <names
}

# --- Unzip ------------------------------------------------------------------------------------------------------------

no_password='no password was given'

unzip_verb() {
    need bsdtar
    [ "$4" = expand ] || finish 64 'the fourth field isn'\''t "expand"'
    set_source "$1" "$3"
    [ -f "$source" ] || finish 66 'the archive is no file'
    case $2 in
        /*) destination=$2 ;;
        *) finish 73 'no path of a destination' ;;
    esac
    read_zip_structure "$source" || finish 65 'no zip archive, or it is cut'
    make_destination
    make_work_folder "$destination"
    if [ "$zip_plain" -eq 0 ]; then
        { head -c "$((zip_end + 20))" "$source" && printf '\0\0'; } >part.zip || finish_full
        source=$work/part.zip
    fi
    plan_expansion
    [ -z "$password" ] || check_encryption
    if [ "$merge" = no ]; then
        expand_new
    else
        expand_merging
    fi
    finish 0
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
    (umask "$user_mask" && mkdir -p "$destination/") || finish 73 'the destination can'\''t be made'
    is_open_folder "$destination/" || finish 73 'the destination is no folder that can be written to'
}

remove_made_folders() {
    folder=$destination
    rmdir "$folder"
    while [ "$folder" != "$made" ]; do
        folder=${folder%/*}
        rmdir "$folder"
    done
}

# Reads the list of entries: every entry that the end record counts is a file, folder or link, none has an absolute name or
# "..", and bsdtar sees a plain zip (a tar or a disk image can look like one). Every entry finds its place free in the
# destination: a folder meets a folder that can be written to, no link; anything else meets no folder. Sets merge to yes when
# a folder of the archive exists already. Writes to "listing", for each entry, 1 when it is a file with content, else 0.
plan_expansion() {
    plan=$({ bsdtar -t -vvv --options 'zip:!mac-ext' --passphrase "${password:-$no_password}" -f "$source" || echo '!'; } |
        LC_ALL=C awk '
        # A word for xargs. Names come with C escapes.
        function word(kind, name,    text, at) {
            text = ""
            while (at = index(name, "\\")) {
                text = text substr(name, 1, at - 1)
                if (substr(name, at + 1, 3) ~ /^[0-7][0-7][0-7]$/) {
                    text = text sprintf("%c", substr(name, at + 1, 1) * 64 + substr(name, at + 2, 1) * 8 + substr(name, at + 3, 1))
                    name = substr(name, at + 4)
                } else {
                    text = text plain[substr(name, at + 1, 1)]
                    name = substr(name, at + 2)
                }
            }
            text = text name
            gsub(/[^a-zA-Z0-9_.\/]/, "\\\\&", text)
            print kind text
        }
        function check(line,    kind, name, folder, at, part) {
            kind = substr(line, 1, 1)
            split(line, columns)
            print (kind == "-" && columns[5] > 0) >"listing"
            # Mode, links, owner, group, size, and three of the date stand before the name.
            if (kind !~ /[-dl]/ || !sub(/^[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ +[^ ]+ /, "", line)) wrong = 1
            if (kind == "l") sub(/ -> .*/, "", line)
            name = line
            if (name ~ /^\// || ("/" name "/") ~ /\/\.\.\//) wrong = 1
            total += columns[5]
            while (sub(/^\.?\/+/, "", name) || sub(/\/(\.?\/)+/, "/", name) || sub(/\/\.?$/, "", name)) continue
            if (name == "" || name == ".") return
            folder = name
            if (!sub(/\/[^\/]*$/, "", folder)) folder = ""
            if (kind == "d") folder = name
            if (folder != last_folder) {
                for (at = 1; part = index(substr(folder, at), "/"); at += part) word("d", substr(folder, 1, at + part - 2))
                if (folder != "") word("d", folder)
                last_folder = folder
            }
            if (kind != "d") word("f", name)
        }
        BEGIN { plain["n"] = "\n"; plain["r"] = "\r"; plain["t"] = "\t"; plain["\\"] = "\\"; plain["a"] = "\a"; plain["b"] = "\b"
            plain["f"] = "\f"; plain["v"] = "\v" }
        NR > 1 { check(last) }
        { last = $0 }
        END {
            if (wrong || last !~ /^Archive Format: ZIP.*,  Compression: none$/) print "!"
            else printf "n%d\nk%.0f\n", NR - 1, total / 1024
        }' | LC_ALL=C xargs sh -c '
        for word do
            place=../${word#?}
            case $word in
                "!") echo damaged ;;
                n*) echo "entries=${word#n}" ;;
                k*) echo "kilobytes=${word#k}" ;;
                d*)
                    if [ -L "$place" ] || { [ -e "$place" ] && [ ! -d "$place" ]; }; then
                        echo blocked
                    elif [ -d "$place" ]; then
                        if [ -w "$place" ] && [ -x "$place" ]; then echo merge; else echo blocked; fi
                    fi
                    ;;
                f*) [ ! -d "$place" ] || [ -L "$place" ] || echo blocked ;;
            esac
        done' sh | sort -u)
    merge=no
    entries=
    for word in $plan; do
        case $word in
            damaged) finish 65 'the archive is damaged, or hostile' ;;
            blocked) blocked=yes ;;
            merge) merge=yes ;;
            entries=*) entries=${word#*=} ;;
            kilobytes=*) kilobytes=${word#*=} ;;
        esac
    done
    [ -n "$entries" ] && is_zip_count "$entries" || finish 65 'the archive holds other entries than it says'
    [ -z "${blocked-}" ] || finish 73 'a link, a folder or something of another kind is in the way'
}

# An archive that holds encrypted files holds no others: they might be forged. bsdtar goes by the mark in the local headers,
# so each file with content needs one there. All bytes but those that such a header is known by are mapped to "o" (odd) and
# "e" (even), for tools that read text.
check_encryption() {
    list_zip_directory "$source" | sort -n >names || finish_full
    LC_ALL=C tr '\000-\377' "$(LC_ALL=C awk 'BEGIN {
        for (i = 0; i < 255; i++) printf "%s", i == 3 || i == 4 ? i : i == 75 ? "K" : i == 80 ? "P" : i % 2 ? "o" : "e"
        printf "\\n" }')" <"$source" | LC_ALL=C grep -b -o 'PK34..[oK3]' | cut -d : -f 1 >survey || finish_full
    LC_ALL=C awk '
        FILENAME == "survey" { encrypted[$1]; next }
        FILENAME == "names" { at[++n] = $1; next }
        $1 { if (at[++i] in encrypted) some = 1; else other = 1; next }
        { i++ }
        END { exit some && other }' survey names listing || finish 65 'files that aren'\''t encrypted among those that are'
}

# The passphrase is on bsdtar's command line, as it is on this script's own for just as long. bsdtar has no other way: its
# prompt reads 1023 bytes of a terminal or, without one, of stdin, and asks 10,000 times when the password is wrong.
# Without a passphrase it would prompt.
run_expander() {
    open_pipe 4 5
    start_children
    # No owners, no set-id or sticky bits, modes under the umask. -s: keeps the names that bsdtar would shorten, those with a
    # leading "\" or "c:".
    (umask "$user_mask" && exec bsdtar -x --no-same-owner --no-same-permissions --no-acls --no-xattrs --no-fflags \
        --no-mac-metadata --options 'zip:!mac-ext' -s ',^,./,SH' --passphrase "${password:-$no_password}" -f "$source" "$@") \
        2>&5 4<&- 5>&- &
    expander=$!
    know_children "$expander"
    start_reading_messages
    judge_bsdtar "$expander" 65
}

# Nothing of the archive's folders is there yet: expands into a private folder and moves what lies on top of it.
expand_new() {
    mkdir tree || finish_full
    run_expander -C tree
    flush_all . || finish_full
    # From here on it is a matter of a few renames: see them through.
    trap '' HUP INT TERM
    # The move of a folder to another parent writes into the folder.
    # shellcheck disable=SC2016 # the inner shells expand them
    (cd tree && find . ! -name . -prune -type d ! -perm -200 -exec sh -c '
        chmod u+w "$1" && mv -f "$1" ../../ && chmod u-w "../../$1"' sh {} \; &&
        find . ! -name . -prune -exec sh -c 'exec mv -f -- "$@" ../../' sh {} +) && rmdir tree ||
        finish 73 'the result can'\''t be moved into place'
    flush .. || finish_full
}

# Folders of the archive exist already: reads it once for nothing, then lets bsdtar replace file after file in place.
expand_merging() {
    free=$(df -Pk .. | awk 'NR == 2 { print $4 }')
    [ "${free:-0}" -gt "$kilobytes" ] || finish 74 'the disk has no room for it'
    run_expander -O
    # From here on the destination changes: see it through.
    trap '' HUP INT TERM
    run_expander --safe-writes -C ..
    flush_all .. || finish_full
}

# --- Encrypted files --------------------------------------------------------------------------------------------------
#
# No key is ever an argument or in the environment: openssl gets them through pipes, and HMAC is built from its definition
# (RFC 2104), as its options would take the key as an argument.
#
# The cipher writes the result straight to its file. Beside it, what is in that file already is hashed: reading it back is
# quicker than sending all through one more pipe, and it is the result itself that is looked at.

magic=464f4c4944455801
rounds=600000

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

# Writes the bytes of the hexadecimal digits $1, each XORed with $2.
put() {
    octets_of "$1" "${2:-0}"
    # shellcheck disable=SC2059 # the escapes are the format
    printf "$octets"
}

zeros=0000000000000000000000000000000000000000000000000000000000000000

# Sets derived to the 64 hexadecimal digits (upper case) of PBKDF2-HMAC-SHA256 over the line $1, the 8 bytes $2 and $3
# rounds. A cipher with a 32-byte key and no IV makes openssl print just that.
derive() {
    derived=$(printf '%s\n' "$1" | openssl enc -aes-256-ecb -pbkdf2 -md sha256 -iter "$3" -S "$2" -P -pass stdin |
        sed -n 's/^key=//p')
    [ "${#derived}" -eq 64 ] || finish 69 'openssl can'\''t derive keys'
}

# Sets check, cipher_key and mac_key from the password and the 16-byte salt $1, all hexadecimal. openssl takes a password of
# one line, at most 1023 bytes, and 8 bytes of salt: the digest of the whole salt and the password stands in for it.
derive_keys() {
    digest=$({ put "$1" && printf '%s' "$password"; } | openssl dgst -sha256)
    digest=${digest##* }
    [ "${#digest}" -eq 64 ] || finish 69 'openssl can'\''t hash'
    derive "$digest" "${1%????????????????}" "$rounds"
    set -- "$derived"
    # The labels "verifier", "cryptkey" and "auth-key"; one round makes it HMAC-SHA256 of the label.
    derive "$1" 7665726966696572 1
    check=$(printf '%.16s' "$derived" | tr A-F a-f)
    derive "$1" 63727970746b6579 1
    cipher_key=$derived
    derive "$1" 617574682d6b6579 1
    mac_key=$derived
}

# The cipher's key waits in a pipe on descriptor 3.
offer_cipher_key() {
    open_pipe 3 5
    printf '%s\n' "$cipher_key" >&5 || finish 70 'a pipe failed'
    exec 5>&-
}

# For a child: becomes the cipher, which encrypts with -e. In counter mode that and -d do the same but for the header, the
# cipher's salt, that one writes and the other reads.
cipher() {
    exec openssl enc "$1" -aes-256-ctr -pbkdf2 -md sha256 -iter 1 -bufsize 1048576 -pass fd:3
}

# For a child: copies standard input, the result that is being written, until the file "written" says that it is whole.
follow() {
    while [ ! -e written ]; do
        cat || exit
        [ -e written ] || sleep 0.1 || sleep 1
        kill -0 "$$" || exit
    done
    exec cat
}

# Begins the input of HMAC's inner hash, under mac_key.
put_inner_key() {
    put "$mac_key" 0x36 && put "$zeros" 0x36
}

# Sets mac, hexadecimal, from the file "digest", the inner one.
finish_mac() {
    read -r inner <digest || finish_full
    mac=$({ put "$mac_key" 0x5c && put "$zeros" 0x5c && put "${inner##* }"; } | openssl dgst -sha256)
    mac=${mac##* }
    [ "${#mac}" -eq 64 ] || finish 70 'openssl failed'
}

# After the children $cipher_child, $follower and $hasher (and $checker) have been started.
await_result() {
    wait_for "$cipher_child"
    set -- "$?"
    printf '' >written || finish_full
    [ "$1" -eq 0 ] || { check_disk && finish 70 'openssl failed'; }
    for child in "$follower" $checker "$hasher"; do
        wait_for "$child" || { check_disk && finish 70 'openssl or cat failed'; }
    done
    size=$(wc -c <out)
    [ "$((size))" -ge "$expected" ] || { check_disk && finish 66 'the source can'\''t be read, or changed'; }
    finish_mac
}

prepare_file_verb() {
    need openssl
    set_source "$1" "$3"
    [ -f "$source" ] || finish 66 'the source is no file'
    set_target "$2" "$4"
    make_out
    checker=
    expected=$(wc -c <"$source")
}

encrypt_verb() {
    prepare_file_verb "$@"
    expected=$((expected + 80))
    salt=$(openssl rand -hex 16)
    [ "${#salt}" -eq 32 ] || finish 69 'openssl has no random numbers'
    derive_keys "$salt"
    head=$magic$salt$check
    put "$head$zeros" >out || finish_full
    offer_cipher_key
    open_pipe 4 5
    start_children
    (cipher -e) <"$source" >>out 4<&- 5>&- &
    cipher_child=$!
    (dd bs=64 count=1 >/dev/null && put_inner_key && put "$head" && follow) <out >&5 3<&- 4<&- 5>&- &
    follower=$!
    openssl dgst -sha256 <&4 >digest 3<&- 4<&- 5>&- &
    hasher=$!
    know_children "$cipher_child" "$follower" "$hasher"
    exec 3<&- 4<&- 5>&-
    await_result
    # Over the placeholder; "<>" doesn't cut the file.
    { put "$head$mac"; } 1<>out || finish_full
    publish
}

decrypt_verb() {
    prepare_file_verb "$@"
    head=$(dd bs=80 count=1 <"$source" | od -An -v -tx1 | tr -d ' \n')
    # 80 bytes: magic and version, salt, check, MAC, and the 16 that openssl puts before its output.
    [ "${#head}" -eq 160 ] || finish 65 'the file is cut'
    expected=$((expected - 80))
    body=${head#????????????????????????????????????????????????????????????????????????????????????????????????????????????????????????????????}
    claim=${head%"$body"}
    claim=${claim#????????????????????????????????????????????????????????????????}
    head=${head%"$claim$body"}
    [ "${head%????????????????????????????????????????????????}" = "$magic" ] || finish 65 'no encrypted file of this kind'
    salt=${head#????????????????}
    derive_keys "${salt%????????????????}"
    [ "${head#????????????????????????????????????????????????}" = "$check" ] || finish 1 'wrong password'
    case $body in
        53616c7465645f5f*) ;;
        *) finish 65 'the file is damaged' ;;
    esac
    # What comes out is encrypted again, and that has to have the MAC: the source, which might change between two readings,
    # is read once.
    offer_cipher_key
    start_children
    (dd bs=64 count=1 >/dev/null && cipher -d) <"$source" >out &
    cipher_child=$!
    know_children "$cipher_child"
    exec 3<&-
    offer_cipher_key
    open_pipe 4 5
    open_pipe 6 7
    { put_inner_key && put "$head$body"; } >&7 || finish 70 'a pipe failed'
    start_children
    (put "$body" && follow) <out >&5 3<&- 4<&- 5>&- 6<&- 7>&- &
    follower=$!
    (cipher -d) <&4 >&7 4<&- 5>&- 6<&- 7>&- &
    checker=$!
    openssl dgst -sha256 <&6 >digest 3<&- 4<&- 5>&- 6<&- 7>&- &
    hasher=$!
    know_children "$follower" "$checker" "$hasher"
    exec 3<&- 4<&- 5>&- 6<&- 7>&-
    await_result
    [ "$mac" = "$claim" ] || finish 65 'the file is damaged'
    publish
}

# --- Fields -----------------------------------------------------------------------------------------------------------

[ "$#" -eq 1 ] || finish 64 'not one argument'

verb=${1%%"|"*}
case $verb in
    zip | unzip) wanted=4 ;;
    zipencrypt | unzipdecrypt | encrypt | decrypt) wanted=5 ;;
    *) verb= && finish 64 'unknown verb' ;;
esac

fields=$1
password=
set --
while [ "$#" -lt 4 ]; do
    case $fields in
        *"|"*) fields=${fields#*"|"} ;;
        *) finish 64 'a field is missing' ;;
    esac
    set -- "$@" "${fields%%"|"*}"
done
case $fields in
    *"|"*)
        [ "$wanted" -eq 5 ] || finish 64 'too many fields'
        password=${fields#*"|"}
        ;;
esac
if [ "$wanted" -eq 5 ] && [ -z "$password" ]; then
    finish 64 'no password'
fi

case $verb in
    zip | zipencrypt) zip_verb "$@" ;;
    unzip | unzipdecrypt) unzip_verb "$@" ;;
    encrypt) encrypt_verb "$@" ;;
    decrypt) decrypt_verb "$@" ;;
esac
