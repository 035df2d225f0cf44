"""A loudspeaker that nobody hears. Players take their time from it; without one, VLC ends as soon as it has read all."""

import shutil
import os
import subprocess
import tempfile
import time
from pathlib import Path


class Loudspeaker:
    """A sound server of its own, whose only output takes sound at the speed of a real one."""

    def __init__(self, folder):
        self.folder = Path(tempfile.mkdtemp(prefix="loudspeaker-", dir=folder))
        prefix = []
        if os.geteuid() == 0:
            shutil.chown(self.folder, "nobody", "nogroup")
            prefix = ["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"]
        self.folder.chmod(0o755)
        socket = self.folder / "socket"
        environment = dict(os.environ, HOME=str(self.folder), XDG_RUNTIME_DIR=str(self.folder))
        self.process = subprocess.Popen(
            [*prefix, "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no", "--disable-shm=yes",
             "--load=module-null-sink norewinds=1", f"--load=module-native-protocol-unix socket={socket} auth-anonymous=1"],
            env=environment, cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        end = time.monotonic() + 20
        while not socket.exists():
            if time.monotonic() > end or self.process.poll() is not None:
                raise RuntimeError("the sound server did not start")
            time.sleep(0.02)
        self.environment = {"PULSE_SERVER": f"unix:{socket}"}

    def close(self):
        self.process.terminate()
        self.process.wait()
