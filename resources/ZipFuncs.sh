#!/bin/sh
# shellcheck disable=SC2012,SC2015,SC2016,SC2086,SC2094,SC2154,SC3013
# ZipFuncs.sh - compress, expand, encrypt and decrypt for the plug-in's archive functions.
#
#   sh ZipFuncs.sh 'zip|source folder|destination folder|source name|archive name'           zipencrypt: + '|password'
#   sh ZipFuncs.sh 'unzip|archive folder|destination folder|archive name|expand'           unzipdecrypt: + '|password'
#   sh ZipFuncs.sh 'encrypt|source folder|destination folder|source name|destination name|password'       or decrypt
# One argument. Folders are absolute and end in "/", names hold none. A "|" ends a field, but not the password.
#
# Exit status: 0 done, whole and on the disk; 1 (decrypt), 82 (unzipdecrypt) wrong password; 64 usage; 65 damaged input;
# 66 unusable source; 69 a tool is missing or can't do it; 70 a tool failed; 73 unusable destination; 74 not written: full
# disk, quota; 77 (unzip) needs a password; 129, 130, 143 ended by HUP, INT, TERM. On any but 0 the destination is as it
# was before; only an archive that is merged into folders that exist may fail half-way.
# It reads no terminal and prints nothing. Why it failed goes to the system log. A file that FOLIDEX_REPORT names gets a
# line "status cause"; when it held something already, the system log gets nothing.
# POSIX sh (dash, bash --posix, busybox sh) and POSIX utilities, with: mktemp -u, test -O and -ef, find -mmin, stat,
# perl without modules, bsdtar, and openssl 3 or LibreSSL 3.3 (Debian, Ubuntu: packages libarchive-tools and openssl, the
# rest is there; macOS 13: all there).

exec </dev/null >/dev/null 2>&1
status=70 cause='something unforeseen' verb='' made='' work='' replaced=/ pipe='' children='' reaped=''
trap 'clean_up; report; exit "$status"' EXIT
trap 'finish 129 signal' HUP
trap 'finish 130 signal' INT
trap 'finish 143 signal' TERM

# The only way out. A shell that gives up by itself leaves through the EXIT trap too: its 1 never reads as a status.
finish() { status=$1 cause=${2-} && exit "$1"; }
finish_full() { finish 74 "the result can't be written"; }

clean_up() {
    trap '' HUP INT TERM
    # A child that a signal found just started is in $! alone. KILL: a shell still, it might throw away any other.
    [ "$!" = "$reaped" ] || children="$children $!"
    kill -s KILL $children
    exec 3<&- 4<&- 5>&- 6<&- 7>&- 8>&-
    wait
    [ -z "$pipe" ] || rm -f "$pipe"
    [ -z "$work" ] || empty_work_folder
    [ -z "$made" ] || { cd / && rmdir "$made"; }
}

report() {
    cause=$(printf '%s' "${verb:-usage}: $cause" | tr '\000-\037\177' ' ')
    [ "$status" -eq 0 ] || [ -s "${FOLIDEX_REPORT-}" ] || logger -t Folidex -p user.err "ZipFuncs.sh: $status $cause"
    [ ! -f "${FOLIDEX_REPORT-}" ] || printf '\n%s %s\n' "$status" "$cause" >>"$FOLIDEX_REPORT"
}

# The environment must not steer the tools. A working folder that can't be entered stops some.
unset IFS CDPATH TAR_READER_OPTIONS TAR_WRITER_OPTIONS TAPE LD_LIBRARY_PATH DYLD_LIBRARY_PATH POSIXLY_CORRECT BASH_ENV ENV \
    PERL5OPT PERL5LIB PERLIO PERL_UNICODE
