"""The test's hand in the real client's windows: see puppet/Puppet.cpp."""
import socket
import time


class Puppet:
    def __init__(self, path, seconds=20):
        end = time.monotonic() + seconds
        while True:
            self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            try:
                self.socket.connect(str(path))
                break
            except OSError:
                self.socket.close()
                if time.monotonic() > end:
                    raise
                time.sleep(0.02)
        self.socket.settimeout(60)
        self.file = self.socket.makefile("rw", encoding="utf-8", newline="\n")

    def run(self, *words):
        self.file.write("\t".join(map(str, words)) + "\n")
        self.file.flush()
        answer = self.file.readline().rstrip("\n").split("\t", 1)
        if answer[0] != "ok":
            raise AssertionError(f"{words}: {answer}")
        return answer[1].replace("\v", "\n") if len(answer) > 1 else ""

    def __getattr__(self, command):
        return lambda *words: self.run(command, *words)

    def until(self, condition, what, seconds=20):
        end = time.monotonic() + seconds
        while True:
            try:
                if condition():
                    return
            except AssertionError:
                pass
            if time.monotonic() > end:
                raise AssertionError(f"waited {seconds} s in vain for {what}\n" + self.run("names"))
            time.sleep(0.02)

    def see(self, name, seconds=20):
        """Waits until the widget is visible."""
        self.until(lambda: self.run("visible", name) == "1", name, seconds)

    def click(self, name):
        """As a person does it: not before it is there and enabled."""
        self.until(lambda: self.run("click", name) == "", f"{name} to be clicked")

    def gone(self, name, seconds=20):
        self.until(lambda: self.run("visible", name) == "0", f"{name} to go", seconds)

    def path(self, *parts):
        return "\v".join(parts)
