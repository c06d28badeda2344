"""A program folder and a run directory of a test's own, with the real server in it, and trees to save."""
import json
import os
import pathlib
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import time
import unittest

import wire

PROGRAM = pathlib.Path(sys.argv.pop(1)) if len(sys.argv) > 1 else pathlib.Path("build/release/program")


class House:
    """Temporary program folder (hard links of the built one), run directory and destination."""

    def __init__(self):
        # Not below /var or /tmp: the first is never saved, the second may be another file system.
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="e2e-", dir=PROGRAM.parent)).resolve()
        self.program = self.root / "program"
        subprocess.run(["cp", "-al", PROGRAM, self.program], check=True)
        shutil.rmtree(self.program / "Backup_Server/data", ignore_errors=True)
        self.runtime = self.root / "r"
        self.runtime.mkdir(mode=0o700)
        self.run_directory = self.runtime / "velmora-backup"
        self.target = self.root / "target"
        self.target.mkdir()
        self.source = self.root / "source"
        self.source.mkdir()
        self.environment = dict(os.environ, XDG_RUNTIME_DIR=str(self.runtime),
                                XDG_DATA_HOME=str(self.root / "data"))
        self.server = None
        self.peers = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for peer in self.peers:
            peer.close()
        self.stop_server(signal.SIGKILL)
        lock = self.run_directory / "application_x-vnd.velmoraware-backupserver.lock"
        if lock.exists() and lock.read_text().strip().isdigit():  # one that backupctl launched
            team = int(lock.read_text())
            if pathlib.Path(f"/proc/{team}/exe").exists() and str(self.root) in os.readlink(f"/proc/{team}/exe"):
                os.kill(team, signal.SIGKILL)
        subprocess.run(["umount", "-q", self.target], check=False, stderr=subprocess.DEVNULL)
        shutil.rmtree(self.root, ignore_errors=True)

    def start_server(self):
        self.server = subprocess.Popen([self.program / "Backup_Server/BackupServer"], env=self.environment,
                                       stdin=subprocess.DEVNULL)
        wait(self.is_listening, "the server's socket")

    def is_listening(self):
        # The file is there a moment before anybody listens.
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as tried:
            return tried.connect_ex(str(self.run_directory / f"team-{self.server.pid}.sock")) == 0

    def stop_server(self, how=signal.SIGTERM):
        if self.server and self.server.poll() is None:
            self.server.send_signal(how)
            self.server.wait(20)

    def connect(self, register=True, accept=True, kind=wire.Peer):
        """A client of the server; with wire.Stranger as `kind` one of another team. With `accept` job starts are
        answered by 'KTAB'."""
        def answer(message):
            if message.what == "KTJS" and accept:
                reply = wire.Message("KTAB", job_id=message.get("job_id"))
                return reply.add("user", (peer.team, 77), "MSNG")
            return None
        peer = kind(self.run_directory, self.server.pid, answer)
        self.peers.append(peer)
        if register:
            peer.send(wire.Message("KTAD", client_id=peer.team))
        return peer

    def rule(self, path, subtree=True):
        """The rule path of something below the root volume or whatever volume holds it."""
        best = ("", "")
        for line in pathlib.Path("/proc/self/mountinfo").read_text().splitlines():
            mount = line.split()[4].encode().decode("unicode_escape")
            inside = mount == "/" or str(path) == mount or str(path).startswith(mount + "/")
            if inside and len(mount) >= len(best[0]):
                best = (mount, line)
        rest = str(path)[len(best[0].rstrip("/")):]
        name = self.volume_name(best[0])
        return f"/{name}{rest}" + ("/*" if subtree else "")

    def volume_name(self, mount):
        label = ""
        source = subprocess.run(["findmnt", "-n", "-o", "SOURCE", mount], capture_output=True, text=True).stdout.strip()
        if source.startswith("/dev/"):
            label = subprocess.run(["blkid", "-o", "value", "-s", "LABEL", source], capture_output=True,
                                   text=True).stdout.strip()
        return label or ("System" if mount == "/" else mount.rsplit("/", 1)[1])

    def job(self, title="End to end", rules=None, packer="KTZstd", target=None, remote=None, mediasize=0,
            **start_info):
        selection = wire.Message("SELE")
        for rule in rules or ["INCLUDE " + self.rule(self.source)]:
            selection.add("SELECTION", rule)
        volume = (wire.Message("VOLU", addon="KTRemote", remote=remote) if remote else
                  wire.Message("VOLU", addon="KTImage", path=str(target or self.target)))
        if mediasize:
            volume.add("mediasize", mediasize, "LLNG")
        return wire.Message("KTJA", client_id=os.getpid(), job_type=1, selection=selection,
                            addon=volume.text("addon"),
                            volume=volume, bak_addonpacker=packer, bak_packer=wire.Message("PACK"),
                            start_info=wire.Message("STRT", title=title, **start_info))

    def read_job(self, backup, target=None, job_type=4):
        """Restores the source out of a backup (or compares or checks it), to `target` instead of the old place."""
        record = f"/{backup}{self.rule(self.source)}"
        selection = wire.Message("SELE", SELECTION="INCLUDE " + record)
        if target:
            selection.add("source", "REDIREC " + record).add("redirect", str(target))
        return wire.Message("KTJA", client_id=os.getpid(), job_type=job_type, selection=selection,
                            restore=wire.Message("REST", divert=1 if target else 0, createemptydirs=1),
                            start_info=wire.Message("STRT", title="Back again"))

    def submit(self, peer, job):
        """The job's number. A finished full backup is inserted as well, as a base for others."""
        peer.send(job)
        return peer.wait_for("KTJI", where=lambda m: not m.get("base")).get("job_id")

    def run_job(self, peer, job, seconds=60):
        """Submits and waits for the end; gives the job id and the end's "status"."""
        job_id = self.submit(peer, job)
        end = peer.wait_for("KTJf", seconds, lambda message: message.get("job_id", job_id) == job_id)
        return job_id, end.get("status")

    def folder(self, name):
        """A new one, beside the source."""
        made = self.root / name
        made.mkdir()
        return made

    def backups(self):
        return sorted(p for p in self.target.iterdir() if p.is_dir() and not p.name.endswith(".partial")
                      and p.name[0] == "2")

    def run_ctl(self, *words, password=None):
        """A run of backupctl to its end, with what it printed; a password goes by a pipe, as a line or as bytes."""
        arguments, pipe = [self.program / "backupctl", *map(str, words)], ()
        if password is not None:
            read, write = os.pipe()
            os.write(write, password if isinstance(password, bytes) else password.encode() + b"\n")
            os.close(write)
            arguments += ["--password-fd", str(read)]
            pipe = (read,)
        try:
            return subprocess.run(arguments, env=self.environment, stdin=subprocess.DEVNULL, capture_output=True,
                                  text=True, errors="replace", check=False, pass_fds=pipe, timeout=60,
                                  start_new_session=True)  # away from the terminal of whoever runs the test
        finally:
            for end in pipe:
                os.close(end)

    def ctl(self, *arguments, status=0):
        """What backupctl prints as JSON."""
        done = self.run_ctl(*arguments, "--json")
        assert done.returncode == status, (arguments, done)
        return json.loads(done.stdout)

    def wipe(self):
        """Another machine: nothing is left but the medium."""
        self.stop_server()
        shutil.rmtree(self.program / "Backup_Server/data")
        shutil.rmtree(self.root / "data", ignore_errors=True)

    def places_of(self, secret):
        """The files that hold it, of the server's and of the destination's."""
        return subprocess.run(["grep", "-r", "-l", "-a", "-F", "-e", secret, self.program / "Backup_Server",
                               self.target, self.runtime, self.root / "data"], capture_output=True, text=True).stdout

    def report(self, peer, job_id):
        """The lines of a job's report as (line type, text id)."""
        reports = peer.ask(wire.Message("rpGL"))
        ids = [report for report, job in zip(reports.all("report_id"), reports.all("job_id")) if job == job_id]
        assert ids, f"no report of job {job_id}: {reports}"
        peer.send(wire.Message("rpOP", report_id=ids[-1]).add("user", (os.getpid(), 78), "MSNG"))
        text = peer.wait_for("rpRP")
        return list(zip(text.all("linetype"), text.all("text_id"))), text

    def unpack(self, backup, suffix=".tar.zst", command="zstd -dc", source=None):
        """Restores a backup with stock tools; gives the folder that holds the copy of `source`."""
        subprocess.run(["sha256sum", "--quiet", "-c", "SHA256SUMS"], cwd=backup, check=True)
        restored = self.root / f"restored-{time.monotonic_ns()}"
        restored.mkdir()
        subprocess.run(["bash", "-o", "pipefail", "-c",
                        f"cat {backup}/[0-9]*{suffix} | {command} | "
                        f"tar -x -p --xattrs --xattrs-include='*' --acls --numeric-owner -C {restored}"],
                       check=True)
        return restored / self.rule(source or self.source, False).lstrip("/")