set -f && cd / && user_mask=$(umask) && umask 077
PATH=${PATH:+$PATH:}/usr/bin:/bin:/usr/sbin:/sbin
# glibc would return memory to the system for every file and ask for it again: most of the time of many small files.
MALLOC_TRIM_THRESHOLD_=16777216 MALLOC_TOP_PAD_=4194304
# Names are bytes, but bsdtar can't expand UTF-8 ones in the C locale. GNU's mv enters nothing that appears under the
# target's name (-T), macOS' no link (-h). macOS wants F_FULLFSYNC (51) to flush.
LC_ALL=C utf8=C.UTF-8 rename='mv -fT' flush_all='sync -f' system=$(uname -sn)
flush() { sync "$@"; }
if [ "${system% *}" = Darwin ]; then
    utf8=en_US.UTF-8 rename='mv -fh' flush_all=sync
    flush() { perl -e 'for (@ARGV) { open(F, "<", $_) && fcntl(F, 51, 0) || exit 1 }' "$@" || sync; }
fi
export PATH LC_ALL MALLOC_TRIM_THRESHOLD_ MALLOC_TOP_PAD_

# Ends with the exit status of child $1.
wait_for() {
    wait "$1"
    set -- "$1" "$?" "$children "
    [ "$1" != "$!" ] || reaped=$1
    children=${3%%" $1 "*}${3#*" $1"}
    return "$2"
}

# Opens a pipe for reading on descriptor $1, writing on $2: the tools on its ends are then direct children, with a process
# ID for the TERM trap and an exit status. Not every destination can hold a pipe.
open_pipe() {
    pipe=$(mktemp -u /tmp/ZipFuncs.XXXXXXXXXX) && mkfifo "$pipe" || { pipe= && finish_full; }
    # Both directions first: neither end then waits for the other.
    eval "exec $2<>\"\$pipe\" $1<\"\$pipe\" $2>\"\$pipe\""
    rm -f "$pipe" && pipe=
}

# --- The work folder: private, in the destination, entered for good -------------------------------------------------
#
# Everything is made in there under relative names: whoever renames the folder or puts another in its place changes
# nothing, and ".." stays the destination, as nobody can move a folder that they can't write to out of its parent. The
# file "owner" names the host, and is locked for as long as the script or one of its tools lives: so the next call with
# the same destination knows for certain what a killed script left, and removes it.

# Makes it in $1, which is then "..".
make_work_folder() {
    host="${system#* } $(cat /etc/machine-id)"
    set +f
    for left in "$1".ZipFuncs.??????????; do
        [ -L "$left" ] || [ ! -O "$left" ] || (remove_left_folder "$1" "$left")
    done
    set -f
    # First the name, then the folder: bash takes signals within a substitution, before it has what that says.
    made=$(mktemp -u "$1.ZipFuncs.XXXXXXXXXX")
    mkdir "$made" || { made= && finish 73 'no folder can be made in the destination'; }
    enter_folder "$1" "$made" && [ -z "$(ls -A)" ] && work=$made ||
        { made= && finish 73 'somebody else changes the destination'; }
    if ! printf '' >owner || ! exec 9<>owner; then finish_full; fi
    if lock && ! echo "$host" >&9; then finish_full; fi
}

# Enters this user's folder $2, which is in $1, and not what others put in its place. (Some file systems keep no mode.)
enter_folder() { cd -P "$2" && [ -O . ] && [ .. -ef "$1" ] && { chmod 700 . || :; }; }
# Locks the file on descriptor 9: fails where somebody holds it, or the file system has no locks.
lock() { perl -e 'open(F, "<&=9") && flock(F, 6) || exit 1'; }

# For a subshell. One that names no host was left empty, or is being made.
remove_left_folder() {
    enter_folder "$1" "$2" || exit
    [ "$(cat owner)" = "$host" ] || { [ ! -s owner ] && [ -n "$(find . -prune -mmin +60)" ]; } || exit
    exec 9<>owner && lock && empty_work_folder && cd / && rmdir "$2"
}

empty_work_folder() {
    remove tree out part.zip names listing survey early late message digest probe
    # Some file systems (NFS, FUSE) keep a file under another name while somebody has it open.
    exec 9<&- && rm -f owner
}
# A tree that was expanded may hold folders that lock their owner out.
remove() { rm -rf "$@" || { chmod -R u+rwx tree && rm -rf "$@"; }; }

# --- Paths ----------------------------------------------------------------------------------------------------------
# Sets source from a folder and a name, for the tool $3.
set_source() {
    for tool in perl "$3"; do command -v "$tool" || finish 69 "$tool is missing"; done
    is_path "$1" "$2" && [ -r "$1$2" ] || finish 66 'the source is missing or not readable'
    source=$1$2 source_folder=$1 source_name=$2
}

# Makes the work folder beside the target, ../$target_name, a file that exists or a new name; and "out", the result,
# empty. Its descriptor, opened before anything is written, learns of every write that fails later, also of one that the
# file system tells only who closes the file.
set_target() {
    is_path "$1" "$2" && is_open_folder "$1" || finish 73 'the destination is no folder that can be written to'
    [ ! -e "$1$2" ] || { [ -f "$1$2" ] && ! [ "$1$2" -ef "$source" ]; } ||
        finish 73 'a folder, a device or the source itself is in the way'
    target_name=$2
    make_work_folder "$1"
    if ! printf '' >out || ! exec 8<>out; then finish_full; fi
}
is_path() {
    case $2 in '' | . | .. | */*) return 1 ;; esac
    [ "$1" != "${1#/}" ]
}
is_open_folder() { [ -d "$1" ] && [ -w "$1" ] && [ -x "$1" ]; }

# --- Results: as private as what they come from, flushed, looked at -------------------------------------------------

# What there is in $1$2 that fulfils $3..., less work folders and the archive that is replaced. Only the front of a path
# holds "//", whatever a name holds.
find_in() {
    (cd "$1" && name=$2 && shift 2 && exec find -H ".//$name" \
        \( -name '.ZipFuncs.??????????' -o -path ".//$replaced" \) -prune -o "$@" -print)
}
any_in() { [ "$(find_in "$@" | head -c 1 | wc -c)" -gt 0 ]; }

# Prints the mode of a result that nobody may read who can't read all that is in $1$2. Where that isn't all of the
# result's group, this and others get what both are given. What an access list (+) gives can't be told.
mode_like() {
    given=$((044 & ~user_mask))
    ! any_in "$1" "$2" \( -type d ! -perm -050 -o -type f ! -perm -040 \) || given=$((given & 7))
    ! any_in "$1" "$2" \( -type d ! -perm -005 -o -type f ! -perm -004 \) || given=$((given & 070))
    [ "$given" -eq 36 ] || ! any_in "$1" "$2" ! -type l ! -group "$(ls -n out | awk '{ print $4 }')" || given=0
    ! find_in "$1" "$2" -exec ls -ldnL {} + | grep -q '^[-d].\{9\}+' || given=0
    echo "$((0600 | given))"
}

# Puts "out" in the target's place. While it is open, nothing else can get its inode.
publish() {
    [ ! -f "../$target_name" ] || mode=$((mode & $(mode_like ../ "$target_name")))
    chmod "$(printf '%o' "$mode")" out
    dd if=/dev/null conv=fsync >&8 && flush out || finish_full
    published=$(inode out)
    trap '' HUP INT TERM # what has its name is no failure any more
    $rename out "../$target_name" || finish 73 "the target can't be replaced"
    [ "$(inode "../$target_name")" = "$published" ] || finish 73 'somebody else changes the destination'
    flush .. || finish_full
    finish 0
}
inode() { ls -di "$1" | sed -n '1s/^ *\([0-9]*\).*/\1/p'; }
# Whatever a tool says: where a few bytes more can't be written, the disk is full (or gone).
check_disk() { dd if=/dev/zero bs=65536 count=1 conv=fsync >probe && rm probe || finish_full; }

# --- bsdtar ---------------------------------------------------------------------------------------------------------

# Runs it with the options $3... and the file $2 as input. $1 is the status of a failure of which nothing is known.
run_bsdtar() {
    open_pipe 4 5
    failed=$1 input=$2
    shift 2
    (
        [ "$1" = -c ] || umask "$user_mask"
        [ "$1" = -t ] || set -- "$@" --no-acls --no-xattrs --no-fflags --no-mac-metadata
        LC_ALL=$utf8 exec bsdtar "$@"
    ) <"$input" 2>&5 4<&- 5>&- &
    children="$children $!" tar=$!
    # What it says stands at the end of a line, behind a name that could hold anything. The first line of the worst kind
    # goes to "message". At a wrong password it is ended, which would try it on every other entry. 2: items that went.
    awk '
        function say(kind) { if (kind > worst) { worst = kind; line = $0 } }
        /: Incorrect passphrase(: Unknown error -1)?$/ && !/through symlink/ { say(9); exit }
        /: (No space left on device|Disk quota exceeded|File too large|Read-only file system)$/ { say(8); next }
        /: (Permission denied|Operation not permitted|Input\/output error|File name too long)$/ { say(7); next }
        /: Couldn.t visit directory/ { say(7); next }
        /[Uu]nsupported|[Uu]nknown option|[Uu]nrecognized option|Undefined option|not supported/ { say(6); next }
        /: No such file or directory$|[Ff]ile (may have )?(grown|shrunk|shrank)/ { say(2); next }
        !/Error exit delayed/ { say(3) }
        END { if (worst) print line >"message"; exit worst }' <&4 4<&- 5>&- 9>&- &
    children="$children $!"
    exec 4<&- 5>&-
    wait_for "$!"
    said=$?
    [ "$said" -ne 9 ] || [ -z "$password" ] || finish 82 'wrong password'
    [ "$said" -ne 9 ] || finish 77 'the archive needs a password'
    wait_for "$tar" && return
    [ -s message ] && read -r message <message || message='bsdtar failed'
    check_disk
    case $said$failed in
        270) return ;;
        8*) failed=74 ;;
        770) failed=66 ;;
        765) failed=73 ;;
        6*) failed=69 ;;
    esac
    finish "$failed" "$message"
}

