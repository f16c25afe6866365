#!/bin/sh
# ZipFuncs.sh - compress, expand, encrypt and decrypt for the plug-in's archive functions.
#
#   sh ZipFuncs.sh 'zip|source folder|destination folder|source name|archive name'           zipencrypt: + '|password'
#   sh ZipFuncs.sh 'unzip|archive folder|destination folder|archive name|expand'           unzipdecrypt: + '|password'
#   sh ZipFuncs.sh 'encrypt|source folder|destination folder|source name|destination name|password'       or decrypt
# One argument. Folders are absolute and end in "/", names hold none. A "|" ends a field, but not the password.
#
# Exit status: 0 done, whole and on the disk; 1 (decrypt), 82 (unzipdecrypt) wrong password; 64 usage; 65 damaged input;
# 66 unusable source; 69 a method or the program is missing; 70 no memory, or a fault; 73 unusable destination; 74 not
# written: full disk, quota; 77 (unzip) needs a password; 129, 130, 143 ended by HUP, INT, TERM. On any but 0 the
# destination is as it was before.
# It reads nothing, and prints one line, "status verb: cause"; a failure goes to the system log, too. The program that
# does it, folidex-archive, lies beside this script; in a bundle for macOS among its helpers.

# The system's libraries, not those that a host brings for itself.
unset LD_LIBRARY_PATH DYLD_LIBRARY_PATH
case $0 in */*) here=${0%/*} ;; *) here=. ;; esac
for program in "$here/folidex-archive" "$here/../Helpers/folidex-archive"; do
    [ ! -x "$program" ] || exec "$program" "$@"
done
echo '69 ZipFuncs.sh: folidex-archive is missing, or may not run here'
exit 69