class ServerTest(unittest.TestCase):
    """A house with its server, and a client of it."""

    def setUp(self):
        self.house = House()
        self.addCleanup(self.house.__exit__)
        self.start()

    def start(self):
        self.house.start_server()
        self.peer = self.house.connect()

    def ctl(self, *words, password=None, good=(0,)):
        """All that backupctl prints; how it may end is in `good`."""
        done = self.house.run_ctl(*words, password=password)
        self.assertIn(done.returncode, good, done.stdout + done.stderr)
        return done.stdout + done.stderr

    def save(self, title="End to end", **options):
        """A good backup: its folder."""
        job_id, status = self.house.run_job(self.peer, self.house.job(title, **options))
        self.assertEqual(status, 0, self.house.report(self.peer, job_id))
        return self.house.backups()[-1]

    def errors_of(self, job_id):
        """The text ids of the errors in its report."""
        return [text_id for line_type, text_id in self.house.report(self.peer, job_id)[0] if line_type == 3]


def wait(condition, what, seconds=15):
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, f"waited {seconds} s in vain for {what}"
        time.sleep(0.01)


def make_tree(root):
    """A tree with one of everything that a backup must carry."""
    root = os.fsencode(root)
    join = os.path.join
    os.makedirs(join(root, b"docs/deep/deeper"))
    os.mkdir(join(root, b"empty dir"))
    write(join(root, b"docs/letter.txt"), b"Dear reader\n" * 50)
    write(join(root, b"empty"), b"")
    write(join(root, b"big"), os.urandom(9_000_000) + bytes(5_000_000))
    write(join(root, b"not utf-8 \xff\xfe"), b"bytes")
    write(join(root, b"line\nfeed"), b"newline in the name")
    write(join(root, b"n" * 255), b"a long name")
    with open(join(root, b"holes"), "wb") as file:
        file.truncate(40_000_000)
        file.seek(20_000_000)
        file.write(b"an island")
    os.link(join(root, b"big"), join(root, b"docs/same as big"))
    os.symlink(b"nowhere/at all", join(root, b"dangling"))
    os.symlink(b"t" * 300, join(root, b"long link"))
    os.mkfifo(join(root, b"fifo"))
    os.chmod(join(root, b"docs/letter.txt"), 0o640)
    os.chmod(join(root, b"docs/deep"), 0o750)
    os.setxattr(join(root, b"docs/letter.txt"), b"user.note", b"binary \0 value")
    os.setxattr(join(root, b"docs"), b"user.folder", b"too")
    subprocess.run([b"setfacl", b"-m", b"u:1234:rw,g:4321:r", join(root, b"docs/letter.txt")], check=True)
    subprocess.run([b"setfacl", b"-d", b"-m", b"u:1234:rwx", join(root, b"docs/deep")], check=True)
    if os.geteuid() == 0:
        os.chown(join(root, b"docs/letter.txt"), 1234, 4321)
        os.mknod(join(root, b"device"), stat.S_IFCHR | 0o600, os.makedev(1, 3))
    stamp = 981173106_789012345
    for name in (b"docs/letter.txt", b"empty", b"empty dir", b"docs/deep/deeper", b"docs/deep", b"docs"):
        os.utime(join(root, name), ns=(stamp, stamp))