# --- The structure of zip archives (APPNOTE.TXT 4.3) ----------------------------------------------------------------
#
# bsdtar guesses formats, looks for the end record in the last 16 KiB only, and takes an archive that was cut within its
# central directory for a whole one. So the end record is looked for here, and has to fit the directory before it.
# Anything may stand behind it, and in front, as in archives that expand themselves: that moves all offsets.

# Sets, for the archive $1: entries; end, where the end record lies; plain, 1 if bsdtar finds it. Fails without a whole
# directory. With $2 "unmark", names that aren't UTF-8 lose their mark; with "encrypted" it prints instead, for each
# entry, in the order of the local headers, whether that says it is encrypted.
read_zip_structure() { structure=$(look_at_zip "$@") && eval "$structure"; }
look_at_zip() { perl -e "$zip_structure" -- "$@"; }
zip_structure='
    my ($path, $deed) = @ARGV;
    open(my $zip, $deed eq "unmark" ? "+<" : "<", $path) or exit 1;
    sub take { read($zip, my $bytes, $_[0]) == $_[0] or exit 1; $bytes }

    # The last end record that has room for its directory.
    my $size = (stat($zip))[7];
    my $first = $size > 140000 ? $size - 140000 : 0;
    seek($zip, $first, 0);
    my $tail = take($size - $first);
    my (@marks, $at, $front, $entries, $modulo, $length, $start);
    push(@marks, $-[0]) while $tail =~ /PK\x05\x06/g;
    for my $mark (reverse(@marks)) {
        next if $mark + 22 > length($tail);
        (my $disks, $entries, $length, $start, my $comment) = unpack("x4 V x2 v V V v", substr($tail, $mark, 22));
        ($modulo, my $behind) = (65536, $mark);
        if ($mark >= 76 && substr($tail, $mark - 20, 4) eq "PK\6\7") {
            ($modulo, $behind) = (~0, rindex($tail, "PK\6\6", $mark - 76));
            next if $behind < 0;
            ($entries, $length, $start) = unpack("x32 Q<3", substr($tail, $behind, 56));
        }
        $front = $first + $behind - $length - $start;
        next if $disks > 0 || $front < 0 || $mark + 22 + $comment > length($tail);
        $at = $mark;
        last;
    }
    defined($at) or exit 1;

    # The directory, entry by entry.
    my ($count, @headers, @marked) = 0;
    seek($zip, $front + $start, 0);
    for (; $length > 0; $count++) {
        my $place = tell($zip);
        my ($id, $flags, $packed, $whole, $name, $extra, $comment, $header) =
            unpack("a4 x4 v x10 V V v v v x8 V", take(46));
        $id eq "PK\1\2" or exit 1;
        ($name, $extra) = (take($name), take($extra));
        take($comment);
        if ($header == 0xffffffff) {
            my %field = eval { unpack("(v v/a)*", $extra) };
            $header = unpack("Q<", substr($field{1}, 8 * (($packed == 0xffffffff) + ($whole == 0xffffffff))));
        }
        push(@headers, $header += $front);
        push(@marked, $place + 9, $header + 7)
            if $flags & 2048 && (!utf8::decode($name) || $name =~ /[\x{d800}-\x{dfff}]|[^\0-\x{10ffff}]/);
        $length -= tell($zip) - $place;
    }
    exit 1 if $length != 0 || $count % $modulo != $entries;

    for ($deed eq "unmark" ? @marked : ()) { seek($zip, $_, 0); print {$zip} "\0" }
    for ($deed eq "encrypted" ? sort { $a <=> $b } @headers : ()) { seek($zip, $_ + 6, 0); print ord(take(1)) & 1, "\n" }
    close($zip) or exit 1;
    my $plain = ($at == $marks[-1] && $size - $first - $at < 16384 && ($at > 0 || $size == 22)) + 0;
    print "entries=$count end=", $first + $at, " plain=$plain\n" if $deed ne "encrypted"'

