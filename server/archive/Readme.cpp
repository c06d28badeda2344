#include "server/archive/Readme.h"

namespace server::archive {

// Lines that begin with four blanks and "$ " are commands; the test of this text runs them as they
// stand.
std::string_view ReadmeText() {
    return R"(Backups made by Velmora Backup: how to restore them by hand
===========================================================

Everything in this directory can be read with tools that every Linux system has
or offers. Velmora Backup itself is not needed.

Each folder with a name like 20261122T201530-0000001a is one backup: the day and
the time (UTC) at which it was started, then the number of its job. A folder
whose name ends in ".partial" is a backup that was not completed.

In the folder of a backup are

    backup.json        what it is: title, computer, volumes, times, media
    0001.tar.zst ...   the saved files: the media, numbered, in their order
    catalogue.db.zst   the list of all saved files, an SQLite database
    SHA256SUMS         check sums of all these files

A complete backup of kind "full" (see backup.json) needs nothing but its own
folder. If media were copied to several discs, copy them back into one folder
first.


1. Is it undamaged?
-------------------

In the folder of the backup type

    $ sha256sum -c SHA256SUMS

Every line must end with "OK". (In all examples the sign $ stands for what your
terminal shows before you type; do not type it.)


2. What is in it?
-----------------

All media of a backup, joined in their order, are one compressed tar archive.
The ending of their names tells how they were compressed:

    ending        unpacked by     package
    .tar          nothing (cat)
    .tar.zst      zstd -dc        zstd
    .tar.lz4      lz4 -dc         lz4
    .tar.xz       xz -dc          xz-utils

To list everything, whatever the number of media, type the line that fits the
ending:

    $ cat $(ls -v *.tar) | tar -tvf -
    $ cat $(ls -v *.tar.zst) | zstd -dc | tar -tvf -
    $ cat $(ls -v *.tar.lz4) | lz4 -dc | tar -tvf -
    $ cat $(ls -v *.tar.xz) | xz -dc | tar -tvf -

Names begin with the name of the volume: System/home/anna/letter.txt was
/home/anna/letter.txt on the volume "System".


3. Restore everything
---------------------

Make a directory for what comes back, with enough room, and unpack into it. As
root this brings back owners, rights, access lists, extended attributes, times,
links, sparse files and devices; any other user gets what that user may set.
The examples use the directory "restored" beside the folder of the backup:

    $ mkdir -p ../restored
    $ cat $(ls -v *.tar) | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored
    $ cat $(ls -v *.tar.zst) | zstd -dc | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored
    $ cat $(ls -v *.tar.lz4) | lz4 -dc | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored
    $ cat $(ls -v *.tar.xz) | xz -dc | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored

(One of the four lines after "mkdir", as above.) On another computer, where the
users have other numbers, the owners go by their names; add --numeric-owner
after -xpf - to go by their numbers instead.


4. Restore one file or directory
--------------------------------

Put its name, as the list of step 2 shows it, behind the line of step 3. A
directory brings along all that is in it:

    $ cat $(ls -v *.tar.zst) | zstd -dc | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored 'System/home/anna/letter.txt'

If it is a hard link ("link to" in the list), name the file that it is a link to
as well.


5. When a medium is damaged
---------------------------

Step 1 names the damaged files. The media consist of pieces of about 4 MB that
were compressed one by one (frames), so damage in one leaves the others whole.

Step 3 restores everything in front of the damage, then stops with an error.
What lies behind it: find out where to go on, with the list of files (package
sqlite3), which knows where each piece begins. First

    $ zstd -dqf catalogue.db.zst -o ../catalogue.db

then ask for the pieces in which an entry begins: the number of the medium, the
position of the piece on it, the position of the entry in the unpacked piece.

    $ sqlite3 ../catalogue.db "SELECT f.medium, f.offset, min(e.offset) FROM entries e JOIN frames f ON f.id = e.frame GROUP BY e.frame ORDER BY e.frame"

Take the first one behind the damage and put its numbers into the first line
below: medium 1, piece at 0, entry at 0 stand in this example. For media that
are not .tar.zst replace the ending and "zstd -dc" as in step 2.

    $ medium=1; piece=0; entry=0
    $ rest=$(ls -v *.tar.zst | tail -n +$((medium + 1)))
    $ (tail -c +$((piece + 1)) $(ls -v *.tar.zst | sed -n ${medium}p); cat /dev/null $rest) | zstd -dc | tail -c +$((entry + 1)) | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored

If there is more damage further on, repeat this. Without the list of files, try
zstd on the bytes behind the damage: every piece begins with the four bytes
28 b5 2f fd.


What exactly lies here
----------------------

The archive is in POSIX pax format (GNU tar 1.27 or later, or bsdtar). Extended
attributes are records SCHILY.xattr.*, access lists SCHILY.acl.*, sparse files
GNU.sparse 1.0. Each frame can be unpacked on its own.
)";
}

}  // namespace server::archive