def make_deep(root, name, levels):
    """A file below so many folders that its path is beyond what one system call takes."""
    at = os.open(root, os.O_RDONLY | os.O_DIRECTORY)
    for _ in range(levels):
        os.mkdir(name, dir_fd=at)
        below = os.open(name, os.O_RDONLY | os.O_DIRECTORY, dir_fd=at)
        os.close(at)
        at = below
    file = os.open(b"bottom", os.O_CREAT | os.O_WRONLY, dir_fd=at)
    os.write(file, b"deep down")
    os.close(file)
    os.close(at)


def write(path, data):
    with open(path, "wb") as file:
        file.write(data)


def describe(root):
    """Everything that can be known of a tree: {relative path: facts}, times of links and holes included."""
    facts = {}
    links = {}
    stack = [(os.open(os.fsencode(root), os.O_RDONLY | os.O_DIRECTORY), b"")]
    while stack:
        at, prefix = stack.pop()
        for name in sorted(os.listdir(at)):
            name = os.fsencode(name)
            path = prefix + b"/" + name
            info = os.stat(name, dir_fd=at, follow_symlinks=False)
            fact = [stat.S_IFMT(info.st_mode), stat.S_IMODE(info.st_mode), info.st_uid, info.st_gid,
                    info.st_mtime_ns]
            if stat.S_ISREG(info.st_mode):
                file = os.open(name, os.O_RDONLY, dir_fd=at)
                fact += [info.st_size, holes(file, info.st_size), hash_of(file), attributes(file)]
                os.close(file)
                if info.st_nlink > 1:
                    fact.append(("same as", links.setdefault(info.st_ino, path)))
            elif stat.S_ISDIR(info.st_mode):
                below = os.open(name, os.O_RDONLY | os.O_DIRECTORY, dir_fd=at)
                fact.append(attributes(below))
                stack.append((below, path))
            elif stat.S_ISLNK(info.st_mode):
                fact.append(os.readlink(name, dir_fd=at))
            elif stat.S_ISCHR(info.st_mode) or stat.S_ISBLK(info.st_mode):
                fact.append(info.st_rdev)
            facts[path] = fact
        os.close(at)
    return facts


def attributes(file):
    return {name: os.getxattr(file, name) for name in sorted(os.listxattr(file))}


def hash_of(file):
    import hashlib
    digest = hashlib.sha256()
    os.lseek(file, 0, os.SEEK_SET)
    while data := os.read(file, 1 << 20):
        digest.update(data)
    return digest.hexdigest()


def holes(file, size):
    """Whether the file has holes (where exactly depends on the file system's blocks)."""
    return size > 0 and os.lseek(file, 0, os.SEEK_HOLE) < size


def differences(left, right):
    """Between two trees; either may be what describe() gave of it earlier."""
    left, right = (tree if isinstance(tree, dict) else describe(tree) for tree in (left, right))
    found = [f"only in one: {path!r}" for path in left.keys() ^ right.keys()]
    found += [f"{path!r}: {left[path]} != {right[path]}" for path in left.keys() & right.keys()
              if left[path] != right[path]]
    return found