# --- Zip ------------------------------------------------------------------------------------------------------------
zip_verb() {
    set_source "$1" "$3" bsdtar
    [ -f "$source" ] || [ -d "$source" ] || finish 66 'the source is neither a file nor a folder'
    set_target "$2" "$4"
    set_replaced
    # Not in the child: a signal ends that, but would leave what it called to make a file in a folder that goes.
    touch -t 197001020000 early && touch -t 203801180000 late || finish_full
    survey &
    children="$children $!" surveyor=$!
    # In a list: "@x" and "-Cx" have meanings as operands. Backslashes without any "/" are read as those of a Windows
    # path. -H: what the source itself links to. -P: a leading "\" or "c:" belongs to the name.
    case $source_name in *\\*) list=./$source_name ;; *) list=$source_name ;; esac
    printf '%s\0' "$list" >names || finish_full
    set -- -f out --format zip --options "zip:compression-level=3${password:+,zip:encryption=aes256}" \
        ${password:+--passphrase "$password"}
    pack "$@" -H -C "$source_folder" --null -T -
    wait_for "$surveyor" && read -r items mode odd times <survey || finish_full
    [ "$odd" = no ] || finish 66 "a pipe, socket or device can't be packed"
    [ "$times" = no ] || pack_clamped "$@"
    # bsdtar marks every name as UTF-8. One that isn't would make other tools refuse the whole archive.
    read_zip_structure out unmark || { check_disk && finish 70 'the archive came out damaged'; }
    [ "$items" -eq "$entries" ] || any_in "$source_folder" "$source_name" -type d -newer "$work/owner" ||
        finish 70 "not all of the $items items were packed"
    publish
}

