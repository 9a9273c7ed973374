"""A development host of a check's own, on a free loopback port: started with
the host's options the check gives, asked with `call`, ended with `stop`. Exits
77, the skip status of the checks, when the machine cannot run the host (no
FUSE)."""
import subprocess
import sys
import urllib.error
import urllib.request


class Host:
    def __init__(self, executable, *options):
        self.process = subprocess.Popen([executable, "--listen", "127.0.0.1:0", "--log", "/dev/null", *options],
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.port = None
        for line in self.process.stdout:
            if line.startswith("ispiaas-devhost: serving http://127.0.0.1:"):
                self.port = int(line.split(":")[3].split("/")[0])
                break
        if self.port is None:
            status = self.process.wait()
            sys.exit(77 if status == 77 else f"the host did not start (exit {status})")
        self.url = f"http://127.0.0.1:{self.port}"

    def call(self, method, target, body=None):
        """HTTP status and the answer's text."""
        request = urllib.request.Request(f"{self.url}{target}", method=method,
                                         data=None if body is None else body.encode())
        try:
            with urllib.request.urlopen(request, timeout=30) as answer:
                return answer.status, answer.read().decode()
        except urllib.error.HTTPError as refused:
            return refused.code, refused.read().decode()

    def stop(self):
        self.process.terminate()
        self.process.wait()
