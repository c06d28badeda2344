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
    key.age            only if the backup is protected by a password: see step 2
    gone.list          only if it builds on other backups: what it has no more
    SHA256SUMS         check sums of all these files

A complete backup of kind "full" (see backup.json) needs nothing but its own
folder. One of kind "incremental" or "differential" holds only what has changed;
the backups that it is built on are named in backup.json under "builds_on":
step 7 puts them together.

A folder whose name ends in ".disc1", ".disc2" ... holds a part of a backup that
takes several discs. The last disc has the folder without such an ending, and in
it everything but the media of the discs before. Copy what is in these folders,
from all discs, into one folder; then go on as with any other backup.


1. Is it undamaged?
-------------------

In the folder of the backup type

    $ sha256sum -c SHA256SUMS

Every line must end with "OK". (In all examples the sign $ stands for what your
terminal shows before you type; do not type it.)


2. Is it protected by a password?
---------------------------------

If there is a file key.age, the backup is protected: the media and the list of
files are encrypted, and their names end in ".age". (If there is none, go on
with step 3.) You need the program age (package age) and the password of the
backup. Nobody can help you without the password.

If you have room for a second copy of the backup, make one that is not
encrypted. These lines ask for the password once, for the key, and put the copy
into the directory "opened" beside the folder of the backup:

    $ mkdir -p ../opened
    $ age -d -o ../opened/key.txt key.age
    $ for file in *.tar*.age catalogue*.age; do age -d -i ../opened/key.txt -o ../opened/${file%.age} $file; done
    $ rm ../opened/key.txt
    $ cd ../opened

Then go on with step 3 in that directory, as if there had never been a password.
Delete it when you have what you want: everybody can read it.

If you have no room for a copy, restore everything at once. The examples use the
directory "restored" beside the folder of the backup. Take the line that has the
ending of your media (see the table in step 3 for the tools):

    $ mkdir -p ../restored
    $ age -d -o ../key.txt key.age
    $ for file in $(ls -v *.tar.age); do age -d -i ../key.txt $file; done | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored
    $ for file in $(ls -v *.tar.zst.age); do age -d -i ../key.txt $file; done | zstd -dc | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored
    $ for file in $(ls -v *.tar.lz4.age); do age -d -i ../key.txt $file; done | lz4 -dc | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored
    $ for file in $(ls -v *.tar.xz.age); do age -d -i ../key.txt $file; done | xz -dc | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored
    $ rm ../key.txt

Whoever has key.txt can read the backup without the password: delete it when you
are done. If there is only one medium, no key.txt is needed; this asks for the
password and restores everything:

    $ age -d -i key.age 0001.tar.zst.age | zstd -dc | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored

If a medium is damaged (step 1), age writes what is in front of the damage and
stops with an error. What lies behind it on this medium can only be read by
Velmora Backup; the other media are not affected.


3. What is in it?
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


4. Restore everything
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


5. Restore one file or directory
--------------------------------

Put its name, as the list of step 3 shows it, behind the line of step 4. A
directory brings along all that is in it:

    $ cat $(ls -v *.tar.zst) | zstd -dc | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored 'System/home/anna/letter.txt'

If it is a hard link ("link to" in the list), name the file that it is a link to
as well.


6. When a medium is damaged
---------------------------

Step 1 names the damaged files. The media consist of pieces of about 4 MB that
were compressed one by one (frames), so damage in one leaves the others whole.

Step 4 restores everything in front of the damage, then stops with an error.
What lies behind it: find out where to go on, with the list of files (package
sqlite3), which knows where each piece begins. First

    $ zstd -dqf catalogue.db.zst -o ../catalogue.db

then ask for the pieces in which an entry begins: the number of the medium, the
position of the piece on it, the position of the entry in the unpacked piece.

    $ sqlite3 ../catalogue.db "SELECT f.medium, f.offset, min(e.offset) FROM entries e JOIN frames f ON f.id = e.frame WHERE f.source = (SELECT max(id) FROM chain) GROUP BY e.frame ORDER BY e.frame"

Take the first one behind the damage and put its numbers into the first line
below: medium 1, piece at 0, entry at 0 stand in this example. For media that
are not .tar.zst replace the ending and "zstd -dc" as in step 3.

    $ medium=1; piece=0; entry=0
    $ rest=$(ls -v *.tar.zst | tail -n +$((medium + 1)))
    $ (tail -c +$((piece + 1)) $(ls -v *.tar.zst | sed -n ${medium}p); cat /dev/null $rest) | zstd -dc | tail -c +$((entry + 1)) | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored

If there is more damage further on, repeat this. Without the list of files, try
the unpacking tool on the bytes behind the damage: every piece begins with the
bytes 28 b5 2f fd (zstd), 04 22 4d 18 (lz4) or fd 37 7a 58 5a 00 (xz).


7. Restore a backup that builds on others
-----------------------------------------

Such a backup (kind "incremental" or "differential") is restored by unpacking
all those that it is built on, in the order in which backup.json names them
under "builds_on", and at last itself, all into the same directory. So first do
step 4 in the folder of the first one of them, which is a full backup.

Then, in the folder of each following one, remove what it has no more, and
unpack what it has anew (step 4, the line that fits the ending):

    $ (cd ../restored && xargs -0r rm -rf --) < gone.list
    $ cat $(ls -v *.tar.zst) | zstd -dc | tar -xpf - --acls --xattrs --xattrs-include='*' -C ../restored

gone.list names one entry after the other, each with a zero byte behind it. If
the backups are protected, open each of them as in step 2, gone.list.age with
the others:

    $ age -d -i key.age -o gone.list gone.list.age

A restore of single files (step 5) works from the last backup of the row that
lists them in step 3.


What exactly lies here
----------------------

The archive is in POSIX pax format (GNU tar 1.27 or later, or bsdtar). Extended
attributes are records SCHILY.xattr.*, access lists SCHILY.acl.*, sparse files
GNU.sparse 1.0. Each frame can be unpacked on its own. Encrypted files are in
version 1 of the age format, around all of that.
)";
}

}  // namespace server::archive