# An archive that is written below its own source doesn't pack what it replaces: sets replaced to its path, as a pattern.
set_replaced() {
    inside=$(cd -P .. && pwd -P)/$target_name
    outside=$(cd -P "$source" && pwd -P)/
    [ "${inside#"$outside"}" = "$inside" ] ||
        replaced=$(printf '%s' "$source_name/${inside#"$outside"}" | sed 's/[][*?\\$^]/\\&/g')
}

# Writes to "survey", beside bsdtar: the number of items, the mode that they ask for, and whether any is of a kind that
# bsdtar leaves out, or has a time that zip can't hold.
survey() {
    set -- "$source_folder" "$source_name"
    odd=no times=no
    ! any_in "$@" ! -type f ! -type d ! -type l || odd=yes
    ! any_in "$@" \( -newer "$work/late" -o ! -newer "$work/early" \) || times=yes
    echo "$(find_in "$@" | grep -c '^\.//') $(mode_like "$@") $odd $times" >survey
}
# Runs bsdtar on the source, with the list "names" as input.
pack() { run_bsdtar 70 names -c -P "$@" --exclude '.ZipFuncs.??????????' --exclude "^$replaced\$"; }

# bsdtar wraps times that zip can't hold, those outside 1970 to 2038: packs from a list in which they are the nearest.
pack_clamped() {
    pack -f listing --format mtree --options 'mtree:!all,mtree:type,mtree:mode,mtree:time,mtree:link' -H \
        -C "$source_folder" --null -T -
    perl -pe 's/ time=(-?\d+)\S*/" time=" . ($1 < 0 ? 0 : $1 > 2147483647 ? 2147483647 : $1)/e' listing >names || finish_full
    pack "$@" -s ',^\./,,SH' -C "$source_folder" @-
}

# --- Unzip ----------------------------------------------------------------------------------------------------------
unzip_verb() {
    [ "$4" = expand ] || finish 64 'the fourth field isn'\''t "expand"'
    set_source "$1" "$3" bsdtar
    [ -f "$source" ] || finish 66 "the archive can't be read"
    read_zip_structure "$source" || finish 65 'no zip archive, or it is cut'
    # What is missing of the destination is made in the work folder, and gets its place with all that is in it.
    folder=${2%"${2##*[!/]}"} missing=
    while [ -n "$folder" ] && [ ! -e "$folder" ] && [ ! -L "$folder" ]; do
        missing=${folder##*/}/$missing
        folder=${folder%/*}
    done
    [ "$2" != "${2#/}" ] && is_open_folder "$folder/" || finish 73 'the destination is no folder that can be written to'
    make_work_folder "$folder/"
    if [ "$plain" -eq 0 ]; then
        { head -c "$((end + 20))" "$source" && printf '\0\0'; } >part.zip && source=part.zip || finish_full
    fi
    set -- --options 'zip:!mac-ext' --passphrase "${password:-no password was given}" -f "$source"
    check_entries "$@"
    # bsdtar ignores what close(2) answers, where quotas and network file systems tell of what they lost. A file of the
    # script's own, written before and after the others, tells it, too.
    check_disk
    (umask "$user_mask" && mkdir -p "tree/$missing") || finish_full
    expand "$@" -C "tree/$missing"
    find_places
    if [ "$merges" = yes ]; then
        # Now that all is known to be well, and to find room, bsdtar replaces file after file in place.
        remove tree
        trap '' HUP INT TERM
        expand "$@" --safe-writes -C "../$missing"
        $flush_all .. || finish_full
    else
        $flush_all . || finish_full
        move_into_place
        flush .. || finish_full
    fi
    finish 0
}

# Looks at the list of entries, with bsdtar's options $@: every entry that the end record counts is a file, a folder or a
# link; bsdtar sees a plain zip (a tar can look like one); no content stands unencrypted, forged, among encrypted.
check_entries() {
    if [ -n "$password" ]; then look_at_zip "$source" encrypted; fi >names ||
        { check_disk && finish 65 'the archive is damaged'; }
    run_bsdtar 65 /dev/null -t -vvv "$@" >listing
    listed=$(awk '
        FILENAME == "names" { encrypted[FNR] = $1; next }
        FNR > 1 {
            split(last, columns)
            if (last !~ /^[-dl]/) wrong = 1
            if (last ~ /^-/ && columns[5] > 0) seen[encrypted[FNR - 1]]
        }
        { last = $0 }
        END {
            if (last !~ /^Archive Format: ZIP.*,  Compression: none$/ || (0 in seen) && (1 in seen)) wrong = 1
            if (!wrong) print FNR - 1
        }' names listing)
    [ -n "$listed" ] && [ "$listed" -eq "$entries" ] || finish 65 'the archive is damaged, or hostile'
}

# No owners, no set-id or sticky bits, modes under the umask. bsdtar refuses to write to "..", which the first -s makes of
# absolute names, and through a link. The second -s keeps the names that it would shorten.
expand() {
    run_bsdtar 65 /dev/null -x --no-same-owner --no-same-permissions -s ',^/,../,SH' -s ',^,./,SH' "$@"
    check_disk
}

# Does each item of the tree find its place free? A folder may meet a folder that can be written to, no link; anything
# else no folder. Sets merges to yes when a folder exists already.
find_places() {
    merges=$(cd tree && find . ! -name . -exec sh -c '
        is_folder() { [ -d "$1" ] && [ ! -L "$1" ]; }
        for item do
            place=../../$item
            [ -e "$place" ] || [ -L "$place" ] || continue
            if is_folder "$item" && is_folder "$place" && [ -w "$place" ] && [ -x "$place" ]; then echo yes
            elif is_folder "$item" || is_folder "$place"; then echo blocked; fi
        done' sh {} + | sort -u)
    case $merges in blocked*) finish 73 'a link, a folder or something of another kind is in the way' ;; esac
}

# From here on it is a matter of a few renames: see them through. A locked folder's move writes into the folder.
move_into_place() {
    trap '' HUP INT TERM
    (cd tree && find . ! -name . -prune -type d ! -perm -200 -exec sh -c '
        chmod u+w "$1" && mv -f "$1" ../../ && chmod u-w "../../$1"' sh {} \; &&
        find . ! -name . -prune -exec sh -c 'exec mv -f -- "$@" ../../' sh {} +) && rmdir tree ||
        finish 73 "the result can't be moved into place"
}

# --- Encrypted files (docs/encrypted-files.md) ----------------------------------------------------------------------
#
# No key is ever an argument or in the environment: openssl gets them through pipes, and HMAC is built from its
# definition (RFC 2104), as its options would take the key as an argument.
magic=464f4c4944455801 zeros=0000000000000000000000000000000000000000000000000000000000000000

# Writes the bytes of the hexadecimal digits $1, each XORed with $2.
put() {
    rest=$1 octets=
    while [ -n "$rest" ]; do
        byte=$((0x${rest%"${rest#??}"} ^ ${2:-0}))
        rest=${rest#??}
        octets="$octets\\0$((byte >> 6))$((byte >> 3 & 7))$((byte & 7))"
    done
    printf %b "$octets"
}

# Sets digest to the SHA-256, hexadecimal, of what the command $@ writes.
digest_of() {
    digest=$("$@" | openssl dgst -sha256) && digest=${digest##* }
    [ "${#digest}" -eq 64 ] || finish 69 "openssl can't hash"
}

# Prints PBKDF2-HMAC-SHA256, in hexadecimal digits, of the line $1, the 8 bytes $2 and $3 rounds. A cipher with a 32-byte
# key and no IV makes openssl print just that.
derive() {
    printf '%s\n' "$1" | openssl enc -aes-256-ecb -pbkdf2 -md sha256 -iter "$3" -S "$2" -P -pass stdin |
        sed -n 's/^key=//p'
}

# Sets check, cipher_key and mac_key. openssl takes a line of at most 1023 bytes as password, and 8 bytes of salt: the
# digest of the whole salt and the password stands in for it.
derive_keys() {
    digest_of put_salted_password
    master=$(derive "$digest" "${salt%????????????????}" 600000)
    # The labels "verifier", "cryptkey" and "auth-key"; one round makes it HMAC-SHA256 of the label.
    check=$(derive "$master" 7665726966696572 1 | tr A-F a-f)
    cipher_key=$(derive "$master" 63727970746b6579 1)
    mac_key=$(derive "$master" 617574682d6b6579 1)
    [ "${#master}${#check}${#cipher_key}${#mac_key}" = 64646464 ] || finish 69 "openssl can't derive keys"
    check=$(printf '%.16s' "$check")
}
put_salted_password() { put "$salt" && printf '%s' "$password"; }

file_verb() {
    set_source "$1" "$3" openssl
    [ -f "$source" ] && size=$(wc -c <"$source") || finish 66 'the source is no file'
    set_target "$2" "$4"
    mode=$(mode_like "$source_folder" "$source_name")
    "${verb}_file"
    publish
}

encrypt_file() {
    salt=$(openssl rand -hex 16) && derive_keys
    head=$magic$salt$check
    put "$head$zeros" >out || finish_full
    run_cipher -e out
    [ -z "$failed" ] || finish 70 'openssl or cat failed'
    [ "$(wc -c <out)" -ge "$((size + 80))" ] || finish 66 "the source can't be read, or shrank"
    # Over the placeholder; "<>" doesn't cut the file.
    put "$head$digest" 1<>out || finish_full
}

decrypt_file() {
    changed=$(time_of_change)
    # Magic and version (8 bytes), salt (16), check (8); MAC (32).
    claim=$(dd bs=64 count=1 <"$source" | od -An -v -tx1 | tr -d ' \n')
    head=$(printf '%.64s' "$claim")
    claim=${claim#"$head"} salt=${head#"$magic"}
    [ "${#claim}" -eq 64 ] && [ "$salt" != "$head" ] || finish 65 'no encrypted file of this kind'
    salt=${salt%????????????????} && derive_keys
    [ "$head" = "$magic$salt$check" ] || finish 1 'wrong password'
    run_cipher -d "$source"
    [ "$digest" = "$claim" ] || finish 65 'the file is damaged'
    [ -z "$failed" ] || finish 70 'openssl or cat failed'
    [ "$(time_of_change)" = "$changed" ] || finish 66 'the source changed'
}
time_of_change() { stat -L -c %z "$source" || stat -L -f %Fc "$source"; }

# Sends the source through the cipher to the result, and sets digest to the MAC of $head and of what follows byte 64 in the
# encrypted file $2. That is read beside the cipher, which is quicker than a pipe through both: the result as far as it is
# written, or the source a second time (nobody can set its time of change).
run_cipher() {
    direction=$1
    open_pipe 6 7
    openssl dgst -sha256 <&6 >digest 6<&- 7>&- &
    children="$children $!" hasher=$!
    put_keyed 0x36 "$head" >&7 || finish_full
    open_pipe 3 5 && printf '%s\n' "$cipher_key" >&5 && exec 5>&- || finish_full
    cipher <"$source" >>out 6<&- 7>&- &
    children="$children $!" cipher=$!
    follow <"$2" >&7 3<&- 6<&- 7>&- &
    children="$children $!" follower=$!
    exec 3<&- 6<&- 7>&-
    failed=
    wait_for "$cipher" || failed=yes
    wait_for "$follower" || failed=yes
    wait_for "$hasher" && read -r inner <digest || failed=yes
    [ -z "$failed" ] || check_disk
    digest_of put_keyed 0x5c "${inner##* }"
}
put_keyed() { put "$mac_key$zeros" "$1" && put "$2"; }

# These two are children. In counter mode -e and -d do the same, but -e writes and -d reads a header with a salt first.
cipher() {
    [ "$direction" = -e ] || skip_head
    exec openssl enc "$direction" -aes-256-ctr -pbkdf2 -md sha256 -iter 1 -bufsize 1048576 -pass fd:3
}
# Copies standard input until the cipher has ended, after which it is whole. That isn't told by a file: a disk that has
# failed would tell nothing.
follow() {
    skip_head
    while kill -0 "$cipher"; do
        cat && sleep 0.1 && kill -0 "$$" || exit
    done
    exec cat
}
skip_head() { dd bs=64 count=1 >/dev/null; }

# --- Fields ---------------------------------------------------------------------------------------------------------

[ "$#" -eq 1 ] || finish 64 'not one argument'
verb=${1%%"|"*}
password=${1#*"|"*"|"*"|"*"|"*"|"}
# A field behind the last one keeps an empty one.
fields="$1|."
IFS='|'
set -- $fields
unset IFS
case $verb:$# in
    zip:6 | unzip:6) password= ;;
    zip:* | unzip:* | *:[1-6]) finish 64 'wrong number of fields' ;;
    *) [ -n "$password" ] || finish 64 'no password' ;;
esac
shift
case $verb in
    zip | zipencrypt) zip_verb "$@" ;;
    unzip | unzipdecrypt) unzip_verb "$@" ;;
    encrypt | decrypt) file_verb "$@" ;;
    *) finish 64 'unknown verb' ;;
esac
